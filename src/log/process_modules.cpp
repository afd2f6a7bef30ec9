// Writes the list of the process's modules to a log.
#include "errors/last_error.h"
#include "primitives/unique_handle.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/errors.h"
#include "tessmaru/log.h"
#include "tessmaru/text.h"

#include <new>

using namespace utility::literals;

namespace {

const unsigned short* const Source = u"Lib"_w;

/// An address as the widest integer, so that one format prints those of 32 and of 64 bits: at least eight digits, and
/// as many as it has.
ULONGLONG Digits(const void* address)
{
    return reinterpret_cast<ULONG_PTR>(address);
}

void LogModules(utilities::CLog* log, HANDLE snapshot)
{
    MODULEENTRY32W module{};
    module.dwSize = sizeof module;
    if (!Module32FirstW(snapshot, &module)) {
        log->LogInfo(u"Unable to log process modules (unable to walk process module list)"_w, Source);
        return;
    }
    do {
        log->LogInfo(u"Module: 0x%08I64x. Base: 0x%08I64x. Size: 0x%08x. Name: '%s'"_w, Source, Digits(module.hModule),
                     Digits(module.modBaseAddr), module.modBaseSize, module.szExePath);
    } while (Module32NextW(snapshot, &module));
}

}  // namespace

void utility::LogProcessModules(utilities::CLog* log)
try {
    if (log == nullptr)
        return;
    const DWORD process = GetCurrentProcessId();
    log->LogInfo(u"Module dump of process 0x%08x follows"_w, Source, process);
    const UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process));
    // By contract there is no last line here, but there is one after a list that cannot be walked.
    if (!snapshot) {
        const wstring reason = genHResultAsString(LastErrorCode());
        log->LogInfo(u"Unable to log process modules (%s)"_w, Source, reason.c_str());
        return;
    }
    LogModules(log, snapshot.get());
    log->LogInfo(u"Module dump of process 0x%08x complete"_w, Source, process);
} catch (const std::bad_alloc&) {
    log->LogInfo(u"Unable to log process modules (out of memory)"_w, Source);
}
