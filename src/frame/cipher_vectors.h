// Both transforms over vectors of bytes. Each kind of vector has its own source file, compiled with options for it,
// which includes this. No function may be shared between these files, so everything here is local and nothing of the
// standard library is used: a shared copy could be the one that was compiled for a newer processor.
#pragma once

#include "frame/cipher.h"

#include <immintrin.h>

namespace {  // NOLINT(cert-dcl59-cpp): see above

// NOLINTNEXTLINE(misc-definitions-in-headers)
constexpr std::size_t period = 32;  // of the key's bytes

/// The low bytes of a key rotated left by 0, 1, 2 … 31 bits.
struct KeyBytes {
    explicit KeyBytes(std::uint32_t key)
    {
        // Eight bytes at a time, all from the same 16 bits: multiplication shifts each by a different number.
        const std::uint64_t twice = std::uint64_t{key} << 32 | key;
        const auto eight = [twice](int first) {
            const __m128i bits = _mm_set1_epi16(static_cast<short>(twice >> (24 - first)));
            const __m128i shifts = _mm_setr_epi16(0x100, 0x200, 0x400, 0x800, 0x1000, 0x2000, 0x4000, -0x8000);
            return _mm_and_si128(_mm_mulhi_epu16(bits, shifts), _mm_set1_epi16(0xFF));
        };
        Front = _mm_packus_epi16(eight(0), eight(8));
        Back = _mm_packus_epi16(eight(16), eight(24));
    }

    __m128i Front;
    __m128i Back;
};

/// Vectors of 16 bytes, one stream.
struct Narrow {
    using Type = __m128i;
    static constexpr std::size_t Bytes = 16;
    static constexpr std::size_t Streams = 1;

    static Type Load(const unsigned char* from) { return _mm_loadu_si128(reinterpret_cast<const Type*>(from)); }
    static void Store(unsigned char* to, Type value) { _mm_storeu_si128(reinterpret_cast<Type*>(to), value); }
    static Type Add(Type a, Type b) { return _mm_add_epi8(a, b); }
    static Type Subtract(Type a, Type b) { return _mm_sub_epi8(a, b); }

    /// Moves each byte to the next place; the first becomes zero.
    static Type ShiftedIn(Type value) { return _mm_slli_si128(value, 1); }

    /// For each byte of `now` the byte `Count` places before it; `last` precedes `now`.
    template <int Count>
    static Type Before(Type now, Type last)
    {
        return _mm_alignr_epi8(now, last, 16 - Count);
    }

    /// The same 16 bytes for each stream.
    static Type Repeated(__m128i value) { return value; }

    /// Two vectors. In memory they are those at `at` and at its second place; as streams they are the first and the
    /// next 16 bytes of each stream.
    struct Pair {
        Type First;
        Type Second;
    };
    static unsigned char* SecondPlace(unsigned char* at, std::size_t) { return at + Bytes; }

    /// Converts from the order of memory to that of streams, and back.
    static Pair Regrouped(const Pair& pair) { return pair; }

    /// The start value of a stream, in place of the 16 plain bytes before it. The plain byte before the stream is
    /// subtracted and added in turns. `taken` is added at every second byte: it corrects the factor (1 - z) at the
    /// first byte, which has no previous byte.
    static Type Echo(int previous, int taken)
    {
        return Add(_mm_sign_epi8(_mm_set1_epi8(static_cast<char>(previous)), _mm_set1_epi16(0x01FF)),
                   _mm_set1_epi16(static_cast<short>(taken & 0xFF)));
    }
    static Type Echoes(const unsigned char*, std::size_t, const KeyBytes&, int previous, int taken)
    {
        return Echo(previous, taken);
    }
};

/// Encrypts from the end, because each byte needs the plain byte before it. The first and the last vector may overlap
/// others: they are computed from plain bytes before anything is written, and are written last.
template <class V>
void Encrypt(unsigned char* bytes, std::size_t count, std::uint32_t key)
{
    if (count < V::Bytes)
        return frame::EncryptPlain(bytes, count, key);
    // The bytes twice, so that a vector can be read from any place in the first half.
    unsigned char keys[2 * period];
    const KeyBytes once(key);
    for (unsigned char* half = keys; half != keys + sizeof keys; half += period) {
        Narrow::Store(half, once.Front);
        Narrow::Store(half + 16, once.Back);
    }
    const auto encrypted = [&](std::size_t at) {
        return V::Add(V::Add(V::Load(bytes + at), V::Load(bytes + at - 1)), V::Load(keys + at % period));
    };
    const auto plain = V::Load(bytes);
    const auto first = V::Add(V::Add(plain, V::ShiftedIn(plain)), V::Load(keys));
    const std::size_t end = count - V::Bytes;
    const auto last = end == 0 ? first : encrypted(end);

    // The vectors between them are aligned: a write across two cache lines takes twice as long. Two at a time are 1.3
    // times as fast as one, and more if another thread shares the core.
    const std::size_t begin = V::Bytes - reinterpret_cast<std::uintptr_t>(bytes) % V::Bytes;
    std::size_t left = end < begin ? 0 : (end - begin) / V::Bytes + 1;
    for (; left >= 2; left -= 2) {
        const std::size_t at = begin + (left - 2) * V::Bytes;
        const auto upper = encrypted(at + V::Bytes);
        const auto lower = encrypted(at);
        V::Store(bytes + at + V::Bytes, upper);
        V::Store(bytes + at, lower);
    }
    if (left != 0)
        V::Store(bytes + begin, encrypted(begin));
    V::Store(bytes + end, last);
    V::Store(bytes, first);
}

/// Restores as many bytes as fill the vectors. Let z mean "the previous byte". Then P = (E - k) / (1 + z), and
///
///     1 / (1 + z) = (1 - z)(1 + z^2)(1 + z^4)(1 + z^8) / (1 - z^16)
///
/// The four factors are steps that depend on scrambled bytes only; the division adds the plain bytes 16 places before.
/// With several streams, each 16 bytes of a vector restore a different part of the frame.
template <class V>
void Decrypt(frame::Rest& rest)
{
    const std::size_t length = rest.Count / V::Streams / period * period;  // of a stream
    if (length == 0)
        return;
    using Vector = typename V::Type;
    const KeyBytes keys(rest.Key);
    const std::uint32_t lastKey = frame::RotateLeft(rest.Key, period - 1);
    const KeyBytes before(lastKey);
    const Vector frontKey = V::Repeated(Narrow::Subtract(keys.Front, before.Front));
    const Vector backKey = V::Repeated(Narrow::Subtract(keys.Back, before.Back));

    const int taken = -static_cast<int>(lastKey & 0xFF);
    Vector plain = V::Echoes(rest.Bytes, length, keys, rest.Previous, taken);
    Vector before2{};
    Vector before4{};
    Vector before8{};
    const auto restored = [&](Vector scrambled, Vector key) {
        const Vector by1 = V::Subtract(scrambled, key);
        const Vector by2 = V::Add(by1, V::template Before<2>(by1, before2));
        const Vector by4 = V::Add(by2, V::template Before<4>(by2, before4));
        const Vector by8 = V::Add(by4, V::template Before<8>(by4, before8));
        before2 = by1;
        before4 = by2;
        before8 = by4;
        return plain = V::Add(plain, by8);
    };
    const auto differences = [length](unsigned char* at, Vector beforeFirst) {
        unsigned char* const second = V::SecondPlace(at, length);
        return V::Regrouped({V::Subtract(V::Load(at), beforeFirst), V::Subtract(V::Load(second), V::Load(second - 1))});
    };
    unsigned char* const end = rest.Bytes + length;
    auto next = differences(rest.Bytes, V::ShiftedIn(V::Load(rest.Bytes)));
    for (unsigned char* at = rest.Bytes; at != end; at += period) {
        const auto now = next;
        // Computed before the write, because they need the scrambled byte before them.
        if (at + period != end)
            next = differences(at + period, V::Load(at + period - 1));
        const Vector front = restored(now.First, frontKey);
        const auto pair = V::Regrouped({front, restored(now.Second, backKey)});
        V::Store(at, pair.First);
        V::Store(V::SecondPlace(at, length), pair.Second);
    }
    rest.Advance(length * V::Streams);
}

}  // namespace
