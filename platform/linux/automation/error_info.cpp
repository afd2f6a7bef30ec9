// Error objects, and the current one of each thread.
#include "tessmaru/platform.h"

#include <array>
#include <atomic>
#include <cstring>
#include <new>

#include <pthread.h>

// Published identifiers.
const IID IID_IUnknown = {0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_IDispatch = {0x00020400, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
const IID IID_IErrorInfo = {0x1CF2B120, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
const IID IID_ICreateErrorInfo = {0x22F03340, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};

namespace {

bool IsSameIid(REFIID one, REFIID other)
{
    return std::memcmp(&one, &other, sizeof(IID)) == 0;
}

/// An error object. It implements both interfaces: ICreateErrorInfo to fill it, IErrorInfo to read it. A query for
/// IUnknown always returns the same base, as COM's rule of identity requires.
class ErrorInfo final : public ICreateErrorInfo, public IErrorInfo {
public:
    ErrorInfo() = default;
    ErrorInfo(const ErrorInfo&) = delete;
    ErrorInfo& operator=(const ErrorInfo&) = delete;

    HRESULT QueryInterface(REFIID iid, void** object) override
    {
        if (object == nullptr)
            return E_POINTER;
        *object = nullptr;
        if (IsSameIid(iid, IID_IErrorInfo))
            *object = static_cast<IErrorInfo*>(this);
        else if (IsSameIid(iid, IID_ICreateErrorInfo) || IsSameIid(iid, IID_IUnknown))
            *object = static_cast<ICreateErrorInfo*>(this);
        else
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return ++References; }
    ULONG Release() override
    {
        const ULONG remaining = --References;
        if (remaining == 0)
            delete this;
        return remaining;
    }

    HRESULT SetGUID(REFIID guid) override
    {
        Guid = guid;
        return S_OK;
    }
    HRESULT SetSource(LPOLESTR source) override { return Set(Texts[0], source); }
    HRESULT SetDescription(LPOLESTR description) override { return Set(Texts[1], description); }
    HRESULT SetHelpFile(LPOLESTR file) override { return Set(Texts[2], file); }
    HRESULT SetHelpContext(DWORD context) override
    {
        HelpContext = context;
        return S_OK;
    }

    HRESULT GetGUID(GUID* guid) override { return Get(Guid, guid); }
    HRESULT GetSource(BSTR* source) override { return Get(Texts[0], source); }
    HRESULT GetDescription(BSTR* description) override { return Get(Texts[1], description); }
    HRESULT GetHelpFile(BSTR* file) override { return Get(Texts[2], file); }
    HRESULT GetHelpContext(DWORD* context) override { return Get(HelpContext, context); }

private:
    ~ErrorInfo()
    {
        for (const BSTR text : Texts)
            SysFreeString(text);
    }

    /// Stores a copy of a text. On failure the old text stays.
    static HRESULT Set(BSTR& stored, LPOLESTR text) { return SysReAllocString(&stored, text) ? S_OK : E_OUTOFMEMORY; }

    /// Returns a copy of a text, which the caller frees; null if there is none.
    static HRESULT Get(BSTR stored, BSTR* text)
    {
        if (text == nullptr)
            return E_INVALIDARG;
        *text = SysAllocString(stored);
        return *text == nullptr && stored != nullptr ? E_OUTOFMEMORY : S_OK;
    }

    template <class Value>
    static HRESULT Get(const Value& stored, Value* value)
    {
        if (value == nullptr)
            return E_INVALIDARG;
        *value = stored;
        return S_OK;
    }

    std::atomic<ULONG> References{1};
    GUID Guid{};
    std::array<BSTR, 3> Texts{};  // source, description, help file
    DWORD HelpContext = 0;
};

/// The current error object of each thread, to which the thread holds a reference.
///
/// It is stored under a pthread key and not in a thread_local with a destructor: that would keep the library loaded
/// until the thread ends.
class ThreadObjects {
public:
    ThreadObjects() : HasKey(pthread_key_create(&Key, ReleaseObject) == 0) {}
    ThreadObjects(const ThreadObjects&) = delete;
    ThreadObjects& operator=(const ThreadObjects&) = delete;
    /// Runs at exit and at unload. The key is deleted, since its destructor's code may be gone when another thread
    /// ends. So the object of a thread that is still running is never released.
    ~ThreadObjects()
    {
        if (!HasKey)
            return;
        ReleaseObject(Get());
        pthread_key_delete(Key);
    }

    IErrorInfo* Get() const { return HasKey ? static_cast<IErrorInfo*>(pthread_getspecific(Key)) : nullptr; }
    bool Set(IErrorInfo* object) const { return HasKey && pthread_setspecific(Key, object) == 0; }

private:
    static void ReleaseObject(void* object)
    {
        if (object != nullptr)
            static_cast<IErrorInfo*>(object)->Release();
    }

    pthread_key_t Key{};
    const bool HasKey;
};

const ThreadObjects& Objects()
{
    static const ThreadObjects objects;
    return objects;
}

}  // namespace

HRESULT GetErrorInfo(ULONG reserved, IErrorInfo** errorInfo)
{
    if (reserved != 0 || errorInfo == nullptr)
        return E_INVALIDARG;
    *errorInfo = Objects().Get();
    if (*errorInfo == nullptr)
        return S_FALSE;
    Objects().Set(nullptr);  // the thread's reference is now the caller's
    return S_OK;
}

HRESULT SetErrorInfo(ULONG reserved, IErrorInfo* errorInfo)
{
    if (reserved != 0)
        return E_INVALIDARG;
    IErrorInfo* const former = Objects().Get();
    if (former == errorInfo)
        return S_OK;
    if (!Objects().Set(errorInfo))
        return E_OUTOFMEMORY;
    // Release comes last: it may run a destructor of the caller's, which may call back.
    if (errorInfo != nullptr)
        errorInfo->AddRef();
    if (former != nullptr)
        former->Release();
    return S_OK;
}

HRESULT CreateErrorInfo(ICreateErrorInfo** errorInfo)
{
    if (errorInfo == nullptr)
        return E_INVALIDARG;
    *errorInfo = new (std::nothrow) ErrorInfo;
    return *errorInfo != nullptr ? S_OK : E_OUTOFMEMORY;
}
