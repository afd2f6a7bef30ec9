// Interfaces, error objects and the exception of automation code for Linux, with the platform's published names.
// Included by platform.h.
#pragma once

#include "tessmaru/linux/automation.h"

#define STDMETHODCALLTYPE

/// The base of every interface. An object lives until its last reference is released.
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

/// An object whose members are called by name. Variants hold references to such objects.
struct IDispatch : IUnknown {
    virtual HRESULT GetTypeInfoCount(UINT* count) = 0;
    virtual HRESULT GetTypeInfo(UINT index, DWORD locale, ITypeInfo** info) = 0;
    virtual HRESULT GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, DWORD locale, LONG* ids) = 0;
    virtual HRESULT Invoke(LONG member, REFIID iid, DWORD locale, WORD flags, DISPPARAMS* parameters, VARIANT* result,
                           EXCEPINFO* exception, UINT* badArgument) = 0;

protected:
    ~IDispatch() = default;
};

/// The description of a failed automation call. The caller frees each text, which is null if the object has none.
struct IErrorInfo : IUnknown {
    virtual HRESULT GetGUID(GUID* guid) = 0;
    virtual HRESULT GetSource(BSTR* source) = 0;
    virtual HRESULT GetDescription(BSTR* description) = 0;
    virtual HRESULT GetHelpFile(BSTR* file) = 0;
    virtual HRESULT GetHelpContext(DWORD* context) = 0;

protected:
    ~IErrorInfo() = default;
};

/// The interface that fills an error object. Texts are copied.
struct ICreateErrorInfo : IUnknown {
    virtual HRESULT SetGUID(REFIID guid) = 0;
    virtual HRESULT SetSource(LPOLESTR source) = 0;
    virtual HRESULT SetDescription(LPOLESTR description) = 0;
    virtual HRESULT SetHelpFile(LPOLESTR file) = 0;
    virtual HRESULT SetHelpContext(DWORD context) = 0;

protected:
    ~ICreateErrorInfo() = default;
};

/// The exception of automation code, thrown by value: a code and an optional error object. One exception object serves
/// one thread at a time, even if it is constant: the first ErrorMessage stores its text.
class TESSMARU_API _com_error {
public:
    /// Takes over the caller's reference to `errorInfo`, or adds a reference if `addReference` is set.
    explicit _com_error(HRESULT code, IErrorInfo* errorInfo = nullptr, bool addReference = false) noexcept;
    _com_error(const _com_error& other) noexcept;
    _com_error& operator=(const _com_error& other) noexcept;
    virtual ~_com_error() noexcept;

    /// The code of the failure.
    HRESULT Error() const noexcept { return Code; }

    /// The number of an IDispatch error: its code minus 0x80040200; 0 for any other code.
    WORD WCode() const noexcept;

    /// The error object with a new reference, which the caller releases; or null.
    IErrorInfo* ErrorInfo() const noexcept;

    /// The system's text for the code without its line end, or a text made from the code; null only if there is no
    /// memory. The text belongs to this object.
    const WCHAR* ErrorMessage() const noexcept;

private:
    HRESULT Code;
    IErrorInfo* Info;
    mutable LPWSTR Message = nullptr;
};

/// Throws a _com_error with this code.
[[noreturn]] TESSMARU_API void _com_issue_error(HRESULT code);

extern "C" {

/// The identities of the interfaces, for QueryInterface.
TESSMARU_API extern const IID IID_IUnknown;
TESSMARU_API extern const IID IID_IDispatch;
TESSMARU_API extern const IID IID_IErrorInfo;
TESSMARU_API extern const IID IID_ICreateErrorInfo;

/// Moves the calling thread's error object to the caller, who releases it.
/// @return S_FALSE with null if the thread has none.
TESSMARU_API HRESULT GetErrorInfo(ULONG reserved, IErrorInfo** errorInfo);

/// Sets the calling thread's error object and adds a reference for the thread. Null removes the present object. A
/// thread that ends releases its object.
TESSMARU_API HRESULT SetErrorInfo(ULONG reserved, IErrorInfo* errorInfo);

/// Makes an empty error object. QueryInterface with IID_IErrorInfo gives the interface that SetErrorInfo takes.
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
