// Queries version blocks.
//
// A block is a tree of nodes. A node is a record of its lengths, a key (a text with a terminator), a value and its
// children. Each part starts at a multiple of four from the start of the block. The root is VS_VERSION_INFO, with a
// VS_FIXEDFILEINFO as its value; texts are at paths such as \StringFileInfo\040904B0\FileVersion.
//
// The lengths come from a file, so each one is limited by the end of the node, and of the node above it.
#include "resources/version_block.h"

#include "base/last_error.h"
#include "resources/byte_source.h"
#include "text/case_fold.h"
#include "text/text.h"

#include <algorithm>
#include <cstring>

namespace {

using layer::Bytes;
using layer::ReadAt;

constexpr std::size_t Alignment = 4;

/// The start of a node; its key follows.
struct NodeRecord {
    WORD Bytes;        // of the whole node, without the padding before the next one
    WORD ValueLength;  // in units for a text, else in bytes
    WORD IsText;
};

/// A node that was read. Offsets count from the start of the block.
struct Node {
    layer::TextView Key;
    Bytes Value;
    std::size_t Children = 0;  // offset of the first one
    std::size_t End = 0;
    bool IsText = false;
};

/// Rounds an offset up to a part's alignment, but not beyond `end`.
std::size_t AlignedWithin(std::size_t at, std::size_t end)
{
    return std::min(static_cast<std::size_t>(layer::AlignUp(at, Alignment)), end);
}

/// The text at the start of some bytes, up to the first zero unit or to their end.
layer::TextView TextAt(Bytes bytes)
{
    const auto* const units = reinterpret_cast<const WCHAR*>(bytes.data());
    const layer::TextView all(units, bytes.size() / sizeof(WCHAR));
    return all.substr(0, all.find(WCHAR{0}));
}

/// Whether a value is the VS_FIXEDFILEINFO of the root. Its size is known, so a wrong ValueLength in the record does no
/// harm.
bool IsFixedVersion(Bytes value)
{
    constexpr DWORD signature = 0xFEEF04BD;
    return value.size() >= sizeof(VS_FIXEDFILEINFO) && ReadAt<DWORD>(value.data()) == signature;
}

/// Reads a node. A node that was read is longer than 0 bytes, so a walk over nodes always ends.
/// @param at   its offset
/// @param end  the end of the node above it
/// @return false if there is no valid node
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

bool EqualIgnoringCase(layer::TextView one, layer::TextView other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](WCHAR a, WCHAR b) { return layer::Fold(a) == layer::Fold(b); });
}

/// Replaces a node by its first child with this name. @return false if it has none
bool EnterChild(Bytes block, layer::TextView name, Node& node)
{
    Node child;
    for (std::size_t at = node.Children; ReadNode(block, at, node.End, child);
         at = AlignedWithin(child.End, node.End)) {
        if (EqualIgnoringCase(child.Key, name)) {
            node = child;
            return true;
        }
    }
    return false;
}

/// Replaces a node by the one at a path below it: names with backslashes between them. Empty names are skipped, so `\`
/// is the node itself. @return false if there is none
bool FollowPath(Bytes block, layer::TextView path, Node& node)
{
    while (!path.empty()) {
        const layer::TextView name = path.substr(0, path.find(WCHAR{'\\'}));
        if (!name.empty() && !EnterChild(block, name, node))
            return false;
        path.remove_prefix(std::min(name.size() + 1, path.size()));
    }
    return true;
}

}  // namespace

bool layer::ClampVersionBlock(std::byte* block, std::size_t size)
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
    if (!ReadNode(block, 0, block.size(), node) || !FollowPath(block, query, node)) {
        *length = 0;
        return layer::Fail(ERROR_RESOURCE_TYPE_NOT_FOUND, FALSE);
    }
    *value = const_cast<std::byte*>(node.Value.data());
    *length = static_cast<UINT>(node.Value.size());
    if (node.IsText) {
        // Some resource compilers write the length of a text in bytes. So the length is determined from the text
        // itself, with its terminator and up to the end of the node.
        const std::size_t room =
            node.Value.empty() ? 0 : node.End - static_cast<std::size_t>(node.Value.data() - start);
        const std::size_t units = room / sizeof(WCHAR);
        *length = static_cast<UINT>(std::min(units, TextAt({node.Value.data(), room}).size() + 1));
    }
    return TRUE;
}
