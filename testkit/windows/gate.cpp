// Gates on Windows: named semaphores.
#include "testkit/gate.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include <windows.h>

namespace testkit {

Gate::Gate(const std::filesystem::path& path)
{
    std::wstring name = path.wstring();
    std::replace(name.begin(), name.end(), L'\\', L'/');
    Handle = reinterpret_cast<std::intptr_t>(CreateSemaphoreW(nullptr, 0, 1000, name.c_str()));
    if (Handle == 0)
        std::abort();
}

Gate::~Gate()
{
    CloseHandle(reinterpret_cast<HANDLE>(Handle));
}

void Gate::Open() const
{
    if (!ReleaseSemaphore(reinterpret_cast<HANDLE>(Handle), 1, nullptr))
        std::abort();
}

void Gate::Pass() const
{
    if (WaitForSingleObject(reinterpret_cast<HANDLE>(Handle), INFINITE) != WAIT_OBJECT_0)
        std::abort();
}

}  // namespace testkit
