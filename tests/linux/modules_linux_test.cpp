// Modules on Linux: loaded and unloaded ones, and modules without a file.
#include "modules/modules.h"
#include "tessmaru/errors.h"
#include "tessmaru/log.h"
#include "tessmaru/version.h"
#include "testkit/known_modules.h"
#include "testkit/linux/failing_allocation.h"
#include "testkit/loaded_module.h"
#include "testkit/log_machine.h"
#include "testkit/scratch_folder.h"
#include "testkit/test_process.h"
#include "testkit/text.h"
#include "testkit/whole_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include <sys/auxv.h>

namespace {

using testkit::Narrow;

/// A copy of the library that was loaded by a relative path.
class LoadedCopy {
public:
    /// @param below  the folder of the copy, below a new folder
    explicit LoadedCopy(const std::string& below = ".")
        : Path((std::filesystem::canonical(Folder.path()) / below / "libCopy.so").lexically_normal())
    {
        const std::filesystem::path folder = std::filesystem::path(Path).parent_path();
        std::filesystem::create_directories(folder);
        std::filesystem::copy_file(testkit::LibraryFile(), Path);
        const std::filesystem::path before = std::filesystem::current_path();
        std::filesystem::current_path(folder);
        Library.emplace("./libCopy.so");
        std::filesystem::current_path(before);
        Module = GetModuleHandleW(testkit::Wide("libCopy.so").c_str());
    }
    const testkit::ScratchFolder Folder;
    const std::string Path;
    HMODULE Module = nullptr;

private:
    std::optional<testkit::LoadedModule> Library;
};

HANDLE TakeSnapshot()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0);
    EXPECT_NE(snapshot, INVALID_HANDLE_VALUE);
    return snapshot;
}

/// The path of a module in a list, or "". Closes the list.
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

TEST(ModulesOnLinux, ListShowsOneMoment)
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

TEST(ModulesOnLinux, LongPathIsListedWhole)
{
    testkit::RunAlone(testkit::LogMachine(), [](const testkit::LogMachine& machine) {
        const LoadedCopy copy(std::string(200, 'a') + "/" + std::string(200, 'b'));
        EXPECT_EQ(PathIn(TakeSnapshot(), copy.Module), copy.Path);
        utility::LogProcessModules(utilities::CLog::GetInstance());
        const std::vector<std::string> texts = testkit::Texts(machine.Log);
        EXPECT_EQ(std::ranges::count_if(
                      texts, [&](const std::string& text) { return text.ends_with(". Name: '" + copy.Path + "'"); }),
                  1);
    });
}

TEST(ModulesOnLinux, RemovedFileKeepsItsName)
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

TEST(ModulesOnLinux, ModuleOfTheKernelHasANameOnly)
{
    const auto page = reinterpret_cast<const void*>(getauxval(AT_SYSINFO_EHDR));
    const HMODULE module = layer::ModuleOf(page);
    if (module == nullptr)
        GTEST_SKIP() << "this kernel has no such module";
    const std::string name = PathIn(TakeSnapshot(), module);
    EXPECT_TRUE(name.starts_with("linux-")) << name;
    EXPECT_EQ(layer::ModulePath(module), name);
}

TEST(ModulesOnLinux, OutOfMemoryIsReportedInTheLog)
{
    testkit::RunAlone(testkit::LogMachine(), [](const testkit::LogMachine& machine) {
        utilities::CLog* const log = utilities::CLog::GetInstance();
        utility::LogProcessModules(log);  // allocates what stays
        testkit::FailEachAllocation([log] {
            try {
                utility::LogProcessModules(log);
            } catch (const std::bad_alloc&) {
            }
        });
        const std::string start = "Unable to log process modules (";
        const std::string noList = start + Narrow(utility::genHResultAsString(E_OUTOFMEMORY)) + ")";
        const std::string noWalk = start + "unable to walk process module list)";
        int lists = 0;
        int walks = 0;
        const std::vector<std::string> texts = testkit::Texts(machine.Log);
        for (std::size_t i = 0; i + 1 < texts.size(); ++i) {
            lists += texts[i] == noList && !texts[i + 1].ends_with("complete");
            walks += texts[i] == noWalk && texts[i + 1].ends_with("complete");
        }
        EXPECT_GT(lists, 1);
        EXPECT_GT(walks, 1);
        EXPECT_EQ(std::count(texts.begin(), texts.end(), noList), lists) << "without a last line";
        EXPECT_EQ(std::count(texts.begin(), texts.end(), noWalk), walks) << "with a last line";
    });
}

}  // namespace
