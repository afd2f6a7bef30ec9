// The single owner of a platform handle.
#pragma once

#include "system.h"

#include <utility>

/// Closes its handle with CloseHandle. Null and INVALID_HANDLE_VALUE, the two failure results of the platform's calls,
/// count as no handle.
class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(HANDLE handle) noexcept : Handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : Handle(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept
    {
        UniqueHandle(std::move(other)).swap(*this);
        return *this;
    }
    ~UniqueHandle()
    {
        if (Handle == nullptr)
            return;
        // A handle is often closed before the code of an earlier failure is read.
        const DWORD error = GetLastError();
        CloseHandle(Handle);
        SetLastError(error);
    }

    explicit operator bool() const { return Handle != nullptr; }
    HANDLE get() const { return Handle; }

    /// Gives the handle to the caller, who closes it.
    HANDLE release() noexcept { return std::exchange(Handle, nullptr); }

    void swap(UniqueHandle& other) noexcept { std::swap(Handle, other.Handle); }

private:
    HANDLE Handle = nullptr;
};
