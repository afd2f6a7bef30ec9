// Chooses the form of the cipher for an x86 processor.
#include "frame/cipher.h"

frame::Transforms frame::Chosen()
{
    if (__builtin_cpu_supports("avx2"))
        return {EncryptAvx2, DecryptAvx2};
    if (__builtin_cpu_supports("ssse3"))
        return {EncryptSsse3, DecryptSsse3};
    return {EncryptPlain, DecryptPlain};
}
