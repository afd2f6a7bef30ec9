// The exported calls of the frame cipher.
#include "tessmaru/frame.h"

#include "frame/cipher.h"
#include "settings/tag_specification.h"

namespace {

// The length field of a frame has 16 bits; callers rely on the rest being ignored.
constexpr unsigned int LengthBits = 0xFFFF;

}  // namespace

LONG utility::encryptFrame(unsigned char* frame, const unsigned int& length, const ULONG& key)
{
    frame::Chosen().Encrypt(frame, length & LengthBits, key);
    return 0;
}

LONG utility::decryptFrame(unsigned char* frame, const unsigned int& length, const ULONG& key)
{
    frame::Chosen().Decrypt(frame, length & LengthBits, key);
    return 0;
}
