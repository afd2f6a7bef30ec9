#include "settings/module_strings.h"

#include "library.h"
#include "settings/tag_specification.h"
#include "tessmaru/settings.h"

namespace {

constexpr int RowUnits = 1024;
constexpr std::size_t MaxVersionUnits = 255;

}  // namespace

utility::wstring utility::genStringFromResourceModule(HINSTANCE module, unsigned int row, va_list* inserts)
{
    unsigned short mould[RowUnits]{};
    LoadStringW(module, row, platform::Wide(mould), RowUnits - 1);
    unsigned short text[RowUnits];
    // A failure may have left the front of the text.
    if (FormatMessageW(FORMAT_MESSAGE_FROM_STRING, mould, 0, 0, platform::Wide(text), RowUnits - 1, inserts) == 0)
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
