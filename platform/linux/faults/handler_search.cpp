// Follows the stack of a fault with the unwinder's own search, and asks the exception tables of each frame.
//
// With this C library the unwinder takes no lock and allocates nothing, except for frames that a host program has
// registered at run time: those it sorts at its first search, which PrepareSearch does.
#include "faults/handler_search.h"

#include "faults/exception_table.h"
#include "faults/fault_frame.h"
#include "faults/guarded.h"

#include <array>
#include <cstdlib>
#include <dlfcn.h>
#include <malloc.h>
#include <sys/auxv.h>

#include <unwind.h>

extern "C" {
// The C library's own names of its allocator, which stay when a program replaces malloc.
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
void __libc_free(void* block);
}

namespace {

using layer::Fault;
using layer::FrameAction;
using layer::Prospect;

template <class Function>
std::uintptr_t AddressOf(Function* function)
{
    return reinterpret_cast<std::uintptr_t>(function);
}

/// The loaded ELF file that contains an address; empty if there is none.
struct LoadedFile {
    const void* Start = nullptr;
    const void* End = nullptr;

    bool Contains(std::uintptr_t address) const
    {
        return address >= reinterpret_cast<std::uintptr_t>(Start) && address < reinterpret_cast<std::uintptr_t>(End);
    }
};

LoadedFile FileOf(std::uintptr_t address)
{
    dl_find_object found{};
    if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0)
        return {};
    return {found.dlfo_map_start, found.dlfo_map_end};
}

/// Files whose code may hold a lock that later code needs. A file is left out if it contains ordinary code too.
struct LockingFiles {
    LoadedFile Linker;
    LoadedFile Unwinder;
    LoadedFile Allocator;
};

LockingFiles FindLockingFiles()
{
    const LoadedFile own = FileOf(AddressOf(&FindLockingFiles));
    const LoadedFile program = FileOf(getauxval(AT_ENTRY));
    const LoadedFile library = FileOf(AddressOf(&__libc_malloc));
    const auto separate = [&](const LoadedFile& file) {
        const bool isShared = file.Start == own.Start || file.Start == program.Start || file.Start == library.Start;
        return isShared ? LoadedFile{} : file;
    };
    return {separate(FileOf(getauxval(AT_BASE))), separate(FileOf(AddressOf(&_Unwind_Backtrace))),
            separate(FileOf(AddressOf(&malloc)))};
}

// Found when the library is loaded: later calls need no lock.
const LockingFiles lockingFiles = FindLockingFiles();

/// Whether a function is an entry of the allocator.
bool IsAllocator(std::uintptr_t function)
{
    const std::uintptr_t entries[] = {
        AddressOf(&malloc),          AddressOf(&calloc),
        AddressOf(&realloc),         AddressOf(&free),
        AddressOf(&memalign),        AddressOf(&posix_memalign),
        AddressOf(&aligned_alloc),   AddressOf(&__libc_malloc),
        AddressOf(&__libc_calloc),   AddressOf(&__libc_realloc),
        AddressOf(&__libc_memalign), AddressOf(&__libc_free),
        AddressOf(&malloc_trim),     AddressOf(&malloc_usable_size),
        AddressOf(&mallinfo2),
    };
    for (const std::uintptr_t entry : entries) {
        if (function == entry)
            return true;
    }
    return false;
}

// A damaged stack may contain a circle of frames. A stack of 64 MB with the smallest frames has this number.
constexpr unsigned int MaxFrames = 4'000'000;

/// The search, as `layer_at_fault` passes it on.
struct Search : Fault {
    const std::type_info* Thrown;
    bool Translating;
    bool AtFault;  // the frames of the search itself are done
    unsigned int Frames = 0;
    Prospect Result = Prospect::uncaught;
};

Prospect ProspectIn(_Unwind_Context* context, std::uintptr_t pc, std::uintptr_t function, const Search& search)
{
    if (lockingFiles.Linker.Contains(pc) || lockingFiles.Unwinder.Contains(pc))
        return Prospect::insideLoader;
    if (lockingFiles.Allocator.Contains(pc) || IsAllocator(function))
        return Prospect::insideAllocator;
    switch (layer::ActionOf(context, pc, search.Thrown)) {
        case FrameAction::take: return Prospect::caught;
        case FrameAction::refuse: return Prospect::refused;
        default: return Prospect::uncaught;
    }
}

_Unwind_Reason_Code VisitFrame(_Unwind_Context* context, void* argument)
{
    Search& search = *static_cast<Search*>(argument);
    int isExact = 0;  // whether the address is that of the instruction, not of the one after a call
    const std::uintptr_t address = _Unwind_GetIPInfo(context, &isExact);
    const std::uintptr_t pc = isExact != 0 ? address : address - 1;
    const std::uintptr_t function = _Unwind_GetRegionStart(context);
    if (function == AddressOf(&layer::layer_at_fault)) {
        if (search.AtFault) {
            search.Result = Prospect::insideTranslator;
            return _URC_NORMAL_STOP;
        }
        search.AtFault = true;
        return _URC_NO_REASON;
    }
    if (!search.AtFault)
        return _URC_NO_REASON;
    if (++search.Frames > MaxFrames)
        return _URC_NORMAL_STOP;
    if (search.Result == Prospect::uncaught)
        search.Result = ProspectIn(context, pc, function, search);
    // A handler inside a translator that has not ended yet must not hide it.
    return search.Result == Prospect::uncaught || search.Translating ? _URC_NO_REASON : _URC_NORMAL_STOP;
}

int SearchFrames(Fault* fault)
{
    return _Unwind_Backtrace(VisitFrame, static_cast<Search*>(fault));
}

}  // namespace

void layer::PrepareSearch()
{
    Search search{{}, nullptr, true, true};
    SearchFrames(&search);
}

Prospect layer::FindProspect(const Fault& fault, const std::type_info* thrown, bool translating)
{
    Search search{fault, thrown, translating, false};
    // A damaged stack makes the unwinder fault itself.
    if (!Guarded([&] { layer_at_fault(&search, SearchFrames); }))
        search.Result = Prospect::uncaught;
    return search.Result;
}

bool layer::IsInLoadedFile(std::uintptr_t address)
{
    return FileOf(address).Start != nullptr;
}
