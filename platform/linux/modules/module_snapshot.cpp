// Lists of the process's modules, each taken in one moment: a walk is not disturbed by what is loaded meanwhile.
#include "base/handle.h"
#include "modules/modules.h"
#include "text/utf8.h"

#include <algorithm>
#include <new>

namespace {

using layer::Fail;
using layer::LoadedModule;

class Snapshot final : public layer::Object {
public:
    explicit Snapshot(std::vector<LoadedModule> modules) : Object(Kind::snapshot), Modules(std::move(modules)) {}

    const LoadedModule* First()
    {
        At = 0;
        return Next();
    }
    const LoadedModule* Next()
    {
        const std::size_t at = At.fetch_add(1, std::memory_order_relaxed);
        return at < Modules.size() ? &Modules[at] : nullptr;
    }

private:
    const std::vector<LoadedModule> Modules;
    std::atomic<std::size_t> At{0};
};

/// As much of a text as fits with its terminator, and no half of a pair.
template <std::size_t Size>
void Put(const std::string& narrow, WCHAR (&field)[Size])
{
    const layer::Text text = layer::FromUtf8(narrow);
    std::size_t units = std::min(text.size(), Size - 1);
    if (units < text.size() && layer::IsLowSurrogate(text[units]))
        --units;
    std::fill(std::copy_n(text.data(), units, field), std::end(field), WCHAR{0});
}

BOOL Deliver(const LoadedModule* module, MODULEENTRY32W* entry)
try {
    constexpr DWORD unknownCount = 0xFFFF;
    if (module == nullptr)
        return Fail(ERROR_NO_MORE_FILES, FALSE);
    entry->th32ModuleID = 1;
    entry->th32ProcessID = GetCurrentProcessId();
    entry->GlblcntUsage = unknownCount;
    entry->ProccntUsage = unknownCount;
    entry->modBaseAddr = reinterpret_cast<BYTE*>(module->Handle);
    entry->modBaseSize = static_cast<DWORD>(std::min<std::size_t>(module->Bytes, 0xFFFFFFFF));
    entry->hModule = module->Handle;
    Put(module->Path.substr(module->Path.rfind('/') + 1), entry->szModule);
    Put(module->Path, entry->szExePath);
    return TRUE;
} catch (const std::bad_alloc&) {
    return Fail(ERROR_OUTOFMEMORY, FALSE);
}

BOOL Walk(HANDLE handle, MODULEENTRY32W* entry, const LoadedModule* (Snapshot::*step)())
{
    if (entry == nullptr || entry->dwSize < sizeof *entry)
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    auto* const snapshot = static_cast<Snapshot*>(layer::FindObject(handle, layer::Object::Kind::snapshot));
    return snapshot == nullptr ? FALSE : Deliver((snapshot->*step)(), entry);
}

}  // namespace

HANDLE CreateToolhelp32Snapshot(DWORD flags, DWORD process)
try {
    if ((flags & ~TH32CS_SNAPMODULE32) != TH32CS_SNAPMODULE)
        return Fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    if (process != 0 && process != GetCurrentProcessId())
        return Fail(ERROR_NOT_SUPPORTED, INVALID_HANDLE_VALUE);
    const HANDLE handle = layer::OpenHandle(new Snapshot(layer::LoadedModules()));
    return handle != nullptr ? handle : INVALID_HANDLE_VALUE;
} catch (const std::bad_alloc&) {
    return Fail(ERROR_OUTOFMEMORY, INVALID_HANDLE_VALUE);
}

BOOL Module32FirstW(HANDLE snapshot, MODULEENTRY32W* entry)
{
    return Walk(snapshot, entry, &Snapshot::First);
}

BOOL Module32NextW(HANDLE snapshot, MODULEENTRY32W* entry)
{
    return Walk(snapshot, entry, &Snapshot::Next);
}
