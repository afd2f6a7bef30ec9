// Calls the library's entry point: after the library's static initialisation when it is loaded, and before its static
// destruction when it is unloaded or the program ends.
#include "modules/modules.h"

namespace {

struct Entry {
    Entry() { DllMain(layer::ModuleOf(this), DLL_PROCESS_ATTACH, nullptr); }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() { DllMain(layer::ModuleOf(this), DLL_PROCESS_DETACH, nullptr); }
};

}  // namespace

// After the statics of the library (200 and 201), and before those of a program into which it is linked, since these
// may log. A program that links the static library refers to this name, so that the linker takes this file.
namespace layer {
[[gnu::init_priority(202)]] Entry entry;
}
