// Fuzzes version blocks: all that is found in any bytes, as a module file and as a block, is inside them.
#include "resources/version_block.h"
#include "resources/version_file.h"
#include "testkit/exact_copy.h"
#include "testkit/require.h"

#include <cstdint>

namespace {

using Bytes = testkit::ExactCopy<std::byte>;

void Query(const Bytes& block, const WCHAR* query)
{
    void* value = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(block.data(), query, &value, &length))
        return;
    const auto* const found = static_cast<const std::byte*>(value);
    testkit::Require(found >= block.data() && found + length <= block.data() + block.size());
    // Reads every byte of it.
    unsigned sum = 0;
    for (UINT i = 0; i < length; ++i)
        sum += static_cast<unsigned>(found[i]);
    asm volatile("" : : "r"(sum));
}

void QueryAll(const Bytes& block, std::size_t copied)
{
    if (!layer::ClampVersionBlock(block.data(), copied))
        return;
    static constexpr char16_t queries[][48] = {u"\\",
                                               u"\\VarFileInfo\\Translation",
                                               u"\\StringFileInfo",
                                               u"\\StringFileInfo\\040904b0\\ProductName",
                                               u"\\StringFileInfo\\040904b0\\Comments",
                                               u"\\\\",
                                               u"\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a\\a"};
    for (const auto& query : queries)
        Query(block, reinterpret_cast<const WCHAR*>(query));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Bytes whole(data, size);
    layer::MemorySource file({whole.data(), size});
    layer::Extent found;
    if (layer::FindVersionBlock(file, found) == ERROR_SUCCESS) {
        const Bytes block(static_cast<std::size_t>(found.Size));
        QueryAll(block, file.Copy(found.Start, block.data(), block.size()));
    }
    QueryAll(whole, std::min<std::size_t>(size, 0xFFFF));
    return 0;
}
