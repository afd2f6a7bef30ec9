// Untrusted bytes, in memory or in a file. Every access is checked against their end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace layer {

using Bytes = std::span<const std::byte>;

template <class Value>
Value ReadAt(const std::byte* at)
{
    Value value{};
    std::memcpy(&value, at, sizeof value);
    return value;
}

constexpr std::uint64_t AlignUp(std::uint64_t value, std::uint64_t alignment)
{
    return (value + alignment - 1) / alignment * alignment;
}

/// A run of bytes in a source.
struct Extent {
    std::uint64_t Start = 0;
    std::uint64_t Size = 0;

    /// Where a part of it stands in the source; the part is cut at the end, and empty beyond it.
    Extent Part(std::uint64_t at, std::uint64_t size) const
    {
        const std::uint64_t left = at < Size ? Size - at : 0;
        return {Start + at, std::min(size, left)};
    }
};

class ByteSource {
public:
    /// What a single View can show.
    static constexpr std::size_t MostInView = 4096;

    /// The bytes of a part, valid until the next call; empty unless they are all there.
    virtual Bytes View(std::uint64_t at, std::size_t count) = 0;

    /// Copies what is there of a part. @return how many bytes that is.
    virtual std::size_t Copy(std::uint64_t at, std::byte* to, std::size_t count) = 0;

    /// False, with `value` unchanged, if its bytes are not all there.
    template <class Value>
    bool Get(std::uint64_t at, Value& value)
    {
        const Bytes bytes = View(at, sizeof value);
        if (!bytes.empty())
            std::memcpy(&value, bytes.data(), sizeof value);
        return !bytes.empty();
    }

protected:
    ~ByteSource() = default;
};

class MemorySource final : public ByteSource {
public:
    explicit MemorySource(Bytes whole) : Whole(whole) {}

    Bytes View(std::uint64_t at, std::size_t count) override
    {
        if (count > MostInView || at > Whole.size() || count > Whole.size() - at)
            return {};
        return Whole.subspan(static_cast<std::size_t>(at), count);
    }

    std::size_t Copy(std::uint64_t at, std::byte* to, std::size_t count) override
    {
        if (at >= Whole.size())
            return 0;
        const std::size_t there = std::min(count, Whole.size() - static_cast<std::size_t>(at));
        std::memcpy(to, Whole.data() + at, there);
        return there;
    }

private:
    const Bytes Whole;
};

}  // namespace layer
