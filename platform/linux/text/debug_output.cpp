// Writes debug output. A text that cannot be converted for lack of memory is dropped; the call does not fail.
#include "text/debug_output.h"

#include "base/environment.h"
#include "system.h"
#include "text/utf8.h"

#include <cstdio>
#include <new>

namespace {

bool IsEnabled()
{
    return layer::Environment("VELTRIX_DEBUG_OUTPUT") != nullptr;
}

}  // namespace

void layer::DebugLine(const std::string& line) noexcept
{
    if (IsEnabled())
        std::fprintf(stderr, "tessmarU: %s\n", line.c_str());
}

// Writes the text as it is, without prefix or line end, like Win32.
void OutputDebugStringW(LPCWSTR text)
try {
    if (text != nullptr && IsEnabled())
        std::fputs(layer::ToUtf8(text).c_str(), stderr);
} catch (const std::bad_alloc&) {
    return;
}
