#include "support.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace support {

namespace {

std::wstring FromUtf8(std::string_view text)
{
    const int bytes = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    const int units = MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, wide.data(), bytes);
    wide.resize(static_cast<std::size_t>(units));
    return wide;
}

/// Takes a quoted text off the front of a line of an export; "@" stands for the empty name.
std::wstring TakeText(std::wstring_view& line)
{
    std::wstring text;
    if (line.starts_with(L'@')) {
        line.remove_prefix(1);
        return text;
    }
    std::size_t at = 1;
    for (; at < line.size() && line[at] != L'"'; ++at) {
        if (line[at] == L'\\')
            ++at;
        text += line[at];
    }
    line.remove_prefix(at + 1);
    return text;
}

std::vector<BYTE> Bytes(const void* data, std::size_t size)
{
    const auto* const first = static_cast<const BYTE*>(data);
    return {first, first + size};
}

/// A value as an export has it: a text, `dword:` or `hex(type):`, all on one line.
void SetValue(HKEY key, const std::wstring& name, std::wstring_view value)
{
    DWORD type = REG_SZ;
    std::vector<BYTE> data;
    if (value.starts_with(L'"')) {
        const std::wstring text = TakeText(value);
        data = Bytes(text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    } else if (value.starts_with(L"dword:")) {
        type = REG_DWORD;
        const auto number = static_cast<DWORD>(std::stoul(std::wstring(value.substr(6)), nullptr, 16));
        data = Bytes(&number, sizeof number);
    } else {
        type = value.starts_with(L"hex(") ? static_cast<DWORD>(std::stoul(std::wstring(value.substr(4)), nullptr, 16))
                                          : REG_BINARY;
        value.remove_prefix(value.find(L':') + 1);
        for (; !value.empty(); value.remove_prefix(std::min<std::size_t>(3, value.size())))
            data.push_back(static_cast<BYTE>(std::stoul(std::wstring(value.substr(0, 2)), nullptr, 16)));
    }
    if (RegSetValueExW(key, name.c_str(), 0, type, data.data(), static_cast<DWORD>(data.size())) != 0)
        throw std::runtime_error("a value of the test's settings");
}

HKEY CreateKey(HKEY parent, const std::wstring& path)
{
    HKEY key = nullptr;
    if (RegCreateKeyExW(parent, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) != 0)
        throw std::runtime_error("a key of the test's settings");
    return key;
}

}  // namespace

void SetVariable(const char* name, const std::optional<std::string>& value)
{
    _putenv_s(name, value ? value->c_str() : "");
}

/// A key of the user that stands for HKEY_LOCAL_MACHINE in this process.
struct Machine::Hold {
    HKEY Key;
};

Machine::Machine()
    : Store("Software\\" + Folder.path().filename().string()),
      Held(new Hold{CreateKey(HKEY_CURRENT_USER, FromUtf8(Store))})
{
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, Held->Key);
}

Machine::~Machine()
{
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegCloseKey(Held->Key);
    if (!Folder.IsJoined())
        RegDeleteTreeW(HKEY_CURRENT_USER, FromUtf8(Store).c_str());
}

void Machine::SetRegistry(std::string_view body) const
{
    constexpr std::wstring_view machine = L"HKEY_LOCAL_MACHINE\\";
    RegDeleteTreeW(Held->Key, nullptr);
    const std::wstring text = FromUtf8(body);
    HKEY key = nullptr;
    for (std::wstring_view rest = text; !rest.empty();) {
        const std::size_t end = std::min(rest.find(L'\n'), rest.size() - 1);
        std::wstring_view line = rest.substr(0, rest.find_last_not_of(L"\r\n", end) + 1);
        rest.remove_prefix(end + 1);
        if (line.starts_with(L'[')) {
            RegCloseKey(key);
            line.remove_prefix(1 + machine.size());
            key = CreateKey(Held->Key, std::wstring(line.substr(0, line.size() - 1)));
        } else if (!line.empty()) {
            const std::wstring name = TakeText(line);
            SetValue(key, name, line.substr(1));
        }
    }
    RegCloseKey(key);
}

std::string LongPath(const std::string& path)
{
    return "\\\\?\\" + path;
}

namespace {

HANDLE debugOutput;

/// The text comes as an exception that a debugger would take. What is open at the end of a process stays so for this.
LONG CALLBACK KeepDebugOutput(EXCEPTION_POINTERS* exception)
{
    const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
    if (record.ExceptionCode == DBG_PRINTEXCEPTION_C) {
        const auto bytes = static_cast<DWORD>(record.ExceptionInformation[0]);
        DWORD written = 0;
        ::WriteFile(debugOutput, reinterpret_cast<const void*>(record.ExceptionInformation[1]), bytes - 1, &written,
                    nullptr);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

void SendDebugOutputTo(const std::string& path)
{
    debugOutput = CreateFileA(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (debugOutput == INVALID_HANDLE_VALUE)
        std::abort();
    AddVectoredExceptionHandler(1, KeepDebugOutput);
}

int OpenHandles()
{
    // Asked one by one: not every system counts them.
    constexpr std::uintptr_t step = 4;
    constexpr std::uintptr_t last = 0x4000;
    int count = 0;
    DWORD flags = 0;
    for (std::uintptr_t value = step; value < last; value += step)
        count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != FALSE;
    return count;
}

}  // namespace support
