// Scrambling of protocol frames, and the key for it.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

namespace utility {

/// The key for a password. It depends on the first eight characters, up to the first zero, and for characters beyond
/// ASCII on the machine's active code page: all machines of a network need the same code page.
///
/// @throws _com_error E_OUTOFMEMORY, or the code of a failed conversion: 0x8007007A for characters of more than two
///         bytes in the code page.
/// @note Any number of threads may call it at once. Nothing of the password is kept.
TESSMARU_API ULONG genEncryptKeyFromPassword(const wstring& password);

/// Scrambles a frame in place, and restores one. Frames are independent: decryptFrame with the same length and key
/// restores what encryptFrame scrambled.
///
/// This hides the contents of a frame from a casual reader, and nothing more. It does not detect a wrong key or a
/// changed frame, and a part of the plain text is enough to work out the key.
///
/// @param frame  the caller's buffer of `length` bytes. The pointer is not checked.
/// @param length in bytes; only the low 16 bits count, so that 65,536 means no byte.
/// @return 0
/// @note No call allocates memory or keeps state. Any number of threads may call these at once, each with its own
///       frame.
///
/// @code
///     const ULONG key = utility::genEncryptKeyFromPassword(password);
///     const unsigned int length = static_cast<unsigned int>(frame.size());
///     utility::encryptFrame(frame.data(), length, key);
/// @endcode
TESSMARU_API LONG encryptFrame(unsigned char* frame, const unsigned int& length, const ULONG& key);
TESSMARU_API LONG decryptFrame(unsigned char* frame, const unsigned int& length, const ULONG& key);

}  // namespace utility
