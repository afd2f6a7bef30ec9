#include "tools/plugin.h"

#include <stdexcept>
#include <system_error>

namespace tools {

namespace {

[[noreturn]] void Fail(const std::string& what)
{
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

}  // namespace

Plugin::Plugin(const std::filesystem::path& file)
    : Library(LoadLibraryW(file.c_str())), Handle(static_cast<HINSTANCE>(Library))
{
    if (Library == nullptr)
        Fail(file.string());
}

Plugin::~Plugin()
{
    FreeLibrary(Handle);
}

void* Plugin::FindAddress(const char* name) const
{
    const FARPROC address = GetProcAddress(Handle, name);
    if (address == nullptr)
        Fail(name);
    return reinterpret_cast<void*>(address);
}

}  // namespace tools
