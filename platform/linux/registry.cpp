// Read access to the settings store. The file is read once and kept; an open key asks with one `stat` whether
// it is still the same file, and holds on to the content that it was opened in.
#include "registry.h"

#include "registry_file.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace layer {

namespace {

constexpr const char* DefaultPath = "/etc/veltrix/registry.reg";
constexpr off_t MaxFileBytes = 256 << 20;
constexpr int MaxRereads = 5;
constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;

// Times of files move in ticks of at most 10 ms: a file that was written just now can be written again without
// a trace in its status.
constexpr std::int64_t SettlingTime = 20'000'000;

using File = std::shared_ptr<const RegistryFile>;

/// What tells one state of a file from another.
struct Signature {
    explicit Signature(const struct stat& status)
        : Device(status.st_dev), Inode(status.st_ino), Size(status.st_size), Modified(Time(status.st_mtim)),
          Changed(Time(status.st_ctim))
    {
    }
    bool operator==(const Signature&) const = default;

    static std::int64_t Time(const timespec& time) { return time.tv_sec * NanosecondsPerSecond + time.tv_nsec; }

    dev_t Device;
    ino_t Inode;
    off_t Size;
    std::int64_t Modified;
    std::int64_t Changed;
};

/// The content that was read last. Under the table lock.
struct Cache {
    std::string Path;
    Signature State{{}};
    bool Settled = false;
    File Content;
};

// Ahead of every static that may read settings, so behind them at the end.
[[gnu::init_priority(150)]] Cache cache;

const char* StorePath()
{
    const char* const path = Environment("VELTRIX_REGISTRY");
    return path != nullptr && *path != '\0' ? path : DefaultPath;
}

class Descriptor {
public:
    explicit Descriptor(const char* path) : File(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (File >= 0)
            close(File);
    }
    int get() const { return File; }

private:
    const int File;
};

/// The whole file, or an error. A file that changes meanwhile is read again.
DWORD ReadAll(const char* path, std::vector<BYTE>& content, struct stat& status)
{
    for (int attempt = 0; attempt < MaxRereads; ++attempt) {
        const Descriptor file(path);
        if (file.get() < 0 || fstat(file.get(), &status) != 0)
            return ErrorFromErrno(errno);
        if (!S_ISREG(status.st_mode))
            return ERROR_ACCESS_DENIED;
        if (status.st_size > MaxFileBytes) {
            DebugLine("registry store: larger than 256 MiB, not read");
            return ERROR_MORE_DATA;
        }
        content.resize(static_cast<std::size_t>(status.st_size));
        std::size_t done = 0;
        ssize_t count = 1;
        while (done < content.size() && count > 0) {
            count = pread(file.get(), content.data() + done, content.size() - done, static_cast<off_t>(done));
            done += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        if (count < 0)
            return ErrorFromErrno(errno);
        struct stat after {};
        if (fstat(file.get(), &after) == 0 && Signature(after) == Signature(status) && done == content.size())
            return ERROR_SUCCESS;
    }
    return ERROR_BUSY;
}

/// Reads the store and keeps it. @throws std::bad_alloc
DWORD Load(const char* path, File& file)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    std::vector<BYTE> content;
    struct stat status {};
    if (const DWORD error = ReadAll(path, content, status); error != ERROR_SUCCESS)
        return error;
    file = std::make_shared<const RegistryFile>(content);
    const Signature state(status);
    std::string ownPath(path);
    File former;  // goes behind the lock
    const std::lock_guard<std::mutex> guard(TableLock());
    former = std::move(cache.Content);
    cache.Path.swap(ownPath);
    cache.State = state;
    cache.Settled = Signature::Time(now) - std::max(state.Modified, state.Changed) > SettlingTime;
    cache.Content = file;
    return ERROR_SUCCESS;
}

/// The present content of the store. @throws std::bad_alloc
DWORD Current(File& file)
{
    const char* const path = StorePath();
    struct stat status {};
    if (stat(path, &status) != 0)
        return errno == ENOTDIR ? ERROR_FILE_NOT_FOUND : ErrorFromErrno(errno);
    {
        const std::lock_guard<std::mutex> guard(TableLock());
        if (cache.Settled && cache.State == Signature(status) && cache.Path == path) {
            file = cache.Content;
            return ERROR_SUCCESS;
        }
    }
    return Load(path, file);
}

class OpenedKey final : public Object {
public:
    OpenedKey(File file, const RegistryKey& key, HKEY hive)
        : Object(Kind::key), Content(std::move(file)), Key(key), Hive(hive)
    {
    }

    const File Content;
    const RegistryKey& Key;  // in Content
    const HKEY Hive;
};

/// The value of this name, or null.
const RegistryValue* FindValue(const RegistryKey& key, TextView name)
{
    const auto found = key.second.find(name);
    return found == key.second.end() ? nullptr : &found->second;
}

OpenedKey* FindKey(HKEY key)
{
    return static_cast<OpenedKey*>(FindObject(key, Object::Kind::key));
}

/// @throws std::bad_alloc
DWORD Open(HKEY parent, TextView path, HKEY* opened)
{
    HKEY hive = parent;
    Text whole;
    if (!IsPredefined(parent)) {
        const OpenedKey* const above = FindKey(parent);
        if (above == nullptr)
            return ERROR_INVALID_HANDLE;
        hive = above->Hive;
        whole = above->Key.first;
        if (!whole.empty() && !path.empty())
            whole += '\\';
        whole += path;
        path = whole;
    }
    File file;
    if (const DWORD error = Current(file); error != ERROR_SUCCESS)
        return error;
    const RegistryKey* const key = file->Find(hive, path);
    if (key == nullptr)
        return ERROR_FILE_NOT_FOUND;
    const HANDLE handle = OpenHandle(new OpenedKey(std::move(file), *key, hive));
    if (handle == nullptr)
        return ERROR_OUTOFMEMORY;
    *opened = static_cast<HKEY>(handle);
    return ERROR_SUCCESS;
}

}  // namespace

bool ReadStoreText(HKEY hive, LPCWSTR key, LPCWSTR value, Text& text, LSTATUS* result)
{
    File file;
    DWORD status = Current(file);
    const RegistryKey* const found = status == ERROR_SUCCESS ? file->Find(hive, key) : nullptr;
    const RegistryValue* const entry = found == nullptr ? nullptr : FindValue(*found, value);
    if (status == ERROR_SUCCESS && entry == nullptr)
        status = ERROR_FILE_NOT_FOUND;
    if (result != nullptr)
        *result = static_cast<LSTATUS>(status);
    if (status != ERROR_SUCCESS)
        return false;
    const std::vector<BYTE>& data = entry->Data;
    text.assign(data.size() / sizeof(WCHAR), WCHAR{0});
    std::memcpy(text.data(), data.data(), text.size() * sizeof(WCHAR));
    text.resize(std::min(text.find(WCHAR{0}), text.size()));
    return true;
}

}  // namespace layer

using namespace layer;

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD, DWORD, HKEY* opened)
{
    if (opened == nullptr)
        return ERROR_INVALID_PARAMETER;
    try {
        return static_cast<LSTATUS>(Open(key, path == nullptr ? TextView() : TextView(path), opened));
    } catch (const std::bad_alloc&) {
        return LSTATUS{ERROR_OUTOFMEMORY};
    }
}

LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, DWORD*, DWORD* type, BYTE* data, DWORD* bytes)
{
    const OpenedKey* const opened = FindKey(key);
    if (opened == nullptr)
        return ERROR_INVALID_HANDLE;
    if (data != nullptr && bytes == nullptr)
        return ERROR_INVALID_PARAMETER;
    const RegistryValue* const value = FindValue(opened->Key, name == nullptr ? TextView() : TextView(name));
    if (value == nullptr)
        return ERROR_FILE_NOT_FOUND;
    if (type != nullptr)
        *type = value->Type;
    if (bytes == nullptr)
        return ERROR_SUCCESS;
    const auto size = static_cast<DWORD>(value->Data.size());
    const DWORD room = std::exchange(*bytes, size);
    if (data == nullptr)
        return ERROR_SUCCESS;
    if (room < size)
        return ERROR_MORE_DATA;
    std::copy(value->Data.begin(), value->Data.end(), data);
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY key)
{
    if (IsPredefined(key))
        return ERROR_SUCCESS;
    return ShutHandle(key, Object::Kind::key) ? LSTATUS{ERROR_SUCCESS} : LSTATUS{ERROR_INVALID_HANDLE};
}
