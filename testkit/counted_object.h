// An object whose references a test counts.
//
//     CountedObject<IUnknown> object;   ...   EXPECT_EQ(object.References, 1U);
#pragma once

#include "tessmaru/platform.h"

namespace testkit {

/// Never deletes itself. Knows no other interface.
template <class Interface>
class CountedObject : public Interface {
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

}  // namespace testkit
