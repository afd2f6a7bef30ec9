// Expands a message template with its inserts, for tests of the message service.
#pragma once

#include "system.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

namespace contract {

inline constexpr unsigned short Guard = 0xBEEF;
inline constexpr DWORD FromArray = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY;

struct Expanded {
    std::string Text;
    DWORD Error = ERROR_SUCCESS;
    bool operator==(const Expanded&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Expanded& expanded)
{
    return out << '"' << expanded.Text << "\", error " << expanded.Error;
}

/// Expands into a buffer of `size` units, and checks that nothing after the text is written. @param kept a failure must
/// leave the buffer alone; the contract does not promise that
inline Expanded Expand(DWORD flags, const std::string& text, DWORD size, va_list* arguments, bool kept = false)
{
    std::vector<unsigned short> buffer(size + 4, Guard);
    const utility::wstring wide = testkit::Wide(text);
    SetLastError(ERROR_SUCCESS);
    const DWORD units = FormatMessageW(flags, wide.c_str(), 0, 0, platform::Wide(buffer.data()), size, arguments);
    const DWORD error = units == 0 ? GetLastError() : DWORD{ERROR_SUCCESS};
    const bool failed = units == 0 && error != ERROR_SUCCESS;
    for (std::size_t i = failed ? 0 : units + 1; (kept || units != 0) && i < buffer.size(); ++i)
        EXPECT_EQ(Guard, buffer[i]) << text;
    EXPECT_TRUE(units == 0 || buffer[units] == 0) << text;
    return {testkit::Narrow({buffer.data(), units}), error};
}

inline Expanded ExpandArray(const std::string& text, std::vector<DWORD_PTR> values, DWORD size = 256, bool kept = false)
{
    return Expand(FromArray, text, size, reinterpret_cast<va_list*>(values.data()), kept);
}

}  // namespace contract
