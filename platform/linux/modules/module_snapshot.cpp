// Snapshots of the process's modules: modules that are loaded or unloaded during a walk do not disturb it.
#include "base/handle.h"
#include "modules/modules.h"
#include "text/utf8.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <new>
#include <utility>
#include <vector>

namespace {

using layer::Fail;
using layer::LoadedModule;

/// A list of modules and the position of the walk through it. Threads that share a handle share the walk, so the
/// position is atomic.
class Snapshot final : public layer::Object {
public:
    explicit Snapshot(std::vector<LoadedModule> modules) : Object(Kind::snapshot), Modules(std::move(modules)) {}

    /// Starts the walk again. @return the first module, or null
    const LoadedModule* First()
    {
        Position = 0;
        return Next();
    }
    /// @return the next module, or null after the last one
    const LoadedModule* Next()
    {
        const std::size_t position = Position.fetch_add(1, std::memory_order_relaxed);
        return position < Modules.size() ? &Modules[position] : nullptr;
    }

private:
    const std::vector<LoadedModule> Modules;
    std::atomic<std::size_t> Position{0};
};

/// Copies as much of a text as fits together with a terminator. A surrogate pair is not cut in half.
template <std::size_t Size>
void CopyToField(const std::string& narrow, WCHAR (&field)[Size])
{
    const layer::Text text = layer::FromUtf8(narrow);
    std::size_t units = std::min(text.size(), Size - 1);
    if (units < text.size() && layer::IsLowSurrogate(text[units]))
        --units;
    std::fill(std::copy_n(text.data(), units, field), std::end(field), WCHAR{0});
}

/// Fills an entry for a module.
/// @param module  null after the last one
/// @return FALSE with ERROR_NO_MORE_FILES or ERROR_OUTOFMEMORY
BOOL FillEntry(const LoadedModule* module, MODULEENTRY32W* entry)
try {
    constexpr DWORD unknownCount = 0xFFFF;  // the published value of a count that has no meaning
    if (module == nullptr)
        return Fail(ERROR_NO_MORE_FILES, FALSE);
    entry->th32ModuleID = 1;  // published as always 1
    entry->th32ProcessID = GetCurrentProcessId();
    entry->GlblcntUsage = unknownCount;
    entry->ProccntUsage = unknownCount;
    entry->modBaseAddr = reinterpret_cast<BYTE*>(module->Handle);
    entry->modBaseSize = static_cast<DWORD>(std::min<std::size_t>(module->Bytes, 0xFFFFFFFF));
    entry->hModule = module->Handle;
    CopyToField(module->Path.substr(module->Path.rfind('/') + 1), entry->szModule);
    CopyToField(module->Path, entry->szExePath);
    return TRUE;
} catch (const std::bad_alloc&) {
    return Fail(ERROR_OUTOFMEMORY, FALSE);
}

/// @param step  Snapshot::First or Snapshot::Next
BOOL FillFromSnapshot(HANDLE handle, MODULEENTRY32W* entry, const LoadedModule* (Snapshot::*step)())
{
    if (entry == nullptr || entry->dwSize < sizeof *entry)
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    auto* const snapshot = static_cast<Snapshot*>(layer::FindObject(handle, layer::Object::Kind::snapshot));
    return snapshot == nullptr ? FALSE : FillEntry((snapshot->*step)(), entry);
}

}  // namespace

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD process)
try {
    if ((flags & ~TH32CS_SNAPMODULE32) != TH32CS_SNAPMODULE)
        return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    // The dynamic linker lists the modules of this process only.
    if (process != 0 && process != GetCurrentProcessId())
        return Fail(ERROR_NOT_SUPPORTED, INVALID_HANDLE_VALUE);
    const HANDLE handle = layer::OpenHandle(new Snapshot(layer::LoadedModules()));
    return handle != nullptr ? handle : INVALID_HANDLE_VALUE;
} catch (const std::bad_alloc&) {
    return Fail(ERROR_OUTOFMEMORY, INVALID_HANDLE_VALUE);
}

BOOL Module32FirstW(HANDLE snapshot, MODULEENTRY32W* entry)
{
    return FillFromSnapshot(snapshot, entry, &Snapshot::First);
}

BOOL Module32NextW(HANDLE snapshot, MODULEENTRY32W* entry)
{
    return FillFromSnapshot(snapshot, entry, &Snapshot::Next);
}
