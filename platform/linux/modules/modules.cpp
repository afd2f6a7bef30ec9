// Modules are the loaded ELF objects, as the dynamic linker lists them. A module's handle is the address of
// its ELF header, where its lowest segment starts.
#include "modules/modules.h"

#include "base/last_error.h"
#include "text/utf8.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <new>
#include <unistd.h>

namespace {

using layer::ModuleExtent;

std::size_t PagesOf(const ModuleExtent& extent)
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
        HINSTANCE Found;
    } query{matches, nullptr};
    dl_iterate_phdr(
        [](dl_phdr_info* module, std::size_t, void* data) {
            auto& asked = *static_cast<Query*>(data);
            const ModuleExtent extent = layer::ExtentOf(*module);
            if (extent.End == 0 || !asked.Accepts(*module, extent))
                return 0;
            asked.Found = extent.Handle();
            return 1;
        },
        &query);
    return query.Found;
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
    std::string narrow = layer::ToUtf8(name);
    std::replace(narrow.begin(), narrow.end(), '\\', '/');
    const std::string program = ProgramPath();
    return FindModule([&](const dl_phdr_info& module, ModuleExtent) {
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

layer::ModuleExtent layer::ExtentOf(const dl_phdr_info& module)
{
    ModuleExtent extent{~std::uintptr_t{0}, 0};
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

HINSTANCE layer::ModuleOf(const void* address)
{
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    return FindModule([wanted](const dl_phdr_info&, ModuleExtent extent) { return extent.Contains(wanted); });
}

std::string layer::ModulePath(HINSTANCE module)
{
    const char* name = nullptr;
    const HINSTANCE found = FindModule([&](const dl_phdr_info& listed, ModuleExtent extent) {
        name = listed.dlpi_name;
        return module == nullptr || extent.Handle() == module;
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
            const ModuleExtent extent = ExtentOf(*listed);
            if (extent.End == 0)
                return 0;
            try {  // an exception must not pass through the dynamic linker, which holds its lock
                all.Modules.push_back(
                    {extent.Handle(), PagesOf(extent), listed->dlpi_name == nullptr ? "" : listed->dlpi_name});
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
        return FindModule([](const dl_phdr_info&, ModuleExtent) { return true; });
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
    const layer::Text path = layer::FromUtf8(narrow);
    const std::size_t units = std::min<std::size_t>(path.size(), size - 1);
    std::copy_n(path.data(), units, buffer);
    buffer[units] = 0;
    return units == path.size() ? static_cast<DWORD>(units) : layer::Fail(ERROR_INSUFFICIENT_BUFFER, size);
} catch (const std::bad_alloc&) {
    return layer::Fail(ERROR_OUTOFMEMORY, DWORD{0});
}
