// Finds out what an exception at a fault would do, before it is thrown.
#pragma once

#include "faults/fault.h"

#include <typeinfo>

namespace layer {

enum class Prospect {
    caught,            // a handler would take it
    uncaught,          // no handler would, or the stack cannot be followed to one
    refused,           // a function on the way lets no exception through
    insideAllocator,   // memory may be locked, and the handler would need it
    insideLoader,      // the dynamic linker or the unwinder may hold its lock
    insideTranslator,  // the translator of an earlier fault has failed itself
};

/// Prepares the search: afterwards it allocates nothing and takes no lock. May be called again.
void PrepareSearch();

/// Follows the stack from the fault to the first handler. Runs in the signal handler.
/// @param thrown       the type of the exception; null if it is unknown, then each handler counts
/// @param translating  whether an earlier fault of the thread has not been thrown yet, as far as it is known
Prospect FindProspect(const Fault& fault, const std::type_info* thrown, bool translating);

/// Whether an address belongs to a loaded ELF file. Other code belongs to the host program: it was generated.
bool IsInLoadedFile(std::uintptr_t address);

}  // namespace layer
