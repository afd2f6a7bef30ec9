// Conversion between vectors and safe arrays. The conversions of longs, variants and strings differ in one step: how an
// element is copied.
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/automation.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>

namespace {

using utility::wstring;

void Check(HRESULT result)
{
    if (FAILED(result))
        throw _com_error(result);
}

/// VariantCopy does not change its source, but not every platform's header declares it constant.
HRESULT Copy(VARIANT& target, const VARIANT& source)
{
    return VariantCopy(&target, const_cast<VARIANT*>(&source));
}

/// Access to the data of an array, which is locked meanwhile.
class DataAccess {
public:
    explicit DataAccess(SAFEARRAY* array) : Array(array), Result(SafeArrayAccessData(array, &Data)) {}
    DataAccess(const DataAccess&) = delete;
    DataAccess& operator=(const DataAccess&) = delete;
    ~DataAccess() { End(); }

    HRESULT result() const { return Result; }
    void* data() const { return Data; }

    /// Unlocks the array; does nothing if it is not locked.
    HRESULT End()
    {
        if (FAILED(Result))
            return S_OK;
        Result = E_UNEXPECTED;  // not locked any more
        return SafeArrayUnaccessData(Array);
    }

private:
    SAFEARRAY* const Array;
    void* Data = nullptr;
    HRESULT Result;
};

HRESULT PutElements(const std::vector<LONG>& source, LONG* slots)
{
    std::copy(source.begin(), source.end(), slots);
    return S_OK;
}

HRESULT PutElements(const std::vector<_variant_t>& source, VARIANT* slots)
{
    for (const _variant_t& element : source) {
        VARIANT& slot = *slots++;
        // By contract, although the slots of a new array are empty.
        VariantClear(&slot);
        if (element.vt == VT_EMPTY)
            continue;
        const HRESULT copied = Copy(slot, element);
        if (FAILED(copied))
            return copied;
    }
    return S_OK;
}

HRESULT PutElements(const std::vector<wstring>& source, BSTR* slots)
{
    for (const wstring& element : source) {
        BSTR& slot = *slots++;
        SysFreeString(slot);
        slot = nullptr;
        const auto units = static_cast<UINT>(wstring::traits_type::length(element.c_str()));
        // Two copies, because they fail differently by contract: the first throws and leaves the array to the caller,
        // the second returns a code and destroys the array.
        const BSTR whole = SysAllocStringLen(platform::Wide(element.c_str()), units);
        if (whole == nullptr)
            throw _com_error(E_OUTOFMEMORY);
        slot = SysAllocStringLen(whole, units);
        SysFreeString(whole);
        if (slot == nullptr && !element.empty())
            return E_OUTOFMEMORY;
    }
    return S_OK;
}

template <class Slot, class Element>
LONG VectorToArray(VARTYPE type, const std::vector<Element>& source, SAFEARRAY** target)
{
    if (*target != nullptr) {
        const HRESULT destroyed = SafeArrayDestroy(*target);
        if (FAILED(destroyed))
            return destroyed;
        *target = nullptr;
    }
    // The upper bound would not fit its 32 bits.
    if (source.size() > std::numeric_limits<LONG>::max())
        return E_OUTOFMEMORY;
    SAFEARRAYBOUND bound{};
    bound.cElements = static_cast<ULONG>(source.size());
    *target = SafeArrayCreate(type, 1, &bound);
    if (*target == nullptr)
        return E_OUTOFMEMORY;

    DataAccess access(*target);
    // The new array stays in the target here: it is valid, and the caller owns it.
    if (FAILED(access.result()))
        return access.result();
    const HRESULT put = PutElements(source, static_cast<Slot*>(access.data()));
    const HRESULT ended = access.End();
    if (SUCCEEDED(put))
        return ended;
    SafeArrayDestroy(*target);
    *target = nullptr;
    return put;
}

const std::byte* AddressOf(SAFEARRAY* array, LONG index)
{
    void* element = nullptr;
    Check(SafeArrayPtrOfIndex(array, &index, &element));
    return static_cast<const std::byte*>(element);
}

/// Reads an element at any address: a foreign array need not align its elements.
template <class Slot>
Slot Read(const std::byte* element)
{
    Slot slot;
    std::memcpy(&slot, element, sizeof slot);
    return slot;
}

void AppendElement(const std::byte* element, std::vector<LONG>& target)
{
    target.push_back(Read<LONG>(element));
}

void AppendElement(const std::byte* element, std::vector<_variant_t>& target)
{
    const auto source = Read<VARIANT>(element);
    Check(Copy(target.emplace_back(), source));
}

void AppendElement(const std::byte* element, std::vector<wstring>& target)
{
    const auto text = Read<BSTR>(element);
    if (text != nullptr)
        target.emplace_back(reinterpret_cast<const unsigned short*>(text));
    else
        target.emplace_back();
}

/// Appends the elements from index 0 to `last`. A second variable counts, so that the largest `last` ends the loop too.
template <class Element>
void AppendElements(SAFEARRAY* array, LONG last, std::vector<Element>& target)
{
    for (LONG left = last, index = 0; left >= 0; --left, ++index)
        AppendElement(AddressOf(array, index), target);
}

/// Numbers without gaps, in an aligned array, are copied at once: that is many times as fast as one call per element.
void AppendElements(SAFEARRAY* array, LONG last, std::vector<LONG>& target)
{
    if (last < 0)
        return;
    const std::byte* const first = AddressOf(array, 0);
    const std::ptrdiff_t bytes = AddressOf(array, last) - first;
    if (bytes != std::ptrdiff_t{last} * std::ptrdiff_t{sizeof(LONG)} ||
        reinterpret_cast<std::uintptr_t>(first) % alignof(LONG) != 0)
        return AppendElements<LONG>(array, last, target);
    const auto* const numbers = reinterpret_cast<const LONG*>(first);
    target.insert(target.end(), numbers, numbers + last + 1);
}

template <class Element>
LONG ArrayToVector(const SAFEARRAY* source, std::vector<Element>& target)
{
    target.clear();
    // The platform's functions take no constant array. Only its lock count changes.
    auto* const array = const_cast<SAFEARRAY*>(source);
    if (array == nullptr || SafeArrayGetDim(array) != 1)
        return E_INVALIDARG;
    bool locked = false;
    try {
        LONG last = 0;
        Check(SafeArrayGetUBound(array, 1, &last));
        target.reserve(array->rgsabound[0].cElements);
        Check(SafeArrayLock(array));
        locked = true;
        AppendElements(array, last, target);
        locked = false;
        Check(SafeArrayUnlock(array));
        return S_OK;
    } catch (const _com_error&) {
        // By contract an automation failure always unlocks, even if it came before the lock.
        SafeArrayUnlock(array);
        target.clear();
        throw;
    } catch (...) {
        if (locked)
            SafeArrayUnlock(array);
        target.clear();
        throw;
    }
}

}  // namespace

LONG utility::getSafeArrayCount(SAFEARRAY* array, ULONG dimension)
{
    if (array == nullptr || SafeArrayGetDim(array) < dimension)
        throw _com_error(E_INVALIDARG);
    LONG lower = 0;
    LONG upper = 0;
    Check(SafeArrayGetLBound(array, dimension, &lower));
    Check(SafeArrayGetUBound(array, dimension, &upper));
    // In 64 bits, as an array with the widest bounds has more elements than a LONG can count.
    return static_cast<LONG>(std::int64_t{upper} - lower + 1);
}

LONG utility::CCOMUtility::VectStrToSafeArray(const std::vector<wstring>& source, SAFEARRAY** target)
{
    return VectorToArray<BSTR>(VT_BSTR, source, target);
}

LONG utility::CCOMUtility::SafeArrayToVectStr(const SAFEARRAY* source, std::vector<wstring>& target)
{
    return ArrayToVector(source, target);
}

LONG utility::CCOMUtility::VectLongToSafeArray(const std::vector<LONG>& source, SAFEARRAY** target)
{
    return VectorToArray<LONG>(VT_I4, source, target);
}

LONG utility::CCOMUtility::SafeArrayToVectLong(const SAFEARRAY* source, std::vector<LONG>& target)
{
    return ArrayToVector(source, target);
}

LONG utility::CCOMUtility::VectVariantToSafeArray(const std::vector<_variant_t>& source, SAFEARRAY** target)
{
    return VectorToArray<VARIANT>(VT_VARIANT, source, target);
}

LONG utility::CCOMUtility::SafeArrayToVariant(const SAFEARRAY* source, std::vector<_variant_t>& target)
{
    return ArrayToVector(source, target);
}
