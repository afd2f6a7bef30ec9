// Contract of the message service for messages of the system and of modules.
#include "system.h"
#include "testkit/known_modules.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace utility::literals;

constexpr DWORD FromSystem = FORMAT_MESSAGE_FROM_SYSTEM;
constexpr DWORD FromModule = FORMAT_MESSAGE_FROM_HMODULE;
constexpr unsigned short Guard = 0xBEEF;

struct Found {
    std::string Text;
    DWORD Error;
};

/// Looks up a message, and checks that a failure leaves the buffer alone.
Found LookUp(DWORD flags, DWORD code, const void* module = nullptr)
{
    unsigned short buffer[512];
    std::fill(std::begin(buffer), std::end(buffer), Guard);
    SetLastError(ERROR_SUCCESS);
    const DWORD units = FormatMessageW(flags, module, code, 0, platform::Wide(buffer), 512, nullptr);
    if (units == 0) {
        EXPECT_EQ(buffer[0], Guard) << code;
        return {"", GetLastError()};
    }
    EXPECT_EQ(buffer[units], 0);
    return {testkit::Narrow({buffer, units}), ERROR_SUCCESS};
}

TEST(SystemMessages, AreTheSameForEachFormOfACode)
{
    const std::string text = LookUp(FromSystem, 5).Text;
    EXPECT_GT(text.size(), 5U);
    EXPECT_TRUE(text.ends_with("\r\n")) << text;
    for (const DWORD code : {0x80070005U, 0xA0070005U, 0xC0070005U})
        EXPECT_EQ(LookUp(FromSystem, code).Text, text) << code;
    EXPECT_NE(LookUp(FromSystem, 0x80004005).Text, "");
    EXPECT_NE(LookUp(FromSystem, 2).Text, text);
    EXPECT_EQ(LookUp(FromSystem, 0xDEAD).Error, ERROR_MR_MID_NOT_FOUND);
    EXPECT_EQ(LookUp(FromSystem, 0x8FF70005).Error, ERROR_MR_MID_NOT_FOUND);
}

TEST(SystemMessages, AreAllocatedOnRequest)
{
    LPWSTR text = nullptr;
    const auto get = [&](DWORD code) {
        return FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FromSystem, nullptr, code, LANG_USER_DEFAULT,
                              reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    };
    const DWORD units = get(5);
    ASSERT_NE(units, 0U);
    EXPECT_EQ(testkit::Narrow({reinterpret_cast<unsigned short*>(text), units}), LookUp(FromSystem, 5).Text);
    LocalFree(text);
    text = platform::Wide(const_cast<unsigned short*>(&Guard));
    EXPECT_EQ(get(0xDEAD), 0U);
    EXPECT_EQ(text, nullptr);
    unsigned short small[4];
    EXPECT_EQ(FormatMessageW(FromSystem, nullptr, 5, 0, platform::Wide(small), 4, nullptr), 0U);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(ModuleMessages, OfTheProgram)
{
    const HMODULE program = GetModuleHandleW(nullptr);
    EXPECT_EQ(LookUp(FromModule, 0x80051000, program).Text, "First line\r\nsecond line\r\n");
    EXPECT_EQ(LookUp(FromModule, 0x80051003).Text, "Plain") << "null is the program";
    EXPECT_EQ(LookUp(FromModule, 0x80052001, program).Text, "narrow\r\n");
    unsigned short text[64];
    // The insert of the first one is missing, and the second one ends in a percent sign. Only the result is checked,
    // because the code and the buffer differ.
    for (const DWORD code : {0x80051001U, 0x80052002U})
        EXPECT_EQ(FormatMessageW(FromModule, program, code, 0, platform::Wide(text), 64, nullptr), 0U) << code;
    EXPECT_EQ(LookUp(FromModule | FORMAT_MESSAGE_IGNORE_INSERTS, 0x80051001, program).Text, "Site %1 is lost\r\n");
    for (const DWORD code : {0x80050FFFU, 0x80051004U, 0x80052003U, 5U})
        EXPECT_EQ(LookUp(FromModule, code, program).Error, ERROR_MR_MID_NOT_FOUND) << code;
}

TEST(ModuleMessages, PrecedeThoseOfTheSystem)
{
    const HMODULE program = GetModuleHandleW(nullptr);
    EXPECT_EQ(LookUp(FromModule | FromSystem, 0x80051003, program).Text, "Plain");
    EXPECT_EQ(LookUp(FromModule | FromSystem, 5, program).Text, LookUp(FromSystem, 5).Text);
    EXPECT_EQ(LookUp(FromModule | FromSystem, 0x80051004, program).Error, ERROR_MR_MID_NOT_FOUND);
    EXPECT_EQ(LookUp(FromModule | FromSystem, 5, testkit::SystemModule()).Text, LookUp(FromSystem, 5).Text)
        << "a module without messages";
}

}  // namespace
