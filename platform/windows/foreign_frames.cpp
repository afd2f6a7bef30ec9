// Lets exceptions leave the library on Windows x86-32, where each module has its own copy of the compiler's runtime.
//
// There the runtime finds the unwind data of a function in a list with which each module registers its own frames. The
// library's copy of the runtime knows the library's frames only, so an exception that reached a caller in another
// module would end the process. The search below continues in the module that contains the address.
#include <windows.h>

#include <cstdint>
#include <cstring>

// Functions of the runtime. The linker option --wrap redirects calls of `_Unwind_Find_FDE` to the __wrap_ function and
// gives the original the name with __real_.
extern "C" {
const void* __real__Unwind_Find_FDE(void* address, void* bases);
const void* __wrap__Unwind_Find_FDE(void* address, void* bases);
void __register_frame_info(const void* begin, void* record);
void* __deregister_frame_info(const void* begin);
}

namespace {

/// Memory for the runtime's record of a list of frames. The record has seven words at present; the rest is a reserve.
struct FrameRecord {
    std::uintptr_t Words[16];
};

// Held exclusively while another module's list is registered, and shared during each search: after the runtime has
// released its own lock, a search still reads the record in which it found a frame, and that record lies on the stack
// of the thread that registers.
SRWLOCK registrationLock = SRWLOCK_INIT;

/// The base address of the module that contains an address, or null.
const BYTE* ModuleOf(const void* address)
{
    MEMORY_BASIC_INFORMATION memory;
    if (VirtualQuery(address, &memory, sizeof memory) == 0 || memory.Type != MEM_IMAGE)
        return nullptr;
    return static_cast<const BYTE*>(memory.AllocationBase);
}

/// Whether data is a list of frames. Its first entry is common information, to which the others refer: a length, the id
/// 0 and version 1.
bool IsFrameList(const BYTE* data, DWORD size)
{
    struct {
        std::uint32_t Length;
        std::uint32_t Id;
        BYTE Version;
    } entry;
    if (size < sizeof entry)
        return false;
    std::memcpy(&entry, data, sizeof entry);
    return entry.Length != 0 && entry.Length < size && entry.Id == 0 && entry.Version == 1;
}

/// Whether a section may be .eh_frame. The name has nine characters and the header has room for eight: it is either cut
/// off, or a slash and the offset of the whole name.
bool MayBeFrameSection(const IMAGE_SECTION_HEADER& section)
{
    const bool named = std::memcmp(section.Name, ".eh_fram", IMAGE_SIZEOF_SHORT_NAME) == 0 || section.Name[0] == '/';
    return named && (section.Characteristics & IMAGE_SCN_MEM_READ) != 0 &&
           (section.Characteristics & IMAGE_SCN_MEM_DISCARDABLE) == 0;
}

/// Finds the list of frames of a module. @return null if it has none
const BYTE* FindFrames(const BYTE* module)
{
    const auto& dos = *reinterpret_cast<const IMAGE_DOS_HEADER*>(module);
    if (dos.e_magic != IMAGE_DOS_SIGNATURE)
        return nullptr;
    const auto& header = *reinterpret_cast<const IMAGE_NT_HEADERS*>(module + dos.e_lfanew);
    if (header.Signature != IMAGE_NT_SIGNATURE)
        return nullptr;
    const IMAGE_SECTION_HEADER* const sections = IMAGE_FIRST_SECTION(&header);
    for (WORD i = 0; i < header.FileHeader.NumberOfSections; ++i) {
        const BYTE* const data = module + sections[i].VirtualAddress;
        if (MayBeFrameSection(sections[i]) && IsFrameList(data, sections[i].Misc.VirtualSize))
            return data;
    }
    return nullptr;
}

}  // namespace

const void* __wrap__Unwind_Find_FDE(void* address, void* bases)
{
    AcquireSRWLockShared(&registrationLock);
    const void* const ownFrame = __real__Unwind_Find_FDE(address, bases);
    ReleaseSRWLockShared(&registrationLock);
    if (ownFrame != nullptr)
        return ownFrame;
    const BYTE* const module = ModuleOf(address);
    const BYTE* const frames = module != nullptr ? FindFrames(module) : nullptr;
    if (frames == nullptr)
        return nullptr;
    // Registered for this search only: the module may be unloaded before the next one.
    FrameRecord record{};
    AcquireSRWLockExclusive(&registrationLock);
    __register_frame_info(frames, &record);
    const void* const found = __real__Unwind_Find_FDE(address, bases);
    __deregister_frame_info(frames);
    ReleaseSRWLockExclusive(&registrationLock);
    return found;
}
