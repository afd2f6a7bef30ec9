// The form of the cipher for a processor without a form of its own.
#include "frame/cipher.h"

frame::Transforms frame::Chosen()
{
    return {EncryptPlain, DecryptPlain};
}
