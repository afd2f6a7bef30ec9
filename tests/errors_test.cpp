// Failures as lines: every code that has a name, codes without a name, and exceptions.
#include "tessmaru/errors.h"
#include "system.h"
#include "testkit/fake_error_info.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace {

using namespace utility::literals;

using testkit::Narrow;
using testkit::Wide;

std::string Line(DWORD code)
{
    return Narrow(utility::genHResultAsString(static_cast<LONG>(code)));
}

std::string Hex(DWORD code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(code));
    return text;
}

std::string Tail(DWORD code, const std::string& name, const std::string& facility)
{
    return " [" + Hex(code) + ": " + name + " - " + facility + "]";
}

/// The message service's text for a code, up to its last line end; row 148 if it has none.
std::string Description(DWORD code)
{
    unsigned short text[1024];
    if (FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0, platform::Wide(text), 1024, nullptr) == 0)
        return "Unknown or new error";
    const std::string found = Narrow(text);
    return found.substr(0, std::min(found.rfind('\r'), found.size()));
}

/// The codes that have a name: their number, and the FNV-1a hash of the lines "value name" in ascending order.
struct Names {
    unsigned Count = 0;
    std::uint32_t Hash = 2166136261;

    void Add(DWORD code, DWORD value)
    {
        const std::string line = Line(code);
        const std::size_t start = line.rfind(": ") + 2;
        const std::string name = line.substr(start, line.rfind(" - ") - start);
        if (name.starts_with("Unknown "))
            return;
        ++Count;
        for (const char unit : Hex(value) + " " + name + "\n")
            Hash = (Hash ^ static_cast<unsigned char>(unit)) * 16777619;
    }
};

// The hashes were computed from the values that winerror.h and olectl.h of mingw-w64 10 give to these names.
TEST(HResultText, EveryNameBelongsToItsValue)
{
    Names errors;
    for (DWORD value = 0; value < 0x2000; ++value)
        errors.Add(0x00070000 | value, value);
    EXPECT_EQ(errors.Count, 676U);
    EXPECT_EQ(errors.Hash, 0xAA56DA53U);

    Names results;
    for (const DWORD high : {0x0000U, 0x0003U, 0x0004U, 0x0008U, 0x8000U, 0x8001U, 0x8002U, 0x8003U, 0x8004U, 0x8008U,
                             0x8009U, 0x800AU, 0x800BU}) {
        for (const DWORD start : {0x0000U, 0x0100U, 0x0200U, 0x4000U, 0x8000U, 0x8800U, 0x8C00U, 0x9C00U, 0xFF00U}) {
            for (DWORD code = high << 16 | start, end = code + 0x100; code != end; ++code)
                results.Add(code, code);
        }
    }
    EXPECT_EQ(results.Count, 388U) << "all but those with the code of a system error";
    EXPECT_EQ(results.Hash, 0xB30A058DU);
}

TEST(HResultText, WholeValuesGoBeforeLowWords)
{
    const struct {
        DWORD Code;
        const char* Name;
        const char* Facility;
    } rows[] = {{0, "S_OK", "FACILITY_NULL"},
                {0x80070005, "E_ACCESSDENIED", "FACILITY_WIN32"},
                {0x80070006, "E_HANDLE", "FACILITY_WIN32"},
                {0x8007000E, "E_OUTOFMEMORY", "FACILITY_WIN32"},
                {0x80070057, "E_INVALIDARG", "FACILITY_WIN32"},
                {0x00070005, "ERROR_ACCESS_DENIED", "FACILITY_WIN32"},
                {0xC0070005, "ERROR_ACCESS_DENIED", "FACILITY_WIN32"},
                {0xA0070005, "ERROR_ACCESS_DENIED", "FACILITY_WIN32"},
                {0x80070000, "ERROR_SUCCESS", "FACILITY_WIN32"},
                {0x80070023, "Unknown or new error", "FACILITY_WIN32"},
                {0x8007FFFF, "Unknown or new error", "FACILITY_WIN32"},
                {0x90070005, "Unknown name", "Unknown or new FACILITY code"},
                {0x80050000, "Unknown name", "Unknown or new FACILITY code"},
                {0x800D0000, "Unknown name", "Unknown or new FACILITY code"},
                {0xFFFFFFFF, "Unknown name", "Unknown or new FACILITY code"},
                {0x00000005, "Unknown name", "FACILITY_NULL"},
                {0x80010001, "RPC_E_CALL_REJECTED", "FACILITY_RPC"},
                {0x80020002, "Unknown name", "FACILITY_DISPATCH"},
                {0x80030002, "STG_E_FILENOTFOUND", "FACILITY_STORAGE"},
                {0x80080001, "CO_E_CLASS_CREATE_FAILED", "FACILITY_WINDOWS"},
                {0x80090001, "NTE_BAD_UID", "FACILITY_SSPI"},
                {0x800B0100, "TRUST_E_NOSIGNATURE", "FACILITY_CERT"},
                {0x800C0000, "Unknown name", "FACILITY_INTERNET"},
                {0x800A0257, "Unknown name", "FACILITY_CONTROL"},
                {0x800A02DF, "CTL_E_CANTSAVEFILETOTEMP", "FACILITY_CONTROL"},
                {0x800401FF, "CO_E_RELEASED", "FACILITY_ITF"},
                {0x80040113, "Unknown name", "FACILITY_ITF"}};
    for (const auto& row : rows)
        EXPECT_EQ(Line(row.Code), Description(row.Code) + Tail(row.Code, row.Name, row.Facility));
}

TEST(HResultText, InterfacesAndControlsHaveTheirOwnCodes)
{
    for (const DWORD code : {0x80040200U, 0x00040200U, 0x8004FFFFU, 0xE0040200U, 0x800A0258U, 0x000AFFFFU}) {
        const std::string facility = (code & 0x1FFF0000) == 0x40000 ? "FACILITY_ITF" : "FACILITY_CONTROL";
        EXPECT_EQ(Line(code), "Interface specific " + facility + " error" + Tail(code, "Unknown name", facility));
    }
}

TEST(HResultText, MessagesOfTheProgram)
{
    const auto tail = [](DWORD code) { return Tail(code, "Unknown name", "Unknown or new FACILITY code"); };
    EXPECT_EQ(Line(0x80051000), "First line\r\nsecond line" + tail(0x80051000));
    EXPECT_EQ(Line(0x80051001), "Unknown or new error" + tail(0x80051001)) << "an insert mark without an insert";
    EXPECT_EQ(Line(0x80051002), "Head" + tail(0x80051002)) << "the text after the last line end is dropped";
    EXPECT_EQ(Line(0x80051003), "Plain" + tail(0x80051003));
}

class BadText : public std::exception {
public:
    explicit BadText(std::string text) : Text(std::move(text)) {}
    const char* what() const noexcept override { return Text.c_str(); }

private:
    std::string Text;
};

TEST(ExceptionText, StandardExceptions)
{
    EXPECT_EQ(utility::getStdExceptionAsString(std::runtime_error("no site")), Wide("no site"));
    EXPECT_EQ(utility::getStdExceptionAsString(BadText("")), utility::wstring());
    EXPECT_EQ(utility::getStdExceptionAsString(BadText(std::string(100000, 'x'))), Wide(std::string(100000, 'x')));

    const std::string foreign = "caf\xE9 \xC3\xA9";
    unsigned short wide[32]{};
    ASSERT_NE(MultiByteToWideChar(CP_ACP, 0, foreign.c_str(), -1, platform::Wide(wide), 32), 0);
    EXPECT_EQ(utility::getStdExceptionAsString(BadText(foreign)), utility::wstring(wide))
        << "converted by the active code page";
}

using testkit::FakeErrorInfo;

std::string ComLine(FakeErrorInfo& object, DWORD code)
{
    const std::string line =
        Narrow(utility::getComErrorAsString(_com_error(static_cast<HRESULT>(code), &object, true)));
    EXPECT_EQ(object.References, 1U);
    return line;
}

TEST(ExceptionText, ComErrors)
{
    constexpr DWORD code = 0x8004FFFF;
    const std::string middle = " [0x8004FFFF: IDispatch error #65023 - ";
    EXPECT_EQ(Narrow(utility::getComErrorAsString(_com_error(static_cast<HRESULT>(code)))),
              "ComError: n/a" + middle + "n/a]");
    FakeErrorInfo object;
    EXPECT_EQ(ComLine(object, code), "ComError: n/a" + middle + "n/a]") << "methods that fail";
    object.Source = u"Site.Import"_w;
    EXPECT_EQ(ComLine(object, code), "ComError: n/a" + middle + "Site.Import]");
    object.Description = u"no such site"_w;
    EXPECT_EQ(ComLine(object, code), "ComError: no such site" + middle + "Site.Import]");
    object.Source = u""_w;
    EXPECT_EQ(ComLine(object, code), "ComError: no such site" + middle + "n/a]");
    EXPECT_EQ(Narrow(utility::getComErrorAsString(_com_error(E_FAIL))),
              "ComError: n/a [0x80004005: " + Description(0x80004005) + " - n/a]");
}

TEST(ExceptionText, LineThatDoesNotFitIsEmpty)
{
    const std::string middle = " [0x8004FFFF: IDispatch error #65023 - n/a]";
    const std::size_t room = 1022 - std::string("ComError: ").size() - middle.size();
    FakeErrorInfo object;
    const utility::wstring fits(room, u'x');
    object.Description = fits.c_str();
    EXPECT_EQ(ComLine(object, 0x8004FFFF).size(), 1022U);
    const utility::wstring tooLong(room + 1, u'x');
    object.Description = tooLong.c_str();
    EXPECT_EQ(ComLine(object, 0x8004FFFF), "");
}

TEST(ExceptionText, PendingErrorObjectStays)
{
    EXPECT_FALSE(utility::testIErrorInfoGenerated());
    FakeErrorInfo object;
    ASSERT_EQ(SetErrorInfo(0, &object), S_OK);
    EXPECT_TRUE(utility::testIErrorInfoGenerated());
    EXPECT_TRUE(utility::testIErrorInfoGenerated());
    std::thread([] { EXPECT_FALSE(utility::testIErrorInfoGenerated()); }).join();
    EXPECT_EQ(object.References, 2U);
    ASSERT_EQ(SetErrorInfo(0, nullptr), S_OK);
    EXPECT_EQ(object.References, 1U);
    EXPECT_FALSE(utility::testIErrorInfoGenerated());
}

}  // namespace
