// For processors that have no form of their own.
#include "frame/cipher.h"

frame::Transforms frame::Chosen()
{
    return {EncryptPlain, DecryptPlain};
}
