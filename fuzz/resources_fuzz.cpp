// Fuzzes compiled resource files: all that is found in any bytes is inside them.
#include "messages/message_table.h"
#include "resources/resource_file.h"
#include "testkit/exact_copy.h"
#include "testkit/require.h"

#include <cstdint>

namespace {

void CheckInside(layer::Bytes part, layer::Bytes file)
{
    testkit::Require(part.empty() ||
                     (part.data() >= file.data() && part.data() + part.size() <= file.data() + file.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const testkit::ExactCopy<std::byte> copy(data, size);
    const layer::Bytes file = copy.view();
    for (const WORD type : {WORD{6}, WORD{16}, WORD{24}}) {
        for (const WORD name : {WORD{1}, WORD{2}, WORD{17}})
            CheckInside(layer::FindResource(file, type, name).value_or(layer::Bytes{}), file);
    }
    for (const UINT row : {0U, 15U, 256U, 271U, 65535U, 65536U})
        CheckInside(layer::FindString(file, row), file);
    for (const DWORD number : {0U, 1U, 0x80051002U, 0xFFFFFFFFU}) {
        layer::Text text;
        layer::FindMessage(file, number, text);
        testkit::Require(text.size() <= size);
    }
    return 0;
}
