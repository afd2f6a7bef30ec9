// One state of the settings store in memory. It is filled once, in the order of the file, and never changes afterwards,
// so that threads share it without a lock.
#pragma once

#include "system.h"
#include "text/text.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace layer {

/// A hash table with open addressing and linear probing. It maps hashes to entries of a table that the owner keeps;
/// several entries may have the same hash.
class HashIndex {
public:
    /// Finds the entry with this hash for which `matches(entry)` is true.
    template <class Test>
    std::optional<std::uint32_t> Find(std::uint32_t hash, Test matches) const
    {
        if (Slots.empty())
            return std::nullopt;
        for (std::size_t at = FirstSlot(hash); Slots[at].Used; at = (at + 1) & (Slots.size() - 1)) {
            if (Slots[at].Hash == hash && matches(Slots[at].Entry))
                return Slots[at].Entry;
        }
        return std::nullopt;
    }

    /// Adds an entry. @param entry less than 2^31
    /// @throws std::bad_alloc
    void Add(std::uint32_t hash, std::uint32_t entry);

private:
    struct Slot {
        std::uint32_t Hash;
        std::uint32_t Entry : 31;
        std::uint32_t Used : 1;
    };

    // Fibonacci hashing: the multiplication spreads similar hashes, and the high bits of the product select the slot.
    std::size_t FirstSlot(std::uint32_t hash) const { return (hash * 0x9E3779B1U) >> Shift; }
    void Grow();

    // Their number is a power of two. At most half of them are used, which keeps the searches short.
    std::vector<Slot> Slots;
    std::size_t Count = 0;
    unsigned Shift = 32;
};

/// The keys and values of the store. Names compare without case.
class RegistrySnapshot {
public:
    /// The index of a key, valid in this snapshot only.
    using Key = std::uint32_t;

    /// The path of a key, with the hash from which those of the keys below it are computed.
    struct KeyPath {
        TextView FullPath;
        std::uint32_t Hash;
    };
    /// A value. The data belong to the snapshot.
    struct Value {
        DWORD Type;
        std::span<const BYTE> Data;
    };

    /// Makes a store that has only the predefined keys. @throws std::bad_alloc
    RegistrySnapshot();

    /// Finds a predefined key by its handle or its name.
    static std::optional<Key> FindHive(HKEY hive);
    static std::optional<Key> FindHive(TextView name);

    /// Finds the key at `path` below `base`, or `base` itself if the path is empty. `base` may come from another
    /// snapshot.
    std::optional<Key> FindKey(const KeyPath& base, TextView path) const;
    /// Whether `key` exists and FindKey would find it. `key` may be any number.
    bool IsKeyAt(Key key, const KeyPath& base, TextView path) const;
    /// The full path of a key. It refers to the snapshot's memory.
    KeyPath PathOf(Key key) const;
    /// Finds a value of a key. The default value has the empty name.
    std::optional<Value> FindValue(Key key, TextView name) const;

    // Filling. A path begins with its predefined key; it has no empty part and no backslash at its end. These functions
    // throw std::bad_alloc, and must not be called after Finish.

    /// Adds a key, and the keys above it that are missing. @return the key, new or not
    Key AddKey(TextView path);
    /// Deletes a key, with the values and keys in it that were added so far.
    void DeleteKey(TextView path);
    /// Adds a value to a key, or replaces the one with this name.
    void SetValue(Key key, TextView name, DWORD type, std::span<const BYTE> data);
    /// Deletes a value if it exists.
    void DeleteValue(Key key, TextView name);
    /// Determines which keys exist. To be called once, after the last change and before the first search.
    void Finish();

private:
    struct KeyEntry {
        std::uint32_t Path;  // where the full path starts in Names
        std::uint32_t Length;
        std::uint32_t Hash;
        Key Parent;
        // The numbers of the changes that created and last deleted the key; 0 if it was never deleted. CreatedAt also
        // identifies the owner of a value, so that a key that is created again is without its former values.
        std::uint32_t CreatedAt;
        std::uint32_t DeletedAt;
        bool Exists;
    };
    struct ValueEntry {
        std::uint32_t Owner;  // the key's CreatedAt
        std::uint32_t Name;   // where the name starts in Names
        std::uint32_t Length;
        std::uint32_t Data;  // where the data start in Contents
        std::uint32_t Bytes;
        DWORD Type;
        bool Exists;
    };

    bool HasPath(Key key, const KeyPath& base, TextView path) const;
    std::optional<Key> FindChild(Key parent, std::uint32_t hash, TextView part) const;
    Key AddKeyEntry(Key parent, std::uint32_t hash, std::uint32_t path, std::size_t length);
    std::optional<std::uint32_t> FindValueEntry(std::uint32_t owner, std::uint32_t hash, TextView name) const;
    std::uint32_t AppendText(TextView name);
    TextView TextAt(std::uint32_t start, std::size_t length) const { return {Names.data() + start, length}; }

    std::vector<WCHAR> Names;
    std::vector<BYTE> Contents;
    std::vector<KeyEntry> Keys;  // in the order of creation, so a key comes after its parent
    std::vector<ValueEntry> Values;
    HashIndex KeyIndex;
    HashIndex ValueIndex;
    std::uint32_t ChangeCount = 0;  // creations and deletions of keys so far
};

}  // namespace layer
