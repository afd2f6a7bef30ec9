// Objects that count their references, as a test looks at them.
#pragma once

#include "system.h"

namespace support {

template <class Interface>
class Counted : public Interface {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++References; }
    ULONG STDMETHODCALLTYPE Release() override { return --References; }

    ULONG References = 1;
};

/// An error object that tells what a test wants; null: it has none and says so.
class Telling : public Counted<IErrorInfo> {
public:
    HRESULT STDMETHODCALLTYPE GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR* text) override { return Give(Source, text); }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* text) override { return Give(Description, text); }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD*) override { return E_NOTIMPL; }

    const unsigned short* Source = nullptr;
    const unsigned short* Description = nullptr;

private:
    static HRESULT Give(const unsigned short* text, BSTR* out)
    {
        if (text == nullptr)
            return E_FAIL;
        *out = SysAllocString(platform::Wide(text));
        return S_OK;
    }
};

}  // namespace support
