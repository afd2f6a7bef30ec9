// What the tests share: scratch folders, environment variables, a settings store, text.
#pragma once

#include "tessmaru/text.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
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

/// A folder of this test alone, gone with it.
class ScratchFolder {
public:
    ScratchFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "tessmaru-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            std::abort();
        Path = pattern;
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    ~ScratchFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(Path, ignored);
    }

    const std::filesystem::path& path() const { return Path; }
    std::string operator/(std::string_view name) const { return (Path / name).string(); }

private:
    std::filesystem::path Path;
};

/// Sets an environment variable, or removes it for nullopt, and restores it.
class Variable {
public:
    Variable(const char* name, std::optional<std::string> value) : Name(name)
    {
        if (const char* before = std::getenv(name))
            Before = before;
        Set(value);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { Set(Before); }

private:
    void Set(const std::optional<std::string>& value)
    {
        if (value)
            setenv(Name.c_str(), value->c_str(), 1);
        else
            unsetenv(Name.c_str());
    }

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

/// A world of this test's own: settings store, named mutexes and a place for files.
class Machine {
public:
    Machine()
        : Store(Folder / "registry.reg"), StoreVariable("VELTRIX_REGISTRY", Store),
          RuntimeVariable("VELTRIX_RUNTIME", Folder.path().string())
    {
    }

    /// Replaces the whole store. `body` is what stands behind the header of an export.
    void SetRegistry(std::string_view body) const
    {
        support::WriteFile(Store + ".new", std::string(RegistryHeader) + std::string(body));
        std::filesystem::rename(Store + ".new", Store);
    }

    const ScratchFolder Folder;
    const std::string Store;

private:
    Variable StoreVariable;
    Variable RuntimeVariable;
};

}  // namespace support
