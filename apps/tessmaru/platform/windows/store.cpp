// The settings store on Windows: the registry.
#include "platform/store.h"

#include "cli/session.h"
#include "platform/windows/wide.h"
#include "settings/catalogue.h"

#include <windows.h>

#include <algorithm>
#include <set>

namespace tool::platform {
namespace {

constexpr DWORD MostNameUnits = 16384;
constexpr unsigned MostDepth = 16;  // the settings have six levels

/// A key that is closed at the end of its scope.
class Key {
public:
    Key(HKEY root, const std::string& path)
    {
        if (RegOpenKeyExW(root, Wide(path).c_str(), 0, KEY_READ, &Opened) != ERROR_SUCCESS)
            Opened = nullptr;
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key()
    {
        if (Opened != nullptr)
            RegCloseKey(Opened);
    }

    HKEY get() const { return Opened; }

private:
    HKEY Opened = nullptr;
};

std::string DataOf(HKEY key, const wchar_t* name, DWORD bytes)
{
    std::string data(bytes, '\0');
    if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &bytes) != ERROR_SUCCESS)
        return {};
    data.resize(std::min<std::size_t>(bytes, data.size()));
    return data;
}

void AddValues(HKEY key, const std::string& path, Store& store)
{
    std::wstring name(MostNameUnits, L'\0');
    for (DWORD index = 0;; ++index) {
        DWORD units = MostNameUnits;
        DWORD type = 0;
        DWORD bytes = 0;
        if (RegEnumValueW(key, index, name.data(), &units, nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS)
            return;
        store.Values.push_back({path, Narrow(name.c_str()), type, DataOf(key, name.c_str(), bytes), 0});
    }
}

void AddKey(HKEY root, const std::string& rootName, const std::string& path, unsigned depth, Store& store)
{
    const Key key(root, path);
    if (key.get() == nullptr)
        return;
    store.Keys.push_back({rootName + "\\" + path, 0});
    AddValues(key.get(), rootName + "\\" + path, store);
    wchar_t name[256];
    for (DWORD index = 0; depth < MostDepth; ++index) {
        DWORD units = 256;
        if (RegEnumKeyExW(key.get(), index, name, &units, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            return;
        AddKey(root, rootName, path + "\\" + Narrow(name), depth + 1, store);
    }
}

}  // namespace

std::string MachineStoreLocation()
{
    return "registry";
}

Store ReadMachineStore()
{
    Store store;
    store.Location = MachineStoreLocation();
    std::set<std::string> keys = {ReleaseKey()};
    for (const Setting& setting : Settings()) {
        if (setting.Key.starts_with("HKEY_"))
            keys.emplace(setting.Key);
    }
    for (const std::string& key : keys) {
        const std::size_t end = key.find('\\');
        const HKEY root = key.starts_with("HKEY_USERS") ? HKEY_USERS : HKEY_LOCAL_MACHINE;
        AddKey(root, key.substr(0, end), key.substr(end + 1), 0, store);
    }
    return store;
}

bool IsStoreFile()
{
    return false;
}

void WriteNewFile(const std::string& path, std::string_view content)
{
    const HANDLE file =
        CreateFileW(Wide(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        throw Failure(Exit::unreadable,
                      "cannot create " + path +
                          (error == ERROR_FILE_EXISTS ? ": File exists" : ": error " + std::to_string(error)));
    }
    DWORD count = 0;
    const bool isWritten =
        WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &count, nullptr) != FALSE &&
        count == content.size();
    CloseHandle(file);
    if (isWritten)
        return;
    DeleteFileW(Wide(path).c_str());
    throw Failure(Exit::unreadable, "cannot write " + path);
}

}  // namespace tool::platform
