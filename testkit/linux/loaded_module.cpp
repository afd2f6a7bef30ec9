// Loading modules on Linux.
#include "testkit/loaded_module.h"

#include <stdexcept>
#include <utility>

#include <dlfcn.h>

namespace testkit {

LoadedModule::LoadedModule(const std::filesystem::path& file)
    : File(file), Library(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (Library == nullptr)
        throw std::runtime_error(dlerror());
}

LoadedModule::~LoadedModule()
{
    if (Library != nullptr)
        dlclose(Library);
}

void* LoadedModule::FindAddress(const char* name) const
{
    void* const address = dlsym(Library, name);
    if (address == nullptr)
        throw std::runtime_error(dlerror());
    return address;
}

bool LoadedModule::Unload()
{
    dlclose(std::exchange(Library, nullptr));
    return dlopen(File.c_str(), RTLD_NOW | RTLD_NOLOAD) == nullptr;
}

}  // namespace testkit
