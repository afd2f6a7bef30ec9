// The cipher for any processor, and for the bytes that do not fill a vector.
#include "frame/cipher.h"

void frame::EncryptPlain(unsigned char* bytes, std::size_t count, std::uint32_t key)
{
    unsigned char previous = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char plain = bytes[i];
        bytes[i] = static_cast<unsigned char>(plain + previous + key);
        previous = plain;
        key = RotateLeft(key, 1);
    }
}

void frame::DecryptPlain(Rest rest)
{
    // Local copies: the compiler must assume that a write to the frame can change the fields of `rest`.
    unsigned char previous = rest.Previous;
    std::uint32_t key = rest.Key;
    for (unsigned char *at = rest.Bytes, *const end = at + rest.Count; at != end; ++at) {
        previous = static_cast<unsigned char>(*at - key - previous);
        *at = previous;
        key = RotateLeft(key, 1);
    }
}

void frame::DecryptPlain(unsigned char* bytes, std::size_t count, std::uint32_t key)
{
    DecryptPlain(Rest{bytes, count, key, 0});
}
