// Handles and the reference-counted objects that they refer to.
#pragma once

#include "base/last_error.h"

#include <atomic>
#include <mutex>

namespace layer {

/// The lock of the layer's tables: handles, named mutexes, the registry snapshot. It is held for a few instructions
/// only, never during a system call that can block. A forking thread holds it across `fork`, so that the child inherits
/// consistent tables and can release the lock.
std::mutex& TableLock();

/// The object that a handle refers to. It is deleted with its last reference; the constructor makes the first one.
class Object {
public:
    enum class Kind : unsigned char { file, mutex, key, snapshot };

    explicit Object(Kind kind) : Type(kind) {}
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    Kind kind() const { return Type; }

    /// Whether CloseHandle accepts a handle of this object. A key has its own closing function.
    bool IsClosedByCloseHandle() const { return Type != Kind::key; }

    /// Releases the reference of a handle that was just closed. A family overrides this if it must do so under the
    /// lock under which it opens objects.
    virtual void Close();

protected:
    virtual ~Object() = default;

private:
    friend void Release(Object* object);
    friend void AddReference(Object* object);

    const Kind Type;
    std::atomic<int> References{1};
};

/// Adds a reference. The caller already owns one.
void AddReference(Object* object);
/// Gives up a reference and deletes the object if it was the last.
void Release(Object* object);

/// Makes a handle for `object` and takes over the caller's reference. A call that fails releases the reference.
/// @return null with ERROR_OUTOFMEMORY if memory is exhausted or the table is full
HANDLE OpenHandle(Object* object);

/// Finds the object of a handle. The object lives as long as the handle is open: as in Win32, a thread must not close a
/// handle while another thread is in a call with it.
/// @return null with ERROR_INVALID_HANDLE if the handle is not open or of another kind
Object* FindObject(HANDLE handle, Object::Kind kind);

/// Closes a handle. @return false with ERROR_INVALID_HANDLE if the handle is not open or of another kind
bool CloseHandleOfKind(HANDLE handle, Object::Kind kind);

/// Releases the objects of all open handles and frees the table. Called once, when the library is unloaded.
void CloseAllHandles();

}  // namespace layer
