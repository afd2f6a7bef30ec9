// Example of failures: how a program catches them, describes each in one line and logs it.
//
// A service reads sites from several sources, and each source fails in its own way: with a code, with an automation
// error that has a description, with an exception of the standard library, with a fault of the processor. One function
// turns each failure into a record of the shared log, and the service continues with the next source. At the end the
// program prints the log.
//
//     failures
#include "tessmaru/automation.h"
#include "tessmaru/errors.h"
#include "tessmaru/log.h"
#include "tessmaru/settings.h"

#include "testkit/log_printer.h"
#include "testkit/scratch_folder.h"
#include "testkit/settings_store.h"
#include "veltrix_settings.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

using namespace utility::literals;
using utilities::CLog;

namespace {

// ---- Sources of sites, each of which fails in its own way

/// Reads an array of an automation client that sends a table instead of a list.
void ReadFromClient()
{
    SAFEARRAYBOUND table[2]{};
    table[0].cElements = 3;
    table[1].cElements = 4;
    SAFEARRAY* const array = SafeArrayCreate(VT_BSTR, 2, table);
    std::vector<utility::wstring> sites;
    const LONG code = utility::CCOMUtility::SafeArrayToVectStr(array, sites);
    SafeArrayDestroy(array);
    if (code < 0)
        throw _com_error(code);
}

/// Fails as an automation object does that describes its error.
void ReadFromDatabase()
{
    ICreateErrorInfo* made = nullptr;
    void* info = nullptr;
    if (SUCCEEDED(CreateErrorInfo(&made))) {
        utility::wstring source = u"Veltrix.SiteDatabase"_w;
        utility::wstring description = u"the table of sites is locked by a backup"_w;
        made->SetSource(reinterpret_cast<LPOLESTR>(source.data()));
        made->SetDescription(reinterpret_cast<LPOLESTR>(description.data()));
        made->QueryInterface(IID_IErrorInfo, &info);
        made->Release();
    }
    throw _com_error(E_ACCESSDENIED, static_cast<IErrorInfo*>(info));
}

void ReadFromFile()
{
    throw std::runtime_error("north.csv, line 12: no latitude");
}

/// Reads through a null pointer, which is a fault of the processor. (A sanitizer would report it first.)
__attribute__((no_sanitize("address", "thread", "undefined"))) void ReadFromCache(const volatile int* site)
{
    std::printf("latitude %d\n", *site);
}

// ---- The one function that logs failures

void LogFailure(CLog& log, const unsigned short* source)
try {
    throw;
} catch (const _com_error& failure) {
    log.LogError(u"%s"_w, source, utility::getComErrorAsString(failure).c_str());
} catch (const std::exception& failure) {  // also a structured_exception: a fault
    log.LogError(u"%s"_w, source, utility::getStdExceptionAsString(failure).c_str());
}

template <class Read>
void Import(CLog& log, const unsigned short* source, Read read)
{
    try {
        read();
    } catch (...) {
        LogFailure(log, source);
    }
}

void Serve()
{
    CLog* const log = CLog::GetInstance();
    if (log == nullptr)
        throw std::runtime_error("the log cannot be opened");
    const InstallSETranslator translator;  // for this thread
    log->LogWarn(u"%s"_w, u"Licence"_w, utility::genHResultAsString(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)).c_str());
    Import(*log, u"Client"_w, ReadFromClient);
    Import(*log, u"Database"_w, ReadFromDatabase);
    Import(*log, u"File"_w, ReadFromFile);
    Import(*log, u"Cache"_w, [] { ReadFromCache(nullptr); });
    log->LogStatus(u"import ended, %d sources failed"_w, u"Import"_w, 4);
}

}  // namespace

int main()
try {
    // The settings and the log of this run, in a scratch folder.
    const testkit::ScratchFolder scratch;
    const testkit::SettingsStore settings(scratch);
    settings.Set(VeltrixSettings);
    const utility::wstring path = CSettingsRegistry().getLogPath();
    const std::filesystem::path log = settings.PlaceLog({path.begin(), path.end()});
    Serve();
    testkit::PrintLog(log);
    return EXIT_SUCCESS;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "failures: %s\n", failure.what());
    return EXIT_FAILURE;
}
