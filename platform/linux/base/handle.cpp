// The table of open handles. The value of a handle contains the index of a table slot and the use count of that slot,
// so that a stale handle is recognised and does not refer to a later object in the same slot.
#include "base/handle.h"

#include <array>
#include <memory>
#include <new>

namespace {

// Layout of a handle, from the high bits to the low: the use count, one bit that is always set, the slot index. The set
// bit distinguishes handles from the predefined keys of the registry.
constexpr std::uintptr_t IndexMask = 0xFFFF;
constexpr std::uintptr_t HandleMark = 0x10000;
constexpr unsigned UsesShift = 17;
constexpr std::size_t SlotsPerBlock = 256;
constexpr std::size_t BlockCount = (IndexMask + 1) / SlotsPerBlock;

struct Slot {
    std::atomic<std::uintptr_t> Value{0};  // the open handle, or 0
    std::atomic<layer::Object*> Target{nullptr};
    std::uintptr_t Uses = 0;
    std::uintptr_t NextFree = 0;  // the next index in the list of free slots, or 0
};
using Block = std::array<Slot, SlotsPerBlock>;

// Blocks are allocated on demand and freed only when the library is unloaded, so a lookup takes no lock. The
// indices below are guarded by the table lock.
std::array<std::atomic<Block*>, BlockCount> blocks;
std::uintptr_t nextUnusedIndex = 1;  // slot 0 is never used, so no handle is null
// The list of released slots. The slot that was released first is reused first: that delays as long as possible the
// moment when a handle's value occurs again.
std::uintptr_t firstFree = 0;
std::uintptr_t lastFree = 0;

Slot* SlotAt(std::uintptr_t index)
{
    Block* const block = blocks[index / SlotsPerBlock].load(std::memory_order_acquire);
    return block == nullptr ? nullptr : &(*block)[index % SlotsPerBlock];
}

/// Takes a free slot. To be called under the table lock.
/// @return its index, or 0 if memory is exhausted or the table is full
std::uintptr_t AllocateSlot()
{
    if (firstFree != 0) {
        const std::uintptr_t index = firstFree;
        firstFree = SlotAt(index)->NextFree;
        return index;
    }
    if (nextUnusedIndex >= IndexMask)  // the last slot is never used, so no handle equals INVALID_HANDLE_VALUE
        return 0;
    std::atomic<Block*>& block = blocks[nextUnusedIndex / SlotsPerBlock];
    if (block.load(std::memory_order_relaxed) == nullptr) {
        Block* const created = new (std::nothrow) Block;
        if (created == nullptr)
            return 0;
        block.store(created, std::memory_order_release);
    }
    return nextUnusedIndex++;
}

/// Finds the slot of a handle. @return null if the handle is not open or `accepts(object)` is false
template <class Accepts>
Slot* FindOpenSlot(HANDLE handle, Accepts accepts)
{
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    if (value == 0)
        return nullptr;
    Slot* const slot = SlotAt(value & IndexMask);
    if (slot == nullptr || slot->Value.load(std::memory_order_acquire) != value)
        return nullptr;
    return accepts(*slot->Target.load(std::memory_order_relaxed)) ? slot : nullptr;
}

/// Closes an open handle for whose object `accepts(object)` is true. The object's own clean-up runs after the table
/// lock is released, because it may take that lock itself and make system calls.
template <class Accepts>
bool Close(HANDLE handle, Accepts accepts)
{
    layer::Object* object = nullptr;
    {
        const std::lock_guard<std::mutex> guard(layer::TableLock());
        Slot* const slot = FindOpenSlot(handle, accepts);
        if (slot == nullptr)
            return layer::Fail(ERROR_INVALID_HANDLE, false);
        object = slot->Target.load(std::memory_order_relaxed);
        slot->Value.store(0, std::memory_order_release);
        const std::uintptr_t index = reinterpret_cast<std::uintptr_t>(handle) & IndexMask;
        slot->NextFree = 0;
        if (firstFree == 0)
            firstFree = index;
        else
            SlotAt(lastFree)->NextFree = index;
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
        if (const std::uintptr_t index = AllocateSlot(); index != 0) {
            Slot& slot = *SlotAt(index);
            const std::uintptr_t value = ++slot.Uses << UsesShift | HandleMark | index;
            // The release store comes last, so that a lookup that finds the value also finds the object.
            slot.Target.store(object, std::memory_order_relaxed);
            slot.Value.store(value, std::memory_order_release);
            return reinterpret_cast<HANDLE>(value);
        }
    }
    object->Close();
    return Fail(ERROR_OUTOFMEMORY, HANDLE{nullptr});
}

Object* FindObject(HANDLE handle, Object::Kind kind)
{
    const Slot* const slot = FindOpenSlot(handle, [kind](const Object& object) { return object.kind() == kind; });
    if (slot == nullptr)
        return Fail(ERROR_INVALID_HANDLE, static_cast<Object*>(nullptr));
    return slot->Target.load(std::memory_order_relaxed);
}

bool CloseHandleOfKind(HANDLE handle, Object::Kind kind)
{
    return ::Close(handle, [kind](const Object& object) { return object.kind() == kind; });
}

void CloseAllHandles()
{
    for (std::atomic<Block*>& entry : blocks) {
        const std::unique_ptr<Block> block(entry.exchange(nullptr));
        if (!block)
            continue;
        for (Slot& slot : *block) {
            if (slot.Value.exchange(0) != 0)
                Release(slot.Target.load(std::memory_order_relaxed));
        }
    }
    nextUnusedIndex = 1;
    firstFree = 0;
}

}  // namespace layer

BOOL CloseHandle(HANDLE handle)
{
    return Close(handle, [](const layer::Object& object) { return object.IsClosedByCloseHandle(); }) ? TRUE : FALSE;
}
