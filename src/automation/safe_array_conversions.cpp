// Lists between vectors and safe arrays. The kinds of element differ in one step only.
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

/// The source stays as it is, though not every platform's header says so.
HRESULT Copy(VARIANT& target, const VARIANT& source)
{
    return VariantCopy(&target, const_cast<VARIANT*>(&source));
}

/// The data of an array, locked while this lives.
class DataAccess {
public:
    explicit DataAccess(SAFEARRAY* array) : Array(array), Result(SafeArrayAccessData(array, &Data)) {}
    DataAccess(const DataAccess&) = delete;
    DataAccess& operator=(const DataAccess&) = delete;
    ~DataAccess() { End(); }

    HRESULT result() const { return Result; }
    void* data() const { return Data; }

    HRESULT End()
    {
        if (FAILED(Result))
            return S_OK;
        Result = E_UNEXPECTED;
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
        // Copied twice, as the two ways to run out of memory differ: the first copy throws and leaves the caller the
        // array as it is, the second one is a result and ends the array.
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
    if (source.size() > std::numeric_limits<LONG>::max())
        return E_OUTOFMEMORY;
    SAFEARRAYBOUND bound{};
    bound.cElements = static_cast<ULONG>(source.size());
    *target = SafeArrayCreate(type, 1, &bound);
    if (*target == nullptr)
        return E_OUTOFMEMORY;

    DataAccess access(*target);
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

/// The bits of an element, wherever it lies.
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

/// From index 0 on.
template <class Element>
void AppendElements(SAFEARRAY* array, LONG last, std::vector<Element>& target)
{
    for (LONG left = last, index = 0; left >= 0; --left, ++index)
        AppendElement(AddressOf(array, index), target);
}

/// Numbers that lie behind each other are copied at once.
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
        // Unlocked also if the failure came before the lock: the contract of these conversions has it so.
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
