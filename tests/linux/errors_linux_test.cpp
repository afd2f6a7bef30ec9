// Lines of failures on Linux: out of memory, and the layer's own messages.
#include "errors/error_names.h"
#include "system.h"
#include "tessmaru/errors.h"
#include "testkit/fake_error_info.h"
#include "testkit/linux/failing_allocation.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <stdexcept>

namespace {

using namespace utility::literals;
using utility::wstring;

std::string Message(DWORD code)
{
    unsigned short text[256];
    const DWORD units = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0, text, 256, nullptr);
    return testkit::Narrow({text, units});
}

TEST(SystemMessagesOnLinux, OneForEveryCodeThatHasAName)
{
    std::set<std::string> different;
    std::size_t named = 0;
    const auto check = [&](DWORD code) {
        const std::string message = Message(code);
        EXPECT_TRUE(message.ends_with(".\r\n")) << std::hex << code;
        different.insert(message);
        ++named;
        return message;
    };
    for (DWORD low = 0; low <= 0xFFFF; ++low) {
        for (const DWORD severity : {0x00000000U, 0x80000000U}) {
            for (DWORD facility = 0; facility <= 12; ++facility) {
                const DWORD code = severity | facility << 16 | low;
                if (!HResultName(code).empty())
                    check(code);
            }
        }
        if (Win32ErrorName(low).empty())
            continue;
        const std::string message = check(low);
        for (const DWORD code : {0x00070000 | low, 0x80070000 | low, 0xC0070000 | low})
            EXPECT_EQ(Message(code), message) << low;
    }
    EXPECT_EQ(different.size(), named - 6) << "two results and four system errors have a name in each table";
    for (const DWORD code : {0x00000023U, 0x80070023U, 0x10070005U, 0x80040200U, 0x80050005U})
        EXPECT_EQ(Message(code), "") << std::hex << code;
}

TEST(SystemMessagesOnLinux, AreEnglish)
{
    unsigned short text[256];
    const auto units = [&](DWORD language) {
        return FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, language, text, 256, nullptr);
    };
    EXPECT_NE(units(0x409), 0U);
    EXPECT_NE(units(0x1409), 0U);
    EXPECT_EQ(units(0x407), 0U);
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_LANG_NOT_FOUND);
}

/// Expects one of the allowed texts, or an exception that reports that the process is out of memory.
void MakeTextOrThrow(const std::function<wstring()>& make, const std::set<wstring>& allowed)
{
    wstring text;
    try {
        text = make();
    } catch (const std::bad_alloc&) {
        return;
    } catch (const _com_error& failure) {
        EXPECT_EQ(failure.Error(), E_OUTOFMEMORY);
        return;
    }
    testkit::FailAllocation(0);
    EXPECT_TRUE(allowed.contains(text)) << testkit::Narrow(text);
}

TEST(ErrorsOnLinux, OutOfMemoryInHResults)
{
    for (const LONG code : {LONG{0}, static_cast<LONG>(0x80004005), static_cast<LONG>(0x80070023),
                            static_cast<LONG>(0x80040200), static_cast<LONG>(0x80050000)}) {
        const std::set<wstring> whole = {utility::genHResultAsString(code)};
        EXPECT_GT(testkit::FailEachAllocation(
                      [&] { MakeTextOrThrow([&] { return utility::genHResultAsString(code); }, whole); }),
                  2);
    }
}

TEST(ErrorsOnLinux, OutOfMemoryInStandardExceptions)
{
    const std::runtime_error failure("a text of more than a few characters");
    const std::set<wstring> allowed = {testkit::Wide(failure.what()),
                                       testkit::Wide("<unable to determine exception info>")};
    EXPECT_GT(testkit::FailEachAllocation(
                  [&] { MakeTextOrThrow([&] { return utility::getStdExceptionAsString(failure); }, allowed); }),
              0);
}

TEST(ErrorsOnLinux, OutOfMemoryInComErrors)
{
    testkit::FakeErrorInfo object;
    object.Description = u"no such site in the database"_w;
    const std::string system = Message(0x80004005);
    const auto line = [&](const std::string& description, const std::string& message) {
        return testkit::Wide("ComError: " + description + " [0x80004005: " + message + " - n/a]");
    };
    const std::string known = system.substr(0, system.size() - 2);
    // A text that cannot be fetched is missing, and so are the texts after it.
    const std::set<wstring> allowed = {line("no such site in the database", known), line("n/a", known),
                                       line("no such site in the database", "n/a"), line("n/a", "n/a"),
                                       line("no such site in the database", "Unknown error 0x80004005")};
    EXPECT_GT(testkit::FailEachAllocation([&] {
                  const _com_error failure(E_FAIL, &object, true);
                  MakeTextOrThrow([&] { return utility::getComErrorAsString(failure); }, allowed);
              }),
              4);
}

/// Violates the rule that no method of an object throws, after it has delivered a text.
class Throwing : public testkit::FakeErrorInfo {
public:
    explicit Throwing(bool atSource) : AtSource(atSource) { Source = u"Site"_w, Description = u"not shown"_w; }

    HRESULT GetSource(BSTR* text) override
    {
        const HRESULT result = FakeErrorInfo::GetSource(text);
        return AtSource ? throw _com_error(E_FAIL) : result;
    }
    HRESULT GetDescription(BSTR* text) override
    {
        FakeErrorInfo::GetDescription(text);
        throw _com_error(E_FAIL);
    }

private:
    const bool AtSource;
};

TEST(ErrorsOnLinux, MethodThatThrowsEndsTheFetching)
{
    for (const bool atSource : {true, false}) {
        const int before = testkit::LiveBlocks();
        Throwing object(atSource);
        EXPECT_EQ(utility::getComErrorAsString(_com_error(E_FAIL, &object, true)),
                  testkit::Wide(std::string("ComError: n/a [0x80004005: n/a - ") + (atSource ? "n/a]" : "Site]")));
        EXPECT_EQ(object.References, 1U);
        EXPECT_EQ(testkit::LiveBlocks(), before) << "the text that was delivered";
    }
}

TEST(ErrorsOnLinux, OutOfMemoryInErrorObjects)
{
    wstring text = testkit::Wide("text");
    EXPECT_GT(testkit::FailEachAllocation([&] {
                  ICreateErrorInfo* made = nullptr;
                  if (CreateErrorInfo(&made) != S_OK) {
                      EXPECT_EQ(made, nullptr);
                      return;
                  }
                  const HRESULT set = made->SetSource(text.data());
                  EXPECT_TRUE(set == S_OK || set == E_OUTOFMEMORY);
                  made->Release();
              }),
              1);
}

}  // namespace
