// Reads rows of string tables, and the version that two rows of the library's own table make.
#include "settings/module_strings.h"

#include "library.h"
#include "settings/tag_specification.h"
#include "tessmaru/settings.h"

namespace {

// Room for a row with its inserts. The calls get one unit less, so a text has at most 1022 units.
constexpr int RowUnits = 1024;
constexpr std::size_t MaxVersionUnits = 255;

}  // namespace

utility::wstring utility::genStringFromResourceModule(HINSTANCE module, unsigned int row, va_list* inserts)
{
    unsigned short pattern[RowUnits]{};
    // A missing row leaves the pattern empty, which gives an empty text.
    LoadStringW(module, row, platform::Wide(pattern), RowUnits - 1);
    unsigned short text[RowUnits];
    // By contract a text that is too long counts as missing. A failure may have written its beginning.
    if (FormatMessageW(FORMAT_MESSAGE_FROM_STRING, pattern, 0, 0, platform::Wide(text), RowUnits - 1, inserts) == 0)
        return {};
    return text;
}

utility::wstring genStringFromOwnModule(unsigned int row, ...)
{
    va_list inserts;
    va_start(inserts, row);
    utility::wstring text = utility::genStringFromResourceModule(ModuleInstance, row, &inserts);
    va_end(inserts);
    return text;
}

utility::wstring utility::GetVersionString()
{
    wstring version = genStringFromOwnModule(VersionRow);
    version += u'-';
    version += genStringFromOwnModule(LanguageRow);
    return version.substr(0, MaxVersionUnits);
}
