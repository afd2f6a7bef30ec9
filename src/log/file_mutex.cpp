// Opens the named mutex of a log file.
#include "log/file_mutex.h"

#include "errors/last_error.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/text.h"

#include <algorithm>

using namespace utility::literals;

namespace {

/// "C:\Logs\App.log" gives "C:_Logs_App.log.Mutex": a backslash has a special meaning in the names of mutexes. Nothing
/// else is changed, so two spellings of one path have two mutexes.
utility::wstring MutexName(const utility::wstring& path)
{
    utility::wstring name = path + u".Mutex"_w;
    std::replace(name.begin(), name.end(), u'\\', u'_');
    return name;
}

}  // namespace

LONG logging::OpenFileMutex(const utility::wstring& path, UniqueHandle& mutex, bool& isNew)
{
    const utility::wstring name = MutexName(path);
    // An access list that is present and null gives every account full access.
    SECURITY_DESCRIPTOR descriptor{};
    InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), &descriptor, FALSE};
    mutex = UniqueHandle(CreateMutexW(&attributes, TRUE, platform::Wide(name.c_str())));
    if (!mutex)
        return LastErrorCode();
    isNew = GetLastError() != ERROR_ALREADY_EXISTS;
    return 0;
}
