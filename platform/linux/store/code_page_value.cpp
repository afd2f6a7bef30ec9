// Parses the number of the active code page.
#include "store/code_page_value.h"

#include "tessmaru/text.h"

using namespace utility::literals;

const WCHAR* const layer::CodePageKey = u"SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage"_w;
const WCHAR* const layer::CodePageName = u"ACP"_w;

UINT layer::ParseCodePage(TextView text)
{
    constexpr std::size_t maxDigits = 7;
    if (text.empty() || text.size() > maxDigits)
        return CP_UTF8;
    UINT number = 0;
    for (const WCHAR unit : text) {
        if (unit < '0' || unit > '9')
            return CP_UTF8;
        number = number * 10 + (unit - U'0');
    }
    return number;
}
