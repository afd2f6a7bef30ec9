// What the families of the Linux layer share: last error, handles, the one table lock.
#pragma once

#include "system.h"

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

namespace layer {

/// Text inside the layer.
using Text = std::basic_string<WCHAR>;
using TextView = std::basic_string_view<WCHAR>;

/// The system error that stands for an `errno` value.
DWORD ErrorFromErrno(int error);

/// Sets the last error and gives the failure result of the caller's own kind.
template <class Result>
Result Fail(DWORD error, Result result)
{
    SetLastError(error);
    return result;
}

/// Guards the tables of the layer: handles, named mutexes, the registry snapshot. Held for a few
/// instructions only, never across a system call that can wait, and by the forking thread across `fork`,
/// so that the child finds whole tables and a free lock.
std::mutex& TableLock();

/// An environment variable of the layer, or null; a set-user-id process sees none.
const char* Environment(const char* name);

/// Writes one line of the layer's own to the debug output, "tessmarU: " in front of it.
void DebugLine(const std::string& line) noexcept;

/// What a handle stands for. Lives until its last reference is released.
class Object {
public:
    enum class Kind : unsigned char { file, search, mutex, key, snapshot };

    explicit Object(Kind kind) : Type(kind) {}
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    Kind kind() const { return Type; }

protected:
    virtual ~Object() = default;

private:
    friend void Release(Object* object);
    friend void AddReference(Object* object);

    const Kind Type;
    std::atomic<int> References{1};
};

void AddReference(Object* object);
void Release(Object* object);

/// A handle for `object`, whose reference it takes over, also where it fails: null with ERROR_OUTOFMEMORY.
HANDLE OpenHandle(Object* object);

/// The object of an open handle of this kind, or null with ERROR_INVALID_HANDLE. The handle keeps it
/// alive: as on the platform, nobody may close a handle while another thread is in a call with it.
Object* FindObject(HANDLE handle, Object::Kind kind);

/// Closes a handle of this kind. False with ERROR_INVALID_HANDLE for one that is not open.
bool ShutHandle(HANDLE handle, Object::Kind kind);

}  // namespace layer
