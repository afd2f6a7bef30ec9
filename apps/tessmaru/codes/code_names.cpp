// The table of code names. Its rows are written at build time.
#include "codes/code_names.h"

namespace tool {
namespace {

constexpr CodeName Names[] = {
#include "code_names.inc"
};

}  // namespace

std::string_view NameOf(CodeKind kind)
{
    switch (kind) {
        case CodeKind::win32: return "Win32";
        case CodeKind::hresult: return "HRESULT";
        case CodeKind::ntstatus: return "NTSTATUS";
        default: return "errno";
    }
}

std::span<const CodeName> CodeNames()
{
    return Names;
}

}  // namespace tool
