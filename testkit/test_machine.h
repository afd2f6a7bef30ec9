// A machine of one test: a scratch folder, and a settings store in it.
//
//     const TestMachine machine;   machine.Settings.Set("");
#pragma once

#include "testkit/scratch_folder.h"
#include "testkit/settings_store.h"

namespace testkit {

class TestMachine {
public:
    TestMachine() : Settings(Folder) {}

    const ScratchFolder Folder;
    const SettingsStore Settings;
};

}  // namespace testkit
