// The frame cipher. P are the plain bytes, E the scrambled bytes, k[i] is the low byte of the key rotated left by i
// bits:
//
//     E[i] = P[i] + P[i-1] + k[i] modulo 256, with P[-1] = 0
//
// There is one form of it for each kind of processor; all give the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace frame {

using Transform = void(unsigned char* bytes, std::size_t count, std::uint32_t key);

/// For any processor, byte by byte.
Transform EncryptPlain, DecryptPlain;

/// For x86 with SSSE3, and with AVX2.
Transform EncryptSsse3, DecryptSsse3, EncryptAvx2, DecryptAvx2;

/// The fastest form for the processor at run time.
struct Transforms {
    Transform* Encrypt;
    Transform* Decrypt;
};
Transforms Chosen();

// Always inline: a shared copy could be the one that was compiled for a newer processor.
[[gnu::always_inline]] inline std::uint32_t RotateLeft(std::uint32_t key, std::size_t bits)
{
    return key << bits % 32 | key >> (32 - bits % 32) % 32;
}

/// The rest of a frame that is being restored.
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
