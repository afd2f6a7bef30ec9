// Processors without vector forms use the plain ones.
#include "records/find_text.h"
#include "records/plain_run.h"

namespace records {

std::size_t CopyPlainRun(const char16_t* units, std::size_t count, char* out)
{
    return CopyPlainRunPlainly(units, count, out);
}

std::size_t FindUnit(const char16_t* units, std::size_t count, char16_t wanted)
{
    return FindUnitPlainly(units, count, wanted);
}

std::size_t FindText(std::u16string_view text, std::u16string_view wanted)
{
    return FindTextPlainly(text, wanted);
}

}  // namespace records
