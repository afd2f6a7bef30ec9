// Handles: the table of open ones, and the objects that they refer to.
#pragma once

#include "base/last_error.h"

#include <atomic>
#include <mutex>

namespace layer {

/// Guards the tables of the layer: handles, named mutexes, the registry snapshot. It is held for a few instructions
/// only, never across a system call that can wait. A forking thread holds it across `fork`, so that the child inherits
/// complete tables and a free lock.
std::mutex& TableLock();

/// What a handle refers to. Lives until its last reference is released.
class Object {
public:
    enum class Kind : unsigned char { file, search, mutex, key, snapshot };

    explicit Object(Kind kind) : Type(kind) {}
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    Kind kind() const { return Type; }

    /// Whether CloseHandle closes a handle of this object. Searches and keys have calls of their own for that.
    bool IsClosedByCloseHandle() const { return Type != Kind::search && Type != Kind::key; }

    /// Releases the reference of a handle that was just closed. A family whose release must exclude its openers
    /// overrides it.
    virtual void Close();

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

/// A handle for `object`. Takes over the caller's reference, also where it fails: then it releases the reference and
/// returns null with ERROR_OUTOFMEMORY.
HANDLE OpenHandle(Object* object);

/// The object of an open handle of this kind, or null with ERROR_INVALID_HANDLE. The handle keeps it alive: as on the
/// platform, a handle must not be closed while another thread is in a call with it.
Object* FindObject(HANDLE handle, Object::Kind kind);

/// Closes a handle of this kind. @return false with ERROR_INVALID_HANDLE if it is not open.
bool CloseHandleOfKind(HANDLE handle, Object::Kind kind);

/// Releases the objects of all handles, at unload.
void CloseAllHandles();

}  // namespace layer
