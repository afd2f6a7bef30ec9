// The shared library as a program loads it by hand. For programs that the library is not linked to.
//
//     LoadedLibrary library;   library.OpenLog();   EXPECT_TRUE(library.Unload());
#pragma once

#include "tessmaru/log.h"
#include "testkit/known_modules.h"
#include "testkit/loaded_module.h"

namespace testkit {

/// Stays in the process until Unload, or to the end of the process.
class LoadedLibrary : public LoadedModule {
public:
    LoadedLibrary() : LoadedModule(LibraryFile()) {}
    ~LoadedLibrary() { Keep(); }

    using GetInstance = utilities::CLog*();
    GetInstance* FindGetInstance() const { return Find<GetInstance>("_ZN9utilities4CLog11GetInstanceEv"); }
    utilities::CLog* OpenLog() const { return FindGetInstance()(); }
};

}  // namespace testkit
