// Contract of error objects, of the thread that they belong to, and of the exception that carries them.
#include "system.h"
#include "testkit/text.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace {

using namespace utility::literals;

struct Releaser {
    void operator()(IUnknown* object) const { object->Release(); }
};
template <class Interface>
using Held = std::unique_ptr<Interface, Releaser>;

Held<ICreateErrorInfo> Create()
{
    ICreateErrorInfo* made = nullptr;
    EXPECT_EQ(CreateErrorInfo(&made), S_OK);
    return Held<ICreateErrorInfo>(made);
}

Held<IErrorInfo> OtherSide(const Held<ICreateErrorInfo>& made)
{
    void* side = nullptr;
    EXPECT_EQ(made->QueryInterface(IID_IErrorInfo, &side), S_OK);
    return Held<IErrorInfo>(static_cast<IErrorInfo*>(side));
}

ULONG References(IUnknown& object)
{
    object.AddRef();
    return object.Release();
}

utility::wstring Take(BSTR string)
{
    const utility::wstring text(reinterpret_cast<const unsigned short*>(string), SysStringLen(string));
    SysFreeString(string);
    return text;
}

TEST(ErrorObjects, ReturnTheirTexts)
{
    const Held<ICreateErrorInfo> made = Create();
    const Held<IErrorInfo> info = OtherSide(made);
    BSTR text = nullptr;
    EXPECT_EQ(info->GetSource(&text), S_OK);
    EXPECT_EQ(text, nullptr);
    const utility::wstring source = testkit::Wide("Site.Import");
    EXPECT_EQ(made->SetSource(const_cast<LPOLESTR>(platform::Wide(source.c_str()))), S_OK);
    EXPECT_EQ(info->GetSource(&text), S_OK);
    EXPECT_EQ(Take(text), source);
    EXPECT_EQ(made->SetSource(nullptr), S_OK);
    EXPECT_EQ(info->GetSource(&text), S_OK);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(info->GetDescription(&text), S_OK);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(made->SetHelpContext(7), S_OK);
    DWORD context = 0;
    EXPECT_EQ(info->GetHelpContext(&context), S_OK);
    EXPECT_EQ(context, 7U);
    EXPECT_EQ(info->GetDescription(nullptr), E_INVALIDARG);
    EXPECT_EQ(CreateErrorInfo(nullptr), E_INVALIDARG);
}

TEST(ErrorObjects, HaveOneIdentity)
{
    const Held<ICreateErrorInfo> made = Create();
    const Held<IErrorInfo> info = OtherSide(made);
    void* one = nullptr;
    void* other = nullptr;
    ASSERT_EQ(made->QueryInterface(IID_IUnknown, &one), S_OK);
    ASSERT_EQ(info->QueryInterface(IID_IUnknown, &other), S_OK);
    EXPECT_EQ(one, other);
    static_cast<IUnknown*>(one)->Release();
    static_cast<IUnknown*>(other)->Release();
    EXPECT_EQ(made->QueryInterface(IID_IDispatch, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
}

TEST(ErrorObjects, BelongToTheThread)
{
    const Held<ICreateErrorInfo> made = Create();
    const Held<IErrorInfo> info = OtherSide(made);
    const ULONG before = References(*info);
    ASSERT_EQ(SetErrorInfo(0, info.get()), S_OK);
    EXPECT_EQ(References(*info), before + 1);
    std::thread([&] {
        IErrorInfo* none = info.get();
        EXPECT_EQ(GetErrorInfo(0, &none), S_FALSE);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(SetErrorInfo(0, info.get()), S_OK) << "released when the thread ends";
    }).join();
    EXPECT_EQ(References(*info), before + 1);
    IErrorInfo* mine = nullptr;
    ASSERT_EQ(GetErrorInfo(0, &mine), S_OK);
    EXPECT_EQ(mine, info.get());
    EXPECT_EQ(References(*info), before + 1) << "the caller got the thread's reference";
    mine->Release();
    EXPECT_EQ(GetErrorInfo(0, &mine), S_FALSE);
    EXPECT_EQ(SetErrorInfo(0, info.get()), S_OK);
    EXPECT_EQ(SetErrorInfo(0, nullptr), S_OK);
    EXPECT_EQ(References(*info), before);
    EXPECT_EQ(GetErrorInfo(1, &mine), E_INVALIDARG);
    EXPECT_EQ(GetErrorInfo(0, nullptr), E_INVALIDARG);
    EXPECT_EQ(SetErrorInfo(1, info.get()), E_INVALIDARG);
    EXPECT_EQ(References(*info), before);
}

utility::wstring MessageOf(const _com_error& failure)
{
    const auto* const text = reinterpret_cast<const unsigned short*>(failure.ErrorMessage());
    EXPECT_EQ(failure.ErrorMessage(), platform::Wide(text)) << "made once";
    return text;
}

TEST(ErrorObjects, AreCountedByTheException)
{
    const Held<ICreateErrorInfo> made = Create();
    const Held<IErrorInfo> info = OtherSide(made);
    const ULONG before = References(*info);
    {
        const _com_error first(E_FAIL, info.get(), true);
        _com_error second(first);
        EXPECT_EQ(References(*info), before + 2);
        const utility::wstring message = MessageOf(first);
        EXPECT_EQ(MessageOf(second), message);
        second = _com_error(E_NOTIMPL);
        EXPECT_NE(MessageOf(second), message) << "the message belongs to the code";
        EXPECT_EQ(References(*info), before + 1);
        second = first;
        EXPECT_EQ(second.Error(), E_FAIL);
        const Held<IErrorInfo> got(second.ErrorInfo());
        EXPECT_EQ(got.get(), info.get());
        EXPECT_EQ(References(*info), before + 3);
    }
    EXPECT_EQ(References(*info), before);
}

TEST(ErrorObjects, MessageOfTheException)
{
    const auto message = [](unsigned code) {
        return testkit::Narrow(MessageOf(_com_error(static_cast<HRESULT>(code))));
    };
    EXPECT_EQ(message(0x8004FFFE), "IDispatch error #65022");
    EXPECT_EQ(message(0x8004FFFF), "IDispatch error #65023");
    EXPECT_EQ(message(0x80050000), "Unknown error 0x80050000");
    const std::string known = message(0x80070005);
    EXPECT_FALSE(known.empty());
    EXPECT_EQ(known.find_first_of("\r\n"), std::string::npos);
}

}  // namespace
