// Read access to the settings store. The file is parsed once and cached; each opening of a key, and each read through
// an open key, checks with one `stat` whether the file has changed. A call uses one state of the store from start to
// end.
#include "store/registry.h"

#include "base/descriptor.h"
#include "base/environment.h"
#include "base/handle.h"
#include "base/lifecycle.h"
#include "store/export_file.h"
#include "store/key_path.h"
#include "store/snapshot.h"
#include "text/debug_output.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

using layer::RegistrySnapshot;
using layer::Text;
using layer::TextView;

constexpr const char* DefaultPath = "/etc/veltrix/registry.reg";
constexpr off_t MaxFileBytes = off_t{32} << 20;
constexpr int MaxReadAttempts = 10;

// The kernel takes the times of a file from a clock that advances in ticks of up to 10 ms. A second change within the
// same tick does not alter the status of a file, so the status identifies the content only if the last change is older
// than this: twice the longest tick.
constexpr std::int64_t ReliableSignatureAge = 20'000'000;

std::int64_t Nanoseconds(const timespec& time)
{
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// Identifies one state of a file.
struct Signature {
    explicit Signature(const struct stat& status)
        : Device(status.st_dev), Inode(status.st_ino), Size(status.st_size), Written(Nanoseconds(status.st_mtim)),
          Changed(Nanoseconds(status.st_ctim))
    {
    }
    bool operator==(const Signature&) const = default;

    /// Compares all but the time of the last status change: replacing a file removes its name, which changes that time
    /// of the old file, but not its content.
    bool HasSameContentAs(const Signature& other) const
    {
        return Device == other.Device && Inode == other.Inode && Size == other.Size && Written == other.Written;
    }

    dev_t Device;
    ino_t Inode;
    off_t Size;
    std::int64_t Written;
    std::int64_t Changed;
};

struct LoadedStore {
    std::string Path;
    Signature State;
    bool SignatureIsReliable;  // whether any later change of the file alters State
    RegistrySnapshot Content;
};
using StorePointer = std::shared_ptr<const LoadedStore>;

// The store that was read last, or null; guarded by the table lock. It is a plain pointer without a destructor, because
// callers read settings from the destructors of their static objects.
StorePointer* cachedStore = nullptr;

void ReleaseStore()
{
    const std::unique_ptr<StorePointer> released(std::exchange(cachedStore, nullptr));
}

constinit layer::LifecycleHooks hooks{.AfterForkInChild = nullptr, .AtThreadEnd = nullptr, .AtUnload = ReleaseStore};

const char* StorePath()
{
    const char* const path = layer::Environment("VELTRIX_REGISTRY");
    return path != nullptr && *path != '\0' ? path : DefaultPath;
}

/// Why the store cannot be read. Error is ERROR_SUCCESS if it can.
struct Failure {
    DWORD Error = ERROR_SUCCESS;
    std::string_view Reason;
    off_t Size = 0;  // of a file that is too large
};

/// Like ErrorFromErrno, but ENOTDIR also means that there is no store.
Failure FailureFromErrno(int error)
{
    return {error == ENOTDIR ? DWORD{ERROR_FILE_NOT_FOUND} : layer::ErrorFromErrno(error), strerrordesc_np(error)};
}

/// Whether the same file may be readable at the next attempt.
bool IsPassing(DWORD error)
{
    return error == ERROR_TOO_MANY_OPEN_FILES || error == ERROR_OUTOFMEMORY || error == ERROR_SHARING_VIOLATION;
}

/// Reads up to `size` bytes, fewer only at the end of the file. @return the count, or -1 with `errno`
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

/// Reads the whole file once. It fails with ERROR_SHARING_VIOLATION if the file changed meanwhile.
Failure ReadOnce(const char* path, FileContent& content)
{
    // Without O_NONBLOCK the opening of a pipe would block until it has a writer.
    const layer::Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file || fstat(file.get(), &content.Status) != 0)
        return FailureFromErrno(errno);
    if (!S_ISREG(content.Status.st_mode))
        return {ERROR_ACCESS_DENIED, "not a regular file"};
    if (content.Status.st_size > MaxFileBytes)
        return {ERROR_NOT_SUPPORTED, "too large", content.Status.st_size};
    content.Count = static_cast<std::size_t>(content.Status.st_size);
    content.Bytes = std::make_unique_for_overwrite<char[]>(content.Count);
    // A file that is overwritten in place, rather than replaced, can be read half old and half new. The status before
    // and after the reading shows that.
    const ssize_t count = ReadAll(file.get(), content.Bytes.get(), content.Count);
    struct stat after {};
    if (count < 0 || fstat(file.get(), &after) != 0)
        return FailureFromErrno(errno);
    if (!Signature(after).HasSameContentAs(Signature(content.Status)) ||
        static_cast<std::size_t>(count) != content.Count)
        return {ERROR_SHARING_VIOLATION, "it keeps changing"};
    return {};
}

/// Reads the whole file; tries again while a writer is changing it.
Failure ReadContent(const char* path, FileContent& content)
{
    Failure failure{ERROR_SHARING_VIOLATION, {}};
    for (int i = 0; i < MaxReadAttempts && failure.Error == ERROR_SHARING_VIOLATION; ++i)
        failure = ReadOnce(path, content);
    return failure;
}

/// Reports in debug output what is wrong with the file, each malformed line on a line.
void Report(const char* path, const layer::FileReport& report)
{
    const std::string start = std::string(path) + ": ";
    if (report.LacksHeader)
        layer::DebugLine(start + "the file has no header line; it is read all the same");
    for (const auto& [number, reason] : report.Dropped)
        layer::DebugLine(start + "line " + std::to_string(number) + " ignored: " + reason);
    if (report.DroppedCount > report.Dropped.size())
        layer::DebugLine(start + std::to_string(report.DroppedCount - report.Dropped.size()) + " more lines ignored");
}

// Identifies the failure that was reported last, by path and error; 0 if the store could be read since then. It keeps a
// program that reads settings all the time from reporting the same failure all the time.
std::atomic<std::size_t> reportedFailure{0};

/// Reports in debug output why the store cannot be read. @param kept whether the content read before stays in force
void ReportFailure(const char* path, const Failure& failure, bool kept)
{
    const std::size_t id = std::hash<std::string_view>()(path) ^ failure.Error ^ (kept ? 1U << 16 : 0U);
    if (reportedFailure.exchange(id, std::memory_order_relaxed) == id)
        return;
    try {
        std::string line = std::string(path) + ": cannot be read: " + std::string(failure.Reason);
        if (failure.Size != 0)
            line += ", " + std::to_string(failure.Size) + " bytes, the limit is " + std::to_string(MaxFileBytes);
        layer::DebugLine(kept ? line + "; the content read before stays in force" : line);
    } catch (const std::bad_alloc&) {
        reportedFailure.store(0, std::memory_order_relaxed);
    }
}

/// Reads the store from its file and replaces the cached one. Two threads may do so at the same time: the next opening
/// notices if the older state remains in the cache, because its signature differs from the file's.
Failure ReadStore(const char* path, StorePointer& store)
{
    // Taken before the file is read, so that a change that the reading misses gets a later time. The coarse clock is
    // the one from which file times are taken.
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    FileContent content;
    if (const Failure failure = ReadContent(path, content); failure.Error != ERROR_SUCCESS)
        return failure;
    layer::FileReport report;
    const Signature state(content.Status);
    const bool reliable = std::abs(Nanoseconds(now) - state.Changed) > ReliableSignatureAge;
    store = std::make_shared<const LoadedStore>(
        LoadedStore{path, state, reliable, layer::ReadRegistryFile({content.Bytes.get(), content.Count}, report)});
    Report(path, report);
    // Declared before the guard, so that the former store is destroyed after the lock is released.
    auto replacement = std::make_unique<StorePointer>(store);
    layer::RegisterHooks(hooks);
    const std::lock_guard<std::mutex> guard(layer::TableLock());
    StorePointer* const former = std::exchange(cachedStore, replacement.release());
    replacement.reset(former);
    return {};
}

/// Gets the cached store, whether it is current or not. @return null if none was read from this path
StorePointer CachedStore(const char* path)
{
    const std::lock_guard<std::mutex> guard(layer::TableLock());
    return cachedStore != nullptr && (*cachedStore)->Path == path ? *cachedStore : nullptr;
}

/// Gets the store in its current state, from the cache if the file has not changed.
Failure GetStore(const char* path, StorePointer& store)
{
    struct stat status {};
    if (stat(path, &status) != 0)
        return FailureFromErrno(errno);
    store = CachedStore(path);
    if (store && store->SignatureIsReliable && store->State == Signature(status))
        return {};
    try {
        return ReadStore(path, store);
    } catch (const std::bad_alloc&) {
        return FailureFromErrno(ENOMEM);
    }
}

/// Gets the store in its current state. If the file cannot be read for a passing reason, the content that was read last
/// stays in force: a setting such as the encryption must not fall back to its default because a process has no free
/// descriptor.
DWORD CurrentStore(StorePointer& store)
{
    const char* const path = StorePath();
    const Failure failure = GetStore(path, store);
    if (failure.Error == ERROR_SUCCESS) {
        if (reportedFailure.load(std::memory_order_relaxed) != 0)
            reportedFailure.store(0, std::memory_order_relaxed);
        return ERROR_SUCCESS;
    }
    store = IsPassing(failure.Error) ? CachedStore(path) : nullptr;
    ReportFailure(path, failure, store != nullptr);
    return store ? DWORD{ERROR_SUCCESS} : failure.Error;
}

/// The clock from which file times are taken, without the steps of the wall clock. It is read in a few nanoseconds.
std::int64_t CurrentTick()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return Nanoseconds(now);
}

/// The object of a key's handle.
class OpenKey final : public layer::Object {
public:
    /// @param tick when the check started that found `store` to be current
    OpenKey(StorePointer store, RegistrySnapshot::Key key, std::int64_t tick)
        : Object(Kind::key), Loaded(std::move(store)), Key(key), Tick(tick)
    {
    }

    const RegistrySnapshot& content() const { return Loaded->Content; }

    /// Whether Loaded needs no further check for this read: it is the first one, within the tick of the opening.
    /// Opening a key to read one value therefore costs one `stat`, not two.
    bool TakeOpeningCheck() const
    {
        return !CheckIsUsed.exchange(true, std::memory_order_relaxed) && Tick == CurrentTick();
    }

    const StorePointer Loaded;
    const RegistrySnapshot::Key Key;

private:
    const std::int64_t Tick;
    mutable std::atomic<bool> CheckIsUsed{false};
};

OpenKey* FindOpenKey(HKEY key)
{
    return static_cast<OpenKey*>(layer::FindObject(key, layer::Object::Kind::key));
}

TextView View(LPCWSTR text)
{
    return text == nullptr ? TextView() : TextView(text);
}

// The key that was found last. Most programs read the same few keys, and comparing a path takes a fifth of the time of
// hashing it. It is only a guess: the store may be another one now.
std::atomic<RegistrySnapshot::Key> lastKey{0};

/// Finds the key at `path` below `base` in the current store, also if `base` was opened in an earlier one.
DWORD FindKey(HKEY base, TextView path, StorePointer& store, RegistrySnapshot::Key& key)
{
    const auto hive = RegistrySnapshot::FindHive(base);
    const OpenKey* const parent = hive ? nullptr : FindOpenKey(base);
    if (!hive && parent == nullptr)
        return ERROR_INVALID_HANDLE;
    if (const DWORD error = CurrentStore(store); error != ERROR_SUCCESS)
        return error;
    if (path.starts_with(WCHAR{'\\'}))
        return ERROR_BAD_PATHNAME;
    const auto start = hive ? store->Content.PathOf(*hive) : parent->content().PathOf(parent->Key);
    key = lastKey.load(std::memory_order_relaxed);
    if (store->Content.IsKeyAt(key, start, path))
        return ERROR_SUCCESS;
    Text storage;
    const auto found = store->Content.FindKey(start, layer::NormalizePath(path, storage));
    if (!found)
        return store->Content.FindKey(start, {}) ? ERROR_FILE_NOT_FOUND : ERROR_KEY_DELETED;
    key = *found;
    lastKey.store(key, std::memory_order_relaxed);
    return ERROR_SUCCESS;
}

DWORD Open(HKEY base, TextView path, HKEY& opened)
{
    StorePointer store;
    RegistrySnapshot::Key key{};
    const std::int64_t tick = CurrentTick();
    if (const DWORD error = FindKey(base, path, store, key); error != ERROR_SUCCESS)
        return error;
    // As in Win32, opening a predefined key without a path returns the same handle.
    if (path.empty() && RegistrySnapshot::FindHive(base)) {
        opened = base;
        return ERROR_SUCCESS;
    }
    const HANDLE handle = layer::OpenHandle(new OpenKey(std::move(store), key, tick));
    if (handle == nullptr)
        return ERROR_OUTOFMEMORY;
    opened = static_cast<HKEY>(handle);
    return ERROR_SUCCESS;
}

/// Implements RegQueryValueExW. Without a buffer it returns the type and the size, which is 0 for a missing value; if
/// the buffer is too small, it fails with ERROR_MORE_DATA and returns the size.
DWORD Query(const RegistrySnapshot& content, RegistrySnapshot::Key key, LPCWSTR name, DWORD* type, BYTE* data,
            DWORD* bytes)
{
    if (data != nullptr && bytes == nullptr)
        return ERROR_INVALID_PARAMETER;
    const auto value = content.FindValue(key, View(name));
    if (!value) {
        if (data == nullptr && bytes != nullptr)
            *bytes = 0;
        return ERROR_FILE_NOT_FOUND;
    }
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

DWORD QueryOpenKey(const OpenKey& opened, LPCWSTR name, DWORD* type, BYTE* data, DWORD* bytes)
{
    if (opened.TakeOpeningCheck())
        return Query(opened.content(), opened.Key, name, type, data, bytes);
    StorePointer store;
    if (const DWORD error = CurrentStore(store); error != ERROR_SUCCESS)
        return error;
    if (store == opened.Loaded)
        return Query(opened.content(), opened.Key, name, type, data, bytes);
    const auto key = store->Content.FindKey(opened.content().PathOf(opened.Key), {});
    return key ? Query(store->Content, *key, name, type, data, bytes) : ERROR_KEY_DELETED;
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

/// Calls `work`. @return its result, or ERROR_OUTOFMEMORY if memory is exhausted
template <class Work>
DWORD CatchOutOfMemory(Work work) noexcept
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

// Any requested access is granted: the store is read only, and the permissions of its file protect it.
LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR path, DWORD, DWORD, HKEY* opened)
{
    if (opened == nullptr)
        return LSTATUS{ERROR_INVALID_PARAMETER};
    *opened = nullptr;
    return static_cast<LSTATUS>(CatchOutOfMemory([&] { return Open(key, View(path), *opened); }));
}

// The published signature: the reserved pointer is not const.
// NOLINTNEXTLINE(readability-non-const-parameter)
LSTATUS RegQueryValueExW(HKEY key, LPCWSTR name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* bytes)
{
    if (reserved != nullptr)
        return LSTATUS{ERROR_INVALID_PARAMETER};
    if (RegistrySnapshot::FindHive(key))
        return static_cast<LSTATUS>(CatchOutOfMemory([&] { return QueryHive(key, name, type, data, bytes); }));
    const OpenKey* const opened = FindOpenKey(key);
    if (opened == nullptr)
        return LSTATUS{ERROR_INVALID_HANDLE};
    return static_cast<LSTATUS>(CatchOutOfMemory([&] { return QueryOpenKey(*opened, name, type, data, bytes); }));
}

LSTATUS RegCloseKey(HKEY key)
{
    if (RegistrySnapshot::FindHive(key) || layer::CloseHandleOfKind(key, layer::Object::Kind::key))
        return LSTATUS{ERROR_SUCCESS};
    return LSTATUS{ERROR_INVALID_HANDLE};
}
