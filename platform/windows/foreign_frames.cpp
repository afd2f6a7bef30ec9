// Exceptions that leave the library on x86-32. There the language's runtime finds the frame of a function in a list
// that each module fills with its own frames. With a runtime inside each module, an exception of the library would
// find nothing of its callers and end the process. So the search goes on in the module that holds the address.
#include <windows.h>

#include <cstdint>
#include <cstring>

// The runtime's own operations. The linker leads calls of `_Unwind_Find_FDE` here (--wrap).
extern "C" {
const void* __real__Unwind_Find_FDE(void* address, void* bases);
const void* __wrap__Unwind_Find_FDE(void* address, void* bases);
void __register_frame_info(const void* begin, void* record);
void* __deregister_frame_info(const void* begin);
}

namespace {

/// Room for the runtime's record of a list of frames, which has seven words.
struct FrameRecord {
    std::uintptr_t Words[16];
};

/// Held alone while another module's list is entered, and shared by every search: the runtime goes on reading the
/// record that it found something through when it has let go of its own lock.
SRWLOCK entering = SRWLOCK_INIT;

const BYTE* ModuleOf(const void* address)
{
    MEMORY_BASIC_INFORMATION memory;
    if (VirtualQuery(address, &memory, sizeof memory) == 0 || memory.Type != MEM_IMAGE)
        return nullptr;
    return static_cast<const BYTE*>(memory.AllocationBase);
}

/// A list of frames starts with an entry that others refer to: a length, the number 0 and version 1.
bool StartsFrames(const BYTE* data, DWORD size)
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

/// The section .eh_frame. Its name is too long for the header: cut off there, or a number behind a slash.
bool MayBeFrames(const IMAGE_SECTION_HEADER& section)
{
    const bool named = std::memcmp(section.Name, ".eh_fram", IMAGE_SIZEOF_SHORT_NAME) == 0 || section.Name[0] == '/';
    return named && (section.Characteristics & IMAGE_SCN_MEM_READ) != 0 &&
           (section.Characteristics & IMAGE_SCN_MEM_DISCARDABLE) == 0;
}

const BYTE* FramesOf(const BYTE* module)
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
        if (MayBeFrames(sections[i]) && StartsFrames(data, sections[i].Misc.VirtualSize))
            return data;
    }
    return nullptr;
}

}  // namespace

const void* __wrap__Unwind_Find_FDE(void* address, void* bases)
{
    AcquireSRWLockShared(&entering);
    const void* const own = __real__Unwind_Find_FDE(address, bases);
    ReleaseSRWLockShared(&entering);
    if (own != nullptr)
        return own;
    const BYTE* const module = ModuleOf(address);
    const BYTE* const frames = module != nullptr ? FramesOf(module) : nullptr;
    if (frames == nullptr)
        return nullptr;
    // Entered for this one search: the module may be gone at the next.
    FrameRecord record{};
    AcquireSRWLockExclusive(&entering);
    __register_frame_info(frames, &record);
    const void* const found = __real__Unwind_Find_FDE(address, bases);
    __deregister_frame_info(frames);
    ReleaseSRWLockExclusive(&entering);
    return found;
}
