// Formatting of 16-bit text by printf formats, with the conversions of the Windows C runtime.
#pragma once

#include "system.h"
#include "text/unit_writer.h"

#include <cstdarg>
#include <span>

namespace layer {

/// The arguments of a format: a variable argument list, or an array of values of pointer size, as FormatMessageW takes
/// them. The Next functions return one argument after another. An array that is exhausted yields zeros; a list must
/// have all the arguments that the format demands.
class FormatArguments {
public:
    /// Reads a copy of the list, so the caller's own does not advance.
    explicit FormatArguments(va_list list) : Listed(true) { va_copy(List, list); }
    /// Reads values, which must outlive this object.
    explicit FormatArguments(std::span<const DWORD_PTR> values) : Values(values) {}
    FormatArguments(const FormatArguments&) = delete;
    FormatArguments& operator=(const FormatArguments&) = delete;
    ~FormatArguments()
    {
        if (Listed)
            va_end(List);
    }

    /// Whether the source is a list. Only a list has floating-point numbers.
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
/// - Conversions: d i u o x X p c C s S e E f F g G. Any other character after a percent sign is literal text and
///   takes no argument. There is no `n`: nothing is ever written through an argument.
/// - Texts and characters: `s` and `c` are wide, `S` and `C` narrow in the active code page. The modifier h makes them
///   narrow; l, ll and w make them wide. The precision limits the units or bytes that are read.
/// - Integers: h and hh mean 16 bits, l and I32 32 bits, ll, I64 and j 64 bits, I, z and t the size of a pointer.
/// - Floating-point numbers: L means a `long double`, which is written with the precision of a `double`.
void Format(UnitWriter& out, const WCHAR* format, FormatArguments& arguments);

}  // namespace layer
