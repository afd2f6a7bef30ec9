// The entry point of the library.
#include "library.h"

#include "settings/tag_specification.h"

HINSTANCE ModuleInstance = nullptr;

/// The platform calls this when the library is loaded and unloaded. It neither opens nor closes the log: a program that
/// never logs has no log, and the log's own statics close it after this call.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        ModuleInstance = module;
    else if (reason == DLL_PROCESS_DETACH)
        ModuleInstance = nullptr;
    return TRUE;
}
