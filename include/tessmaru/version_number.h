/* The version number of the library, for C (from C99 on) and C++. */
#ifndef TESSMARU_VERSION_NUMBER_H
#define TESSMARU_VERSION_NUMBER_H

#include "tessmaru/platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The release and the language of the library, as in every settings key: "4.09.00-en". Any number of threads may call
   these functions at once. Pointers are not checked.

   GetVersionNumberA and GetVersionNumberW fill a buffer with room for `count` characters: bytes of the machine's active
   code page, or 16-bit units. If n is the length of the text:

       count > n     the text and a terminator; the result is n
       count = n     the text without a terminator; the result is n
       count < n     the first `count` characters without a terminator; the result is negative

   The rest of the buffer is not changed. If there is no memory, or if the code page cannot hold the text, both throw
   _com_error, although they are C functions: a C program that lets it pass must be compiled with -fexceptions.

       char version[32];
       if (GetVersionNumberA(version, sizeof version) > 0)
           puts(version); */
TESSMARU_API int GetVersionNumberA(char* buffer, unsigned int count);
TESSMARU_API int GetVersionNumberW(unsigned short* buffer, unsigned int count);

/* Stores a new automation string in `*out`, which the caller frees with SysFreeString. The earlier value of `*out` is
   neither read nor freed. Throws nothing: if there is no memory, the text is shorter than it should be, or `*out` is
   null. The result is the length of the string in units. */
TESSMARU_API int GetVersionNumberBSTR(BSTR* out);

#ifdef __cplusplus
}
#endif

#endif
