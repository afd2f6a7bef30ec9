// Loading modules on Windows.
#include "testkit/loaded_module.h"

#include "testkit/paths.h"
#include "testkit/windows/last_failure.h"

#include <utility>

namespace testkit {

LoadedModule::LoadedModule(const std::filesystem::path& file) : File(file), Library(LoadLibraryW(file.c_str()))
{
    if (Library == nullptr)
        ThrowLastFailure(ToUtf8(file));
}

LoadedModule::~LoadedModule()
{
    if (Library != nullptr)
        FreeLibrary(static_cast<HMODULE>(Library));
}

void* LoadedModule::FindAddress(const char* name) const
{
    const FARPROC address = GetProcAddress(static_cast<HMODULE>(Library), name);
    if (address == nullptr)
        ThrowLastFailure(name);
    return reinterpret_cast<void*>(address);
}

bool LoadedModule::Unload()
{
    FreeLibrary(static_cast<HMODULE>(std::exchange(Library, nullptr)));
    return GetModuleHandleW(File.c_str()) == nullptr;
}

}  // namespace testkit
