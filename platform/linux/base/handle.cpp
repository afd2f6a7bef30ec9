// The table of open handles. A handle's value holds the index of its place in the table and how often the place has
// been used, so that a stale handle is recognised and never refers to a later object.
#include "base/handle.h"

#include <array>
#include <memory>
#include <new>

namespace {

// Layout of a handle, from the high bits to the low: the count of uses, one bit that is always set, the place. The set
// bit keeps handles apart from the predefined keys of the registry.
constexpr std::uintptr_t PlaceMask = 0xFFFF;
constexpr std::uintptr_t HandleMark = 0x10000;
constexpr unsigned UsesShift = 17;
constexpr std::size_t BlockPlaces = 256;
constexpr std::size_t Blocks = (PlaceMask + 1) / BlockPlaces;

struct Place {
    std::atomic<std::uintptr_t> Value{0};  // the handle while it is open, else 0
    std::atomic<layer::Object*> Occupant{nullptr};
    std::uintptr_t Uses = 0;
    std::uintptr_t NextFree = 0;
};
using Block = std::array<Place, BlockPlaces>;

// Blocks are made when they are needed and stay until the library is unloaded, so a lookup takes no lock.
std::array<std::atomic<Block*>, Blocks> blocks;
std::uintptr_t placesMade = 1;  // place 0 stays empty: no handle is null
// Free places that were used before, the one that is free longest first: a handle's value comes back as late as
// possible.
std::uintptr_t firstFree = 0;
std::uintptr_t lastFree = 0;

Place* PlaceAt(std::uintptr_t index)
{
    Block* const block = blocks[index / BlockPlaces].load(std::memory_order_acquire);
    return block == nullptr ? nullptr : &(*block)[index % BlockPlaces];
}

/// A free place, or 0 if there is no memory or no room. Under the table lock.
std::uintptr_t TakePlace()
{
    if (firstFree != 0) {
        const std::uintptr_t index = firstFree;
        firstFree = PlaceAt(index)->NextFree;
        return index;
    }
    if (placesMade >= PlaceMask)  // the last place stays empty: no handle has all bits set
        return 0;
    std::atomic<Block*>& block = blocks[placesMade / BlockPlaces];
    if (block.load(std::memory_order_relaxed) == nullptr) {
        Block* const made = new (std::nothrow) Block;
        if (made == nullptr)
            return 0;
        block.store(made, std::memory_order_release);
    }
    return placesMade++;
}

/// The place of an open handle whose object `accepts`, or null.
template <class Accepts>
Place* OpenPlace(HANDLE handle, Accepts accepts)
{
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    if (value == 0)
        return nullptr;
    Place* const place = PlaceAt(value & PlaceMask);
    if (place == nullptr || place->Value.load(std::memory_order_acquire) != value)
        return nullptr;
    return accepts(*place->Occupant.load(std::memory_order_relaxed)) ? place : nullptr;
}

/// Closes an open handle whose object `accepts`. The object closes itself after the handle is gone.
template <class Accepts>
bool Close(HANDLE handle, Accepts accepts)
{
    layer::Object* object = nullptr;
    {
        const std::lock_guard<std::mutex> guard(layer::TableLock());
        Place* const place = OpenPlace(handle, accepts);
        if (place == nullptr)
            return layer::Fail(ERROR_INVALID_HANDLE, false);
        object = place->Occupant.load(std::memory_order_relaxed);
        place->Value.store(0, std::memory_order_release);
        const std::uintptr_t index = reinterpret_cast<std::uintptr_t>(handle) & PlaceMask;
        place->NextFree = 0;
        if (firstFree == 0)
            firstFree = index;
        else
            PlaceAt(lastFree)->NextFree = index;
        lastFree = index;
    }
    object->Close();
    return true;
}

std::mutex tableLock;

}  // namespace

namespace layer {

std::mutex& TableLock()
{
    return tableLock;
}

void Object::Close()
{
    Release(this);
}

void AddReference(Object* object)
{
    object->References.fetch_add(1, std::memory_order_relaxed);
}

void Release(Object* object)
{
    if (object->References.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete object;
}

HANDLE OpenHandle(Object* object)
{
    {
        const std::lock_guard<std::mutex> guard(TableLock());
        if (const std::uintptr_t index = TakePlace(); index != 0) {
            Place& place = *PlaceAt(index);
            const std::uintptr_t value = ++place.Uses << UsesShift | HandleMark | index;
            place.Occupant.store(object, std::memory_order_relaxed);
            place.Value.store(value, std::memory_order_release);
            return reinterpret_cast<HANDLE>(value);
        }
    }
    Release(object);
    return Fail(ERROR_OUTOFMEMORY, HANDLE{nullptr});
}

Object* FindObject(HANDLE handle, Object::Kind kind)
{
    const Place* const place = OpenPlace(handle, [kind](const Object& object) { return object.kind() == kind; });
    if (place == nullptr)
        return Fail(ERROR_INVALID_HANDLE, static_cast<Object*>(nullptr));
    return place->Occupant.load(std::memory_order_relaxed);
}

bool CloseHandleOfKind(HANDLE handle, Object::Kind kind)
{
    return ::Close(handle, [kind](const Object& object) { return object.kind() == kind; });
}

void CloseAllHandles()
{
    for (std::atomic<Block*>& slot : blocks) {
        const std::unique_ptr<Block> block(slot.exchange(nullptr));
        if (!block)
            continue;
        for (Place& place : *block) {
            if (place.Value.exchange(0) != 0)
                Release(place.Occupant.load(std::memory_order_relaxed));
        }
    }
    placesMade = 1;
    firstFree = 0;
}

}  // namespace layer

BOOL CloseHandle(HANDLE handle)
{
    return Close(handle, [](const layer::Object& object) { return object.IsClosedByCloseHandle(); }) ? TRUE : FALSE;
}
