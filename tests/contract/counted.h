// An object that counts its references, as a test looks at them.
#pragma once

#include "system.h"

namespace contract {

class Counted : public IUnknown {
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

}  // namespace contract
