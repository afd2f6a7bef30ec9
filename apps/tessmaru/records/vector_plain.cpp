// The forms for every processor, one unit at a time.
#include "records/find_text.h"
#include "records/plain_run.h"

namespace records {

std::size_t CopyPlainRunPlainly(const char16_t* units, std::size_t count, char* out)
{
    std::size_t i = 0;
    for (; i < count && IsPlain(units[i]); ++i)
        out[i] = static_cast<char>(units[i]);
    return i;
}

std::size_t FindUnitPlainly(const char16_t* units, std::size_t count, char16_t wanted)
{
    std::size_t i = 0;
    while (i < count && units[i] != wanted)
        ++i;
    return i;
}

std::size_t FindTextPlainly(std::u16string_view text, std::u16string_view wanted)
{
    return text.find(wanted);
}

}  // namespace records
