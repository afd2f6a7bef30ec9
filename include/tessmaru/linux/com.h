// Interfaces, error objects and the exception of automation code for Linux, with the platform's published names.
// Included by platform.h.
#pragma once

#include "tessmaru/linux/automation.h"

#define STDMETHODCALLTYPE

/// The root of every interface. Objects live until their last reference is released.
struct IUnknown {
    virtual HRESULT QueryInterface(REFIID iid, void** object) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;

protected:
    ~IUnknown() = default;
};

struct ITypeInfo;
struct DISPPARAMS;
struct EXCEPINFO;

/// An object that is called by names; variants hold references to such.
struct IDispatch : IUnknown {
    virtual HRESULT GetTypeInfoCount(UINT* count) = 0;
    virtual HRESULT GetTypeInfo(UINT index, DWORD locale, ITypeInfo** info) = 0;
    virtual HRESULT GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, DWORD locale, LONG* ids) = 0;
    virtual HRESULT Invoke(LONG member, REFIID iid, DWORD locale, WORD flags, DISPPARAMS* parameters, VARIANT* result,
                           EXCEPINFO* exception, UINT* badArgument) = 0;

protected:
    ~IDispatch() = default;
};

/// What a failed automation call tells about its failure. Each text is the caller's to free, and null if the object
/// has none.
struct IErrorInfo : IUnknown {
    virtual HRESULT GetGUID(GUID* guid) = 0;
    virtual HRESULT GetSource(BSTR* source) = 0;
    virtual HRESULT GetDescription(BSTR* description) = 0;
    virtual HRESULT GetHelpFile(BSTR* file) = 0;
    virtual HRESULT GetHelpContext(DWORD* context) = 0;

protected:
    ~IErrorInfo() = default;
};

/// The side of an error object on which it is filled. Texts are copied.
struct ICreateErrorInfo : IUnknown {
    virtual HRESULT SetGUID(REFIID guid) = 0;
    virtual HRESULT SetSource(LPOLESTR source) = 0;
    virtual HRESULT SetDescription(LPOLESTR description) = 0;
    virtual HRESULT SetHelpFile(LPOLESTR file) = 0;
    virtual HRESULT SetHelpContext(DWORD context) = 0;

protected:
    ~ICreateErrorInfo() = default;
};

/// The failure that automation code throws by value: a code and, where there is one, an error object. One object
/// serves one thread at a time: even a constant one keeps its message text once it was asked for.
class TESSMARU_API _com_error {
public:
    /// Takes the caller's reference to `errorInfo` over, or one of its own if `addReference`.
    explicit _com_error(HRESULT code, IErrorInfo* errorInfo = nullptr, bool addReference = false) noexcept;
    _com_error(const _com_error& other) noexcept;
    _com_error& operator=(const _com_error& other) noexcept;
    virtual ~_com_error() noexcept;

    HRESULT Error() const noexcept { return Code; }

    /// The number of an IDispatch error, which is the code above 0x80040200; 0 for any other code.
    WORD WCode() const noexcept;

    /// The error object with a reference of the caller's own, or null.
    IErrorInfo* ErrorInfo() const noexcept;

    /// The system's text for the code without its line end, else a text made from the code; null only for want of
    /// memory. Lives as long as this object.
    const WCHAR* ErrorMessage() const noexcept;

private:
    HRESULT Code;
    IErrorInfo* Info;
    mutable LPWSTR Message = nullptr;
};

/// Throws _com_error of this code.
[[noreturn]] TESSMARU_API void _com_issue_error(HRESULT code);

extern "C" {

TESSMARU_API extern const IID IID_IUnknown;
TESSMARU_API extern const IID IID_IDispatch;
TESSMARU_API extern const IID IID_IErrorInfo;
TESSMARU_API extern const IID IID_ICreateErrorInfo;

/// Moves the calling thread's error object to the caller. @return S_FALSE with null if the thread has none.
TESSMARU_API HRESULT GetErrorInfo(ULONG reserved, IErrorInfo** errorInfo);

/// Makes this the calling thread's error object, with a reference of the thread's own; null takes the one away that
/// it has. A thread that ends releases its object.
TESSMARU_API HRESULT SetErrorInfo(ULONG reserved, IErrorInfo* errorInfo);

/// A new, empty error object. Its other side is had by QueryInterface with IID_IErrorInfo.
///
/// @code
///     ICreateErrorInfo* made = nullptr;
///     IErrorInfo* info = nullptr;
///     if (SUCCEEDED(CreateErrorInfo(&made))) {
///         made->SetDescription(text);
///         if (SUCCEEDED(made->QueryInterface(IID_IErrorInfo, reinterpret_cast<void**>(&info))))
///             throw _com_error(E_FAIL, info);  // takes the reference over
///     }
/// @endcode
TESSMARU_API HRESULT CreateErrorInfo(ICreateErrorInfo** errorInfo);

}  // extern "C"
