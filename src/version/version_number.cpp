// The version number of the library for callers in C.
#include "tessmaru/version_number.h"

#include "settings/module_strings.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/settings.h"
#include "text/code_page.h"

#include <algorithm>
#include <new>
#include <string>

using utility::wstring;

namespace {

/// Copies as much of the text of `make` as the buffer has room for, by the rule of the public header.
template <class Make, class Character>
int Deliver(Make make, Character* buffer, unsigned int count)
try {
    const std::basic_string<Character> text = make();
    std::copy_n(text.c_str(), std::min<std::size_t>(text.size() + 1, count), buffer);
    // A text that just fits without its terminator is not a failure.
    return count < text.size() ? -1 : static_cast<int>(text.size());
} catch (const std::bad_alloc&) {
    throw _com_error(E_OUTOFMEMORY);
}

/// A row, or an empty text if there is no memory.
wstring RowIfPossible(unsigned int row) noexcept
try {
    return genStringFromOwnModule(row);
} catch (const std::bad_alloc&) {
    return {};
}

/// Appends a text to an automation string, which is unchanged if there is no memory.
void Append(BSTR& string, const wstring& addition) noexcept
{
    const UINT length = SysStringLen(string);
    BSTR joint = SysAllocStringLen(nullptr, length + static_cast<UINT>(addition.size()));
    if (joint == nullptr)
        return;
    std::copy(addition.begin(), addition.end(), std::copy_n(string, length, joint));
    SysFreeString(string);
    string = joint;
}

}  // namespace

int GetVersionNumberA(char* buffer, unsigned int count)
{
    return Deliver([] { return NarrowText(utility::GetVersionString()); }, buffer, count);
}

int GetVersionNumberW(unsigned short* buffer, unsigned int count)
{
    return Deliver(utility::GetVersionString, buffer, count);
}

int GetVersionNumberBSTR(BSTR* out)
{
    // Throws nothing: a step without memory leaves its part of the text out.
    BSTR version = nullptr;
    Append(version, RowIfPossible(VersionRow));
    Append(version, {u'-'});
    Append(version, RowIfPossible(LanguageRow));
    *out = version;
    return static_cast<int>(SysStringLen(version));
}
