// The elements of safe arrays: their sizes, and how those that own resources are copied and released.
#pragma once

#include "tessmaru/platform.h"

#include <cstddef>

namespace layer {

// The features of arrays whose elements own something: a string, a variant's content or a reference to an object.
constexpr USHORT InterfaceFeatures = FADF_UNKNOWN | FADF_DISPATCH;
constexpr USHORT OwningFeatures = FADF_BSTR | FADF_VARIANT | InterfaceFeatures;

/// What an array has to record about a type of elements.
struct ElementType {
    ULONG Bytes;  // 0 for a type that arrays cannot have
    USHORT Features;
};

ElementType ElementTypeOf(VARTYPE type);

/// Whether the elements own resources. A caller may have filled in the descriptor itself, so the size of the elements
/// has to fit the features too: with another size they are treated as plain bytes.
bool ElementsOwnResources(const SAFEARRAY& array);

/// Releases what one element owns. The element itself is not changed.
/// @param features  of an array whose elements own resources
void ReleaseElement(USHORT features, std::byte* element);

/// Copies one element that owns resources.
/// @param to  memory that owns nothing; after a failure it still owns nothing
/// @return S_OK, or the failure of the copy
HRESULT CopyElement(USHORT features, const std::byte* from, std::byte* to);

/// Releases what the elements own from byte offset `first` up to `end`. Does nothing if they own no resources.
void ReleaseElements(SAFEARRAY& array, std::size_t first, std::size_t end);

}  // namespace layer
