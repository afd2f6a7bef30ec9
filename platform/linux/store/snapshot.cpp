// Two hash tables: keys are found by their full path, values by their key and name, so that the time of a lookup does
// not depend on the size of the store. All names share one block of memory, and so do all data.
#include "store/snapshot.h"

#include "store/key_path.h"
#include "store/name_hash.h"
#include "text/case_fold.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string_view>

namespace {

using layer::Fold;
using layer::PathSeparator;
using layer::TextView;

constexpr std::uint32_t NoParent = 0xFFFFFFFF;

// The predefined keys, in the order of their handles, which count from FirstHive. They are the first entries of each
// snapshot, so the index here is also the Key.
constexpr std::uintptr_t FirstHive = 0x80000000;
constexpr std::array<std::string_view, 4> HiveNames = {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE",
                                                       "HKEY_USERS"};

/// The hash of the key at `path` below the key with this hash.
std::uint32_t HashOfChild(std::uint32_t hash, TextView path)
{
    return layer::ExtendHash(layer::ExtendHash(hash, {&PathSeparator, 1}), path);
}

bool EqualsIgnoringCase(TextView one, TextView other)
{
    if (one.size() != other.size())
        return false;
    if (one.empty())
        return true;
    // Most callers spell names as they are stored, so the cheap comparison comes first.
    return std::memcmp(one.data(), other.data(), one.size() * sizeof(WCHAR)) == 0 ||
           std::equal(one.begin(), one.end(), other.begin(),
                      [](WCHAR left, WCHAR right) { return Fold(left) == Fold(right); });
}

/// The hash of a value of the key with this number.
std::uint32_t HashOfValue(std::uint32_t owner, TextView name)
{
    return layer::ExtendHash(layer::HashOfNumber(owner), name);
}

}  // namespace

namespace layer {

void HashIndex::Add(std::uint32_t hash, std::uint32_t entry)
{
    if (Slots.size() <= 2 * Count)
        Grow();
    std::size_t at = FirstSlot(hash);
    while (Slots[at].Used)
        at = (at + 1) & (Slots.size() - 1);
    Slots[at] = {hash, entry & 0x7FFFFFFF, 1};
    ++Count;
}

void HashIndex::Grow()
{
    std::vector<Slot> former(std::max<std::size_t>(16, 2 * Slots.size()));
    former.swap(Slots);
    Shift = 32 - static_cast<unsigned>(std::countr_zero(Slots.size()));
    Count = 0;
    for (const Slot& slot : former) {
        if (slot.Used)
            Add(slot.Hash, slot.Entry);
    }
}

RegistrySnapshot::RegistrySnapshot()
{
    for (const std::string_view name : HiveNames) {
        const Text wide(name.begin(), name.end());
        AddKeyEntry(NoParent, ExtendHash(0, wide), AppendText(wide), wide.size());
    }
}

std::optional<RegistrySnapshot::Key> RegistrySnapshot::FindHive(HKEY hive)
{
    const std::uintptr_t index = reinterpret_cast<std::uintptr_t>(hive) - FirstHive;
    return index < HiveNames.size() ? std::optional(static_cast<Key>(index)) : std::nullopt;
}

std::optional<RegistrySnapshot::Key> RegistrySnapshot::FindHive(TextView name)
{
    for (Key index = 0; index < HiveNames.size(); ++index) {
        const std::string_view hive = HiveNames[index];
        if (std::equal(name.begin(), name.end(), hive.begin(), hive.end(),
                       [](WCHAR unit, char letter) { return Fold(unit) == static_cast<WCHAR>(letter); }))
            return index;
    }
    return std::nullopt;
}

RegistrySnapshot::KeyPath RegistrySnapshot::PathOf(Key key) const
{
    const KeyEntry& entry = Keys[key];
    return {TextAt(entry.Path, entry.Length), entry.Hash};
}

std::optional<RegistrySnapshot::Key> RegistrySnapshot::FindKey(const KeyPath& base, TextView path) const
{
    const std::uint32_t hash = path.empty() ? base.Hash : HashOfChild(base.Hash, path);
    const auto found = KeyIndex.Find(hash, [&](Key key) { return HasPath(key, base, path); });
    return found && Keys[*found].Exists ? found : std::nullopt;
}

bool RegistrySnapshot::IsKeyAt(Key key, const KeyPath& base, TextView path) const
{
    return key < Keys.size() && Keys[key].Exists && HasPath(key, base, path);
}

// The two parts of the path are compared one by one, because joining them would need memory.
bool RegistrySnapshot::HasPath(Key key, const KeyPath& base, TextView path) const
{
    const TextView whole = PathOf(key).FullPath;
    if (path.empty())
        return EqualsIgnoringCase(whole, base.FullPath);
    const std::size_t length = base.FullPath.size();
    return whole.size() == length + 1 + path.size() && whole[length] == PathSeparator &&
           EqualsIgnoringCase(whole.substr(length + 1), path) &&
           EqualsIgnoringCase(whole.substr(0, length), base.FullPath);
}

std::optional<RegistrySnapshot::Value> RegistrySnapshot::FindValue(Key key, TextView name) const
{
    const std::uint32_t owner = Keys[key].CreatedAt;
    const auto found = FindValueEntry(owner, HashOfValue(owner, name), name);
    if (!found || !Values[*found].Exists)
        return std::nullopt;
    const ValueEntry& entry = Values[*found];
    return Value{entry.Type, std::span(Contents).subspan(entry.Data, entry.Bytes)};
}

/// Finds the entry of the key `part` directly below `parent`, whether the key exists or was deleted. Only the part is
/// compared: comparing the full path at every part would make the time of AddKey grow with the square of its length.
std::optional<RegistrySnapshot::Key> RegistrySnapshot::FindChild(Key parent, std::uint32_t hash, TextView part) const
{
    return KeyIndex.Find(hash, [&](Key key) {
        return Keys[key].Parent == parent &&
               EqualsIgnoringCase(PathOf(key).FullPath.substr(Keys[parent].Length + 1), part);
    });
}

RegistrySnapshot::Key RegistrySnapshot::AddKeyEntry(Key parent, std::uint32_t hash, std::uint32_t path,
                                                    std::size_t length)
{
    const Key key = static_cast<Key>(Keys.size());
    Keys.push_back({path, static_cast<std::uint32_t>(length), hash, parent, ++ChangeCount, 0, true});
    KeyIndex.Add(hash, key);
    return key;
}

RegistrySnapshot::Key RegistrySnapshot::AddKey(TextView path)
{
    const TextView whole = path;
    Key key = FindHive(TakeFirstPart(path)).value();
    std::uint32_t deleted = Keys[key].DeletedAt;
    // The full path is stored once, for all new keys on it: the path of each is a prefix of it.
    std::optional<std::uint32_t> stored;
    while (!path.empty()) {
        const TextView part = TakeFirstPart(path);
        const std::uint32_t hash = HashOfChild(Keys[key].Hash, part);
        if (const auto found = FindChild(key, hash, part)) {
            key = *found;
            KeyEntry& entry = Keys[key];
            deleted = std::max(deleted, entry.DeletedAt);
            // The key, or one above it, was deleted after it was created. It is created again, with a new number, so
            // that its former values no longer belong to it.
            if (entry.CreatedAt < deleted)
                entry.CreatedAt = ++ChangeCount;
        } else {
            if (!stored)
                stored = AppendText(whole);
            key = AddKeyEntry(key, hash, *stored, static_cast<std::size_t>(part.data() - whole.data()) + part.size());
        }
    }
    return key;
}

// Only the key itself is marked. The keys below it count as deleted too, because AddKey and Finish take the latest
// deletion of all keys above into account.
void RegistrySnapshot::DeleteKey(TextView path)
{
    Key key = FindHive(TakeFirstPart(path)).value();
    while (!path.empty()) {
        const TextView part = TakeFirstPart(path);
        const auto found = FindChild(key, HashOfChild(Keys[key].Hash, part), part);
        if (!found)
            return;
        key = *found;
    }
    Keys[key].DeletedAt = ++ChangeCount;
}

void RegistrySnapshot::SetValue(Key key, TextView name, DWORD type, std::span<const BYTE> data)
{
    const std::uint32_t owner = Keys[key].CreatedAt;
    const std::uint32_t hash = HashOfValue(owner, name);
    auto entry = FindValueEntry(owner, hash, name);
    if (!entry) {
        entry = static_cast<std::uint32_t>(Values.size());
        Values.push_back({owner, AppendText(name), static_cast<std::uint32_t>(name.size()), 0, 0, REG_NONE, false});
        ValueIndex.Add(hash, *entry);
    }
    ValueEntry& value = Values[*entry];
    value.Data = static_cast<std::uint32_t>(Contents.size());
    value.Bytes = static_cast<std::uint32_t>(data.size());
    value.Type = type;
    value.Exists = true;
    Contents.insert(Contents.end(), data.begin(), data.end());
}

void RegistrySnapshot::DeleteValue(Key key, TextView name)
{
    const std::uint32_t owner = Keys[key].CreatedAt;
    if (const auto entry = FindValueEntry(owner, HashOfValue(owner, name), name))
        Values[*entry].Exists = false;
}

void RegistrySnapshot::Finish()
{
    // A key exists if it was created after the last deletion of itself and of every key above it. One pass suffices,
    // because the entry of a key always comes after that of its parent.
    std::vector<std::uint32_t> deleted(Keys.size());
    for (Key key = 0; key < Keys.size(); ++key) {
        KeyEntry& entry = Keys[key];
        const bool hive = entry.Parent == NoParent;
        deleted[key] = hive ? entry.DeletedAt : std::max(entry.DeletedAt, deleted[entry.Parent]);
        entry.Exists = hive || entry.CreatedAt > deleted[key];
    }
}

std::optional<std::uint32_t> RegistrySnapshot::FindValueEntry(std::uint32_t owner, std::uint32_t hash,
                                                              TextView name) const
{
    return ValueIndex.Find(hash, [&](std::uint32_t index) {
        const ValueEntry& entry = Values[index];
        return entry.Owner == owner && EqualsIgnoringCase(TextAt(entry.Name, entry.Length), name);
    });
}

/// Stores a text. @return where it starts in Names
std::uint32_t RegistrySnapshot::AppendText(TextView name)
{
    const auto start = static_cast<std::uint32_t>(Names.size());
    Names.insert(Names.end(), name.begin(), name.end());
    return start;
}

}  // namespace layer
