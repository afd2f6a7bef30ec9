// The elements of safe arrays: what each type takes, owns, copies and releases.
#pragma once

#include "tessmaru/platform.h"

#include <cstddef>

namespace layer {

constexpr USHORT InterfaceFeatures = FADF_UNKNOWN | FADF_DISPATCH;
constexpr USHORT OwnerFeatures = FADF_BSTR | FADF_VARIANT | InterfaceFeatures;

struct ElementType {
    ULONG Bytes;  // 0: no array holds such
    USHORT Features;
};

ElementType ElementsOf(VARTYPE type);

/// Whether the elements own something. Their width has to be theirs as well: a descriptor may be anybody's.
bool HasOwners(const SAFEARRAY& array);

void ReleaseElement(USHORT features, std::byte* element);

/// Copies one element that owns something over bits that own nothing.
HRESULT CopyElement(USHORT features, const std::byte* from, std::byte* to);

/// Releases what the elements from byte `first` on own, up to byte `end`.
void ReleaseElements(SAFEARRAY& array, std::size_t first, std::size_t end);

}  // namespace layer
