#include "support.h"

namespace support {

HMODULE LibraryModule()
{
    return GetModuleHandleW(L"tessmarU.dll");
}

HMODULE SystemModule()
{
    return GetModuleHandleW(L"kernel32.dll");
}

}  // namespace support
