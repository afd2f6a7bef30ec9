// Any bytes as a compiled resource file: what is found lies inside them.
#include "messages/message_table.h"
#include "resources/resource_file.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

void CheckInside(layer::Bytes part, layer::Bytes file)
{
    if (part.empty())
        return;
    if (part.data() < file.data() || part.data() + part.size() > file.data() + file.size())
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // At its exact size, so that reading on is seen.
    const std::unique_ptr<std::byte[]> copy(new std::byte[size]);
    if (size != 0)
        std::memcpy(copy.get(), data, size);
    const layer::Bytes file(copy.get(), size);
    for (const WORD type : {WORD{6}, WORD{16}, WORD{24}}) {
        for (const WORD name : {WORD{1}, WORD{2}, WORD{17}})
            CheckInside(layer::FindResource(file, type, name).value_or(layer::Bytes{}), file);
    }
    for (const UINT row : {0U, 15U, 256U, 271U, 65535U, 65536U})
        CheckInside(layer::FindString(file, row), file);
    for (const DWORD number : {0U, 1U, 0x80051002U, 0xFFFFFFFFU}) {
        layer::Text text;
        layer::FindMessage(file, number, text);
        if (text.size() > size)
            std::abort();
    }
    return 0;
}
