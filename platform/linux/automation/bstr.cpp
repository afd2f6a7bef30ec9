// Automation strings (BSTR).
//
// A BSTR points to its first unit. The four bytes before it hold the length in bytes, and a zero unit follows the text,
// which the length does not count. So a string may contain zero units and still be read as a terminated text. The block
// starts with as many bytes as a pointer has, so that the first unit is aligned to a pointer.
#include "text/text.h"

#include <cstdlib>
#include <cstring>

namespace {

// The terminator, and one byte that completes an odd number of bytes to whole units.
constexpr std::size_t EndBytes = sizeof(WCHAR) + 1;
constexpr std::size_t StartBytes = sizeof(void*);
constexpr UINT MaxBytes = 0x7FFFFFFF - StartBytes - EndBytes;

/// The allocated block of a string, or null for null.
std::byte* BlockOf(BSTR string)
{
    return string != nullptr ? reinterpret_cast<std::byte*>(string) - StartBytes : nullptr;
}

/// Allocates a block, or resizes one, sets the length and adds the terminator. The content stays as far as it fits.
/// @param block  null for a new one
/// @param bytes  the length of the string
/// @return the string, or null if it is too long or memory is missing; then the old block is unchanged
BSTR ResizeBlock(std::byte* block, UINT bytes)
{
    if (bytes > MaxBytes)
        return nullptr;
    auto* const resized = static_cast<std::byte*>(std::realloc(block, StartBytes + bytes + EndBytes));
    if (resized == nullptr)
        return nullptr;
    std::byte* const first = resized + StartBytes;
    std::memcpy(first - sizeof bytes, &bytes, sizeof bytes);
    std::memset(first + bytes, 0, EndBytes);
    return reinterpret_cast<BSTR>(first);
}

bool IsTooLong(UINT units)
{
    return units > MaxBytes / sizeof(WCHAR);
}

}  // namespace

BSTR SysAllocString(const OLECHAR* text)
{
    if (text == nullptr)
        return nullptr;
    const std::size_t units = layer::TextView(text).size();
    return units <= MaxBytes / sizeof(WCHAR) ? SysAllocStringLen(text, static_cast<UINT>(units)) : nullptr;
}

// Without a text the published content is undefined; zeros never reveal earlier content of the memory.
BSTR SysAllocStringLen(const OLECHAR* text, UINT units)
{
    if (IsTooLong(units))
        return nullptr;
    return SysAllocStringByteLen(reinterpret_cast<LPCSTR>(text), static_cast<UINT>(units * sizeof(WCHAR)));
}

BSTR SysAllocStringByteLen(LPCSTR bytes, UINT count)
{
    const BSTR string = ResizeBlock(nullptr, count);
    if (string == nullptr)
        return nullptr;
    if (bytes != nullptr)
        std::memcpy(string, bytes, count);
    else
        std::memset(string, 0, count);
    return string;
}

INT SysReAllocString(BSTR* string, const OLECHAR* text)
{
    if (string == nullptr)
        return FALSE;
    const BSTR created = SysAllocString(text);  // before the old string is freed, which may contain the text
    if (created == nullptr && text != nullptr)
        return FALSE;
    SysFreeString(*string);
    *string = created;
    return TRUE;
}

INT SysReAllocStringLen(BSTR* string, const OLECHAR* text, UINT units)
{
    if (string == nullptr || IsTooLong(units))
        return FALSE;
    // Without a text the string is only resized and keeps its units.
    const BSTR created = text != nullptr || *string == nullptr
                             ? SysAllocStringLen(text, units)
                             : ResizeBlock(BlockOf(*string), static_cast<UINT>(units * sizeof(WCHAR)));
    if (created == nullptr)
        return FALSE;
    if (text != nullptr)
        SysFreeString(*string);
    *string = created;
    return TRUE;
}

void SysFreeString(BSTR string)
{
    std::free(BlockOf(string));
}

UINT SysStringLen(BSTR string)
{
    return static_cast<UINT>(SysStringByteLen(string) / sizeof(WCHAR));
}

UINT SysStringByteLen(BSTR string)
{
    UINT bytes = 0;
    if (string != nullptr)
        std::memcpy(&bytes, reinterpret_cast<const std::byte*>(string) - sizeof bytes, sizeof bytes);
    return bytes;
}
