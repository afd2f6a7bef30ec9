// Version blocks: a read in the process to the system calls that no reader can do without, and a program that prints
// one to programs that do the same.
#include "rows.h"

#include "tessmaru/version.h"
#include "tests/linux/resource_bytes.h"

#include <fcntl.h>
#include <fstream>
#include <spawn.h>

extern char** environ;

namespace bench {
namespace {

using namespace utility::literals;

/// The file of the library as it is loaded here.
std::filesystem::path Library()
{
    utility::CVersionInfo version;
    version.setModule(GetModuleHandleW(u"libtessmarU.so.4"_w));
    const utility::wstring path = version.getModuleFileName();
    return std::u16string(path.begin(), path.end());
}

Comparison CompareRead(const Plan& plan, const std::filesystem::path& path)
{
    const std::u16string text = path.u16string();
    const utility::wstring file(text.begin(), text.end());
    class Reader : public utility::CVersionInfo {
    public:
        using CVersionInfo::getModuleVerInfo;
    } reader;
    const auto read = [&](unsigned) { reader.getModuleVerInfo(file); };
    const auto floor = [&](unsigned) {
        char bytes[64];
        const int opened = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        Use(pread(opened, bytes, sizeof bytes, 0));
        close(opened);
    };
    const Comparison comparison = Compare(read, floor, plan.Calls / 50, plan.Rounds);
    if (reader.getVersionInfoFixedValue(utility::CVersionInfo::eFIXED_FILE_VERSION).empty())
        throw std::runtime_error("no version in " + path.string());
    return comparison;
}

/// Runs a program to its end, its output into nowhere.
void Run(const std::vector<std::string>& words)
{
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = 0;
    int status = -1;
    const int error = posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0 || waitpid(process, &status, 0) != process || status != 0)
        throw std::runtime_error(words[0] + " failed");
}

void PrintProgram(const Plan& plan, const char* name, const std::vector<std::string>& words,
                  const std::vector<std::string>& own)
{
    try {
        Run(words);
    } catch (const std::runtime_error&) {
        std::printf("%s: not installed\n", name);
        return;
    }
    PrintRow(std::string(name) + ", to module_version",
             Compare([&](unsigned) { Run(words); }, [&](unsigned) { Run(own); }, 3, plan.Rounds), {});
}

}  // namespace

void MeasureVersion(const Plan& plan, const tools::ScratchFolder& scratch)
{
    PrintHeading("Version blocks of files");
    const std::filesystem::path image = scratch / "image.dll";
    std::ofstream(image, std::ios::binary) << support::PeFile(true, 4096, {{0x409, support::PlainBlock()}});
    PrintRow("the library, to open, pread and close", CompareRead(plan, Library()), {5, 0});
    PrintRow("a PE file, to open, pread and close", CompareRead(plan, image), {5, 0});
    const std::vector<std::string> own = {Neighbour("module_version"), image.string()};
    PrintProgram(plan, "wrestool", {"wrestool", "--extract", "--raw", "--type=16", image.string()}, own);
    PrintProgram(plan, "exiftool", {"exiftool", image.string()}, own);
    PrintProgram(plan, "pefile",
                 {"/usr/bin/python3", "-c",
                  "import pefile, sys; image = pefile.PE(sys.argv[1], fast_load=True); "
                  "image.parse_data_directories([2]); print(image.dump_info())",
                  image.string()},
                 own);
}

}  // namespace bench
