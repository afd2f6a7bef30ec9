// The sizes of the elements of safe arrays, and copying and releasing of what they own.
#include "automation/safe_array_elements.h"

layer::ElementType layer::ElementTypeOf(VARTYPE type)
{
    // The published rule: arrays of interfaces record an interface identifier, all others a type code.
    switch (type) {
        case VT_I1:
        case VT_UI1: return {sizeof(BYTE), FADF_HAVEVARTYPE};
        case VT_I2:
        case VT_UI2:
        case VT_BOOL: return {sizeof(SHORT), FADF_HAVEVARTYPE};
        case VT_I4:
        case VT_UI4:
        case VT_R4:
        case VT_INT:
        case VT_UINT:
        case VT_ERROR: return {sizeof(LONG), FADF_HAVEVARTYPE};
        case VT_I8:
        case VT_UI8:
        case VT_R8:
        case VT_CY:
        case VT_DATE: return {sizeof(LONGLONG), FADF_HAVEVARTYPE};
        case VT_DECIMAL: return {sizeof(DECIMAL), FADF_HAVEVARTYPE};
        case VT_BSTR: return {sizeof(BSTR), FADF_HAVEVARTYPE | FADF_BSTR};
        case VT_VARIANT: return {sizeof(VARIANT), FADF_HAVEVARTYPE | FADF_VARIANT};
        case VT_UNKNOWN: return {sizeof(void*), FADF_HAVEIID | FADF_UNKNOWN};
        case VT_DISPATCH: return {sizeof(void*), FADF_HAVEIID | FADF_DISPATCH};
        default: return {0, 0};
    }
}

bool layer::ElementsOwnResources(const SAFEARRAY& array)
{
    const ULONG bytes = (array.fFeatures & FADF_VARIANT) != 0 ? sizeof(VARIANT) : sizeof(void*);
    return (array.fFeatures & OwningFeatures) != 0 && array.cbElements == bytes;
}

void layer::ReleaseElement(USHORT features, std::byte* element)
{
    if ((features & FADF_BSTR) != 0)
        SysFreeString(*reinterpret_cast<BSTR*>(element));
    else if ((features & FADF_VARIANT) != 0)
        VariantClear(reinterpret_cast<VARIANT*>(element));
    else if (IUnknown* const object = *reinterpret_cast<IUnknown**>(element))
        object->Release();
}

HRESULT layer::CopyElement(USHORT features, const std::byte* from, std::byte* to)
{
    if ((features & FADF_BSTR) != 0) {
        // A null string stays null, unlike in VariantCopy, which turns it into an empty one.
        const BSTR string = *reinterpret_cast<const BSTR*>(from);
        const BSTR copy = string != nullptr
                              ? SysAllocStringByteLen(reinterpret_cast<LPCSTR>(string), SysStringByteLen(string))
                              : nullptr;
        *reinterpret_cast<BSTR*>(to) = copy;
        return copy == nullptr && string != nullptr ? E_OUTOFMEMORY : S_OK;
    }
    if ((features & FADF_VARIANT) != 0) {
        VariantInit(reinterpret_cast<VARIANT*>(to));
        return VariantCopy(reinterpret_cast<VARIANT*>(to), reinterpret_cast<const VARIANT*>(from));
    }
    IUnknown* const object = *reinterpret_cast<IUnknown* const*>(from);
    *reinterpret_cast<IUnknown**>(to) = object;
    if (object != nullptr)
        object->AddRef();
    return S_OK;
}

void layer::ReleaseElements(SAFEARRAY& array, std::size_t first, std::size_t end)
{
    if (!ElementsOwnResources(array))
        return;
    auto* const data = static_cast<std::byte*>(array.pvData);
    for (std::size_t at = first; at < end; at += array.cbElements)
        ReleaseElement(array.fFeatures, data + at);
}
