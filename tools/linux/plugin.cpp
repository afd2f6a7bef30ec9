#include "tools/plugin.h"

#include "tools/family.h"

#include <dlfcn.h>
#include <stdexcept>

namespace tools {

Plugin::Plugin(const std::filesystem::path& file) : Library(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (Library == nullptr)
        throw std::runtime_error(dlerror());
    const std::u16string name = file.u16string();
    Handle = GetModuleHandleW(reinterpret_cast<LPCWSTR>(name.c_str()));
}

Plugin::~Plugin()
{
    dlclose(Library);
}

void* Plugin::FindAddress(const char* name) const
{
    void* const address = dlsym(Library, name);
    if (address == nullptr)
        throw std::runtime_error(dlerror());
    return address;
}

}  // namespace tools
