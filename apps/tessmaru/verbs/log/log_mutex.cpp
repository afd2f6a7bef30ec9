// The lock of a log, by its name. It is the one that the library's log takes.
#include "verbs/log/log_mutex.h"

#include "platform/file.h"
#include "settings/values.h"
#include "tessmaru/primitives.h"
#include "text/paths.h"
#include "text/wide.h"

#include <algorithm>
#include <filesystem>

namespace tool {

std::string SpellingOf(const std::string& file)
{
    std::error_code failure;
    const std::string setting = LogPathSetting();
    if (!setting.empty() && std::filesystem::equivalent(PathOf(platform::PathOnDisk(setting)), PathOf(file), failure))
        return setting;
    return Utf8Of(std::filesystem::absolute(PathOf(file)).lexically_normal());
}

std::string MutexNameOf(const std::string& spelling)
{
    std::string name = spelling + ".Mutex";
    std::replace(name.begin(), name.end(), '\\', '_');
    return name;
}

MutexLock::MutexLock(const std::string& name)
{
    constexpr DWORD longestWait = 60'000;
    utility::CSecurityDescriptor everyone;
    // The platform's wide letters have a type of their own on Windows.
    const utility::wstring wide = FromUtf8(name);
    Mutex = CreateMutexW(everyone.getSecurityAttributes(), FALSE, reinterpret_cast<LPCWSTR>(wide.c_str()));
    if (Mutex == nullptr)
        throw Failure(Exit::unreadable, "cannot open the mutex " + name + ": error " + std::to_string(GetLastError()));
    const DWORD result = WaitForSingleObject(Mutex, longestWait);
    if (result == WAIT_OBJECT_0 || result == WAIT_ABANDONED)
        return;
    CloseHandle(Mutex);
    throw Failure(Exit::unreadable, "the mutex " + name + " is not free. See: tessmaru doctor");
}

MutexLock::~MutexLock()
{
    ReleaseMutex(Mutex);
    CloseHandle(Mutex);
}

}  // namespace tool
