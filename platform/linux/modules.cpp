// Modules are the loaded ELF objects, as the dynamic linker lists them. A module's handle is the address of
// its ELF header, where its lowest segment starts.
#include "modules.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <link.h>
#include <new>
#include <unistd.h>

namespace {

struct Extent {
    std::uintptr_t Start;
    std::uintptr_t End;
};

Extent ExtentOf(const dl_phdr_info& module)
{
    Extent extent{~std::uintptr_t{0}, 0};
    for (std::size_t i = 0; i < module.dlpi_phnum; ++i) {
        const auto& segment = module.dlpi_phdr[i];
        if (segment.p_type != PT_LOAD)
            continue;
        const std::uintptr_t start = module.dlpi_addr + segment.p_vaddr;
        extent.Start = std::min(extent.Start, start);
        extent.End = std::max(extent.End, start + segment.p_memsz);
    }
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    extent.Start -= extent.Start % page;
    return extent;
}

std::size_t PagesOf(const Extent& extent)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return (extent.End - extent.Start + page - 1) / page * page;
}

/// The first module that `matches`, or null. The program itself comes first.
template <class Matches>
HINSTANCE FindModule(Matches matches)
{
    struct Query {
        Matches& Accepts;
        std::uintptr_t Found;
    } query{matches, 0};
    dl_iterate_phdr(
        [](dl_phdr_info* module, std::size_t, void* data) {
            auto& asked = *static_cast<Query*>(data);
            const Extent extent = ExtentOf(*module);
            if (extent.End == 0 || !asked.Accepts(*module, extent))
                return 0;
            asked.Found = extent.Start;
            return 1;
        },
        &query);
    return reinterpret_cast<HINSTANCE>(query.Found);
}

bool IsCalled(std::string_view path, std::string_view name)
{
    if (name.find('/') == std::string_view::npos)
        path.remove_prefix(std::min(path.size(), path.rfind('/') + 1));
    return !path.empty() && path == name;
}

/// A path as the kernel tells it, without the mark of a file that is gone.
std::string Unmarked(std::string_view path)
{
    constexpr std::string_view gone = " (deleted)";
    if (path.ends_with(gone) && access(std::string(path).c_str(), F_OK) != 0)
        path.remove_suffix(gone.size());
    return std::string(path);
}

std::string ProgramPath()
{
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return Unmarked({path, length > 0 ? static_cast<std::size_t>(length) : 0});
}

/// The file that is mapped at an address, as the kernel has it; empty if there is none.
std::string FileMappedAt(std::uintptr_t address)
{
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        std::uintptr_t start = 0;
        std::uintptr_t end = 0;
        const char* const lineEnd = line.data() + line.size();
        const char* const dash = std::from_chars(line.data(), lineEnd, start, 16).ptr;
        if (dash != lineEnd)
            std::from_chars(dash + 1, lineEnd, end, 16);
        if (start <= address && address < end) {
            const std::size_t path = line.find('/');
            return path == std::string::npos ? std::string() : Unmarked(line.c_str() + path);
        }
    }
    return {};
}

HINSTANCE FindModuleCalled(LPCWSTR name)
{
    const int room = WideCharToMultiByte(CP_UTF8, 0, name, -1, nullptr, 0, nullptr, nullptr);
    if (room <= 0)
        return nullptr;
    std::string narrow(static_cast<std::size_t>(room), '\0');
    WideCharToMultiByte(CP_UTF8, 0, name, -1, narrow.data(), room, nullptr, nullptr);
    narrow.pop_back();
    std::replace(narrow.begin(), narrow.end(), '\\', '/');
    const std::string program = ProgramPath();
    return FindModule([&](const dl_phdr_info& module, Extent) {
        const bool isProgram = module.dlpi_name == nullptr || *module.dlpi_name == '\0';
        return IsCalled(isProgram ? std::string_view(program) : std::string_view(module.dlpi_name), narrow);
    });
}

/// The path of a module that the linker lists by this name.
std::string PathOf(std::string name, HINSTANCE module)
{
    if (name.empty())
        return ProgramPath();
    // A module that was loaded by a relative path is where the process was then.
    std::string mapped = name[0] == '/' ? std::string() : FileMappedAt(reinterpret_cast<std::uintptr_t>(module));
    return mapped.empty() ? name : mapped;
}

}  // namespace

HINSTANCE layer::ModuleOf(const void* address)
{
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    return FindModule(
        [wanted](const dl_phdr_info&, Extent extent) { return wanted >= extent.Start && wanted < extent.End; });
}

std::string layer::ModulePath(HINSTANCE module)
{
    const char* name = nullptr;
    const HINSTANCE found = FindModule([&](const dl_phdr_info& listed, Extent extent) {
        name = listed.dlpi_name;
        return module == nullptr || extent.Start == reinterpret_cast<std::uintptr_t>(module);
    });
    return found == nullptr ? std::string() : PathOf(name == nullptr ? "" : name, found);
}

std::vector<layer::LoadedModule> layer::LoadedModules()
{
    struct Listing {
        std::vector<LoadedModule> Modules;
        bool OutOfMemory;
    } listing{{}, false};
    dl_iterate_phdr(
        [](dl_phdr_info* listed, std::size_t, void* data) {
            auto& all = *static_cast<Listing*>(data);
            const Extent extent = ExtentOf(*listed);
            if (extent.End == 0)
                return 0;
            try {  // nothing may be thrown through the linker, which holds its lock
                all.Modules.push_back({reinterpret_cast<HINSTANCE>(extent.Start), PagesOf(extent),
                                       listed->dlpi_name == nullptr ? "" : listed->dlpi_name});
            } catch (const std::bad_alloc&) {
                all.OutOfMemory = true;
            }
            return all.OutOfMemory ? 1 : 0;
        },
        &listing);
    if (listing.OutOfMemory)
        throw std::bad_alloc();
    for (LoadedModule& module : listing.Modules)
        module.Path = PathOf(std::move(module.Path), module.Handle);
    return std::move(listing.Modules);
}

HMODULE GetModuleHandleW(LPCWSTR name)
{
    if (name == nullptr)
        return FindModule([](const dl_phdr_info&, Extent) { return true; });
    try {
        const HINSTANCE module = FindModuleCalled(name);
        return module != nullptr ? module : layer::Fail(ERROR_MOD_NOT_FOUND, module);
    } catch (const std::bad_alloc&) {
        return layer::Fail(ERROR_OUTOFMEMORY, HMODULE{nullptr});
    }
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size)
try {
    if (buffer == nullptr || size == 0)
        return layer::Fail(ERROR_INSUFFICIENT_BUFFER, DWORD{0});
    const std::string narrow = layer::ModulePath(module);
    if (narrow.empty())
        return layer::Fail(ERROR_MOD_NOT_FOUND, DWORD{0});
    layer::Text path(narrow.size(), WCHAR{0});
    const int bytes = static_cast<int>(narrow.size());
    path.resize(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, narrow.data(), bytes, path.data(), bytes)));
    const std::size_t units = std::min<std::size_t>(path.size(), size - 1);
    std::copy_n(path.data(), units, buffer);
    buffer[units] = 0;
    return units == path.size() ? static_cast<DWORD>(units) : layer::Fail(ERROR_INSUFFICIENT_BUFFER, size);
} catch (const std::bad_alloc&) {
    return layer::Fail(ERROR_OUTOFMEMORY, DWORD{0});
}
