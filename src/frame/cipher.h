// The scrambling of frames. With P for plain bytes, E for scrambled ones and k[i] for the low byte of the key rotated
// left by i bits: E[i] = P[i] + P[i-1] + k[i] modulo 256, and P[-1] is 0. There is one form for each kind of processor,
// and all give the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace frame {

using Transform = void(unsigned char* bytes, std::size_t count, std::uint32_t key);

/// For any processor, one byte after the other.
Transform EncryptPlain, DecryptPlain;

/// For x86 with SSSE3, and with AVX2.
Transform EncryptSsse3, DecryptSsse3, EncryptAvx2, DecryptAvx2;

/// The fastest form that this processor has.
struct Transforms {
    Transform* Encrypt;
    Transform* Decrypt;
};
Transforms Chosen();

// Inlined everywhere, as this is compiled for several processors too.
[[gnu::always_inline]] inline std::uint32_t RotateLeft(std::uint32_t key, std::size_t bits)
{
    return key << bits % 32 | key >> (32 - bits % 32) % 32;
}

/// What is left of a frame that is being restored.
struct Rest {
    unsigned char* Bytes;
    std::size_t Count;
    std::uint32_t Key;       // rotated for the first of these bytes
    unsigned char Previous;  // the plain byte before them

    [[gnu::always_inline]] void Advance(std::size_t restored)
    {
        if (restored == 0)
            return;
        Bytes += restored;
        Count -= restored;
        Key = RotateLeft(Key, restored);
        Previous = Bytes[-1];
    }
};

void DecryptPlain(Rest rest);

}  // namespace frame
