// Version blocks: a tree of nodes, each a record of lengths, a key, a value and children. Every part of a node starts
// on a multiple of four from the block's own start.
#include "resources/version_block.h"

#include "base/last_error.h"
#include "resources/byte_source.h"
#include "text/case_fold.h"

namespace {

using layer::Bytes;
using layer::ReadAt;

constexpr std::size_t Alignment = 4;

/// The front of a node; its key follows.
struct NodeRecord {
    WORD Bytes;  // of the whole node, without what fills up to the next
    WORD ValueLength;
    WORD IsText;  // then ValueLength counts units
};

struct Node {
    layer::TextView Key;
    Bytes Value;
    std::size_t Children = 0;  // where the first one starts
    std::size_t End = 0;
    bool IsText = false;
};

std::size_t AlignedWithin(std::size_t at, std::size_t end)
{
    return std::min(static_cast<std::size_t>(layer::AlignUp(at, Alignment)), end);
}

/// The text at the front of these bytes, up to the first zero unit or to their end.
layer::TextView TextAt(Bytes bytes)
{
    const auto* const units = reinterpret_cast<const WCHAR*>(bytes.data());
    const layer::TextView all(units, bytes.size() / sizeof(WCHAR));
    return all.substr(0, all.find(WCHAR{0}));
}

/// The value of the root, which has a size of its own: what the record says of it cannot lose the numbers.
bool IsFixedVersion(Bytes value)
{
    constexpr DWORD signature = 0xFEEF04BD;
    return value.size() >= sizeof(VS_FIXEDFILEINFO) && ReadAt<DWORD>(value.data()) == signature;
}

/// Reads the node at `at`, of which nothing lies behind `end`. False where there is none; a sound one is never empty.
bool ReadNode(Bytes block, std::size_t at, std::size_t end, Node& node)
{
    if (end - at < sizeof(NodeRecord))
        return false;
    const auto record = ReadAt<NodeRecord>(block.data() + at);
    if (record.Bytes < sizeof record)
        return false;
    node.End = at + std::min<std::size_t>(record.Bytes, end - at);
    node.IsText = record.IsText != 0;
    at += sizeof record;
    node.Key = TextAt(block.subspan(at, node.End - at));
    at = AlignedWithin(at + (node.Key.size() + 1) * sizeof(WCHAR), node.End);

    const Bytes room = block.subspan(at, node.End - at);
    std::size_t bytes = record.ValueLength * (node.IsText ? sizeof(WCHAR) : std::size_t{1});
    if (!node.IsText && IsFixedVersion(room))
        bytes = sizeof(VS_FIXEDFILEINFO);
    node.Value = room.first(std::min(bytes, room.size()));
    node.Children = AlignedWithin(at + node.Value.size(), node.End);
    return true;
}

bool AreAlike(layer::TextView one, layer::TextView other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](WCHAR a, WCHAR b) { return layer::Fold(a) == layer::Fold(b); });
}

/// Goes from a node to its first child of this name.
bool Enter(Bytes block, layer::TextView name, Node& node)
{
    Node child;
    for (std::size_t at = node.Children; ReadNode(block, at, node.End, child);
         at = AlignedWithin(child.End, node.End)) {
        if (AreAlike(child.Key, name)) {
            node = child;
            return true;
        }
    }
    return false;
}

/// Goes along a path of names with backslashes between and around them.
bool Follow(Bytes block, layer::TextView path, Node& node)
{
    while (!path.empty()) {
        const layer::TextView name = path.substr(0, path.find(WCHAR{'\\'}));
        if (!name.empty() && !Enter(block, name, node))
            return false;
        path.remove_prefix(std::min(name.size() + 1, path.size()));
    }
    return true;
}

}  // namespace

bool layer::SealVersionBlock(std::byte* block, std::size_t size)
{
    if (size < sizeof(NodeRecord))
        return false;
    const auto bytes = static_cast<WORD>(std::min<std::size_t>(ReadAt<WORD>(block), size));
    std::memcpy(block, &bytes, sizeof bytes);
    return bytes >= sizeof(NodeRecord);
}

BOOL VerQueryValueW(LPCVOID data, LPCWSTR query, LPVOID* value, UINT* length)
{
    if (data == nullptr || query == nullptr || value == nullptr || length == nullptr)
        return layer::Fail(ERROR_INVALID_PARAMETER, FALSE);
    const auto* const start = static_cast<const std::byte*>(data);
    const Bytes block(start, ReadAt<WORD>(start));
    Node node;
    if (!ReadNode(block, 0, block.size(), node) || !Follow(block, query, node)) {
        *length = 0;
        return layer::Fail(ERROR_RESOURCE_TYPE_NOT_FOUND, FALSE);
    }
    *value = const_cast<std::byte*>(node.Value.data());
    *length = static_cast<UINT>(node.Value.size());
    if (node.IsText) {
        // Some tools count bytes: a text ends with its first zero unit, which counts, and never behind the node.
        const std::size_t room =
            node.Value.empty() ? 0 : node.End - static_cast<std::size_t>(node.Value.data() - start);
        const std::size_t units = room / sizeof(WCHAR);
        *length = static_cast<UINT>(std::min(units, TextAt({node.Value.data(), room}).size() + 1));
    }
    return TRUE;
}
