#include "loaded.h"

#include <dlfcn.h>

namespace support {

Loaded::Loaded() : Library(dlopen(TESSMARU_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}

Loaded::GetInstance* Loaded::getInstance() const
{
    return reinterpret_cast<GetInstance*>(dlsym(Library, "_ZN9utilities4CLog11GetInstanceEv"));
}

bool Loaded::Unload()
{
    dlclose(Library);
    return dlopen(TESSMARU_LIBRARY, RTLD_NOW | RTLD_NOLOAD) == nullptr;
}

}  // namespace support
