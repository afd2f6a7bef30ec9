// An error object with the texts that a test sets.
//
//     FakeErrorInfo object;   object.Description = u"no such site"_w;
#pragma once

#include "testkit/counted_object.h"

namespace testkit {

/// The method of a null text fails.
class FakeErrorInfo : public CountedObject<IErrorInfo> {
public:
    HRESULT STDMETHODCALLTYPE GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR* text) override { return Copy(Source, text); }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* text) override { return Copy(Description, text); }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD*) override { return E_NOTIMPL; }

    const unsigned short* Source = nullptr;
    const unsigned short* Description = nullptr;

private:
    static HRESULT Copy(const unsigned short* text, BSTR* out)
    {
        if (text == nullptr)
            return E_FAIL;
        *out = SysAllocString(reinterpret_cast<LPCWSTR>(text));
        return S_OK;
    }
};

}  // namespace testkit
