// Writes debug output. A text that cannot be converted for lack of memory is dropped: it must not fail its caller.
#include "text/debug_output.h"

#include "base/environment.h"
#include "system.h"
#include "text/utf8.h"

#include <cstdio>
#include <new>

namespace {

bool IsWanted()
{
    return layer::Environment("VELTRIX_DEBUG_OUTPUT") != nullptr;
}

}  // namespace

void layer::DebugLine(const std::string& line) noexcept
{
    if (IsWanted())
        std::fprintf(stderr, "tessmarU: %s\n", line.c_str());
}

void OutputDebugStringW(LPCWSTR text)
try {
    if (text != nullptr && IsWanted())
        std::fputs(layer::ToUtf8(text).c_str(), stderr);
} catch (const std::bad_alloc&) {
    return;
}
