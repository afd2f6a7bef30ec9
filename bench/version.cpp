// Measures version blocks: a read in the process, to the system calls that each reader needs, and a program that prints
// a block, to other programs that do.
#include "rows.h"

#include "tessmaru/version.h"
#include "testkit/file_content.h"
#include "testkit/module_file_builder.h"
#include "testkit/process.h"
#include "testkit/version_block_builder.h"

#include <fcntl.h>
#include <unistd.h>

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

/// Runs a program to its end, without its output.
void Run(const std::vector<std::string>& words)
{
    testkit::Process::Streams streams;
    streams.DiscardOutput = true;
    if (testkit::Process(words[0], {words.begin() + 1, words.end()}, streams).Wait() != 0)
        throw std::runtime_error(words[0] + " failed");
}

void PrintProgram(const Plan& plan, const char* name, const std::vector<std::string>& words,
                  const std::vector<std::string>& own)
{
    try {
        Run(words);
    } catch (const std::runtime_error&) {  // also the std::system_error of a program that does not exist
        std::printf("%s: not installed\n", name);
        return;
    }
    PrintRow(std::string(name) + ", to module_version",
             Compare([&](unsigned) { Run(words); }, [&](unsigned) { Run(own); }, 3, plan.Rounds), {});
}

}  // namespace

void MeasureVersion(const Plan& plan, const testkit::ScratchFolder& scratch)
{
    PrintHeading("Version blocks of files");
    const std::filesystem::path image = scratch / "image.dll";
    testkit::WriteFile(image, testkit::PeFile(true, 4096, {{0x409, testkit::PlainBlock()}}));
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
