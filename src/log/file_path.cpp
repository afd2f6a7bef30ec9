// Reads the path of the log file from the settings.
#include "log/file_path.h"

#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/text.h"

#include <algorithm>

using namespace utility::literals;

namespace {

constexpr std::size_t MaxPathUnits = 512;
constexpr std::size_t PathRoom = MaxPathUnits + 1;

/// A key of the registry, closed at the end of its scope.
class OpenKey {
public:
    explicit OpenKey(const utility::wstring& path)
        : Status(RegOpenKeyExW(HKEY_LOCAL_MACHINE, platform::Wide(path.c_str()), 0, KEY_READ, &Key))
    {
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    ~OpenKey()
    {
        if (Status == 0)
            RegCloseKey(Key);
    }

    LSTATUS status() const { return Status; }

    LSTATUS Read(const unsigned short* name, void* data, DWORD& bytes) const
    {
        return RegQueryValueExW(Key, platform::Wide(name), nullptr, nullptr, static_cast<BYTE*>(data), &bytes);
    }

private:
    HKEY Key = nullptr;
    const LSTATUS Status;
};

/// Reads the value into a buffer of zeros, which end a value without a terminator.
LSTATUS ReadValue(const utility::wstring& keyPath, unsigned short (&path)[PathRoom])
{
    const OpenKey key(keyPath);
    if (key.status() != 0)
        return key.status();
    // The size is not used. A missing value fails here, and a value that is too long at the second call.
    DWORD bytes = 0;
    LSTATUS status = key.Read(u"FilePath"_w, nullptr, bytes);
    if (status != 0)
        return status;
    bytes = sizeof path;
    status = key.Read(u"FilePath"_w, path, bytes);
    if (status != 0)
        return status;
    // The value fills the buffer, so it has more units than a path may have.
    if (std::find(path, path + PathRoom, u'\0') == path + PathRoom)
        return LSTATUS{ERROR_MORE_DATA};
    // An empty path counts as a missing value.
    return path[0] == 0 ? LSTATUS{ERROR_FILE_NOT_FOUND} : LSTATUS{ERROR_SUCCESS};
}

}  // namespace

LONG logging::ReadFilePath(const utility::wstring& keyPath, utility::wstring& path)
{
    path.clear();
    unsigned short value[PathRoom]{};
    if (const LSTATUS status = ReadValue(keyPath, value); status != 0)
        return HRESULT_FROM_WIN32(static_cast<DWORD>(status));
    path = value;
    return 0;
}
