// Contract of the list of a process's modules.
#include "system.h"
#include "testkit/known_modules.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <set>

namespace {

const int constant = 0;  // is in the program's module

MODULEENTRY32W EmptyEntry()
{
    MODULEENTRY32W entry{};
    entry.dwSize = sizeof entry;
    return entry;
}

utility::wstring Text(const WCHAR* text)
{
    return reinterpret_cast<const unsigned short*>(text);
}

TEST(ModuleList, HasTheProgramFirstAndEachModuleOnce)
{
    for (const DWORD process : {DWORD{0}, GetCurrentProcessId()}) {
        const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process);
        ASSERT_NE(snapshot, INVALID_HANDLE_VALUE);
        MODULEENTRY32W entry = EmptyEntry();
        ASSERT_TRUE(Module32FirstW(snapshot, &entry));
        EXPECT_EQ(entry.hModule, GetModuleHandleW(nullptr));
        EXPECT_EQ(entry.th32ProcessID, GetCurrentProcessId());
        const auto* const own = reinterpret_cast<const BYTE*>(&constant);
        EXPECT_TRUE(entry.modBaseAddr <= own && own < entry.modBaseAddr + entry.modBaseSize);
        unsigned short file[1024]{};
        GetModuleFileNameW(nullptr, platform::Wide(file), 1023);
        EXPECT_EQ(Text(entry.szExePath), utility::wstring(file));
        EXPECT_EQ(entry.dwSize, sizeof entry);
        std::set<HMODULE> modules;
        do {
            EXPECT_TRUE(modules.insert(entry.hModule).second);
            EXPECT_EQ(static_cast<void*>(entry.modBaseAddr), static_cast<void*>(entry.hModule));
            EXPECT_GT(entry.modBaseSize, 0U);
            const utility::wstring path = Text(entry.szExePath);
            const utility::wstring name = Text(entry.szModule);
            EXPECT_FALSE(name.empty());
            EXPECT_TRUE(path.ends_with(name)) << testkit::Narrow(path);
        } while (Module32NextW(snapshot, &entry));
        EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
        EXPECT_TRUE(modules.contains(testkit::SystemModule()));

        // The list can be read again.
        entry = EmptyEntry();
        EXPECT_TRUE(Module32FirstW(snapshot, &entry));
        EXPECT_EQ(entry.hModule, GetModuleHandleW(nullptr));
        EXPECT_TRUE(CloseHandle(snapshot));
    }
}

TEST(ModuleList, RefusesBadArguments)
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0);
    ASSERT_NE(snapshot, INVALID_HANDLE_VALUE);
    MODULEENTRY32W entry = EmptyEntry();
    entry.dwSize = sizeof entry - 1;
    EXPECT_FALSE(Module32FirstW(snapshot, &entry));
    EXPECT_FALSE(Module32NextW(snapshot, &entry));
    EXPECT_TRUE(CloseHandle(snapshot));

    entry = EmptyEntry();
    SetLastError(0);
    EXPECT_FALSE(Module32FirstW(nullptr, &entry));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, 0x7FFFFFFC), INVALID_HANDLE_VALUE) << "no such process";
}

}  // namespace
