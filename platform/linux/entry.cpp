// Calls the library's entry point: behind its static initialisation when it is loaded, ahead of its static
// destruction when it is unloaded or the program ends.
#include "modules.h"

namespace {

struct Entry {
    Entry() { DllMain(layer::ModuleOf(this), DLL_PROCESS_ATTACH, nullptr); }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() { DllMain(layer::ModuleOf(this), DLL_PROCESS_DETACH, nullptr); }
};

}  // namespace

// Behind the statics of the library (200 and 201) and ahead of those of a program into which it is linked, as
// these may log.
// The name is how a program asks for it that links the static library.
namespace layer {
[[gnu::init_priority(202)]] Entry entry;
}
