// What the tests share: scratch folders, environment variables, a settings store, text.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace support {

/// ASCII as the library's text.
inline utility::wstring Wide(std::string_view text)
{
    return {text.begin(), text.end()};
}

/// The library's text as ASCII; other units show as '?'.
inline std::string Narrow(std::basic_string_view<unsigned short> text)
{
    std::string narrow;
    for (unsigned short unit : text)
        narrow += unit < 0x80 ? static_cast<char>(unit) : '?';
    return narrow;
}

/// Whether a test started this process by running the program anew. (A forked process has not been.)
bool StartedAnew();

/// A folder of this test alone, gone with it. In a process that a test has started it is that test's.
class ScratchFolder {
public:
    ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder();

    const std::filesystem::path& path() const { return Path; }
    std::string operator/(std::string_view name) const { return (Path / name).string(); }

    /// Whether it was there before, made by the test that started this process.
    bool IsJoined() const { return Joined; }

private:
    std::filesystem::path Path;
    bool Joined;
};

/// Sets an environment variable, or removes it for nullopt.
void SetVariable(const char* name, const std::optional<std::string>& value);

/// Sets an environment variable, or removes it for nullopt, and restores it.
class Variable {
public:
    Variable(const char* name, const std::optional<std::string>& value) : Name(name)
    {
        if (const char* before = std::getenv(name))
            Before = before;
        SetVariable(name, value);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { SetVariable(Name.c_str(), Before); }

private:
    std::string Name;
    std::optional<std::string> Before;
};

inline void WriteFile(const std::string& path, std::string_view content)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

inline std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline constexpr std::string_view RegistryHeader = "Windows Registry Editor Version 5.00\r\n\r\n";
inline constexpr std::string_view SuiteKey =
    "HKEY_LOCAL_MACHINE\\SOFTWARE\\Orvane Electronics Limited\\Veltrix\\4.09.00-en\\";

/// A world of this test's own: settings store, named mutexes (on Linux) and a place for files.
class Machine {
public:
    Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    ~Machine();

    /// Replaces the whole store. `body` is what stands behind the header of an export.
    void SetRegistry(std::string_view body) const;

    const ScratchFolder Folder;
    const std::string Store;  // where the settings lie: a file, or a key

private:
    struct Hold;
    const std::unique_ptr<Hold> Held;
};

/// The module that holds the library, and one of the system's that has no strings.
HMODULE LibraryModule();
HMODULE SystemModule();

/// A path in the form in which it may have 512 units.
std::string LongPath(const std::string& path);

/// Sends the debug output of this process to the end of a file, from now on to the process's end.
void SendDebugOutputTo(const std::string& path);

/// The handles (on Linux: descriptors) that this process has open.
int OpenHandles();

}  // namespace support
