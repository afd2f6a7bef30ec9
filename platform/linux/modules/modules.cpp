// Finds and lists modules with dl_iterate_phdr.
//
// That call holds the dynamic linker's lock, so its callbacks neither throw nor load modules, and paths that have to be
// read from files are determined after it.
#include "modules/modules.h"

#include "base/last_error.h"
#include "text/utf8.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <new>
#include <unistd.h>

namespace {

using layer::ModuleExtent;

/// The size of a module as the kernel maps it, in whole pages.
std::size_t BytesOfPages(const ModuleExtent& extent)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return (extent.End - extent.Start + page - 1) / page * page;
}

/// The first module for which `matches` returns true, or null. The program itself comes first.
/// @param matches  called with the linker's entry and the extent of each module; must not throw
template <class Matches>
HINSTANCE FindModule(Matches matches)
{
    struct Query {
        Matches& Accepts;
        HINSTANCE Found;
    } query{matches, nullptr};
    dl_iterate_phdr(
        [](dl_phdr_info* module, std::size_t, void* data) {
            auto& request = *static_cast<Query*>(data);
            const ModuleExtent extent = layer::ExtentOf(*module);
            if (extent.End == 0 || !request.Accepts(*module, extent))
                return 0;
            request.Found = extent.Handle();
            return 1;
        },
        &query);
    return query.Found;
}

/// Compares a module's path with the name that a caller gave: its last component if the name has no slash.
bool MatchesName(std::string_view path, std::string_view name)
{
    if (name.find('/') == std::string_view::npos)
        path.remove_prefix(std::min(path.size(), path.rfind('/') + 1));
    return !path.empty() && path == name;
}

/// A path from /proc without the mark that the kernel appends if the file was deleted. A file whose real name ends like
/// the mark exists under that name.
std::string WithoutDeletedMark(std::string_view path)
{
    constexpr std::string_view mark = " (deleted)";
    if (path.ends_with(mark) && access(std::string(path).c_str(), F_OK) != 0)
        path.remove_suffix(mark.size());
    return std::string(path);
}

/// The path of the program, for which the dynamic linker has no name.
std::string ProgramPath()
{
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    return WithoutDeletedMark({path, length > 0 ? static_cast<std::size_t>(length) : 0});
}

/// Reads a line of any length, without its line end. @return false at the end of the file
bool ReadLine(std::FILE* file, std::string& line)
{
    char part[256];
    line.clear();
    while (std::fgets(part, sizeof part, file) != nullptr) {
        line += part;
        if (line.ends_with('\n')) {
            line.pop_back();
            return true;
        }
    }
    return !line.empty();
}

/// The file that is mapped at an address, from /proc/self/maps, whose lines are `start-end mode offset device inode
/// path`. Empty if no file is mapped there.
std::string FileMappedAt(std::uintptr_t address)
{
    // "e" closes the descriptor on `exec`, which a stream of the standard library cannot.
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> maps(std::fopen("/proc/self/maps", "re"), std::fclose);
    std::string line;
    while (maps && ReadLine(maps.get(), line)) {
        std::uintptr_t start = 0;
        std::uintptr_t end = 0;
        const char* const lineEnd = line.data() + line.size();
        const char* const dash = std::from_chars(line.data(), lineEnd, start, 16).ptr;
        if (dash != lineEnd)
            std::from_chars(dash + 1, lineEnd, end, 16);
        if (start <= address && address < end) {
            const std::size_t path = line.find('/');
            return path == std::string::npos ? std::string() : WithoutDeletedMark(line.c_str() + path);
        }
    }
    return {};
}

/// Finds a module by its file name or its path. Case counts and no extension is appended, as file names on Linux
/// require.
/// @throws std::bad_alloc
HINSTANCE FindModuleByName(LPCWSTR name)
{
    std::string narrow = layer::ToUtf8(name);
    std::replace(narrow.begin(), narrow.end(), '\\', '/');
    const std::string program = ProgramPath();
    return FindModule([&](const dl_phdr_info& module, ModuleExtent) {
        const bool isProgram = module.dlpi_name == nullptr || *module.dlpi_name == '\0';
        return MatchesName(isProgram ? std::string_view(program) : std::string_view(module.dlpi_name), narrow);
    });
}

/// The path of a module.
/// @param name  the name under which the dynamic linker lists it; empty for the program
std::string PathOf(std::string name, HINSTANCE module)
{
    if (name.empty())
        return ProgramPath();
    // A relative path was relative to the folder in which the process was at the time of loading, which is not known
    // any more. The kernel knows the whole path.
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
        name = listed.dlpi_name;  // valid as long as the module is loaded, which is the caller's concern
        return module == nullptr || extent.Handle() == module;
    });
    return found == nullptr ? std::string() : PathOf(name == nullptr ? "" : name, found);
}

std::vector<layer::LoadedModule> layer::LoadedModules()
{
    struct ModuleList {
        std::vector<LoadedModule> Modules;
        bool OutOfMemory;
    } list{{}, false};
    dl_iterate_phdr(
        [](dl_phdr_info* listed, std::size_t, void* data) {
            auto& collected = *static_cast<ModuleList*>(data);
            const ModuleExtent extent = ExtentOf(*listed);
            if (extent.End == 0)
                return 0;
            try {  // an exception that passed through the dynamic linker would leave its lock locked
                collected.Modules.push_back(
                    {extent.Handle(), BytesOfPages(extent), listed->dlpi_name == nullptr ? "" : listed->dlpi_name});
            } catch (const std::bad_alloc&) {
                collected.OutOfMemory = true;
            }
            return collected.OutOfMemory ? 1 : 0;
        },
        &list);
    if (list.OutOfMemory)
        throw std::bad_alloc();
    for (LoadedModule& module : list.Modules)
        module.Path = PathOf(std::move(module.Path), module.Handle);
    return std::move(list.Modules);
}

HMODULE GetModuleHandleW(LPCWSTR name)
{
    if (name == nullptr)
        return FindModule([](const dl_phdr_info&, ModuleExtent) { return true; });
    try {
        const HINSTANCE module = FindModuleByName(name);
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
    // A path that is cut still has its terminator; the result is then the whole size.
    return units == path.size() ? static_cast<DWORD>(units) : layer::Fail(ERROR_INSUFFICIENT_BUFFER, size);
} catch (const std::bad_alloc&) {
    return layer::Fail(ERROR_OUTOFMEMORY, DWORD{0});
}
