// Lines of failures where memory runs out, and the layer's own sentences.
#include "counted.h"
#include "fail_allocation.h"
#include "support.h"
#include "system.h"
#include "tessmaru/errors.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <stdexcept>

namespace {

using namespace utility::literals;
using utility::wstring;

constexpr DWORD namedHResults[] = {
#define NAME(value, name) value,
#include "errors/hresult_names.def"
};
constexpr DWORD namedErrors[] = {
#include "errors/win32_error_names.def"
#undef NAME
};

std::string Sentence(DWORD code)
{
    unsigned short text[256];
    const DWORD units = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0, text, 256, nullptr);
    return support::Narrow({text, units});
}

TEST(SentencesOnLinux, OneForEveryCodeThatHasAName)
{
    std::set<std::string> different;
    for (const DWORD code : namedHResults) {
        EXPECT_TRUE(Sentence(code).ends_with(".\r\n")) << std::hex << code;
        different.insert(Sentence(code));
    }
    EXPECT_EQ(different.size(), std::size(namedHResults));
    for (const DWORD low : namedErrors) {
        const std::string sentence = Sentence(low);
        EXPECT_TRUE(sentence.ends_with(".\r\n")) << low;
        for (const DWORD code : {0x00070000 | low, 0x80070000 | low, 0xC0070000 | low})
            EXPECT_EQ(Sentence(code), sentence) << low;
        different.insert(sentence);
    }
    // Two plain answers and four system errors have a name in each table.
    EXPECT_EQ(different.size(), std::size(namedHResults) + std::size(namedErrors) - 6);
    for (const DWORD code : {0x00000023U, 0x80070023U, 0x10070005U, 0x80040200U, 0x80050005U})
        EXPECT_EQ(Sentence(code), "") << std::hex << code;
}

TEST(SentencesOnLinux, AreEnglish)
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

/// Whether a text maker gives its whole text, or throws for want of memory and nothing else.
void MakeOrThrow(const std::function<wstring()>& make, const std::set<wstring>& allowed)
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
    support::FailAllocation(0);
    EXPECT_TRUE(allowed.contains(text)) << support::Narrow(text);
}

TEST(ErrorsOnLinux, HResultsWithoutMemory)
{
    for (const LONG code : {LONG{0}, static_cast<LONG>(0x80004005), static_cast<LONG>(0x80070023),
                            static_cast<LONG>(0x80040200), static_cast<LONG>(0x80050000)}) {
        const std::set<wstring> whole = {utility::genHResultAsString(code)};
        EXPECT_GT(
            support::FailEachAllocation([&] { MakeOrThrow([&] { return utility::genHResultAsString(code); }, whole); }),
            2);
    }
}

TEST(ErrorsOnLinux, StandardExceptionsWithoutMemory)
{
    const std::runtime_error failure("a text of more than a few characters");
    const std::set<wstring> allowed = {support::Wide(failure.what()),
                                       support::Wide("<unable to determine exception info>")};
    EXPECT_EQ(support::FailEachAllocation(
                  [&] { MakeOrThrow([&] { return utility::getStdExceptionAsString(failure); }, allowed); }),
              3);
}

TEST(ErrorsOnLinux, ComErrorsWithoutMemory)
{
    ICreateErrorInfo* made = nullptr;
    ASSERT_EQ(CreateErrorInfo(&made), S_OK);
    wstring text = support::Wide("no such site in the database");
    made->SetDescription(text.data());
    IErrorInfo* info = nullptr;
    ASSERT_EQ(made->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info)), S_OK);
    const std::string system = Sentence(0x80004005);
    const auto line = [&](const std::string& description, const std::string& message) {
        return support::Wide("ComError: " + description + " [0x80004005: " + message + " - n/a]");
    };
    const std::string sentence = system.substr(0, system.size() - 2);
    // What cannot be fetched is missing, and what was to be fetched behind it too.
    const std::set<wstring> allowed = {line("no such site in the database", sentence), line("n/a", sentence),
                                       line("no such site in the database", "n/a"), line("n/a", "n/a"),
                                       line("no such site in the database", "Unknown error 0x80004005")};
    EXPECT_GT(support::FailEachAllocation([&] {
                  const _com_error failure(E_FAIL, info, true);
                  MakeOrThrow([&] { return utility::getComErrorAsString(failure); }, allowed);
              }),
              4);
    info->Release();
    made->Release();
}

/// Breaks the rule that no method of an object throws.
class Throwing : public support::Telling {
public:
    HRESULT GetSource(BSTR*) override { throw _com_error(E_FAIL); }
};

TEST(ErrorsOnLinux, ATextThatFailsEndsTheFetching)
{
    Throwing object;
    object.Description = u"never asked for"_w;
    EXPECT_EQ(utility::getComErrorAsString(_com_error(E_FAIL, &object, true)),
              support::Wide("ComError: n/a [0x80004005: n/a - n/a]"));
    EXPECT_EQ(object.References, 1U);
}

TEST(ErrorsOnLinux, ErrorObjectsWithoutMemory)
{
    wstring text = support::Wide("text");
    EXPECT_GT(support::FailEachAllocation([&] {
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
