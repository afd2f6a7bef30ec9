// Automation data for Linux, with the platform's published names, fields and values: strings, variants and safe arrays.
// Included by platform.h.
//
// Threads: one string, variant or array serves one thread at a time. Only the lock count of an array may be changed by
// several threads at once. Memory: a call that runs out of memory returns E_OUTOFMEMORY or null and changes nothing.
#pragma once

#include "tessmaru/platform.h"

using CHAR = char;
using SHORT = std::int16_t;
using USHORT = std::uint16_t;
using FLOAT = float;
using DOUBLE = double;
using DATE = double;
using SCODE = LONG;
using OLECHAR = WCHAR;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
using VARTYPE = unsigned short;
using VARIANT_BOOL = std::int16_t;

constexpr VARIANT_BOOL VARIANT_FALSE = 0;
constexpr VARIANT_BOOL VARIANT_TRUE = -1;

constexpr VARTYPE VT_EMPTY = 0;
constexpr VARTYPE VT_NULL = 1;
constexpr VARTYPE VT_I2 = 2;
constexpr VARTYPE VT_I4 = 3;
constexpr VARTYPE VT_R4 = 4;
constexpr VARTYPE VT_R8 = 5;
constexpr VARTYPE VT_CY = 6;
constexpr VARTYPE VT_DATE = 7;
constexpr VARTYPE VT_BSTR = 8;
constexpr VARTYPE VT_DISPATCH = 9;
constexpr VARTYPE VT_ERROR = 10;
constexpr VARTYPE VT_BOOL = 11;
constexpr VARTYPE VT_VARIANT = 12;
constexpr VARTYPE VT_UNKNOWN = 13;
constexpr VARTYPE VT_DECIMAL = 14;
constexpr VARTYPE VT_I1 = 16;
constexpr VARTYPE VT_UI1 = 17;
constexpr VARTYPE VT_UI2 = 18;
constexpr VARTYPE VT_UI4 = 19;
constexpr VARTYPE VT_I8 = 20;
constexpr VARTYPE VT_UI8 = 21;
constexpr VARTYPE VT_INT = 22;
constexpr VARTYPE VT_UINT = 23;
constexpr VARTYPE VT_VOID = 24;
constexpr VARTYPE VT_HRESULT = 25;
constexpr VARTYPE VT_PTR = 26;
constexpr VARTYPE VT_SAFEARRAY = 27;
constexpr VARTYPE VT_CARRAY = 28;
constexpr VARTYPE VT_USERDEFINED = 29;
constexpr VARTYPE VT_LPSTR = 30;
constexpr VARTYPE VT_LPWSTR = 31;
constexpr VARTYPE VT_RECORD = 36;
constexpr VARTYPE VT_FILETIME = 64;
constexpr VARTYPE VT_BLOB = 65;
constexpr VARTYPE VT_STREAM = 66;
constexpr VARTYPE VT_STORAGE = 67;
constexpr VARTYPE VT_CF = 71;
constexpr VARTYPE VT_CLSID = 72;
constexpr VARTYPE VT_ILLEGALMASKED = 0x0FFF;
constexpr VARTYPE VT_TYPEMASK = 0x0FFF;
constexpr VARTYPE VT_VECTOR = 0x1000;
constexpr VARTYPE VT_ARRAY = 0x2000;
constexpr VARTYPE VT_BYREF = 0x4000;
constexpr VARTYPE VT_RESERVED = 0x8000;
constexpr VARTYPE VT_ILLEGAL = 0xFFFF;

// Fields without a name are the published form of these records.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"

/// An amount of money in units of 1/10,000.
union tagCY {
    struct {
        ULONG Lo;
        LONG Hi;
    };
    LONGLONG int64;
};
using CY = tagCY;

/// A number of 96 bits, a sign (0x80: negative) and a scale (0 to 28): the number is divided by 10 to the power of it.
struct tagDEC {
    USHORT wReserved;
    union {
        struct {
            BYTE scale;
            BYTE sign;
        };
        USHORT signscale;
    };
    ULONG Hi32;
    union {
        struct {
            ULONG Lo32;
            ULONG Mid32;
        };
        ULONGLONG Lo64;
    };
};
using DECIMAL = tagDEC;

struct IUnknown;
struct IDispatch;
struct IRecordInfo;
struct tagSAFEARRAY;
using SAFEARRAY = tagSAFEARRAY;

/// A value of any automation type. With VT_BYREF in `vt` it is a reference to a value that it does not own. Records
/// (VT_RECORD) are not supported.
struct tagVARIANT {
    union {
        struct {
            VARTYPE vt;
            WORD wReserved1;
            WORD wReserved2;
            WORD wReserved3;
            union {
                LONGLONG llVal;
                LONG lVal;
                BYTE bVal;
                SHORT iVal;
                FLOAT fltVal;
                DOUBLE dblVal;
                VARIANT_BOOL boolVal;
                SCODE scode;
                CY cyVal;
                DATE date;
                BSTR bstrVal;
                IUnknown* punkVal;
                IDispatch* pdispVal;
                SAFEARRAY* parray;
                BYTE* pbVal;
                SHORT* piVal;
                LONG* plVal;
                LONGLONG* pllVal;
                FLOAT* pfltVal;
                DOUBLE* pdblVal;
                VARIANT_BOOL* pboolVal;
                SCODE* pscode;
                CY* pcyVal;
                DATE* pdate;
                BSTR* pbstrVal;
                IUnknown** ppunkVal;
                IDispatch** ppdispVal;
                SAFEARRAY** pparray;
                tagVARIANT* pvarVal;
                PVOID byref;
                CHAR cVal;
                USHORT uiVal;
                ULONG ulVal;
                ULONGLONG ullVal;
                INT intVal;
                UINT uintVal;
                DECIMAL* pdecVal;
                CHAR* pcVal;
                USHORT* puiVal;
                ULONG* pulVal;
                ULONGLONG* pullVal;
                INT* pintVal;
                UINT* puintVal;
                struct {
                    PVOID pvRecord;
                    IRecordInfo* pRecInfo;
                };
            };
        };
        DECIMAL decVal;  // its first word is `vt`
    };
};
using VARIANT = tagVARIANT;
using VARIANTARG = tagVARIANT;

#pragma GCC diagnostic pop

struct tagSAFEARRAYBOUND {
    ULONG cElements;
    LONG lLbound;
};
using SAFEARRAYBOUND = tagSAFEARRAYBOUND;

/// An array of automation data. The bounds are in order from the last dimension to the first. In the data the index of
/// the first dimension changes fastest.
struct tagSAFEARRAY {
    USHORT cDims;
    USHORT fFeatures;
    ULONG cbElements;
    ULONG cLocks;
    PVOID pvData;
    SAFEARRAYBOUND rgsabound[1];
};

constexpr USHORT FADF_AUTO = 0x1;
constexpr USHORT FADF_STATIC = 0x2;
constexpr USHORT FADF_EMBEDDED = 0x4;
constexpr USHORT FADF_FIXEDSIZE = 0x10;
constexpr USHORT FADF_RECORD = 0x20;
constexpr USHORT FADF_HAVEIID = 0x40;
constexpr USHORT FADF_HAVEVARTYPE = 0x80;
constexpr USHORT FADF_BSTR = 0x100;
constexpr USHORT FADF_UNKNOWN = 0x200;
constexpr USHORT FADF_DISPATCH = 0x400;
constexpr USHORT FADF_VARIANT = 0x800;

extern "C" {

/// Makes a string of the units up to the first zero. @return null for null, or if there is no memory.
TESSMARU_API BSTR SysAllocString(const OLECHAR* text);

/// Makes a string of exactly `units` units, including inner zeros. If `text` is null, the units are zero.
TESSMARU_API BSTR SysAllocStringLen(const OLECHAR* text, UINT units);

/// Makes a string of exactly `count` bytes of any content.
TESSMARU_API BSTR SysAllocStringByteLen(LPCSTR bytes, UINT count);

/// Replaces a string by a new one and ends the old one; `text` may be part of the old one.
/// @return non-zero; 0 if there is no memory, and the old string is unchanged.
TESSMARU_API INT SysReAllocString(BSTR* string, const OLECHAR* text);
TESSMARU_API INT SysReAllocStringLen(BSTR* string, const OLECHAR* text, UINT units);

/// Ends a string; null is allowed.
TESSMARU_API void SysFreeString(BSTR string);

/// The length of a string, in units or in bytes, by its length prefix; 0 for null.
TESSMARU_API UINT SysStringLen(BSTR string);
TESSMARU_API UINT SysStringByteLen(BSTR string);

/// Makes a variant VT_EMPTY and releases nothing: for memory that is not a variant yet.
TESSMARU_API void VariantInit(VARIANT* variant);

/// Releases what the variant owns and makes it VT_EMPTY.
/// @return DISP_E_BADVARTYPE or DISP_E_ARRAYISLOCKED on failure, and the variant is unchanged.
TESSMARU_API HRESULT VariantClear(VARIANT* variant);

/// Clears `target` and makes it a deep copy of `source`: strings and arrays are copied, interfaces get one more
/// reference. Of a VT_BYREF variant only the reference is copied.
TESSMARU_API HRESULT VariantCopy(VARIANT* target, const VARIANT* source);

/// Makes an array with all elements zero; end it with SafeArrayDestroy.
/// @return null if there is no memory, for a type that arrays cannot hold, for no dimension or more than 65535, for
///         bounds of more than 32 bits and for elements of more than 4 GB.
TESSMARU_API SAFEARRAY* SafeArrayCreate(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds);
TESSMARU_API SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG elements);

/// Ends an array and everything that its elements own; the other two end only its data or only its descriptor.
/// @return DISP_E_ARRAYISLOCKED for a locked array, which is unchanged.
TESSMARU_API HRESULT SafeArrayDestroy(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayDestroyData(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayDestroyDescriptor(SAFEARRAY* array);

/// Changes the bounds of the last dimension. Remaining elements keep their values, new elements are zero.
TESSMARU_API HRESULT SafeArrayRedim(SAFEARRAY* array, SAFEARRAYBOUND* bound);

/// Makes a deep copy, which is not locked.
TESSMARU_API HRESULT SafeArrayCopy(SAFEARRAY* source, SAFEARRAY** copy);

/// The number of dimensions; the size of an element in bytes; the element type.
TESSMARU_API UINT SafeArrayGetDim(SAFEARRAY* array);
TESSMARU_API UINT SafeArrayGetElemsize(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type);

/// The bounds of a dimension; dimensions count from 1.
/// @return DISP_E_BADINDEX for a dimension that the array does not have.
TESSMARU_API HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound);
TESSMARU_API HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound);

/// Locks count up to 65535. A locked array cannot be ended or given new bounds. The second pair also returns the
/// address of the data.
TESSMARU_API HRESULT SafeArrayLock(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayUnlock(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data);
TESSMARU_API HRESULT SafeArrayUnaccessData(SAFEARRAY* array);

/// The address of an element. The first of `indices` is that of the first dimension.
/// @return DISP_E_BADINDEX for an index outside the bounds.
TESSMARU_API HRESULT SafeArrayPtrOfIndex(SAFEARRAY* array, LONG* indices, void** element);

/// Makes a deep copy of an element, which the caller releases. `element` need not be initialised.
TESSMARU_API HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* element);

/// Stores a deep copy of a value and releases the earlier element. `element` is the address of the value, but for a
/// string or an interface it is the pointer itself.
TESSMARU_API HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* element);

}  // extern "C"
