// Safe arrays: a descriptor with the bounds and a block of data with the elements.
//
// The 16 bytes before a descriptor record the type of the elements: an interface identifier (FADF_HAVEIID), or a type
// code in the last four of them (FADF_HAVEVARTYPE). A caller may also build a descriptor itself; one without these
// features has nothing before it.
//
// The descriptor keeps the bounds in reverse order: rgsabound[0] is the last dimension. In the data the index of the
// first dimension runs fastest.
#include "automation/safe_array_elements.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>

using layer::InterfaceFeatures;
using layer::OwningFeatures;

namespace {

constexpr std::size_t PrefixBytes = sizeof(IID);
constexpr ULONG MaxLocks = 0xFFFF;
// The array lies on a stack, in static memory or inside another record, so neither descriptor nor data are freed.
constexpr USHORT BorrowedMemory = FADF_AUTO | FADF_STATIC | FADF_EMBEDDED;
// The data can be neither freed nor resized.
constexpr USHORT FixedData = BorrowedMemory | FADF_FIXEDSIZE;
// Marks an array from SafeArrayCreateVector. A copy does not get it.
constexpr USHORT FADF_CREATEVECTOR = 0x2000;

std::byte* PrefixOf(SAFEARRAY* array)
{
    return reinterpret_cast<std::byte*>(array) - PrefixBytes;
}

/// The size of elements in bytes, or nothing if it does not fit 32 bits.
std::optional<std::size_t> BytesOf(std::uint64_t elements, ULONG elementBytes)
{
    if (elementBytes != 0 && elements > 0xFFFFFFFF / elementBytes)
        return std::nullopt;
    return static_cast<std::size_t>(elements * elementBytes);
}

/// The number of elements of all dimensions, or nothing if their size does not fit 32 bits. The check at each step
/// keeps the product below 2^64. A dimension without elements comes first, wherever it is: the others do not matter
/// then.
std::optional<std::uint64_t> CountOf(std::span<const SAFEARRAYBOUND> bounds, ULONG elementBytes)
{
    if (std::ranges::any_of(bounds, [](const SAFEARRAYBOUND& bound) { return bound.cElements == 0; }))
        return 0;
    std::uint64_t count = 1;
    for (const SAFEARRAYBOUND& bound : bounds) {
        count *= bound.cElements;
        if (!BytesOf(count, elementBytes))
            return std::nullopt;
    }
    return count;
}

std::span<SAFEARRAYBOUND> BoundsOf(SAFEARRAY& array)
{
    return {array.rgsabound, array.cDims};
}

/// Whether the upper bound, and so each index, fits 32 bits.
bool IsValidBound(const SAFEARRAYBOUND& bound)
{
    // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): every bound is set
    return std::int64_t{bound.lLbound} + bound.cElements - 1 <= 0x7FFFFFFF;
}

/// Allocates a descriptor with the 16 bytes before it, all zero except for the number of dimensions.
/// @return null if there is no memory
SAFEARRAY* CreateDescriptor(UINT dimensions)
{
    const std::size_t bytes = sizeof(SAFEARRAY) + (dimensions - 1) * sizeof(SAFEARRAYBOUND);
    auto* const block = static_cast<std::byte*>(std::calloc(1, PrefixBytes + bytes));
    if (block == nullptr)
        return nullptr;
    auto* const array = reinterpret_cast<SAFEARRAY*>(block + PrefixBytes);
    array->cDims = static_cast<USHORT>(dimensions);
    return array;
}

/// Allocates the data for a descriptor that has its bounds; all elements are zero. An array of 0 elements gets a block
/// too, since null data means an array whose data was destroyed.
/// @return false if there is no memory
bool CreateData(SAFEARRAY& array)
{
    const auto count = CountOf(BoundsOf(array), array.cbElements);
    if (!count)
        return false;
    array.pvData =
        std::calloc(std::max<std::size_t>(static_cast<std::size_t>(*count), 1), std::max<ULONG>(array.cbElements, 1));
    return array.pvData != nullptr;
}

/// Creates an array with the bounds and the type of another one; all elements are zero. The new array is allocated
/// here, even if its model is borrowed.
/// @return null if there is no memory
SAFEARRAY* CreateLike(SAFEARRAY& model)
{
    SAFEARRAY* const array = CreateDescriptor(model.cDims);
    if (array == nullptr)
        return nullptr;
    array->fFeatures = static_cast<USHORT>(model.fFeatures & ~(FixedData | FADF_CREATEVECTOR));
    array->cbElements = model.cbElements;
    if ((model.fFeatures & (FADF_HAVEIID | FADF_HAVEVARTYPE)) != 0)
        std::memcpy(PrefixOf(array), PrefixOf(&model), PrefixBytes);
    std::ranges::copy(BoundsOf(model), array->rgsabound);
    if (!CreateData(*array)) {
        SafeArrayDestroyDescriptor(array);
        return nullptr;
    }
    return array;
}

/// @param dimension  counted from 1
/// @return null if the array does not have this dimension
const SAFEARRAYBOUND* BoundOf(SAFEARRAY& array, UINT dimension)
{
    return dimension >= 1 && dimension <= array.cDims ? &array.rgsabound[array.cDims - dimension] : nullptr;
}

/// Adds to the lock count, unless it would leave its range. Atomic: the locks are the one part of an array that several
/// threads may use at the same time.
/// @param change  1 or -1
HRESULT ChangeLocks(SAFEARRAY* array, int change)
{
    if (array == nullptr)
        return E_INVALIDARG;
    std::atomic_ref<ULONG> locks(array->cLocks);
    ULONG count = locks.load();
    do {
        if (change > 0 ? count >= MaxLocks : count == 0)
            return E_UNEXPECTED;
    } while (!locks.compare_exchange_weak(count, count + static_cast<ULONG>(change)));
    return S_OK;
}

/// Keeps an array locked during one access to an element.
class LockedElement {
public:
    LockedElement(SAFEARRAY* array, LONG* indices) : Array(array), Result(SafeArrayLock(array))
    {
        if (FAILED(Result))
            return;
        void* element = nullptr;
        Result = SafeArrayPtrOfIndex(array, indices, &element);
        Address = static_cast<std::byte*>(element);
        Locked = true;
    }
    LockedElement(const LockedElement&) = delete;
    LockedElement& operator=(const LockedElement&) = delete;
    ~LockedElement()
    {
        if (Locked)
            SafeArrayUnlock(Array);
    }

    HRESULT result() const { return Result; }
    std::byte* address() const { return Address; }

private:
    SAFEARRAY* const Array;
    HRESULT Result;
    bool Locked = false;
    std::byte* Address = nullptr;
};

}  // namespace

SAFEARRAY* SafeArrayCreate(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds)
{
    const layer::ElementType element = layer::ElementTypeOf(type);
    if (element.Bytes == 0 || dimensions == 0 || dimensions > 0xFFFF || bounds == nullptr ||
        !std::all_of(bounds, bounds + dimensions, IsValidBound))
        return nullptr;
    SAFEARRAY* const array = CreateDescriptor(dimensions);
    if (array == nullptr)
        return nullptr;
    array->fFeatures = element.Features;
    array->cbElements = element.Bytes;
    if ((element.Features & FADF_HAVEIID) != 0) {
        std::memcpy(PrefixOf(array), type == VT_DISPATCH ? &IID_IDispatch : &IID_IUnknown, sizeof(IID));
    } else {
        const DWORD code = type;
        std::memcpy(PrefixOf(array) + PrefixBytes - sizeof code, &code, sizeof code);
    }
    std::reverse_copy(bounds, bounds + dimensions, array->rgsabound);
    if (!CreateData(*array)) {
        SafeArrayDestroyDescriptor(array);
        return nullptr;
    }
    return array;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG elements)
{
    SAFEARRAYBOUND bound{elements, lowerBound};
    SAFEARRAY* const array = SafeArrayCreate(type, 1, &bound);
    if (array != nullptr)
        array->fFeatures |= FADF_CREATEVECTOR;
    return array;
}

HRESULT SafeArrayDestroyData(SAFEARRAY* array)
{
    if (array == nullptr)
        return E_INVALIDARG;
    if (array->cLocks != 0)
        return DISP_E_ARRAYISLOCKED;
    if (array->pvData == nullptr)
        return S_OK;
    const auto count = CountOf(BoundsOf(*array), array->cbElements);
    if (!count)
        return E_UNEXPECTED;
    const auto bytes = static_cast<std::size_t>(*count * array->cbElements);
    layer::ReleaseElements(*array, 0, bytes);
    if ((array->fFeatures & FixedData) != 0) {
        // The elements own nothing any more, and must not be released a second time.
        std::memset(array->pvData, 0, bytes);
        return S_OK;
    }
    std::free(array->pvData);
    array->pvData = nullptr;
    return S_OK;
}

HRESULT SafeArrayDestroyDescriptor(SAFEARRAY* array)
{
    if (array == nullptr)
        return S_OK;
    if (array->cLocks != 0)
        return DISP_E_ARRAYISLOCKED;
    if ((array->fFeatures & BorrowedMemory) == 0)
        std::free(PrefixOf(array));
    return S_OK;
}

HRESULT SafeArrayDestroy(SAFEARRAY* array)
{
    if (array == nullptr)
        return S_OK;
    const HRESULT destroyed = SafeArrayDestroyData(array);
    return FAILED(destroyed) ? destroyed : SafeArrayDestroyDescriptor(array);
}

// Only the last dimension can be resized. Its index runs slowest, so the elements that remain keep their places.
HRESULT SafeArrayRedim(SAFEARRAY* array, SAFEARRAYBOUND* bound)
{
    if (array == nullptr || bound == nullptr || array->cDims == 0 || array->pvData == nullptr || !IsValidBound(*bound))
        return E_INVALIDARG;
    if (array->cLocks != 0 || (array->fFeatures & FixedData) != 0)
        return DISP_E_ARRAYISLOCKED;
    // A slice is all elements with the same index in the last dimension.
    const auto slice = CountOf(BoundsOf(*array).subspan(1), array->cbElements);
    const auto before = slice ? BytesOf(*slice * array->rgsabound[0].cElements, array->cbElements) : std::nullopt;
    const auto after = slice ? BytesOf(*slice * bound->cElements, array->cbElements) : std::nullopt;
    if (!before || !after)
        return E_OUTOFMEMORY;
    if (*after < *before)  // before realloc, which cuts these elements off
        layer::ReleaseElements(*array, *after, *before);
    void* const data = std::realloc(array->pvData, std::max<std::size_t>(*after, 1));
    if (data == nullptr && *after > *before)
        return E_OUTOFMEMORY;
    // If shrinking fails, the larger block is good enough.
    if (data != nullptr)
        array->pvData = data;
    if (*after > *before)
        std::memset(static_cast<std::byte*>(array->pvData) + *before, 0, *after - *before);
    array->rgsabound[0] = *bound;
    return S_OK;
}

HRESULT SafeArrayCopy(SAFEARRAY* source, SAFEARRAY** copy)
{
    if (copy == nullptr)
        return E_INVALIDARG;
    *copy = nullptr;
    if (source == nullptr)
        return S_OK;
    if (source->cDims == 0 || source->cbElements == 0)
        return E_INVALIDARG;
    SAFEARRAY* const created = CreateLike(*source);
    if (created == nullptr)
        return E_OUTOFMEMORY;
    const auto* const from = static_cast<const std::byte*>(source->pvData);
    auto* const to = static_cast<std::byte*>(created->pvData);
    // A source without data gives elements that are all zero. CreateLike has checked that the count exists.
    const std::uint64_t count = from != nullptr ? *CountOf(BoundsOf(*created), created->cbElements) : 0;
    if (!layer::ElementsOwnResources(*created)) {
        if (from != nullptr)
            std::memcpy(to, from, static_cast<std::size_t>(count * created->cbElements));
        *copy = created;
        return S_OK;
    }
    for (std::uint64_t at = 0; at < count * created->cbElements; at += created->cbElements) {
        const HRESULT result = layer::CopyElement(created->fFeatures, from + at, to + at);
        if (FAILED(result)) {
            SafeArrayDestroy(created);  // releases the elements copied so far; the others are zero
            return result;
        }
    }
    *copy = created;
    return S_OK;
}

UINT SafeArrayGetDim(SAFEARRAY* array)
{
    return array != nullptr ? array->cDims : 0;
}

UINT SafeArrayGetElemsize(SAFEARRAY* array)
{
    return array != nullptr ? array->cbElements : 0;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type)
{
    if (array == nullptr || type == nullptr)
        return E_INVALIDARG;
    if ((array->fFeatures & FADF_HAVEVARTYPE) != 0) {
        DWORD code = 0;
        std::memcpy(&code, PrefixOf(array) + PrefixBytes - sizeof code, sizeof code);
        *type = static_cast<VARTYPE>(code);
        return S_OK;
    }
    // Arrays of interfaces and descriptors that callers built have no type code.
    switch (array->fFeatures & OwningFeatures) {
        case FADF_BSTR: *type = VT_BSTR; return S_OK;
        case FADF_VARIANT: *type = VT_VARIANT; return S_OK;
        case FADF_UNKNOWN: *type = VT_UNKNOWN; return S_OK;
        case FADF_DISPATCH: *type = VT_DISPATCH; return S_OK;
        default: return E_INVALIDARG;
    }
}

HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound)
{
    if (array == nullptr || bound == nullptr)
        return E_INVALIDARG;
    const SAFEARRAYBOUND* const found = BoundOf(*array, dimension);
    if (found == nullptr)
        return DISP_E_BADINDEX;
    *bound = found->lLbound;
    return S_OK;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound)
{
    if (array == nullptr || bound == nullptr)
        return E_INVALIDARG;
    const SAFEARRAYBOUND* const found = BoundOf(*array, dimension);
    if (found == nullptr)
        return DISP_E_BADINDEX;
    *bound = static_cast<LONG>(std::int64_t{found->lLbound} + found->cElements - 1);
    return S_OK;
}

HRESULT SafeArrayLock(SAFEARRAY* array)
{
    return ChangeLocks(array, 1);
}

HRESULT SafeArrayUnlock(SAFEARRAY* array)
{
    return ChangeLocks(array, -1);
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data)
{
    if (array == nullptr || data == nullptr)
        return E_INVALIDARG;
    const HRESULT locked = SafeArrayLock(array);
    if (SUCCEEDED(locked))
        *data = array->pvData;
    return locked;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array)
{
    return SafeArrayUnlock(array);
}

// NOLINTNEXTLINE(readability-non-const-parameter): as published
HRESULT SafeArrayPtrOfIndex(SAFEARRAY* array, LONG* indices, void** element)
{
    if (array == nullptr || indices == nullptr || element == nullptr || array->pvData == nullptr)
        return E_INVALIDARG;
    std::size_t offset = 0;
    std::size_t stride = array->cbElements;  // distance of two elements that differ by 1 in this dimension
    for (UINT dimension = 1; dimension <= array->cDims; ++dimension) {
        const SAFEARRAYBOUND& bound = *BoundOf(*array, dimension);
        const std::int64_t distance = std::int64_t{indices[dimension - 1]} - bound.lLbound;
        if (distance < 0 || distance >= bound.cElements)
            return DISP_E_BADINDEX;
        offset += static_cast<std::size_t>(distance) * stride;
        stride *= bound.cElements;
    }
    *element = static_cast<std::byte*>(array->pvData) + offset;
    return S_OK;
}

HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* element)
{
    if (array == nullptr || indices == nullptr || element == nullptr)
        return E_INVALIDARG;
    const LockedElement found(array, indices);
    if (FAILED(found.result()))
        return found.result();
    if (layer::ElementsOwnResources(*array))
        return layer::CopyElement(array->fFeatures, found.address(), static_cast<std::byte*>(element));
    std::memcpy(element, found.address(), array->cbElements);
    return S_OK;
}

HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* element)
{
    if (array == nullptr || indices == nullptr)
        return E_INVALIDARG;
    const LockedElement found(array, indices);
    if (FAILED(found.result()))
        return found.result();
    // Published: a string or an interface is passed itself, any other element by its address.
    const bool ownsResources = layer::ElementsOwnResources(*array);
    const bool passedByValue = ownsResources && (array->fFeatures & (FADF_BSTR | InterfaceFeatures)) != 0;
    if (!passedByValue && element == nullptr)
        return E_INVALIDARG;
    if (!ownsResources) {
        std::memcpy(found.address(), element, array->cbElements);
        return S_OK;
    }
    if ((array->fFeatures & FADF_VARIANT) != 0)  // also clears the old element
        return VariantCopy(reinterpret_cast<VARIANT*>(found.address()), static_cast<const VARIANT*>(element));
    // Copied before the old element is released: both may be the same, or the copy may fail.
    void* copy = nullptr;
    const HRESULT result = layer::CopyElement(array->fFeatures, reinterpret_cast<const std::byte*>(&element),
                                              reinterpret_cast<std::byte*>(&copy));
    if (FAILED(result))
        return result;
    layer::ReleaseElement(array->fFeatures, found.address());
    std::memcpy(found.address(), &copy, sizeof copy);
    return S_OK;
}
