// One state of the settings store in memory. It is filled once, in the order of the file, and only looked at
// from then on, so any number of threads may share it.
#pragma once

#include "system.h"
#include "text/text.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace layer {

/// Finds entries of a table by their hashes.
class HashIndex {
public:
    /// The entry of this hash for which `isIt(entry)` holds.
    template <class Test>
    std::optional<std::uint32_t> Find(std::uint32_t hash, Test isIt) const
    {
        if (Slots.empty())
            return std::nullopt;
        for (std::size_t at = Start(hash); Slots[at].Used; at = (at + 1) & (Slots.size() - 1)) {
            if (Slots[at].Hash == hash && isIt(Slots[at].Entry))
                return Slots[at].Entry;
        }
        return std::nullopt;
    }

    void Add(std::uint32_t hash, std::uint32_t entry);

private:
    struct Slot {
        std::uint32_t Hash;
        std::uint32_t Entry : 31;
        std::uint32_t Used : 1;
    };

    std::size_t Start(std::uint32_t hash) const { return (hash * 0x9E3779B1U) >> Shift; }
    void Grow();

    std::vector<Slot> Slots;  // a power of two, at most half of them used
    std::size_t Count = 0;
    unsigned Shift = 32;
};

class RegistrySnapshot {
public:
    using Key = std::uint32_t;

    /// The path of a key, and what is needed to go on below it.
    struct KeyPath {
        TextView Whole;
        std::uint32_t Hash;
    };
    struct Value {
        DWORD Type;
        std::span<const BYTE> Data;
    };

    /// A store with its predefined keys and nothing below them.
    RegistrySnapshot();

    /// The predefined key of this handle or name.
    static std::optional<Key> FindHive(HKEY hive);
    static std::optional<Key> FindHive(TextView name);

    /// The key at `path` below `base`, or `base` itself for an empty path. `base` may be of another snapshot.
    std::optional<Key> FindKey(const KeyPath& base, TextView path) const;
    KeyPath PathOf(Key key) const;
    /// The value of this name; the unnamed one has the empty name.
    std::optional<Value> FindValue(Key key, TextView name) const;

    // Filling. A path has its hive in front, no empty part, and no backslash at its end.
    /// The key, made with all keys above it where they are missing.
    Key AddKey(TextView path);
    /// Takes the key away, with everything in it and below it that was added so far.
    void DeleteKey(TextView path);
    void SetValue(Key key, TextView name, DWORD type, std::span<const BYTE> data);
    void DeleteValue(Key key, TextView name);
    /// To be called behind the last change.
    void Finish();

private:
    struct KeyEntry {
        std::uint32_t Path;  // where its text starts in Names
        std::uint32_t Length;
        std::uint32_t Hash;
        Key Parent;
        std::uint32_t Made;     // when, counted in changes of keys; its values belong to a key by that number
        std::uint32_t Deleted;  // when last, or 0
        bool Exists;
    };
    struct ValueEntry {
        std::uint32_t Owner;
        std::uint32_t Name;
        std::uint32_t Length;
        std::uint32_t Data;
        std::uint32_t Bytes;
        DWORD Type;
        bool Exists;
    };

    std::optional<Key> FindPart(Key parent, std::uint32_t hash, TextView part) const;
    Key AddEntry(Key parent, std::uint32_t hash, std::uint32_t path, std::size_t length);
    std::optional<std::uint32_t> FindEntry(std::uint32_t owner, std::uint32_t hash, TextView name) const;
    std::uint32_t Keep(TextView name);
    TextView Kept(std::uint32_t start, std::size_t length) const { return {Names.data() + start, length}; }

    std::vector<WCHAR> Names;
    std::vector<BYTE> Contents;
    std::vector<KeyEntry> Keys;  // a key stands behind the one above it
    std::vector<ValueEntry> Values;
    HashIndex KeyIndex;
    HashIndex ValueIndex;
    std::uint32_t Changes = 0;
};

}  // namespace layer
