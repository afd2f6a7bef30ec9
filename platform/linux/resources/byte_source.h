// Sources of untrusted bytes, in memory or in a file. Every access is checked against their end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace layer {

using Bytes = std::span<const std::byte>;

/// Reads a value from bytes that the caller has checked. The address need not be aligned.
template <class Value>
Value ReadAt(const std::byte* at)
{
    Value value{};
    std::memcpy(&value, at, sizeof value);
    return value;
}

/// Rounds up to a multiple. Offsets from files have 32 bits, so the sum does not overflow.
constexpr std::uint64_t AlignUp(std::uint64_t value, std::uint64_t alignment)
{
    return (value + alignment - 1) / alignment * alignment;
}

/// A range of bytes in a source. It may reach beyond the source's end: the source checks each access.
struct Extent {
    std::uint64_t Start = 0;
    std::uint64_t Size = 0;

    /// A part of this range. It ends where the range ends, and is empty beyond that.
    /// @param at  offset from the start of the range
    Extent Part(std::uint64_t at, std::uint64_t size) const
    {
        const std::uint64_t left = at < Size ? Size - at : 0;
        return {Start + at, std::min(size, left)};
    }
};

/// Bytes that are read by their offset.
class ByteSource {
public:
    /// The maximum size of a view.
    static constexpr std::size_t MaxViewBytes = 4096;

    /// @return a view of `count` bytes, valid until the next call; empty if the source has not all of them, or for more
    ///         than MaxViewBytes
    virtual Bytes View(std::uint64_t at, std::size_t count) = 0;

    /// Copies up to `count` bytes. @return the number of bytes copied, less than `count` at the source's end
    virtual std::size_t Copy(std::uint64_t at, std::byte* to, std::size_t count) = 0;

    /// Reads a value. @return false, with `value` unchanged, if the source has not all of its bytes
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

/// A source over bytes in memory, which the caller keeps alive.
class MemorySource final : public ByteSource {
public:
    explicit MemorySource(Bytes whole) : Whole(whole) {}

    Bytes View(std::uint64_t at, std::size_t count) override
    {
        if (count > MaxViewBytes || at > Whole.size() || count > Whole.size() - at)
            return {};
        return Whole.subspan(static_cast<std::size_t>(at), count);
    }

    std::size_t Copy(std::uint64_t at, std::byte* to, std::size_t count) override
    {
        if (at >= Whole.size())
            return 0;
        const std::size_t available = std::min(count, Whole.size() - static_cast<std::size_t>(at));
        std::memcpy(to, Whole.data() + at, available);
        return available;
    }

private:
    const Bytes Whole;
};

}  // namespace layer
