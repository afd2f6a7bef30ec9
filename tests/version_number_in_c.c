/* The exports of the version number, called by a C program. */
#include "tessmaru/version_number.h"

#include <stdio.h>
#include <string.h>

int main(void)
{
    const char expected[] = "4.09.00-en";
    const int length = (int)sizeof expected - 1;
    char narrow[32];
    unsigned short wide[32];
    BSTR automation = NULL;
    int i;

    if (GetVersionNumberA(narrow, sizeof narrow) != length || strcmp(narrow, expected) != 0)
        return 1;
    if (GetVersionNumberA(narrow, 3) >= 0)
        return 2;
    if (GetVersionNumberW(wide, 32) != length || GetVersionNumberBSTR(&automation) != length)
        return 3;
    for (i = 0; i <= length; ++i) {
        if (wide[i] != (unsigned short)expected[i] || automation[i] != wide[i])
            return 4;
    }
    if ((int)SysStringLen(automation) != length)
        return 5;
    SysFreeString(automation);
    puts(narrow);
    return 0;
}
