// Finds the resources of a loaded module through its ELF notes.
//
// Section headers are not loaded, but notes are. A note of the module has the place of its resources, so no file has to
// be opened. Neither the notes nor the resources are trusted: each range must lie in a loaded segment.
#include "resources/module_resources.h"

#include "base/last_error.h"
#include "modules/modules.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <link.h>
#include <span>

namespace {

using layer::AlignUp;
using layer::Bytes;
using layer::ReadAt;
using Address = std::uint64_t;
using Segment = ElfW(Phdr);

// The library's own resources, found once: it reads them often, and they cannot change while it is loaded. Storing
// ownModule with release publishes the two other values.
std::atomic<HINSTANCE> ownModule{nullptr};
std::atomic<const std::byte*> ownData{nullptr};
std::atomic<std::size_t> ownBytes{0};

/// A range of addresses; empty at first.
struct Range {
    Address Start = ~Address{0};
    Address End = 0;

    bool Contains(Address start, Address bytes) const { return start >= Start && start <= End && bytes <= End - start; }
    void Add(Address start, Address end)
    {
        Start = std::min(Start, start);
        End = std::max(End, end);
    }
};

/// A module as the dynamic linker lists it: the distance of its addresses from those in the file, and its segments.
class Module {
public:
    explicit Module(const dl_phdr_info& info) : Bias(info.dlpi_addr), Segments(info.dlpi_phdr, info.dlpi_phnum) {}

    bool Contains(const void* address) const { return IsLoaded(reinterpret_cast<std::uintptr_t>(address), 1); }

    /// The range from the first resource data to the end of the last. A program and a library that is linked into it
    /// statically each have a note. The linker puts their data one after another, and compiled resource files in
    /// sequence form one such file.
    Bytes Resources() const
    {
        Range found;
        for (const Segment& segment : Segments) {
            if (segment.p_type == PT_NOTE && IsLoaded(StartOf(segment), segment.p_memsz))
                ReadNotes(StartOf(segment), segment.p_memsz, segment.p_align == 8 ? 8 : 4, found);
        }
        if (found.End == 0 || !IsLoaded(found.Start, found.End - found.Start))
            return {};
        return {reinterpret_cast<const std::byte*>(static_cast<std::uintptr_t>(found.Start)),
                static_cast<std::size_t>(found.End - found.Start)};
    }

private:
    Address StartOf(const Segment& segment) const { return Bias + segment.p_vaddr; }

    /// Whether one readable segment contains all of these bytes.
    bool IsLoaded(Address start, Address bytes) const
    {
        return std::ranges::any_of(Segments, [&](const Segment& segment) {
            const Address from = StartOf(segment);
            return segment.p_type == PT_LOAD && (segment.p_flags & PF_R) != 0 &&
                   Range{from, from + segment.p_memsz}.Contains(start, bytes);
        });
    }

    /// Reads the notes of a segment. A note is a header, the owner's name and a descriptor, each aligned.
    void ReadNotes(Address start, Address bytes, Address alignment, Range& found) const
    {
        const auto* const notes = reinterpret_cast<const std::byte*>(static_cast<std::uintptr_t>(start));
        Address at = 0;
        while (bytes - at >= sizeof(ElfW(Nhdr))) {
            const auto header = ReadAt<ElfW(Nhdr)>(notes + at);
            const Address name = at + sizeof header;
            const Address descriptor = AlignUp(name + header.n_namesz, alignment);
            const Address end = descriptor + header.n_descsz;
            if (end > bytes)
                return;
            if (header.n_type == layer::ResourceNoteType && header.n_namesz == sizeof layer::ResourceNoteOwner &&
                header.n_descsz == 2 * sizeof(std::uint32_t) &&
                std::memcmp(notes + name, layer::ResourceNoteOwner, sizeof layer::ResourceNoteOwner) == 0)
                AddResourceData(start + descriptor, notes + descriptor, found);
            at = std::min(AlignUp(end, alignment), bytes);  // the last note may lack its padding
        }
    }

    /// Adds the range to which the descriptor of a note points.
    /// @param origin  the address of the descriptor
    void AddResourceData(Address origin, const std::byte* descriptor, Range& found) const
    {
        const auto distance = ReadAt<std::int32_t>(descriptor);
        const Address start = origin + static_cast<Address>(std::int64_t{distance});
        const Address bytes = ReadAt<std::uint32_t>(descriptor + sizeof distance);
        if (IsLoaded(start, bytes))
            found.Add(start, start + bytes);
    }

    const Address Bias;
    const std::span<const Segment> Segments;
};

/// The argument of Visit.
struct Query {
    HINSTANCE Wanted;
    Bytes Found;
    bool IsOwnModule = false;
};

/// Called by the dynamic linker for each module. @return 1 at the module that is wanted, which ends the calls
int Visit(dl_phdr_info* info, std::size_t, void* data)
{
    auto& query = *static_cast<Query*>(data);
    // For null the first call is the right one: the program itself is listed first.
    if (query.Wanted != nullptr && layer::ExtentOf(*info).Handle() != query.Wanted)
        return 0;
    const Module module(*info);
    query.Found = module.Resources();
    query.IsOwnModule = query.Wanted != nullptr && module.Contains(&ownModule);
    return 1;
}

}  // namespace

namespace layer {

Bytes ModuleResources(HINSTANCE module)
{
    if (module != nullptr && module == ownModule.load(std::memory_order_acquire))
        return {ownData.load(std::memory_order_relaxed), ownBytes.load(std::memory_order_relaxed)};
    Query query{module, {}};
    dl_iterate_phdr(Visit, &query);
    if (query.IsOwnModule) {
        // Threads that get here at the same time store the same values.
        ownData.store(query.Found.data(), std::memory_order_relaxed);
        ownBytes.store(query.Found.size(), std::memory_order_relaxed);
        ownModule.store(module, std::memory_order_release);
    }
    return query.Found;
}

}  // namespace layer

int LoadStringW(HINSTANCE module, UINT row, LPWSTR buffer, int size)
{
    if (buffer == nullptr || size <= 0)
        return layer::Fail(ERROR_INVALID_PARAMETER, 0);
    const layer::Bytes file = layer::ModuleResources(module);
    if (file.empty())
        return layer::Fail(ERROR_RESOURCE_DATA_NOT_FOUND, 0);
    const layer::Bytes text = layer::FindString(file, row);
    if (text.empty())
        return layer::Fail(ERROR_RESOURCE_NAME_NOT_FOUND, 0);
    // A text that does not fit is cut, as published.
    const std::size_t units = std::min(text.size() / sizeof(WCHAR), static_cast<std::size_t>(size) - 1);
    std::memcpy(buffer, text.data(), units * sizeof(WCHAR));
    buffer[units] = 0;
    return static_cast<int>(units);
}
