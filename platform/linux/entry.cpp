// Calls the library's entry point: after the library's static initialisation when it is loaded, and before its static
// destruction when it is unloaded or the program ends.
#include "modules/modules.h"

namespace layer {

// Not in an unnamed namespace: that would make the object below local to this file.
struct Entry {
    Entry() { DllMain(ModuleOf(this), DLL_PROCESS_ATTACH, nullptr); }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() { DllMain(ModuleOf(this), DLL_PROCESS_DETACH, nullptr); }
};

}  // namespace layer

// After the statics of the library (200 and 201), and before those of a program into which it is linked, since these
// may log. A program that links the static library refers to this name, so that the linker takes this file.
extern "C" {
[[gnu::init_priority(202)]] layer::Entry tessmaru_entry;
}
