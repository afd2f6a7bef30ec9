// Builds a compiled resource file.
#include "testkit/resource_builder.h"

namespace testkit {

void ResourceBuilder::Add(const std::string& type, const std::string& name, unsigned language, const std::string& data)
{
    std::string header = type + name;
    Pad(header, 4);
    header += Word(0) + Half(0x30) + Half(language) + Word(0) + Word(0);
    Content += Word(data.size()) + Word(header.size() + 8) + header + data;
    Pad(Content, 4);
}

}  // namespace testkit
