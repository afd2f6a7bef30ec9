// A caller of the library: reads a setting, formats a text with it and logs the text. A program with a string table
// takes the format from there. The program also catches a fault.
#include "tessmaru/log.h"
#include "tessmaru/settings.h"
#include "tessmaru/structured_exception.h"

#include <cstdarg>
#include <cstdio>

namespace {

using namespace utility::literals;

utility::wstring TextOfThisModule(unsigned int row, ...)
{
    va_list inserts;
    va_start(inserts, row);
    utility::wstring text = utility::genStringFromResourceModule(GetModuleHandleW(nullptr), row, &inserts);
    va_end(inserts);
    return text;
}

/// The compiler keeps a handler around a single access only with a flag that the package passes on.
__attribute__((no_sanitize("address", "undefined"))) bool CatchesItsFault()
{
#ifndef __clang__
    const InstallSETranslator translator;
    const int* volatile nowhere = nullptr;
    try {
        return *nowhere < *nowhere;
    } catch (const structured_exception&) {
        return true;
    }
#else
    return true;
#endif
}

}  // namespace

int main()
{
    if (!CatchesItsFault())
        return 3;
    utilities::CLog* const log = utilities::CLog::GetInstance();
    if (log == nullptr) {
        std::fprintf(stderr, "no log: %08X\n", static_cast<unsigned int>(utilities::CLog::GetInitError()));
        return 1;
    }
    const ULONG port = CSettingsRegistry().getUDPPortNumber();
    const utility::wstring text = TextOfThisModule(7, u"Caller"_w, port);
    const LONG code = text.empty() ? log->LogInfo(u"port %lu"_w, u"Caller"_w, port)
                                   : log->LogInfo(u"%s"_w, u"Caller"_w, text.c_str());
    return code == 0 ? 0 : 2;
}
