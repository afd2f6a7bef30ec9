#include "loaded.h"

namespace support {

Loaded::Loaded() : Library(LoadLibraryW(L"tessmarU.dll")) {}

Loaded::GetInstance* Loaded::getInstance() const
{
    const FARPROC function = GetProcAddress(static_cast<HMODULE>(Library), "_ZN9utilities4CLog11GetInstanceEv");
    return reinterpret_cast<GetInstance*>(reinterpret_cast<void*>(function));
}

bool Loaded::Unload()
{
    FreeLibrary(static_cast<HMODULE>(Library));
    return GetModuleHandleW(L"tessmarU.dll") == nullptr;
}

}  // namespace support
