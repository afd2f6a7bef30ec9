// The line that describes an HRESULT: its description, code, name and facility.
#include "errors/error_names.h"
#include "settings/module_strings.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/errors.h"
#include "tessmaru/text.h"

#include <iterator>

namespace {

using namespace utility::literals;
using utility::wstring;

constexpr unsigned int UnknownFacilityRow = 147;
constexpr unsigned int UnknownErrorRow = 148;
constexpr unsigned int UnknownNameRow = 149;
constexpr unsigned int ControlErrorRow = 150;
constexpr unsigned int InterfaceErrorRow = 151;
constexpr unsigned int LineRow = 152;

constexpr DWORD FacilityItf = 4;
constexpr DWORD FacilityWin32 = 7;
constexpr DWORD FacilityControl = 10;
// From these low words on, each interface and each control defines its own codes: the system cannot describe them.
constexpr DWORD FirstInterfaceError = 0x200;
constexpr DWORD FirstControlError = 0x258;

constexpr DWORD DescriptionUnits = 1024;

constexpr const unsigned short* facilityNames[] = {
    u"FACILITY_NULL"_w,
    u"FACILITY_RPC"_w,
    u"FACILITY_DISPATCH"_w,
    u"FACILITY_STORAGE"_w,
    u"FACILITY_ITF"_w,
    nullptr,
    nullptr,
    u"FACILITY_WIN32"_w,
    u"FACILITY_WINDOWS"_w,
    u"FACILITY_SSPI"_w,
    u"FACILITY_CONTROL"_w,
    u"FACILITY_CERT"_w,
    u"FACILITY_INTERNET"_w,
};

wstring FacilityName(DWORD facility)
{
    if (facility < std::size(facilityNames) && facilityNames[facility] != nullptr)
        return facilityNames[facility];
    return genStringFromOwnModule(UnknownFacilityRow);
}

wstring WidenAscii(std::string_view name)
{
    return {name.begin(), name.end()};
}

/// Removes the last occurrence of this character and everything after it.
void CutAtLast(wstring& text, unsigned short unit)
{
    const std::size_t at = text.rfind(unit);
    if (at != wstring::npos)
        text.erase(at);
}

/// The text that the platform has for a code. No inserts are given, so a text with insert marks counts as missing.
wstring Describe(DWORD flags, const void* module, DWORD code)
{
    unsigned short text[DescriptionUnits];
    if (FormatMessageW(flags, module, code, 0, platform::Wide(text), DescriptionUnits, nullptr) == 0)
        return genStringFromOwnModule(UnknownErrorRow);
    // At the last line end wherever it is, unlike the message of a _com_error, which loses one only at its very end.
    wstring description = text;
    CutAtLast(description, u'\n');
    CutAtLast(description, u'\r');
    return description;
}

/// What depends on the table in which a code is found.
struct Failure {
    wstring Name;
    wstring Description;
};

Failure Identify(DWORD code, DWORD facility)
{
    const DWORD lowWord = code & 0xFFFF;
    if (const std::string_view name = HResultName(code); !name.empty())
        return {WidenAscii(name), Describe(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code)};
    if (facility == FacilityWin32) {
        const std::string_view name = Win32ErrorName(lowWord);
        return {name.empty() ? genStringFromOwnModule(UnknownErrorRow) : WidenAscii(name),
                Describe(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code)};
    }
    wstring name = genStringFromOwnModule(UnknownNameRow);
    if (facility == FacilityControl && lowWord >= FirstControlError)
        return {std::move(name), genStringFromOwnModule(ControlErrorRow)};
    if (facility == FacilityItf && lowWord >= FirstInterfaceError)
        return {std::move(name), genStringFromOwnModule(InterfaceErrorRow)};
    // A program may have its own message table for codes that the system does not know.
    return {std::move(name),
            Describe(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM, GetModuleHandleW(nullptr), code)};
}

}  // namespace

wstring utility::genHResultAsString(LONG hr)
{
    const auto code = static_cast<DWORD>(hr);
    const DWORD facility = (code >> 16) & 0x1FFF;
    const wstring facilityName = FacilityName(facility);
    const Failure failure = Identify(code, facility);
    return genStringFromOwnModule(LineRow, failure.Description.c_str(), code, failure.Name.c_str(),
                                  facilityName.c_str());
}
