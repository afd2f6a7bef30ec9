// Prints the version blocks of module files: both versions in numbers, and the texts of one section.
//
//     module_version [--section 040904b0] [--name further-value ...] file ...
//
// Without --section it takes the first of the usual sections that has a text. Control characters and backslashes in a
// text show as \xNN. The exit status is 1 if a file has no block.
#include "tessmaru/version.h"

#include "testkit/paths.h"
#include "testkit/program.h"
#include "testkit/utf16.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace {

struct Section {
    unsigned short Language;
    unsigned short CodePage;
};

constexpr Section UsualSections[] = {{0x0409, 0x04B0}, {0x1409, 0x04B0}, {0x0000, 0x04B0}, {0x0409, 0x04E4}};

const char* const UsualNames[] = {"Comments",     "CompanyName",    "FileDescription", "FileVersion",
                                  "InternalName", "LegalCopyright", "LegalTrademarks", "OriginalFilename",
                                  "PrivateBuild", "ProductName",    "ProductVersion",  "SpecialBuild"};

/// Reads a value by any name.
class Version : public utility::CVersionInfo {
public:
    utility::wstring Text(const std::string& name, Section section) const
    {
        const std::u16string wide = testkit::FromUtf8(name).u16string();
        return getVersionInfoLanguageValue({wide.begin(), wide.end()}, section.Language, section.CodePage);
    }
};

struct Request {
    std::vector<Section> Sections{std::begin(UsualSections), std::end(UsualSections)};
    std::vector<std::string> Names{std::begin(UsualNames), std::end(UsualNames)};
    std::vector<std::string> Files;
};

Section ParseSection(const std::string& text)
{
    std::size_t used = 0;
    const unsigned long value = text.size() == 8 ? std::stoul(text, &used, 16) : 0;
    if (used != 8)
        throw std::invalid_argument("a section has eight digits: 040904b0");
    return {static_cast<unsigned short>(value >> 16), static_cast<unsigned short>(value)};
}

Request ParseRequest(const std::vector<std::string>& words)
{
    Request request;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool isOption = words[i] == "--section" || words[i] == "--name";
        if (isOption && i + 1 == words.size())
            throw std::invalid_argument(words[i] + " needs a value");
        if (words[i] == "--section")
            request.Sections.assign(1, ParseSection(words[++i]));
        else if (words[i] == "--name")
            request.Names.push_back(words[++i]);
        else
            request.Files.push_back(words[i]);
    }
    if (request.Files.empty())
        throw std::invalid_argument("usage: module_version [--section 040904b0] [--name further-value ...] file ...");
    return request;
}

std::string Shown(const utility::wstring& text)
{
    std::string shown;
    for (const char byte :
         testkit::DecodeUtf16({reinterpret_cast<const char*>(text.data()), text.size() * sizeof(unsigned short)})) {
        if (static_cast<unsigned char>(byte) >= 0x20 && byte != '\\' && byte != 0x7F) {
            shown += byte;
        } else {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(byte));
            shown += escape;
        }
    }
    return shown;
}

bool Print(const std::string& file, const Request& request)
{
    Version version;
    const std::u16string path = testkit::FromUtf8(file).u16string();
    version.setModule(utility::wstring(path.begin(), path.end()));
    std::printf("%s\n", file.c_str());
    const utility::wstring numbers = version.getVersionInfoFixedValue(Version::eFIXED_FILE_VERSION);
    if (!numbers.empty()) {
        std::printf("  file version %s, product version %s\n", Shown(numbers).c_str(),
                    Shown(version.getVersionInfoFixedValue(Version::eFIXED_PRODUCT_VERSION)).c_str());
    }
    const auto hasText = [&](Section section) {
        return std::any_of(request.Names.begin(), request.Names.end(),
                           [&](const std::string& name) { return !version.Text(name, section).empty(); });
    };
    const auto section = std::find_if(request.Sections.begin(), request.Sections.end(), hasText);
    if (section == request.Sections.end())
        return !numbers.empty();
    std::printf("  section %04x%04x\n", section->Language, section->CodePage);
    for (const std::string& name : request.Names) {
        if (const utility::wstring text = version.Text(name, *section); !text.empty())
            std::printf("    %s: %s\n", name.c_str(), Shown(text).c_str());
    }
    return true;
}

}  // namespace

int main(int count, char** arguments)
try {
    const Request request = ParseRequest(testkit::Arguments(count, arguments));
    int result = 0;
    for (const std::string& file : request.Files)
        result |= Print(file, request) ? 0 : 1;
    return result;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "module_version: %s\n", failure.what());
    return 2;
}
