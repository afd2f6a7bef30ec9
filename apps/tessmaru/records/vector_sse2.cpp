// The vector forms, with SSE2, which every x86-64 processor has.
#include "records/find_text.h"
#include "records/plain_run.h"

#include <emmintrin.h>

#include <bit>

namespace records {
namespace {

constexpr std::size_t Block = 16;

__m128i Load(const char16_t* units)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(units));
}

/// A mask of the bytes of `text` that are not plain.
unsigned Exceptions(__m128i text)
{
    // As signed bytes, all above 0x7F are negative, so one comparison finds them and the control characters.
    const __m128i control = _mm_cmplt_epi8(text, _mm_set1_epi8(0x20));
    const __m128i others =
        _mm_or_si128(_mm_cmpeq_epi8(text, _mm_set1_epi8(0x7F)),
                     _mm_or_si128(_mm_cmpeq_epi8(text, _mm_set1_epi8('"')), _mm_cmpeq_epi8(text, _mm_set1_epi8('\\'))));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(control, others)));
}

}  // namespace

std::size_t CopyPlainRun(const char16_t* units, std::size_t count, char* out)
{
    std::size_t done = 0;
    for (; done + Block <= count; done += Block) {
        // Units above 0x7FFF become 0, those from 0x100 on become 0xFF: neither is plain.
        const __m128i text = _mm_packus_epi16(Load(units + done), Load(units + done + Block / 2));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + done), text);
        if (const unsigned exceptions = Exceptions(text); exceptions != 0)
            return done + static_cast<std::size_t>(std::countr_zero(exceptions));
    }
    return done + CopyPlainRunPlainly(units + done, count - done, out + done);
}

std::size_t FindUnit(const char16_t* units, std::size_t count, char16_t wanted)
{
    const __m128i each = _mm_set1_epi16(static_cast<short>(wanted));
    std::size_t done = 0;
    for (; done + Block <= count; done += Block) {
        const __m128i found = _mm_packs_epi16(_mm_cmpeq_epi16(Load(units + done), each),
                                              _mm_cmpeq_epi16(Load(units + done + Block / 2), each));
        if (const auto mask = static_cast<unsigned>(_mm_movemask_epi8(found)); mask != 0)
            return done + static_cast<std::size_t>(std::countr_zero(mask));
    }
    return done + FindUnitPlainly(units + done, count - done, wanted);
}

/// Compares only where both the first and the last unit are found.
std::size_t FindText(std::u16string_view text, std::u16string_view wanted)
{
    if (wanted.empty() || wanted.size() > text.size())
        return wanted.empty() ? 0 : std::u16string_view::npos;
    constexpr std::size_t units = Block / 2;
    const __m128i first = _mm_set1_epi16(static_cast<short>(wanted.front()));
    const __m128i last = _mm_set1_epi16(static_cast<short>(wanted.back()));
    const std::size_t places = text.size() - wanted.size() + 1;
    std::size_t place = 0;
    for (; place + units <= places; place += units) {
        const __m128i found = _mm_and_si128(_mm_cmpeq_epi16(Load(text.data() + place), first),
                                            _mm_cmpeq_epi16(Load(text.data() + place + wanted.size() - 1), last));
        // Two bits for each unit.
        for (auto mask = static_cast<unsigned>(_mm_movemask_epi8(found)); mask != 0;) {
            const auto bit = static_cast<unsigned>(std::countr_zero(mask));
            if (text.substr(place + bit / 2, wanted.size()) == wanted)
                return place + bit / 2;
            mask &= ~(3U << bit);
        }
    }
    const std::size_t rest = FindTextPlainly(text.substr(place), wanted);
    return rest == std::u16string_view::npos ? rest : place + rest;
}

}  // namespace records
