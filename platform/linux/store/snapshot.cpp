// Two tables, keys by their whole paths and values by key and name, so that a lookup costs the same in a store
// of any size. Texts and data lie in one block each.
#include "store/snapshot.h"

#include "text/case_fold.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string_view>

namespace {

using layer::Fold;
using layer::TextView;

constexpr std::uint32_t NoParent = 0xFFFFFFFF;
constexpr std::uintptr_t FirstHive = 0x80000000;
constexpr std::array<std::string_view, 4> HiveNames = {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE",
                                                       "HKEY_USERS"};

constexpr std::uint32_t Factor = 33;

/// The same for both cases of a letter.
std::uint32_t HashedUnit(WCHAR unit)
{
    return (unit < 0x80 ? unit : layer::FoldNonAscii(unit)) & ~0x20U;
}

/// Goes on with `hash` over further units, however they are cut; HashIndex spreads the result.
std::uint32_t Hash(std::uint32_t hash, TextView text)
{
    const WCHAR* at = text.data();
    const WCHAR* const end = at + text.size();
    // Four units a step: one unit has to wait for the product of the one before it, which made this most of
    // the time that it takes to open a key.
    for (; end - at >= 4; at += 4) {
        hash = hash * (Factor * Factor * Factor * Factor) + HashedUnit(at[0]) * (Factor * Factor * Factor) +
               HashedUnit(at[1]) * (Factor * Factor) + HashedUnit(at[2]) * Factor + HashedUnit(at[3]);
    }
    for (; at != end; ++at)
        hash = hash * Factor + HashedUnit(*at);
    return hash;
}

constexpr WCHAR Separator = '\\';

std::uint32_t HashBelow(std::uint32_t hash, TextView path)
{
    return Hash(Hash(hash, {&Separator, 1}), path);
}

bool IsSame(TextView one, TextView other)
{
    if (one.size() != other.size())
        return false;
    if (one.empty())
        return true;
    // Most names are spelled as they are stored.
    return std::memcmp(one.data(), other.data(), one.size() * sizeof(WCHAR)) == 0 ||
           std::equal(one.begin(), one.end(), other.begin(),
                      [](WCHAR left, WCHAR right) { return Fold(left) == Fold(right); });
}

/// The first part of a path, which it loses.
TextView TakePart(TextView& path)
{
    const std::size_t length = std::min(path.find(Separator), path.size());
    const TextView part = path.substr(0, length);
    path.remove_prefix(std::min(length + 1, path.size()));
    return part;
}

}  // namespace

namespace layer {

void HashIndex::Add(std::uint32_t hash, std::uint32_t entry)
{
    if (Slots.size() <= 2 * Count)
        Grow();
    std::size_t at = Start(hash);
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
        AddEntry(NoParent, Hash(0, wide), Keep(wide), wide.size());
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
    return {Kept(entry.Path, entry.Length), entry.Hash};
}

std::optional<RegistrySnapshot::Key> RegistrySnapshot::FindKey(const KeyPath& base, TextView path) const
{
    const std::uint32_t hash = path.empty() ? base.Hash : HashBelow(base.Hash, path);
    const auto found = KeyIndex.Find(hash, [&](Key key) {
        const TextView whole = PathOf(key).Whole;
        if (path.empty())
            return IsSame(whole, base.Whole);
        const std::size_t above = base.Whole.size();
        return whole.size() == above + 1 + path.size() && whole[above] == Separator &&
               IsSame(whole.substr(above + 1), path) && IsSame(whole.substr(0, above), base.Whole);
    });
    return found && Keys[*found].Exists ? found : std::nullopt;
}

std::optional<RegistrySnapshot::Value> RegistrySnapshot::FindValue(Key key, TextView name) const
{
    const std::uint32_t owner = Keys[key].Made;
    const auto found = FindEntry(owner, Hash(owner, name), name);
    if (!found || !Values[*found].Exists)
        return std::nullopt;
    const ValueEntry& entry = Values[*found];
    return Value{entry.Type, std::span(Contents).subspan(entry.Data, entry.Bytes)};
}

/// The entry of the key `part` directly below `parent`, whether it exists or not. Only the part is compared,
/// so the time that a path takes grows with its length and not with its square.
std::optional<RegistrySnapshot::Key> RegistrySnapshot::FindPart(Key parent, std::uint32_t hash, TextView part) const
{
    return KeyIndex.Find(hash, [&](Key key) {
        return Keys[key].Parent == parent && IsSame(PathOf(key).Whole.substr(Keys[parent].Length + 1), part);
    });
}

RegistrySnapshot::Key RegistrySnapshot::AddEntry(Key parent, std::uint32_t hash, std::uint32_t path, std::size_t length)
{
    const Key key = static_cast<Key>(Keys.size());
    Keys.push_back({path, static_cast<std::uint32_t>(length), hash, parent, ++Changes, 0, true});
    KeyIndex.Add(hash, key);
    return key;
}

RegistrySnapshot::Key RegistrySnapshot::AddKey(TextView path)
{
    const TextView whole = path;
    Key key = FindHive(TakePart(path)).value();
    std::uint32_t deleted = Keys[key].Deleted;
    std::optional<std::uint32_t> kept;  // the text of the whole path, for all the keys that are new
    while (!path.empty()) {
        const TextView part = TakePart(path);
        const std::uint32_t hash = HashBelow(Keys[key].Hash, part);
        if (const auto found = FindPart(key, hash, part)) {
            key = *found;
            KeyEntry& entry = Keys[key];
            deleted = std::max(deleted, entry.Deleted);
            if (entry.Made < deleted)
                entry.Made = ++Changes;
        } else {
            if (!kept)
                kept = Keep(whole);
            key = AddEntry(key, hash, *kept, static_cast<std::size_t>(part.data() - whole.data()) + part.size());
        }
    }
    return key;
}

void RegistrySnapshot::DeleteKey(TextView path)
{
    Key key = FindHive(TakePart(path)).value();
    while (!path.empty()) {
        const TextView part = TakePart(path);
        const auto found = FindPart(key, HashBelow(Keys[key].Hash, part), part);
        if (!found)
            return;
        key = *found;
    }
    Keys[key].Deleted = ++Changes;
}

void RegistrySnapshot::SetValue(Key key, TextView name, DWORD type, std::span<const BYTE> data)
{
    const std::uint32_t owner = Keys[key].Made;
    const std::uint32_t hash = Hash(owner, name);
    auto entry = FindEntry(owner, hash, name);
    if (!entry) {
        entry = static_cast<std::uint32_t>(Values.size());
        Values.push_back({owner, Keep(name), static_cast<std::uint32_t>(name.size()), 0, 0, REG_NONE, false});
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
    const std::uint32_t owner = Keys[key].Made;
    if (const auto entry = FindEntry(owner, Hash(owner, name), name))
        Values[*entry].Exists = false;
}

void RegistrySnapshot::Finish()
{
    // A key exists if it was made behind the last deletion of itself and of every key above it.
    std::vector<std::uint32_t> deleted(Keys.size());
    for (Key key = 0; key < Keys.size(); ++key) {
        KeyEntry& entry = Keys[key];
        const bool hive = entry.Parent == NoParent;
        deleted[key] = hive ? entry.Deleted : std::max(entry.Deleted, deleted[entry.Parent]);
        entry.Exists = hive || entry.Made > deleted[key];
    }
}

std::optional<std::uint32_t> RegistrySnapshot::FindEntry(std::uint32_t owner, std::uint32_t hash, TextView name) const
{
    return ValueIndex.Find(hash, [&](std::uint32_t index) {
        const ValueEntry& entry = Values[index];
        return entry.Owner == owner && IsSame(Kept(entry.Name, entry.Length), name);
    });
}

/// Where the text starts in Names.
std::uint32_t RegistrySnapshot::Keep(TextView name)
{
    const auto start = static_cast<std::uint32_t>(Names.size());
    Names.insert(Names.end(), name.begin(), name.end());
    return start;
}

}  // namespace layer
