// Text conversion on Linux: the machine's code page, which the store names, and results that the contract leaves open.
#include "contract/convert.h"
#include "contract/password_keys.h"
#include "region/active_code_page.h"
#include "tessmaru/frame.h"
#include "testkit/linux/child.h"
#include "testkit/linux/without_descriptors.h"
#include "testkit/test_machine.h"
#include "testkit/text.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace {

using contract::ToNarrow;
using contract::ToWide;
using utility::wstring;

constexpr UINT Western = 1252;

TEST(TextConversionOnLinux, ResultsThatTheContractLeavesOpen)
{
    EXPECT_EQ(wstring{0x80}, ToWide(54936, "\x81\x30\x81\x30"));
    EXPECT_EQ(wstring{0x218}, ToWide(28606, "\xAA")) << "the last ISO page";
    EXPECT_EQ((wstring{'a', '?', 'b'}), ToWide(20127,
                                               "a\xE4"
                                               "b"));
    // One replacement character for each byte that cannot start a character.
    for (const char* const bytes : {"\xE0\x80\x80", "\xED\xA0\x80"})
        EXPECT_EQ(wstring(3, 0xFFFD), ToWide(CP_UTF8, bytes));
    EXPECT_EQ(wstring(4, 0xFFFD), ToWide(CP_UTF8, "\xF4\x90\x80\x80"));
    char narrow[4];
    unsigned short wide[] = {'a', 0, 0, 0};
    EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, 0, wide, -2, narrow, 4, nullptr, nullptr));
    EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, 0, wide, 1, narrow, 4, "?", nullptr));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, GetLastError());
    EXPECT_EQ(0, WideCharToMultiByte(CP_UTF8, WC_NO_BEST_FIT_CHARS, wide, 1, narrow, 4, nullptr, nullptr));
    EXPECT_EQ(ERROR_INVALID_FLAGS, GetLastError());
    EXPECT_EQ(0, MultiByteToWideChar(CP_UTF8, 0, "a", -5, wide, 4));
}

/// Runs `work` in a process that has not read the machine's code page, with this setting.
template <class Work>
int WithActivePage(const std::string& acp, Work work)
{
    testkit::TestMachine machine;
    machine.Settings.Set("[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Nls\\CodePage]\r\n" + acp + "\r\n");
    return testkit::Child(work).Wait();
}

TEST(TextConversionOnLinux, ActivePageIsASettingOfTheMachine)
{
    const struct {
        const char* Value;
        UINT Page;
    } rows[] = {{"\"ACP\"=\"1252\"", 1252},     {"\"ACP\"=\"932\"", 932},
                {"\"ACP\"=\"65001\"", CP_UTF8}, {"", CP_UTF8},
                {"\"ACP\"=\"\"", CP_UTF8},      {"\"ACP\"=\"latin\"", CP_UTF8},
                {"\"ACP\"=\"4711\"", CP_UTF8},  {"\"ACP\"=\"99999999999\"", CP_UTF8}};
    for (const auto& row : rows) {
        EXPECT_EQ(0, WithActivePage(row.Value,
                                    [&] {
                                        SetLastError(77);
                                        const bool right = layer::ActiveCodePage() == row.Page && GetLastError() == 77;
                                        setenv("VELTRIX_REGISTRY", "/dev/null", 1);
                                        return right && layer::ActiveCodePage() == row.Page ? 0 : 1;
                                    }))
            << row.Value;
    }
}

TEST(TextConversionOnLinux, FailedReadOfTheActivePageIsRepeated)
{
    EXPECT_EQ(0, WithActivePage("\"ACP\"=\"1252\"", [] {
                  const UINT without = testkit::WithoutDescriptors(layer::ActiveCodePage);
                  return without == CP_UTF8 && layer::ActiveCodePage() == Western ? 0 : 1;
              }));
}

TEST(TextConversionOnLinux, ActivePageIsUsedByConversionAndFormatting)
{
    const auto print = [](unsigned short* buffer, const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        _vsnwprintf(buffer, 16, testkit::Wide(format).c_str(), arguments);
        va_end(arguments);
        return wstring(buffer);
    };
    EXPECT_EQ(0, WithActivePage("\"ACP\"=\"1252\"", [&] {
                  unsigned short buffer[16]{};
                  return ToNarrow(CP_ACP, {0x20AC}) == "\x80" && ToWide(CP_ACP, "\xE4") == wstring{0xE4} &&
                                 print(buffer, "%S%C", "\x80\x81", 0xE4) == wstring{0x20AC, 0x81, 0xE4}
                             ? 0
                             : 1;
              }));
    EXPECT_EQ(0, WithActivePage("\"ACP\"=\"932\"", [&] {
                  unsigned short buffer[16]{};
                  const wstring expected{'A', 0x5B89, '\\', 0xFF71, 0xF8F0, '?', '|', '?', 'x'};
                  return print(buffer, "%S|%.1Sx", "A\x88\xC0\x5C\xB1\xA0\x88", "\x88\xC0") == expected ? 0 : 1;
              }));
    EXPECT_EQ(0, WithActivePage("\"ACP\"=\"949\"", [&] {
                  unsigned short buffer[16]{};
                  return print(buffer, "%S", "\xC9\xA2\xB0\xA1") == wstring{0xE001, 0xAC00} ? 0 : 1;
              }));
}

/// The key of a password, or 0 and the code of the failure.
struct KeyOf {
    ULONG Key;
    HRESULT Failure;
};

KeyOf Derive(const wstring& password)
try {
    return {utility::genEncryptKeyFromPassword(password), S_OK};
} catch (const _com_error& failure) {
    return {0, failure.Error()};
}

TEST(PasswordKeyOnLinux, IsThatOfWindowsInEachPage)
{
    for (const contract::PasswordKeys& row : contract::KeysOfPasswords) {
        EXPECT_EQ(0, WithActivePage("\"ACP\"=\"" + std::to_string(row.Page) + "\"",
                                    [&] {
                                        for (int i = 0; i < 4; ++i) {
                                            if (Derive(contract::Passwords[i]).Key != row.Keys[i])
                                                return 1 + i;
                                        }
                                        return 0;
                                    }))
            << row.Page;
    }
}

TEST(PasswordKeyOnLinux, DependsOnTheActivePage)
{
    const wstring four = {0x65E5, 0x672C, 0x8A9E, 0x7248};
    const struct {
        const char* Value;
        wstring Password;
        ULONG Key;  // from as many bytes as the password has characters
        HRESULT Failure;
    } rows[] = {{"\"ACP\"=\"932\"", four, 0x411E2D6C, S_OK},
                {"\"ACP\"=\"1252\"", {0xE9}, 0xF9BDE123, S_OK},
                {"", {0xE9}, 0x910B9FBD, S_OK},
                {"", four, 0, HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER)}};
    for (const auto& row : rows) {
        EXPECT_EQ(0, WithActivePage(row.Value,
                                    [&] {
                                        const KeyOf derived = Derive(row.Password);
                                        return derived.Key == row.Key && derived.Failure == row.Failure ? 0 : 1;
                                    }))
            << row.Value;
    }
}

}  // namespace
