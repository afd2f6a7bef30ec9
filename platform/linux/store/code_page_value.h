// The value of the store that gives the number of the active code page.
#pragma once

#include "system.h"
#include "text/text.h"

namespace layer {

/// The key, below HKEY_LOCAL_MACHINE, and the name of the value.
extern const WCHAR* const CodePageKey;
extern const WCHAR* const CodePageName;

/// Parses the text of the value. @return the number, or CP_UTF8 if the text is not a decimal number
UINT ParseCodePage(TextView text);

}  // namespace layer
