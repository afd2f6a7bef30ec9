// Builds version blocks.
#include "testkit/version_block_builder.h"

#include "testkit/bytes.h"
#include "testkit/utf16.h"

namespace testkit {

std::string Node(std::string_view key, const std::string& value, std::size_t valueLength, bool isText,
                 const std::vector<std::string>& children)
{
    std::string node = Half(0) + Half(valueLength) + Half(isText) + EncodeUtf16(key) + Half(0);
    Pad(node, 4);
    node += value;
    for (const std::string& child : children) {
        Pad(node, 4);
        node += child;
    }
    Put(node, 0, Half(node.size()));
    return node;
}

std::string TextNode(std::string_view key, std::string_view text)
{
    return Node(key, EncodeUtf16(text) + Half(0), text.size() + 1, true);
}

std::string SectionNode(std::string_view name, const std::vector<std::string>& texts)
{
    return Node("StringFileInfo", "", 0, true, {Node(name, "", 0, true, texts)});
}

std::string FixedNumbers()
{
    std::string numbers =
        Word(0xFEEF04BD) + Word(0x10000) + Word(0x10002) + Word(0x30004) + Word(0x50006) + Word(0x70008);
    numbers.resize(52);
    return numbers;
}

std::string VersionBlock(const std::vector<std::string>& children)
{
    return Node("VS_VERSION_INFO", FixedNumbers(), 52, false, children);
}

std::string PlainBlock(std::string_view product)
{
    return VersionBlock({SectionNode("040904b0", {TextNode("ProductName", product), TextNode("Comments", "none")}),
                         Node("VarFileInfo", "", 0, true, {Node("Translation", Word(0x04B00409), 4, false)})});
}

}  // namespace testkit
