// Automation strings: a count of bytes, the bytes, and a zero unit behind them that does not count.
#include "text/text.h"

#include <cstdlib>
#include <cstring>

namespace {

/// A zero unit, and what an odd count of bytes lacks to a whole unit.
constexpr std::size_t EndBytes = sizeof(WCHAR) + 1;
constexpr UINT MaxBytes = 0x7FFFFFFF - sizeof(DWORD) - EndBytes;

std::byte* BlockOf(BSTR string)
{
    return string != nullptr ? reinterpret_cast<std::byte*>(string) - sizeof(DWORD) : nullptr;
}

/// Fits a block, or a new one, to so many bytes and ends them in zero.
BSTR Shape(std::byte* block, UINT bytes)
{
    if (bytes > MaxBytes)
        return nullptr;
    auto* const shaped = static_cast<std::byte*>(std::realloc(block, sizeof(DWORD) + bytes + EndBytes));
    if (shaped == nullptr)
        return nullptr;
    std::memcpy(shaped, &bytes, sizeof bytes);
    std::memset(shaped + sizeof(DWORD) + bytes, 0, EndBytes);
    return reinterpret_cast<BSTR>(shaped + sizeof(DWORD));
}

bool TooLong(UINT units)
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

BSTR SysAllocStringLen(const OLECHAR* text, UINT units)
{
    if (TooLong(units))
        return nullptr;
    return SysAllocStringByteLen(reinterpret_cast<LPCSTR>(text), static_cast<UINT>(units * sizeof(WCHAR)));
}

BSTR SysAllocStringByteLen(LPCSTR bytes, UINT count)
{
    const BSTR string = Shape(nullptr, count);
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
    const BSTR made = SysAllocString(text);
    if (made == nullptr && text != nullptr)
        return FALSE;
    SysFreeString(*string);
    *string = made;
    return TRUE;
}

INT SysReAllocStringLen(BSTR* string, const OLECHAR* text, UINT units)
{
    if (string == nullptr || TooLong(units))
        return FALSE;
    // Without a text the units that are there stay.
    const BSTR made = text != nullptr || *string == nullptr
                          ? SysAllocStringLen(text, units)
                          : Shape(BlockOf(*string), static_cast<UINT>(units * sizeof(WCHAR)));
    if (made == nullptr)
        return FALSE;
    if (text != nullptr)
        SysFreeString(*string);
    *string = made;
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
        std::memcpy(&bytes, BlockOf(string), sizeof bytes);
    return bytes;
}
