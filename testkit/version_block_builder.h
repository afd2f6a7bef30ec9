// Builds version blocks.
//
//     const std::string block = VersionBlock({SectionNode("040904b0", {TextNode("ProductName", "a product")})});
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace testkit {

/// A node of a block. @param valueLength the length that the node claims for its value
std::string Node(std::string_view key, const std::string& value, std::size_t valueLength, bool isText,
                 const std::vector<std::string>& children = {});

std::string TextNode(std::string_view key, std::string_view text);

/// The texts of one language and code page.
std::string SectionNode(std::string_view name, const std::vector<std::string>& texts);

/// The numbers: file version 1.2.3.4, product version 5.6.7.8.
std::string FixedNumbers();

/// A block with these numbers.
std::string VersionBlock(const std::vector<std::string>& children);

/// A block of one section with a product name, and a list of translations.
std::string PlainBlock(std::string_view product = "a product");

}  // namespace testkit
