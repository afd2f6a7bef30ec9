// Any bytes as a module file, and as a version block: what is found lies inside them.
#include "resources/version_block.h"
#include "resources/version_file.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

namespace {

/// Bytes on the heap at their exact size, so that reading on is seen.
class Exactly {
public:
    explicit Exactly(std::size_t size) : Start(new std::byte[size]), Size(size) {}

    std::byte* data() const { return Start.get(); }
    std::size_t size() const { return Size; }

private:
    const std::unique_ptr<std::byte[]> Start;
    const std::size_t Size;
};

void Ask(const Exactly& block, const WCHAR* query)
{
    void* value = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(block.data(), query, &value, &length))
        return;
    const auto* const found = static_cast<const std::byte*>(value);
    if (found < block.data() || found + length > block.data() + block.size())
        std::abort();
    // Every byte of it can be read.
    unsigned sum = 0;
    for (UINT i = 0; i < length; ++i)
        sum += static_cast<unsigned>(found[i]);
    asm volatile("" : : "r"(sum));
}

void AskAll(const Exactly& block, std::size_t copied)
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
        Ask(block, reinterpret_cast<const WCHAR*>(query));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Exactly whole(size);
    if (size != 0)
        std::memcpy(whole.data(), data, size);
    layer::MemorySource file({whole.data(), size});
    layer::Extent found;
    if (layer::FindVersionBlock(file, found) == ERROR_SUCCESS) {
        const Exactly block(static_cast<std::size_t>(found.Size));
        AskAll(block, file.Copy(found.Start, block.data(), block.size()));
    }
    AskAll(whole, std::min<std::size_t>(size, 0xFFFF));
    return 0;
}
