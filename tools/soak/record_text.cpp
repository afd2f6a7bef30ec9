// Generates the texts of records.
#include "soak/record_text.h"

#include <cstdint>
#include <string>

namespace soak {
namespace {

constexpr std::size_t KeptUnits = 1022;

/// Numbers that follow from a mark and the seed.
class Sequence {
public:
    Sequence(const testkit::Mark& mark, unsigned seed)
        : State(seed + mark.Process * 2654435761U + mark.Thread * 40503U + mark.Number * 69069U)
    {
    }
    std::uint32_t Next() { return (State = State * 1664525U + 1013904223U) >> 16; }

private:
    std::uint32_t State;
};

void AppendLetters(utility::wstring& text, Sequence& sequence, std::uint32_t count)
{
    for (std::uint32_t i = 0; i < count; ++i)
        text += static_cast<unsigned short>('A' + sequence.Next() % 26);
}

void AppendManyKinds(utility::wstring& text, Sequence& sequence, std::size_t units)
{
    while (text.size() < units) {
        const std::uint32_t chosen = sequence.Next();
        if (chosen % 4 == 0) {  // a surrogate pair
            text += static_cast<unsigned short>(0xD83C + chosen / 4 % 4);
            text += static_cast<unsigned short>(0xDC00 + sequence.Next() % 0x400);
        } else if (chosen % 4 == 1) {
            text += static_cast<unsigned short>(0x0410 + chosen / 4 % 64);
        } else {
            text += static_cast<unsigned short>('a' + chosen / 4 % 26);
        }
    }
}

}  // namespace

utility::wstring TextOf(const testkit::Mark& mark, unsigned seed, Lengths lengths)
{
    const std::string start = "p" + std::to_string(mark.Process) + " t" + std::to_string(mark.Thread) + " n" +
                              std::to_string(mark.Number) + " ";
    utility::wstring text(start.begin(), start.end());
    Sequence sequence(mark, seed);
    const std::uint32_t choice = sequence.Next() % 16;
    if (lengths == Lengths::toTheLimit && choice != 0)
        AppendManyKinds(text, sequence, 1001 + sequence.Next() % 30);
    else
        AppendLetters(text, sequence, choice == 0 ? sequence.Next() % 900 : sequence.Next() % 120);
    return text;
}

utility::wstring KeptPart(utility::wstring text)
{
    if (text.size() > KeptUnits)
        text.resize(KeptUnits);
    return text;
}

}  // namespace soak
