// The cipher for processors with SSSE3: vectors of 16 bytes.
#include "frame/cipher_vectors.h"

void frame::EncryptSsse3(unsigned char* bytes, std::size_t count, std::uint32_t key)
{
    Encrypt<Narrow>(bytes, count, key);
}

// NOLINTNEXTLINE(readability-non-const-parameter): it is written to
void frame::DecryptSsse3(unsigned char* bytes, std::size_t count, std::uint32_t key)
{
    Rest rest{bytes, count, key, 0};
    Decrypt<Narrow>(rest);
    DecryptPlain(rest);
}
