// Every failure in one line: catch it, describe it, log it.
//
// A service reads sites from several sources, and each source fails in a way of its own: with a code, with an
// automation error that tells more, with an exception of the standard library, with a fault of the processor. One
// function turns each of them into a record of the shared log, and the service goes on with the next source. At the end
// the program shows the log.
//
//     failures
#include "tessmaru/automation.h"
#include "tessmaru/errors.h"
#include "tessmaru/log.h"
#include "tessmaru/settings.h"

#include "tools/family.h"
#include "tools/log_records.h"
#include "tools/world.h"
#include "veltrix_settings.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

using namespace utility::literals;
using utilities::CLog;

namespace {

// ---- Sources of sites, each with its own way to fail

/// Takes an array from an automation client that sends a table where a list was asked for.
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

/// Fails as an object does that explains itself.
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

/// A site that nobody has looked up: the read through its pointer is a fault of the processor. (In a build with
/// sanitizers their own check would come first.)
__attribute__((no_sanitize("address", "thread", "undefined"))) void ReadFromCache(const volatile int* site)
{
    std::printf("latitude %d\n", *site);
}

// ---- The one place where failures become records

void LogFailure(CLog& log, const unsigned short* source)
try {
    throw;
} catch (const _com_error& failure) {
    log.LogError(u"%s"_w, source, utility::getComErrorAsString(failure).c_str());
} catch (const std::exception& failure) {  // a structured_exception is one as well
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
    const tools::ScratchFolder scratch;
    const tools::World world(scratch, VeltrixSettings);
    const utility::wstring name = CSettingsRegistry().getLogPath();
    const std::filesystem::path log = world.PlaceLog({name.begin(), name.end()});
    Serve();
    tools::PrintLog(log);
    return EXIT_SUCCESS;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "failures: %s\n", failure.what());
    return EXIT_FAILURE;
}
