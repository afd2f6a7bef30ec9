// The cipher for processors with AVX2: vectors of 32 bytes.
#include "frame/cipher_vectors.h"

namespace {

/// Vectors of 32 bytes, in two streams of 16: the first part of the frame, and a second part of the same length.
struct Wide {
    using Type = __m256i;
    static constexpr std::size_t Bytes = 32;
    static constexpr std::size_t Streams = 2;

    static Type Load(const unsigned char* from) { return _mm256_loadu_si256(reinterpret_cast<const Type*>(from)); }
    static void Store(unsigned char* to, Type value) { _mm256_storeu_si256(reinterpret_cast<Type*>(to), value); }
    static Type Add(Type a, Type b) { return _mm256_add_epi8(a, b); }
    static Type Subtract(Type a, Type b) { return _mm256_sub_epi8(a, b); }

    static Type ShiftedIn(Type value)
    {
        return _mm256_alignr_epi8(value, _mm256_permute2x128_si256(value, value, 0x08), 15);
    }

    template <int Count>
    static Type Before(Type now, Type last)
    {
        return _mm256_alignr_epi8(now, last, 16 - Count);
    }

    static Type Repeated(__m128i value) { return _mm256_broadcastsi128_si256(value); }

    struct Pair {
        Type First;
        Type Second;
    };
    static unsigned char* SecondPlace(unsigned char* at, std::size_t length) { return at + length; }

    static Pair Regrouped(const Pair& pair)
    {
        return {_mm256_permute2x128_si256(pair.First, pair.Second, 0x20),
                _mm256_permute2x128_si256(pair.First, pair.Second, 0x31)};
    }

    /// The sum of the bytes at odd places minus the sum of those at even places; only the low byte is valid.
    static int Alternating(Type value)
    {
        const Type pairs = _mm256_maddubs_epi16(value, _mm256_set1_epi16(0x01FF));
        const Type parts = _mm256_sad_epu8(_mm256_and_si256(pairs, _mm256_set1_epi16(0xFF)), _mm256_setzero_si256());
        const __m128i halves = _mm_add_epi64(_mm256_castsi256_si128(parts), _mm256_extracti128_si256(parts, 1));
        return _mm_cvtsi128_si32(halves) + _mm_extract_epi16(halves, 4);
    }

    static Type Echoes(const unsigned char* bytes, std::size_t length, const KeyBytes& keys, int previous, int taken)
    {
        Type sum = _mm256_setzero_si256();
        for (std::size_t at = 0; at < length; at += Bytes)
            sum = Add(sum, Load(bytes + at));
        // The second stream needs the last plain byte of the first one, of which memory has only the scrambled form. It
        // is an alternating sum over the first stream.
        const int keySum = Alternating(_mm256_setr_m128i(keys.Front, keys.Back));
        const int last = previous + Alternating(sum) - static_cast<int>(length / Bytes) * keySum;
        return _mm256_setr_m128i(Narrow::Echo(previous, taken), Narrow::Echo(last, bytes[length - 1] + taken));
    }
};

}  // namespace

void frame::EncryptAvx2(unsigned char* bytes, std::size_t count, std::uint32_t key)
{
    Encrypt<Wide>(bytes, count, key);
}

// NOLINTNEXTLINE(readability-non-const-parameter): it is written to
void frame::DecryptAvx2(unsigned char* bytes, std::size_t count, std::uint32_t key)
{
    // In a shorter frame the sum over the first stream costs more than the second stream saves.
    constexpr std::size_t worthwhile = 256;
    Rest rest{bytes, count, key, 0};
    if (count >= worthwhile)
        Decrypt<Wide>(rest);
    Decrypt<Narrow>(rest);
    DecryptPlain(rest);
}
