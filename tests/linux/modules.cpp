#include "support.h"

using namespace utility::literals;

namespace support {

HMODULE LibraryModule()
{
    return GetModuleHandleW(nullptr);
}

HMODULE SystemModule()
{
    return GetModuleHandleW(u"libc.so.6"_w);
}

}  // namespace support
