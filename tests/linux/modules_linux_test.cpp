// Modules as they come and go, and those without a file.
#include "fail_allocation.h"
#include "modules/modules.h"
#include "support.h"
#include "tessmaru/version.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/auxv.h>

namespace {

using support::Narrow;

/// A copy of the library, loaded by a relative path and unloaded with its holder.
class LoadedCopy {
public:
    LoadedCopy()
    {
        std::filesystem::copy_file(TESSMARU_LIBRARY_FILE, Path);
        const std::filesystem::path before = std::filesystem::current_path();
        std::filesystem::current_path(Folder.path());
        Library = dlopen("./libCopy.so", RTLD_NOW | RTLD_LOCAL);
        std::filesystem::current_path(before);
        EXPECT_NE(Library, nullptr) << dlerror();
        Module = GetModuleHandleW(support::Wide("libCopy.so").c_str());
    }
    LoadedCopy(const LoadedCopy&) = delete;
    LoadedCopy& operator=(const LoadedCopy&) = delete;
    ~LoadedCopy() { dlclose(Library); }

    const support::ScratchFolder Folder;
    const std::string Path = std::filesystem::canonical(Folder.path()) / "libCopy.so";
    HMODULE Module = nullptr;

private:
    void* Library = nullptr;
};

HANDLE TakeSnapshot()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0);
    EXPECT_NE(snapshot, INVALID_HANDLE_VALUE);
    return snapshot;
}

/// The path of a module in a list, "" if it is not there. Closes the list.
std::string PathIn(HANDLE snapshot, HMODULE module)
{
    std::string path;
    MODULEENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Module32FirstW(snapshot, &entry); more; more = Module32NextW(snapshot, &entry)) {
        if (entry.hModule == module)
            path = Narrow(entry.szExePath);
    }
    EXPECT_TRUE(CloseHandle(snapshot));
    EXPECT_FALSE(CloseHandle(snapshot)) << "twice";
    return path;
}

TEST(ModulesOnLinux, AListIsOfOneMoment)
{
    const HANDLE earlier = TakeSnapshot();
    std::optional<LoadedCopy> copy(std::in_place);
    const HMODULE module = copy->Module;
    const std::string path = copy->Path;
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(PathIn(earlier, module), "");
    EXPECT_EQ(PathIn(TakeSnapshot(), module), path);
    const HANDLE during = TakeSnapshot();
    copy.reset();
    EXPECT_EQ(PathIn(during, module), path);
    EXPECT_EQ(PathIn(TakeSnapshot(), module), "");
}

TEST(ModulesOnLinux, AFileThatIsGoneKeepsItsName)
{
    const LoadedCopy copy;
    utility::CVersionInfo version;
    version.setModule(copy.Module);
    EXPECT_EQ(Narrow(version.getModuleFileName()), copy.Path);
    EXPECT_EQ(Narrow(version.getVersionInfoFixedValue(utility::CVersionInfo::eFIXED_FILE_VERSION)), "03,10,00,00");
    std::filesystem::remove(copy.Path);
    unsigned short path[512];
    ASSERT_GT(GetModuleFileNameW(copy.Module, path, 512), 0U);
    EXPECT_EQ(Narrow(path), copy.Path);
}

TEST(ModulesOnLinux, WhatTheKernelBringsAlongHasANameOnly)
{
    const auto page = reinterpret_cast<const void*>(getauxval(AT_SYSINFO_EHDR));
    const HMODULE module = layer::ModuleOf(page);
    if (module == nullptr)
        GTEST_SKIP() << "this kernel brings nothing";
    const std::string name = PathIn(TakeSnapshot(), module);
    EXPECT_TRUE(name.starts_with("linux-")) << name;
    EXPECT_EQ(layer::ModulePath(module), name);
}

TEST(ModulesOnLinux, WithoutMemory)
{
    PathIn(TakeSnapshot(), nullptr);  // makes what stays
    MODULEENTRY32W entry{};
    entry.dwSize = sizeof entry;
    const int failures = support::FailEachAllocation([&entry] {
        const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0);
        bool whole = snapshot != INVALID_HANDLE_VALUE;
        if (whole) {
            whole = Module32FirstW(snapshot, &entry) != FALSE && Module32NextW(snapshot, &entry) != FALSE;
            const DWORD error = GetLastError();
            CloseHandle(snapshot);
            SetLastError(error);
        }
        if (!whole) {
            EXPECT_EQ(GetLastError(), ERROR_OUTOFMEMORY);
        }
    });
    EXPECT_GT(failures, 3);
}

}  // namespace
