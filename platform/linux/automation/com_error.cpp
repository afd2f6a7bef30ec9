// The class _com_error: a code, a reference to an error object, and a message that is made when it is first needed.
//
// The message is allocated with LocalAlloc, as FormatMessageW does it, so the destructor needs no case distinction.
#include "format/printf.h"
#include "system.h"
#include "tessmaru/text.h"

#include <span>
#include <utility>

namespace {

using namespace utility::literals;

constexpr std::size_t MaxFallbackUnits = 32;
// The codes of FACILITY_ITF from 0x200 on, which carry the numbers of IDispatch errors.
constexpr HRESULT FirstDispatchError = static_cast<HRESULT>(0x80040200);
constexpr HRESULT LastDispatchError = static_cast<HRESULT>(0x8004FFFF);

/// Removes the line end at the end of a text, CR LF or LF. It removes one line end only, and leaves a text of a single
/// unit as it is. This looks wrong but matches the platform's class.
void RemoveLineEnd(LPWSTR text)
{
    const std::size_t units = layer::TextView(text).size();
    if (units < 2 || text[units - 1] != '\n')
        return;
    text[units - 1] = 0;
    if (text[units - 2] == '\r')
        text[units - 2] = 0;
}

/// Makes a message for a code without a system text.
/// @param dispatchError  the number of an IDispatch error, or 0
/// @return null if there is no memory
LPWSTR MakeFallbackMessage(HRESULT code, WORD dispatchError)
{
    auto* const text = static_cast<LPWSTR>(LocalAlloc(0, MaxFallbackUnits * sizeof(WCHAR)));
    if (text == nullptr)
        return nullptr;
    const DWORD_PTR value = dispatchError != 0 ? dispatchError : static_cast<DWORD>(code);
    layer::FormatArguments arguments(std::span(&value, 1));
    layer::UnitWriter out(text, MaxFallbackUnits - 1);
    layer::Format(out, dispatchError != 0 ? u"IDispatch error #%d"_w : u"Unknown error 0x%0lX"_w, arguments);
    text[out.used()] = 0;
    return text;
}

}  // namespace

_com_error::_com_error(HRESULT code, IErrorInfo* errorInfo, bool addReference) noexcept : Code(code), Info(errorInfo)
{
    if (Info != nullptr && addReference)
        Info->AddRef();
}

// The message is not copied. The copy makes its own message, so that copying cannot fail for lack of memory.
_com_error::_com_error(const _com_error& other) noexcept : _com_error(other.Code, other.Info, true) {}

_com_error& _com_error::operator=(const _com_error& other) noexcept
{
    if (this != &other) {
        _com_error copy(other);
        std::swap(Code, copy.Code);
        std::swap(Info, copy.Info);
        std::swap(Message, copy.Message);
    }
    return *this;
}

_com_error::~_com_error() noexcept
{
    if (Info != nullptr)
        Info->Release();
    LocalFree(Message);
}

WORD _com_error::WCode() const noexcept
{
    return Code >= FirstDispatchError && Code <= LastDispatchError ? static_cast<WORD>(Code - FirstDispatchError)
                                                                   : WORD{0};
}

IErrorInfo* _com_error::ErrorInfo() const noexcept
{
    if (Info != nullptr)
        Info->AddRef();
    return Info;
}

const WCHAR* _com_error::ErrorMessage() const noexcept
{
    if (Message != nullptr)
        return Message;
    // With ALLOCATE_BUFFER the parameter is the address of the pointer, in spite of its type.
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, static_cast<DWORD>(Code),
                   LANG_USER_DEFAULT, reinterpret_cast<LPWSTR>(&Message), 0, nullptr);
    if (Message != nullptr)
        RemoveLineEnd(Message);
    else
        Message = MakeFallbackMessage(Code, WCode());
    return Message;
}

void _com_issue_error(HRESULT code)
{
    throw _com_error(code);
}
