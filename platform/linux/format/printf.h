// The platform's printf language over 16-bit text.
#pragma once

#include "system.h"
#include "text/unit_writer.h"

#include <cstdarg>
#include <span>

namespace layer {

/// The arguments of a format: a caller's list, or values that are at hand already, one word each.
/// Floating-point numbers come from a list only; behind the last value stand zeros.
class FormatArguments {
public:
    explicit FormatArguments(va_list list) : Listed(true) { va_copy(List, list); }
    explicit FormatArguments(std::span<const DWORD_PTR> values) : Values(values) {}
    FormatArguments(const FormatArguments&) = delete;
    FormatArguments& operator=(const FormatArguments&) = delete;
    ~FormatArguments()
    {
        if (Listed)
            va_end(List);
    }

    bool listed() const { return Listed; }
    int NextInt() { return Listed ? va_arg(List, int) : static_cast<int>(NextValue()); }
    std::uint64_t NextLong() { return Listed ? va_arg(List, std::uint64_t) : NextValue(); }
    DWORD_PTR NextWord() { return Listed ? va_arg(List, DWORD_PTR) : NextValue(); }
    double NextDouble() { return va_arg(List, double); }
    double NextLongDouble() { return static_cast<double>(va_arg(List, long double)); }

private:
    DWORD_PTR NextValue()
    {
        if (Values.empty())
            return 0;
        const DWORD_PTR value = Values.front();
        Values = Values.subspan(1);
        return value;
    }

    std::span<const DWORD_PTR> Values;
    va_list List;
    bool Listed = false;
};

/// Formats until the end of `format`, or until `out` overruns.
///
/// Conversions: d i u o x X p c C s S e E f F g G. Of a text or character, `s` and `c` are wide, `S` and `C`
/// narrow in the active code page; h makes them narrow, l and w wide. Of a number, hh, h, l (32 bits), ll,
/// I64, j (64 bits), I32, I, z and t (a word) tell the size, and L a `long double`. Any other character
/// after a percent sign stands for itself and takes no argument; nothing is ever written through an
/// argument. A precision bounds what is read of a text, in its own units.
void Format(UnitWriter& out, const WCHAR* format, FormatArguments& arguments);

}  // namespace layer
