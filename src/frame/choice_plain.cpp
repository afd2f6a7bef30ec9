// The form of the cipher for processors that have no special form.
#include "frame/cipher.h"

frame::Transforms frame::Chosen()
{
    return {EncryptPlain, DecryptPlain};
}
