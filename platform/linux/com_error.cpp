// The exception of automation code: a code with a counted reference to its error object.
#include "tessmaru/platform.h"

#include <utility>

_com_error::_com_error(HRESULT code, IErrorInfo* errorInfo, bool addReference) noexcept : Code(code), Info(errorInfo)
{
    if (Info != nullptr && addReference)
        Info->AddRef();
}

_com_error::_com_error(const _com_error& other) noexcept : _com_error(other.Code, other.Info, true) {}

_com_error& _com_error::operator=(const _com_error& other) noexcept
{
    _com_error copy(other);
    std::swap(Code, copy.Code);
    std::swap(Info, copy.Info);
    return *this;
}

_com_error::~_com_error() noexcept
{
    if (Info != nullptr)
        Info->Release();
}

IErrorInfo* _com_error::ErrorInfo() const noexcept
{
    if (Info != nullptr)
        Info->AddRef();
    return Info;
}
