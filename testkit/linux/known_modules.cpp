// Modules that tests name, on Linux.
#include "testkit/known_modules.h"

#include "tessmaru/text.h"

namespace testkit {

using namespace utility::literals;

HMODULE LibraryModule()
{
    return GetModuleHandleW(nullptr);
}

HMODULE SystemModule()
{
    return GetModuleHandleW(u"libc.so.6"_w);
}

}  // namespace testkit
