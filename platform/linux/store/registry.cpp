// Read access to the settings store. Its file is read once and kept; each opening of a key asks with one `stat`
// whether it is still the same file. An open key holds on to the state of the store that it was opened in.
#include "store/registry.h"

#include "base/descriptor.h"
#include "base/environment.h"
#include "base/handle.h"
#include "base/lifecycle.h"
#include "store/export_file.h"
#include "store/snapshot.h"
#include "text/debug_output.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

namespace {

using layer::RegistrySnapshot;
using layer::Text;
using layer::TextView;

constexpr const char* DefaultPath = "/etc/veltrix/registry.reg";
constexpr off_t MaxFileBytes = off_t{256} << 20;
constexpr int Attempts = 10;

// The kernel takes the times of a file from a clock that moves in ticks of up to 10 ms. What is written within
// the tick of the last change leaves no trace in the status of a file.
constexpr std::int64_t SettlingTime = 20'000'000;

std::int64_t Nanoseconds(const timespec& time)
{
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// What tells one state of a file from another.
struct Signature {
    explicit Signature(const struct stat& status)
        : Device(status.st_dev), Inode(status.st_ino), Size(status.st_size), Written(Nanoseconds(status.st_mtim)),
          Changed(Nanoseconds(status.st_ctim))
    {
    }
    bool operator==(const Signature&) const = default;

    /// Whether the file has the same content. Only the name of a replaced file is changed.
    bool HasContentOf(const Signature& other) const
    {
        return Device == other.Device && Inode == other.Inode && Size == other.Size && Written == other.Written;
    }

    dev_t Device;
    ino_t Inode;
    off_t Size;
    std::int64_t Written;
    std::int64_t Changed;
};

struct Store {
    std::string Path;
    Signature State;
    bool Settled;  // another content of the file would show in its signature
    RegistrySnapshot Content;
};
using StorePointer = std::shared_ptr<const Store>;

// The store that was read last, or null. Under the table lock. No object with a destructor: callers read
// settings from destructors of their own static objects.
StorePointer* lastRead = nullptr;

void ForgetStore()
{
    const std::unique_ptr<StorePointer> forgotten(std::exchange(lastRead, nullptr));
}

constinit layer::LifecycleHooks hooks{.AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = ForgetStore};

const char* StorePath()
{
    const char* const path = layer::Environment("VELTRIX_REGISTRY");
    return path != nullptr && *path != '\0' ? path : DefaultPath;
}

/// A store that is not there is not found, whatever part of its path is missing.
DWORD StoreError(int error)
{
    return error == ENOTDIR ? ERROR_FILE_NOT_FOUND : layer::ErrorFromErrno(error);
}

/// Reads at most `size` bytes. @return the count, or -1 with `errno`
ssize_t ReadAll(int file, char* buffer, std::size_t size)
{
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = read(file, buffer + done, size - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return -1;
        if (count == 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

struct FileContent {
    std::unique_ptr<char[]> Bytes;
    std::size_t Count = 0;
    struct stat Status {};
};

/// Reads the whole file once. ERROR_SHARING_VIOLATION if it changed meanwhile.
DWORD ReadOnce(const char* path, FileContent& content)
{
    // Without O_NONBLOCK the opening of a pipe would wait for its writer.
    const layer::Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file || fstat(file.get(), &content.Status) != 0)
        return StoreError(errno);
    if (!S_ISREG(content.Status.st_mode))
        return ERROR_ACCESS_DENIED;
    if (content.Status.st_size > MaxFileBytes) {
        layer::DebugLine(std::string(path) + ": larger than 256 MB, not read");
        return ERROR_NOT_SUPPORTED;
    }
    content.Count = static_cast<std::size_t>(content.Status.st_size);
    content.Bytes = std::make_unique_for_overwrite<char[]>(content.Count);
    const ssize_t count = ReadAll(file.get(), content.Bytes.get(), content.Count);
    struct stat after {};
    if (count < 0 || fstat(file.get(), &after) != 0)
        return StoreError(errno);
    const bool same = Signature(after).HasContentOf(Signature(content.Status));
    return same && static_cast<std::size_t>(count) == content.Count ? ERROR_SUCCESS : ERROR_SHARING_VIOLATION;
}

DWORD ReadContent(const char* path, FileContent& content)
{
    DWORD error = ERROR_SHARING_VIOLATION;
    for (int i = 0; i < Attempts && error == ERROR_SHARING_VIOLATION; ++i)
        error = ReadOnce(path, content);
    return error;
}

void Report(const char* path, const layer::DroppedLines& dropped)
{
    const std::string start = std::string(path) + ": ";
    for (const auto& [number, reason] : dropped.First)
        layer::DebugLine(start + "line " + std::to_string(number) + " is left out: " + reason);
    if (dropped.Count > dropped.First.size())
        layer::DebugLine(start + std::to_string(dropped.Count - dropped.First.size()) + " more lines are left out");
}

/// Reads the store and keeps it.
DWORD ReadStore(const char* path, StorePointer& store)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    FileContent content;
    if (const DWORD error = ReadContent(path, content); error != ERROR_SUCCESS)
        return error;
    layer::DroppedLines dropped;
    const Signature state(content.Status);
    const bool settled = std::abs(Nanoseconds(now) - state.Changed) > SettlingTime;
    store = std::make_shared<const Store>(
        Store{path, state, settled, layer::ReadRegistryFile({content.Bytes.get(), content.Count}, dropped)});
    Report(path, dropped);
    auto kept = std::make_unique<StorePointer>(store);
    layer::RegisterHooks(hooks);
    const std::lock_guard<std::mutex> guard(layer::TableLock());
    StorePointer* const former = std::exchange(lastRead, kept.release());
    kept.reset(former);  // and goes with its last user
    return ERROR_SUCCESS;
}

/// The present state of the store.
DWORD PresentStore(StorePointer& store)
{
    const char* const path = StorePath();
    struct stat status {};
    if (stat(path, &status) != 0)
        return StoreError(errno);
    const Signature state(status);
    {
        const std::lock_guard<std::mutex> guard(layer::TableLock());
        if (lastRead != nullptr && (*lastRead)->Settled && (*lastRead)->State == state && (*lastRead)->Path == path) {
            store = *lastRead;
            return ERROR_SUCCESS;
        }
    }
    return ReadStore(path, store);
}

class OpenKey final : public layer::Object {
public:
    OpenKey(StorePointer store, RegistrySnapshot::Key key) : Object(Kind::key), Whole(std::move(store)), Key(key) {}

    const RegistrySnapshot& content() const { return Whole->Content; }

    const StorePointer Whole;
    const RegistrySnapshot::Key Key;
};

OpenKey* FindOpenKey(HKEY key)
{
    return static_cast<OpenKey*>(layer::FindObject(key, layer::Object::Kind::key));
}

TextView View(LPCWSTR text)
{
    return text == nullptr ? TextView() : TextView(text);
}

/// A path with one backslash between two names and none at the end, however many there are. `kept` holds what
/// had to be written anew.
TextView Plain(TextView path, Text& kept)
{
    constexpr WCHAR doubled[] = {'\\', '\\', 0};
    while (path.ends_with(doubled[0]))
        path.remove_suffix(1);
    if (path.find(doubled) == TextView::npos)
        return path;
    std::unique_copy(path.begin(), path.end(), std::back_inserter(kept),
                     [&](WCHAR left, WCHAR right) { return left == doubled[0] && right == doubled[0]; });
    return kept;
}

/// The key at `path` below `base` in the present store.
DWORD FindKey(HKEY base, TextView path, StorePointer& store, RegistrySnapshot::Key& key)
{
    const auto hive = RegistrySnapshot::FindHive(base);
    const OpenKey* const above = hive ? nullptr : FindOpenKey(base);
    if (!hive && above == nullptr)
        return ERROR_INVALID_HANDLE;
    if (const DWORD error = PresentStore(store); error != ERROR_SUCCESS)
        return error;
    if (path.starts_with(WCHAR{'\\'}))
        return ERROR_BAD_PATHNAME;
    Text kept;
    const auto start = hive ? store->Content.PathOf(*hive) : above->content().PathOf(above->Key);
    const auto found = store->Content.FindKey(start, Plain(path, kept));
    if (!found)
        return ERROR_FILE_NOT_FOUND;
    key = *found;
    return ERROR_SUCCESS;
}

DWORD Open(HKEY base, TextView path, HKEY& opened)
{
    StorePointer store;
    RegistrySnapshot::Key key{};
    if (const DWORD error = FindKey(base, path, store, key); error != ERROR_SUCCESS)
        return error;
    if (path.empty() && RegistrySnapshot::FindHive(base)) {
        opened = base;
        return ERROR_SUCCESS;
    }
    const HANDLE handle = layer::OpenHandle(new OpenKey(std::move(store), key));
    if (handle == nullptr)
        return ERROR_OUTOFMEMORY;
    opened = static_cast<HKEY>(handle);
    return ERROR_SUCCESS;
}

DWORD Query(const RegistrySnapshot& content, RegistrySnapshot::Key key, LPCWSTR name, DWORD* type, BYTE* data,
            DWORD* bytes)
{
    if (data != nullptr && bytes == nullptr)
        return ERROR_INVALID_PARAMETER;
    const auto value = content.FindValue(key, View(name));
    if (!value)
        return ERROR_FILE_NOT_FOUND;
    if (type != nullptr)
        *type = value->Type;
    if (bytes == nullptr)
        return ERROR_SUCCESS;
    const DWORD room = std::exchange(*bytes, static_cast<DWORD>(value->Data.size()));
    if (data == nullptr)
        return ERROR_SUCCESS;
    if (room < value->Data.size())
        return ERROR_MORE_DATA;
    std::copy(value->Data.begin(), value->Data.end(), data);
    return ERROR_SUCCESS;
}

DWORD QueryHive(HKEY hive, LPCWSTR name, DWORD* type, BYTE* data, DWORD* bytes)
{
    StorePointer store;
    RegistrySnapshot::Key key{};
    if (const DWORD error = FindKey(hive, {}, store, key); error != ERROR_SUCCESS)
        return error;
    return Query(store->Content, key, name, type, data, bytes);
}

DWORD ReadText(HKEY hive, LPCWSTR path, LPCWSTR name, Text& text)
{
    StorePointer store;
    RegistrySnapshot::Key key{};
    if (const DWORD error = FindKey(hive, View(path), store, key); error != ERROR_SUCCESS)
        return error;
    const auto value = store->Content.FindValue(key, View(name));
    if (!value)
        return ERROR_FILE_NOT_FOUND;
    Text units(value->Data.size() / sizeof(WCHAR), WCHAR{0});
    if (!units.empty())
        std::memcpy(units.data(), value->Data.data(), units.size() * sizeof(WCHAR));
    units.resize(std::min(units.find(WCHAR{0}), units.size()));
    text.swap(units);
    return ERROR_SUCCESS;
}

/// What `work` gives, or that it ran out of memory.
template <class Work>
DWORD WithoutExceptions(Work work) noexcept
{
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return ERROR_OUTOFMEMORY;
    }
}

}  // namespace

bool layer::ReadStoreText(HKEY hive, LPCWSTR key, LPCWSTR value, Text& text, LSTATUS* result)
{
    const DWORD error = ReadText(hive, key, value, text);
    if (result != nullptr)
        *result = static_cast<LSTATUS>(error);
    return error == ERROR_SUCCESS;
}

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD, DWORD, HKEY* opened)
{
    if (opened == nullptr)
        return LSTATUS{ERROR_INVALID_PARAMETER};
    return static_cast<LSTATUS>(WithoutExceptions([&] { return Open(key, View(path), *opened); }));
}

// The published signature: the reserved pointer is not const.
// NOLINTNEXTLINE(readability-non-const-parameter)
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* bytes)
{
    if (reserved != nullptr)
        return LSTATUS{ERROR_INVALID_PARAMETER};
    if (RegistrySnapshot::FindHive(key))
        return static_cast<LSTATUS>(WithoutExceptions([&] { return QueryHive(key, name, type, data, bytes); }));
    const OpenKey* const opened = FindOpenKey(key);
    if (opened == nullptr)
        return LSTATUS{ERROR_INVALID_HANDLE};
    return static_cast<LSTATUS>(Query(opened->content(), opened->Key, name, type, data, bytes));
}

LSTATUS RegCloseKey(HKEY key)
{
    if (RegistrySnapshot::FindHive(key) || layer::CloseHandleOfKind(key, layer::Object::Kind::key))
        return LSTATUS{ERROR_SUCCESS};
    return LSTATUS{ERROR_INVALID_HANDLE};
}
