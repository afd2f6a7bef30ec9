// The names of codes, from the headers of the toolchains.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tool {

/// What a code is a code of.
enum class CodeKind {
    win32,     // system errors, as GetLastError gives them
    hresult,   // results of automation calls
    ntstatus,  // faults and results of the kernel
    errnum     // errors of Linux
};

/// "Win32", "HRESULT", "NTSTATUS" or "errno".
std::string_view NameOf(CodeKind kind);

struct CodeName {
    CodeKind Kind;
    std::uint32_t Code;
    std::string_view Name;
};

/// All names. A code can have several; the usual one comes first.
std::span<const CodeName> CodeNames();

}  // namespace tool
