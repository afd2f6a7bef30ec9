// Builds a compiled resource file.
//
//     ResourceBuilder resources;
//     resources.Add(ResourceBuilder::Number(6), ResourceBuilder::Number(1), 0x409, data);
//     Parse(resources.Content);
#pragma once

#include "testkit/bytes.h"
#include "testkit/utf16.h"

#include <string>
#include <string_view>

namespace testkit {

class ResourceBuilder {
public:
    ResourceBuilder() { Add(Number(0), Number(0), 0, ""); }

    /// A type or a name.
    static std::string Number(unsigned id) { return Half(0xFFFF) + Half(id); }
    static std::string Name(std::string_view text) { return EncodeUtf16(text) + Half(0); }

    void Add(const std::string& type, const std::string& name, unsigned language, const std::string& data);

    std::string Content;
};

}  // namespace testkit
