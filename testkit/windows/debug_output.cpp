// Debug output on Windows.
#include "testkit/debug_output.h"

#include <cstdlib>

#include <windows.h>

namespace testkit {
namespace {

HANDLE output;

/// The text arrives as an exception that a debugger would take. The file stays open to the end of the process.
LONG CALLBACK KeepDebugOutput(EXCEPTION_POINTERS* exception)
{
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == DBG_PRINTEXCEPTION_C) {
        const auto bytes = static_cast<DWORD>(record.ExceptionInformation[0]);
        DWORD written = 0;
        WriteFile(output, reinterpret_cast<const void*>(record.ExceptionInformation[1]), bytes - 1, &written, nullptr);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

void SendDebugOutputTo(const std::filesystem::path& path)
{
    output = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
    if (output == INVALID_HANDLE_VALUE)
        std::abort();
    AddVectoredExceptionHandler(1, KeepDebugOutput);
}

}  // namespace testkit
