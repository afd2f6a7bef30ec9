// A safe array of a test, destroyed with its holder.
//
//     const SafeArray array = MakeSafeArray(VT_I4, {{3, 0}});
#pragma once

#include "tessmaru/platform.h"

#include <memory>
#include <vector>

namespace testkit {

struct SafeArrayDeleter {
    void operator()(SAFEARRAY* array) const { SafeArrayDestroy(array); }
};
using SafeArray = std::unique_ptr<SAFEARRAY, SafeArrayDeleter>;

/// Null where SafeArrayCreate fails.
inline SafeArray MakeSafeArray(VARTYPE type, std::vector<SAFEARRAYBOUND> bounds)
{
    return SafeArray(SafeArrayCreate(type, static_cast<UINT>(bounds.size()), bounds.data()));
}

}  // namespace testkit
