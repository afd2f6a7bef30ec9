// A machine of one test whose settings name a log in its folder.
//
//     const LogMachine machine;
//     RunAlone(machine, [](const LogMachine&) { CLog::GetInstance()->LogInfo(u"text"_w, u"Test"_w); });
//     EXPECT_EQ(Texts(machine.Log).size(), 5U);
#pragma once

#include "testkit/settings_text.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <algorithm>
#include <string>

namespace testkit {

class LogMachine : public TestMachine {
public:
    LogMachine() : Log((Folder / "App.log").string()), Previous((Folder / "Previous App.log").string())
    {
        if (!Folder.IsJoined())
            SetLog(Log);
    }
    explicit LogMachine(const std::string& mask) : LogMachine() { SetLog(Log, mask); }

    /// Replaces all settings by the path of a log, a debug mask and further sections.
    void SetLog(const std::string& path, const std::string& mask = {}, const std::string& more = {}) const
    {
        Settings.Set(LogSection(path, mask, more));
    }

    /// The name that every process derives for the log's mutex.
    utility::wstring MutexName() const
    {
        utility::wstring name = Wide(Log + ".Mutex");
        std::replace(name.begin(), name.end(), u'\\', u'_');
        return name;
    }

    const std::string Log;
    const std::string Previous;
};

}  // namespace testkit
