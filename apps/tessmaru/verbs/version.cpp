// `tessmaru version`: the version blocks of files, of the modules in a folder, and of those of a process.
#include "tessmaru/version.h"
#include "cli/command.h"
#include "output/json.h"
#include "platform/file.h"
#include "platform/modules.h"
#include "records/text_writer.h"
#include "text/wide.h"
#include "verbs/verbs.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <utility>

namespace tool {
namespace {

using utility::CVersionInfo;

struct VersionOptions {
    std::vector<std::string> Subjects;
    bool All = false;
    bool Texts = false;
};

/// What a version block says.
struct Block {
    std::string File;
    std::string FileVersion;  // empty: the file has no block
    std::string ProductVersion;
    std::vector<std::pair<std::string, std::string>> Texts;
    bool IsReplaced = false;
    bool WantsTexts = false;
};

struct Section {
    unsigned short Language;
    unsigned short CodePage;
};

// The sections that resource compilers and makers of modules use.
constexpr std::array<Section, 5> Sections = {
    {{0x0409, 0x04B0}, {0x0409, 0x04E4}, {0x0000, 0x04B0}, {0x0000, 0x04E4}, {0x1409, 0x04B0}}};

constexpr std::array<std::pair<const char*, CVersionInfo::eLANG_VER_INFO>, 12> Names = {
    {{"ProductName", CVersionInfo::eLANG_PRODUCT_NAME},
     {"ProductVersion", CVersionInfo::eLANG_PRODUCT_VERSION},
     {"FileDescription", CVersionInfo::eLANG_FILE_DESCRIPTION},
     {"FileVersion", CVersionInfo::eLANG_FILE_VERSION},
     {"CompanyName", CVersionInfo::eLANG_COMPANY_NAME},
     {"InternalName", CVersionInfo::eLANG_INTERNAL_NAME},
     {"OriginalFilename", CVersionInfo::eLANG_ORIGINAL_FILENAME},
     {"LegalCopyright", CVersionInfo::eLANG_LEGAL_COPYRIGHT},
     {"LegalTrademarks", CVersionInfo::eLANG_LEGAL_TRADEMARKS},
     {"Comments", CVersionInfo::eLANG_COMMENTS},
     {"PrivateBuild", CVersionInfo::eLANG_PRIVATE_BUILD},
     {"SpecialBuild", CVersionInfo::eLANG_SPECIAL_BUILD}}};

std::string Shown(std::string_view text)
{
    std::string shown;
    records::AppendText(shown, ToUtf16(text), records::Form::shown);
    return shown;
}

/// The texts of the first section that has some.
void ReadTexts(const CVersionInfo& version, Block& block)
{
    for (const Section& section : Sections) {
        for (const auto& [name, value] : Names) {
            const auto text = version.getVersionInfoLanguageValue(value, section.Language, section.CodePage);
            if (!text.empty())
                block.Texts.emplace_back(name, ToUtf8(text));
        }
        if (!block.Texts.empty())
            return;
    }
}

Block Read(const std::string& path)
{
    platform::InputFile::Open(path);  // the library takes a file that cannot be read for one without a block
    CVersionInfo version;
    version.setModule(FromUtf8(path));
    Block block;
    block.File = path;
    block.FileVersion = ToUtf8(version.getVersionInfoFixedValue(CVersionInfo::eFIXED_FILE_VERSION));
    block.ProductVersion = ToUtf8(version.getVersionInfoFixedValue(CVersionInfo::eFIXED_PRODUCT_VERSION));
    ReadTexts(version, block);
    return block;
}

bool HasVersion(const Block& block)
{
    return !block.FileVersion.empty() || !block.Texts.empty();
}

/// The files of a folder, in the order of their names.
std::vector<std::string> FilesOf(const std::filesystem::path& folder)
{
    std::error_code error;
    std::vector<std::string> files;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (!entry->is_regular_file(ignored))
            continue;
        const std::u8string name = entry->path().generic_u8string();
        files.emplace_back(name.begin(), name.end());
    }
    if (error)
        throw Failure(Exit::unreadable, fmt::format("cannot read {}: {}", folder.string(), error.message()));
    std::sort(files.begin(), files.end());
    return files;
}

/// Collects the blocks of everything that was named.
class Collection {
public:
    Collection(Session& session, const VersionOptions& options) : Talk(session), Options(options) {}

    void Add(const std::string& subject)
    try {
        const std::filesystem::path path(std::u8string(subject.begin(), subject.end()));
        std::error_code ignored;
        std::uint32_t process = 0;
        const char* const end = subject.data() + subject.size();
        if (std::filesystem::is_directory(path, ignored))
            AddFolder(path);
        else if (!std::filesystem::exists(path, ignored) && std::from_chars(subject.data(), end, process).ptr == end)
            AddProcess(process);
        else
            Keep(Read(subject), true);
    } catch (const Failure& failure) {
        Complain(failure);
    }

    const std::vector<Block>& blocks() const { return Blocks; }
    bool isComplete() const { return IsComplete; }

private:
    void AddFolder(const std::filesystem::path& folder)
    {
        for (const std::string& file : FilesOf(folder))
            AddFound(file, false);
    }

    void AddProcess(std::uint32_t process)
    {
        for (const platform::Module& module : platform::ModulesOf(process))
            AddFound(module.Path, module.IsReplaced);
    }

    void AddFound(const std::string& path, bool isReplaced)
    try {
        // What is at the path now is not what the process has.
        Block block = isReplaced ? Block() : Read(path);
        block.File = path;
        block.IsReplaced = isReplaced;
        Keep(std::move(block), false);
    } catch (const Failure& failure) {
        Complain(failure);
    }

    void Keep(Block block, bool isNamed)
    {
        block.WantsTexts = isNamed || Options.Texts;
        if (isNamed || Options.All || block.IsReplaced || HasVersion(block))
            Blocks.push_back(std::move(block));
    }

    void Complain(const Failure& failure)
    {
        Talk.Say(failure.what());
        IsComplete = false;
    }

    Session& Talk;
    const VersionOptions& Options;
    std::vector<Block> Blocks;
    bool IsComplete = true;
};

void WriteJson(Output& out, const Block& block)
{
    JsonLine json;
    json.Text("file", ToUtf8(FromUtf8(block.File)));
    json.Text("fileVersion", block.FileVersion);
    json.Text("productVersion", block.ProductVersion);
    json.Flag("replaced", block.IsReplaced);
    json.BeginObject("texts");
    for (const auto& [name, text] : block.Texts)
        json.Text(name, text);
    json.EndObject();
    out.Line(json.Take());
}

void WriteRow(Output& out, const Block& block)
{
    if (block.IsReplaced) {
        out.Write(fmt::format("{:<28}  ", "replaced since it was loaded"), Style::yellow);
        return out.Line(Shown(block.File));
    }
    out.Write(fmt::format("{:<14}{:<16}", block.FileVersion.empty() ? "-" : block.FileVersion,
                          block.ProductVersion.empty() ? "-" : block.ProductVersion));
    out.Line(Shown(block.File));
    if (!block.WantsTexts)
        return;
    for (const auto& [name, text] : block.Texts)
        out.Line(fmt::format("  {:<18}{}", name, Shown(text)));
}

Exit ShowVersions(Session& session, const VersionOptions& options)
{
    Collection collection(session, options);
    for (const std::string& subject : options.Subjects)
        collection.Add(subject);
    const auto& blocks = collection.blocks();
    if (!session.Json && !blocks.empty())
        session.Out.Write(fmt::format("{:<14}{:<16}{}\n", "File version", "Product version", "File"), Style::bold);
    for (const Block& block : blocks) {
        if (session.Json)
            WriteJson(session.Out, block);
        else
            WriteRow(session.Out, block);
    }
    if (!collection.isComplete())
        return Exit::unreadable;
    return std::any_of(blocks.begin(), blocks.end(), HasVersion) ? Exit::done : Exit::nothing;
}

}  // namespace

void AddVersion(CLI::App& program, Session& session)
{
    CLI::App* const verb =
        AddVerb(program, "version", "Show the versions of files, and of the modules of a process",
                "tessmaru version libtessmarU.so  show the version and the texts of a file\n"
                "tessmaru version /opt/veltrix/lib  list the modules of a folder that have a version\n"
                "tessmaru version 3054  list the modules of a process that have a version");
    const auto options = std::make_shared<VersionOptions>();
    verb->add_option("subjects", options->Subjects, "Files (PE or ELF), folders, or process ids")
        ->required()
        ->type_name("FILE|DIR|PID");
    verb->add_flag("--all", options->All, "List the files without a version too");
    verb->add_flag("--texts", options->Texts, "Show the texts of listed files too");
    SetAction(verb, session, options, ShowVersions);
}

}  // namespace tool
