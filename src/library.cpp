#include "library.h"

#include "settings/tag_specification.h"

HINSTANCE ModuleInstance = nullptr;

/// Called by the platform. Neither opens nor closes the log: the first GetInstance and the log's own statics do.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        ModuleInstance = module;
    else if (reason == DLL_PROCESS_DETACH)
        ModuleInstance = nullptr;
    return TRUE;
}
