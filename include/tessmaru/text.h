// Text of the library: strings of 16-bit units, and literals of them.
#pragma once

#include <cstddef>
#include <string>

namespace utility {

/// The string of every interface of the library: 16-bit units, UTF-16 where they mean text.
using wstring = std::basic_string<unsigned short>;

/// A literal's units as a compile-time value. It is the template argument of `_w`, so that each distinct text has one
/// static object.
template <std::size_t N>
struct fixed_text {
    unsigned short units[N]{};

    consteval fixed_text(const char16_t (&text)[N])  // NOLINT(google-explicit-constructor): made by the literal
    {
        for (std::size_t i = 0; i < N; ++i)
            units[i] = static_cast<unsigned short>(text[i]);
    }
};

namespace literals {

/// `u"text"_w` is a zero-terminated `const unsigned short*` with static storage.
///
/// @code
///     using namespace utility::literals;
///     utilities::CLog::GetInstance()->LogInfo(u"%d sites read"_w, u"Import"_w, count);
/// @endcode
template <fixed_text Text>
constexpr const unsigned short* operator""_w()
{
    return Text.units;
}

}  // namespace literals
}  // namespace utility
