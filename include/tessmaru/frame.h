// Scrambling of protocol frames, and the key for it.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

namespace utility {

/// The key that a password gives. It depends on the first eight characters up to the first zero, and for characters
/// beyond ASCII on the machine's active code page: all machines of a network need the same.
///
/// @throws _com_error E_OUTOFMEMORY; the code of a failed conversion, 0x8007007A for characters that take more than two
///         bytes of the code page.
/// @note Any number of threads may call it at once. Nothing is kept of the password.
TESSMARU_API ULONG genEncryptKeyFromPassword(const wstring& password);

/// Scrambles a frame in place, and restores one. Each frame stands for itself: what encryptFrame made of it comes back
/// by decryptFrame with the same length and key.
///
/// This hides the contents of a frame from a passing look, and nothing more. It does not notice a wrong key or a
/// changed frame, and whoever knows a part of what a frame says can work out the key.
///
/// @param frame  the caller's buffer of `length` bytes. It is not checked.
/// @param length in bytes; only the low 16 bits count, so that 65,536 means none.
/// @return 0
/// @note No call allocates or keeps anything. Any number of threads may call these at once, each with a frame of its
///       own.
///
/// @code
///     const ULONG key = utility::genEncryptKeyFromPassword(password);
///     const unsigned int length = static_cast<unsigned int>(frame.size());
///     utility::encryptFrame(frame.data(), length, key);
/// @endcode
TESSMARU_API LONG encryptFrame(unsigned char* frame, const unsigned int& length, const ULONG& key);
TESSMARU_API LONG decryptFrame(unsigned char* frame, const unsigned int& length, const ULONG& key);

}  // namespace utility
