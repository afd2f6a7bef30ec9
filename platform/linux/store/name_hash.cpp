// The hash of a text is the polynomial with its units as coefficients, modulo a prime, at a secret point: for units a,
// b and the point r, a*r^2 + b*r. Two given texts of n units have the same hash at n points of 2^31 at most. With a
// power of two as the modulus, texts exist whose hashes are equal at every point.
#include "store/name_hash.h"

#include "text/case_fold.h"

#include <cstring>
#include <ctime>
#include <sys/random.h>

namespace {

using layer::TextView;

constexpr std::uint32_t Prime = 0x7FFFFFFF;
constexpr std::size_t BlockUnits = 4;
constexpr std::size_t MaxPower = 2 * BlockUnits;

/// The remainder modulo Prime, or that plus Prime. 2^31 is 1 modulo Prime, so the high bits count like the low ones.
/// @param number less than 2^63
std::uint32_t Reduce(std::uint64_t number)
{
    number = (number & Prime) + (number >> 31);
    return static_cast<std::uint32_t>((number & Prime) + (number >> 31));
}

std::uint32_t ReduceFully(std::uint64_t number)
{
    const std::uint32_t reduced = Reduce(number);
    return reduced < Prime ? reduced : reduced - Prime;
}

std::uint64_t Multiply(std::uint32_t one, std::uint32_t other)
{
    return std::uint64_t{one} * other;
}

/// The secret point and its powers, from the first on.
struct SecretPoint {
    SecretPoint()
    {
        std::uint32_t random = 0;
        // Only a sandbox takes the random source away.
        if (getrandom(&random, sizeof random, GRND_NONBLOCK) != ssize_t{sizeof random}) {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            random = static_cast<std::uint32_t>(now.tv_nsec * 0x9E3779B1LL);
        }
        constexpr std::uint32_t smallest = 0x10000;  // more than any unit
        Powers[0] = smallest + random % (Prime - smallest);
        for (std::size_t i = 1; i < MaxPower; ++i)
            Powers[i] = ReduceFully(Multiply(Powers[i - 1], Powers[0]));
    }

    std::uint32_t Powers[MaxPower];
};

/// Drawn at the first use, which may come from the constructor of a static object.
const SecretPoint& Secret()
{
    static const SecretPoint secret;
    return secret;
}

/// Four units side by side, for operations on all at once. The functions for blocks are always inlined, because a call
/// per block takes a third more instructions.
using Block = std::uint64_t;

constexpr Block Repeat(std::uint64_t unit)
{
    return unit * 0x0001000100010001;
}

/// Folds four units, of which none exceeds 0x7F.
[[gnu::always_inline]] inline Block FoldAscii(Block block)
{
    // In each unit bit 7 is set from the first sum if it is 'a' or more, and from the second if it is more than 'z'.
    const Block small = (block + Repeat(0x80 - 'a')) & ~(block + Repeat(0x80 - 'z' - 1)) & Repeat(0x80);
    return block - (small >> 2);
}

[[gnu::always_inline]] inline Block FoldBlock(const WCHAR* units)
{
    Block block = 0;
    static_assert(sizeof block == BlockUnits * sizeof *units);
    std::memcpy(&block, units, sizeof block);
    if ((block & Repeat(0xFF80)) == 0)
        return FoldAscii(block);
    WCHAR folded[BlockUnits];
    for (std::size_t i = 0; i < BlockUnits; ++i)
        folded[i] = layer::Fold(units[i]);
    std::memcpy(&block, folded, sizeof block);
    return block;
}

/// The terms of a polynomial that has these units, after folding, as its last coefficients.
/// @param powers the lowest four powers of the point that occur in the terms
[[gnu::always_inline]] inline std::uint64_t SumBlock(const WCHAR* units, const std::uint32_t* powers)
{
    const Block block = FoldBlock(units);
    const auto unit = [block](unsigned index) { return std::uint32_t{static_cast<WCHAR>(block >> (16 * index))}; };
    return Multiply(unit(0), powers[3]) + Multiply(unit(1), powers[2]) + Multiply(unit(2), powers[1]) +
           Multiply(unit(3), powers[0]);
}

}  // namespace

std::uint32_t layer::ExtendHash(std::uint32_t hash, TextView text)
{
    const std::uint32_t* const powers = Secret().Powers;
    const WCHAR* at = text.data();
    const WCHAR* const end = at + text.size();
    // Two blocks per step: with a unit per step, each multiplication waits for the one before it, and hashing takes
    // most of the time of opening a key.
    for (; end - at >= std::ptrdiff_t{2 * BlockUnits}; at += 2 * BlockUnits) {
        hash =
            Reduce(Multiply(hash, powers[7]) + SumBlock(at, powers + BlockUnits) + SumBlock(at + BlockUnits, powers));
    }
    if (end - at >= std::ptrdiff_t{BlockUnits}) {
        hash = Reduce(Multiply(hash, powers[3]) + SumBlock(at, powers));
        at += BlockUnits;
    }
    for (; at != end; ++at)
        hash = Reduce(Multiply(hash + Fold(*at), powers[0]));
    return ReduceFully(hash);
}

std::uint32_t layer::HashOfNumber(std::uint32_t number)
{
    return ReduceFully(Multiply(number, Secret().Powers[0]));
}
