// The text form of the debug mask.
#include "log/debug_mask.h"

#include "settings/tag_specification.h"

#include <algorithm>
#include <stdexcept>

void logging::ReadMask(const std::string& text, Mask& mask)
{
    const std::size_t length = std::min(text.size(), mask.size());
    for (std::size_t bit = 0; bit < length; ++bit) {
        const char digit = text[length - 1 - bit];
        if (digit == '1')
            mask.set(bit);
        else if (digit != '0')
            throw std::invalid_argument("invalid bitset<N> char");
    }
}

void logging::RejectBit()
{
    throw std::out_of_range("invalid bitset<N> position");
}
