// A copy on the heap at its exact size: a sanitizer reports every read beyond the end.
//
//     const ExactCopy<std::byte> file(data, size);   Parse(file.data(), file.size());
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>

namespace testkit {

template <class Item>
class ExactCopy {
public:
    /// Items without content.
    explicit ExactCopy(std::size_t count) : Items(new Item[count]()), Count(count) {}

    /// The bytes at `source`.
    ExactCopy(const void* source, std::size_t count) : ExactCopy(count)
    {
        const auto* const first = static_cast<const unsigned char*>(source);
        std::copy_n(first, count * sizeof(Item), reinterpret_cast<unsigned char*>(data()));
    }

    Item* data() const { return Items.get(); }
    std::size_t size() const { return Count; }
    std::span<const Item> view() const { return {data(), size()}; }

private:
    const std::unique_ptr<Item[]> Items;
    const std::size_t Count;
};

}  // namespace testkit
