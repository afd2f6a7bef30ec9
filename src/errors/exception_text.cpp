// The texts of automation failures and of standard exceptions.
#include "settings/module_strings.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/errors.h"
#include "tessmaru/text.h"
#include "text/code_page.h"

#include <utility>

namespace {

using namespace utility::literals;
using utility::wstring;

constexpr unsigned int ComErrorRow = 154;

const unsigned short* Units(BSTR text)
{
    return reinterpret_cast<const unsigned short*>(text);
}

/// The owner of an automation string.
class AutomationString {
public:
    AutomationString() = default;

    /// @throws _com_error E_OUTOFMEMORY
    explicit AutomationString(const unsigned short* text) : Held(SysAllocString(platform::Wide(text)))
    {
        if (Held == nullptr && text != nullptr)
            throw _com_error(E_OUTOFMEMORY);
    }
    AutomationString(AutomationString&& other) noexcept : Held(std::exchange(other.Held, nullptr)) {}
    AutomationString& operator=(AutomationString&& other) noexcept
    {
        std::swap(Held, other.Held);
        return *this;
    }
    ~AutomationString() { SysFreeString(Held); }

    bool empty() const { return SysStringLen(Held) == 0; }
    const unsigned short* units() const { return Units(Held); }

    /// The place for the result of a call that returns a string. Only for an empty owner.
    BSTR* receive() { return &Held; }

private:
    BSTR Held = nullptr;
};

/// The owner of a reference to an error object.
class ErrorObject {
public:
    explicit ErrorObject(IErrorInfo* object) : Held(object) {}
    ErrorObject(const ErrorObject&) = delete;
    ErrorObject& operator=(const ErrorObject&) = delete;
    ~ErrorObject()
    {
        if (Held != nullptr)
            Held->Release();
    }

    IErrorInfo* get() const { return Held; }

private:
    IErrorInfo* const Held;
};

struct ComErrorTexts {
    AutomationString Source;
    AutomationString Message;
    AutomationString Description;
};

/// Fetches a text of an error object. The result of the call does not matter: one that fails leaves the string null. A
/// method that throws may have delivered a string before, which is freed.
AutomationString Text(IErrorInfo& object, HRESULT (STDMETHODCALLTYPE IErrorInfo::*get)(BSTR*))
{
    AutomationString text;
    (object.*get)(text.receive());
    return text;
}

/// Fetches the texts in the order source, description, message. The first failure ends it: that text and the later ones
/// stay empty.
void Fetch(const _com_error& e, ComErrorTexts& texts)
try {
    const ErrorObject object(e.ErrorInfo());
    if (object.get() != nullptr) {
        texts.Source = Text(*object.get(), &IErrorInfo::GetSource);
        texts.Description = Text(*object.get(), &IErrorInfo::GetDescription);
    }
    texts.Message = AutomationString(reinterpret_cast<const unsigned short*>(e.ErrorMessage()));
} catch (const _com_error&) {
}

}  // namespace

wstring utility::getStdExceptionAsString(const std::exception& e)
{
    AutomationString text;
    // Only a failed conversion has a substitute; std::bad_alloc passes to the caller.
    try {
        text = AutomationString(WideText(e.what()).c_str());
    } catch (const _com_error&) {
        text = AutomationString(u"<unable to determine exception info>"_w);
    }
    return text.units();
}

wstring utility::getComErrorAsString(const _com_error& e)
{
    ComErrorTexts texts;
    Fetch(e, texts);
    for (AutomationString* const text : {&texts.Source, &texts.Message, &texts.Description}) {
        if (text->empty())
            *text = AutomationString(u"n/a"_w);
    }
    return genStringFromOwnModule(ComErrorRow, texts.Description.units(), static_cast<DWORD>(e.Error()),
                                  texts.Message.units(), texts.Source.units());
}

bool utility::testIErrorInfoGenerated()
{
    IErrorInfo* pending = nullptr;
    const HRESULT result = GetErrorInfo(0, &pending);
    // GetErrorInfo has taken the object from the thread; it is put back with a new reference.
    const ErrorObject held(pending);
    SetErrorInfo(0, held.get());
    return result == S_OK;
}
