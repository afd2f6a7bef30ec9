// Automation data for Linux, with the platform's published names, fields and values: strings, variants and safe
// arrays. Included by platform.h.
//
// Thread rules: one string, variant or array serves one thread at a time. Only the lock count of an array may be
// changed from several threads at once. What needs memory and gets none fails with E_OUTOFMEMORY or a null result,
// and leaves what was there as it was.
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

/// An amount of money in ten-thousandths.
union tagCY {
    struct {
        ULONG Lo;
        LONG Hi;
    };
    LONGLONG int64;
};
using CY = tagCY;

/// 96 bits, a sign (0x80 for less than zero) and the power of ten (0 to 28) that divides them.
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

/// A value of any automation type. VT_BYREF in `vt` makes it a reference to a value that somebody else owns; records
/// (VT_RECORD) are not served here.
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
        DECIMAL decVal;  // its first word lies under `vt`
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

/// An array of automation data. The bounds stand from the last dimension to the first; the index of the first
/// dimension runs fastest in the data.
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

/// A new string of the units up to the first zero. @return null for null, and for want of memory.
TESSMARU_API BSTR SysAllocString(const OLECHAR* text);

/// A new string of exactly so many units, inner zeros included; null `text`: its units are zero.
TESSMARU_API BSTR SysAllocStringLen(const OLECHAR* text, UINT units);

/// A new string of exactly so many bytes, whatever they mean.
TESSMARU_API BSTR SysAllocStringByteLen(LPCSTR bytes, UINT count);

/// Puts a new string in the place of another and ends that one; `text` may lie inside it.
/// @return 0 for want of memory, with the old string as it was.
TESSMARU_API INT SysReAllocString(BSTR* string, const OLECHAR* text);
TESSMARU_API INT SysReAllocStringLen(BSTR* string, const OLECHAR* text, UINT units);

TESSMARU_API void SysFreeString(BSTR string);

/// What the string's length prefix says, in units or in bytes; 0 for null.
TESSMARU_API UINT SysStringLen(BSTR string);
TESSMARU_API UINT SysStringByteLen(BSTR string);

TESSMARU_API void VariantInit(VARIANT* variant);

/// Releases what the variant owns and makes it VT_EMPTY. @return DISP_E_BADVARTYPE, or DISP_E_ARRAYISLOCKED, and the
/// variant is as it was.
TESSMARU_API HRESULT VariantClear(VARIANT* variant);

/// Clears `target` and makes it a copy in depth: strings and arrays are copied, interfaces get a reference more; of
/// a VT_BYREF variant the reference alone is copied.
TESSMARU_API HRESULT VariantCopy(VARIANT* target, const VARIANT* source);

/// A new array, its elements all zero. @return null for want of memory, for an element type that no array holds, for
/// no dimension or more than 65535, and for bounds that do not fit 32 bits or elements that do not fit 4 GB.
TESSMARU_API SAFEARRAY* SafeArrayCreate(VARTYPE type, UINT dimensions, SAFEARRAYBOUND* bounds);
TESSMARU_API SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG elements);

/// Ends an array and all that its elements own. @return DISP_E_ARRAYISLOCKED, and nothing is ended.
TESSMARU_API HRESULT SafeArrayDestroy(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayDestroyData(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayDestroyDescriptor(SAFEARRAY* array);

/// Gives the last dimension new bounds. Elements that remain keep their values, new ones are zero.
TESSMARU_API HRESULT SafeArrayRedim(SAFEARRAY* array, SAFEARRAYBOUND* bound);

/// A copy in depth with no lock.
TESSMARU_API HRESULT SafeArrayCopy(SAFEARRAY* source, SAFEARRAY** copy);

TESSMARU_API UINT SafeArrayGetDim(SAFEARRAY* array);
TESSMARU_API UINT SafeArrayGetElemsize(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type);

/// Bounds of a dimension, counted from 1. @return DISP_E_BADINDEX for a dimension that the array has not.
TESSMARU_API HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound);
TESSMARU_API HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound);

/// Locks count up to 65535; a locked array is neither ended nor given new bounds.
TESSMARU_API HRESULT SafeArrayLock(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayUnlock(SAFEARRAY* array);
TESSMARU_API HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data);
TESSMARU_API HRESULT SafeArrayUnaccessData(SAFEARRAY* array);

/// Where an element lies; `indices` start with that of the first dimension. @return DISP_E_BADINDEX outside.
TESSMARU_API HRESULT SafeArrayPtrOfIndex(SAFEARRAY* array, LONG* indices, void** element);

/// Copies an element out, in depth: the copy is the caller's to release. `element` need not be initialised.
TESSMARU_API HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* element);

/// Copies a value in, in depth, and releases what was there. `element` is the address of the value; of a string or an
/// interface it is the pointer itself.
TESSMARU_API HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* element);

}  // extern "C"
