/* The version number of the library, for C (from C99 on) and C++. */
#ifndef TESSMARU_VERSION_NUMBER_H
#define TESSMARU_VERSION_NUMBER_H

#include "tessmaru/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The release and the language of the library, as they stand in every settings key: "4.09.00-en". Any number of
   threads may call these functions at once. No pointer is tested.

   GetVersionNumberA and GetVersionNumberW fill a buffer that has room for `count` characters, bytes of the machine's
   active code page or 16-bit units. With n for the length of the text:

       count > n     the text and a terminator; the result is n
       count = n     the text without a terminator; the result is n
       count < n     the first `count` characters without a terminator; the result is negative

   What stands behind the written characters stays. Without memory, or if the code page cannot hold the text, both throw
   a _com_error through their plain names: a C program has to be compiled with -fexceptions if it wants to pass it on.

       char version[32];
       if (GetVersionNumberA(version, sizeof version) > 0)
           puts(version); */
TESSMARU_API int GetVersionNumberA(char* buffer, unsigned int count);
TESSMARU_API int GetVersionNumberW(unsigned short* buffer, unsigned int count);

/* Stores a new automation string in `*out`, which the caller frees with SysFreeString; what was there before is
   neither read nor freed. Throws nothing: without memory the text is shorter than it should be, or `*out` is null.
   The result is the length of the string in units. */
TESSMARU_API int GetVersionNumberBSTR(BSTR* out);

#ifdef __cplusplus
}
#endif

#endif
