// Contract of the records that programs or files share with the library: the compiler checks their published layouts on
// each platform.
#include "system.h"

#include <cstddef>

namespace {

template <class Type, std::size_t Size, std::size_t Alignment>
constexpr bool Is = sizeof(Type) == Size && alignof(Type) == Alignment;

constexpr std::size_t Pointer = sizeof(void*);

static_assert(Is<BYTE, 1, 1> && Is<WORD, 2, 2> && Is<DWORD, 4, 4> && Is<UINT, 4, 4> && Is<INT, 4, 4>);
static_assert(Is<LONG, 4, 4> && Is<ULONG, 4, 4> && Is<BOOL, 4, 4> && Is<HRESULT, 4, 4> && Is<WCHAR, 2, 2>);
static_assert(sizeof(LONGLONG) == 8 && sizeof(ULONGLONG) == 8);
static_assert(Is<DWORD_PTR, Pointer, Pointer> && Is<SIZE_T, Pointer, Pointer> && Is<HANDLE, Pointer, Pointer>);
static_assert(Is<HINSTANCE, Pointer, Pointer> && Is<HKEY, Pointer, Pointer> && Is<BSTR, Pointer, Pointer>);
static_assert(Is<LCID, 4, 4> && Is<LSTATUS, 4, 4>);
static_assert(LONG(-1) < 0 && HRESULT(-1) < 0 && LSTATUS(-1) < 0 && ULONG(-1) > 0 && DWORD(-1) > 0);

static_assert(Is<GUID, 16, 4>);
static_assert(offsetof(GUID, Data2) == 4 && offsetof(GUID, Data3) == 6 && offsetof(GUID, Data4) == 8);

static_assert(Is<ULONG_PTR, Pointer, Pointer> && EXCEPTION_MAXIMUM_PARAMETERS == 15);
static_assert(sizeof(EXCEPTION_RECORD) == (Pointer == 8 ? 152 : 80) && alignof(EXCEPTION_RECORD) == Pointer);
static_assert(offsetof(EXCEPTION_RECORD, ExceptionFlags) == 4 && offsetof(EXCEPTION_RECORD, ExceptionRecord) == 8);
static_assert(offsetof(EXCEPTION_RECORD, ExceptionAddress) == 8 + Pointer);
static_assert(offsetof(EXCEPTION_RECORD, NumberParameters) == 8 + 2 * Pointer);
static_assert(offsetof(EXCEPTION_RECORD, ExceptionInformation) == (Pointer == 8 ? 32 : 20));
static_assert(Is<EXCEPTION_POINTERS, 2 * Pointer, Pointer> && offsetof(EXCEPTION_POINTERS, ContextRecord) == Pointer);

static_assert(Is<SID, 12, 4>);
static_assert(offsetof(SID, SubAuthorityCount) == 1 && offsetof(SID, IdentifierAuthority) == 2);
static_assert(offsetof(SID, SubAuthority) == 8);
static_assert(Is<ACE_HEADER, 4, 2> && offsetof(ACE_HEADER, AceFlags) == 1 && offsetof(ACE_HEADER, AceSize) == 2);
static_assert(Is<ACCESS_ALLOWED_ACE, 12, 4> && Is<ACCESS_DENIED_ACE, 12, 4>);
static_assert(offsetof(ACCESS_ALLOWED_ACE, Mask) == 4 && offsetof(ACCESS_ALLOWED_ACE, SidStart) == 8);
static_assert(Is<ACL, 8, 2> && offsetof(ACL, Sbz1) == 1 && offsetof(ACL, AclSize) == 2);
static_assert(offsetof(ACL, AceCount) == 4 && offsetof(ACL, Sbz2) == 6);

static_assert(Is<SECURITY_DESCRIPTOR, 4 + 4 * Pointer + (Pointer == 8 ? 4 : 0), Pointer>);
static_assert(offsetof(SECURITY_DESCRIPTOR, Control) == 2 && offsetof(SECURITY_DESCRIPTOR, Owner) == Pointer);
static_assert(offsetof(SECURITY_DESCRIPTOR, Group) == 2 * Pointer &&
              offsetof(SECURITY_DESCRIPTOR, Sacl) == 3 * Pointer);
static_assert(offsetof(SECURITY_DESCRIPTOR, Dacl) == 4 * Pointer);
static_assert(Is<SECURITY_ATTRIBUTES, 3 * Pointer, Pointer>);
static_assert(offsetof(SECURITY_ATTRIBUTES, lpSecurityDescriptor) == Pointer);
static_assert(offsetof(SECURITY_ATTRIBUTES, bInheritHandle) == 2 * Pointer);

static_assert(Is<VARTYPE, 2, 2> && Is<VARIANT_BOOL, 2, 2> && Is<OLECHAR, 2, 2> && sizeof(DATE) == 8);
static_assert(sizeof(CY) == 8 && sizeof(DECIMAL) == 16);
static_assert(offsetof(DECIMAL, scale) == 2 && offsetof(DECIMAL, sign) == 3 && offsetof(DECIMAL, Hi32) == 4);
static_assert(offsetof(DECIMAL, Lo64) == 8 && offsetof(DECIMAL, Mid32) == 12);
static_assert(sizeof(VARIANT) == 8 + 2 * Pointer && sizeof(_variant_t) == sizeof(VARIANT));
static_assert(offsetof(VARIANT, vt) == 0 && offsetof(VARIANT, llVal) == 8 && offsetof(VARIANT, bstrVal) == 8);
static_assert(offsetof(VARIANT, pRecInfo) == 8 + Pointer && offsetof(VARIANT, decVal) == 0);
static_assert(Is<SAFEARRAYBOUND, 8, 4> && offsetof(SAFEARRAYBOUND, lLbound) == 4);
static_assert(Is<SAFEARRAY, 16 + 2 * Pointer, Pointer>);
static_assert(offsetof(SAFEARRAY, fFeatures) == 2 && offsetof(SAFEARRAY, cbElements) == 4);
static_assert(offsetof(SAFEARRAY, cLocks) == 8 && offsetof(SAFEARRAY, pvData) == 8 + Pointer);
static_assert(offsetof(SAFEARRAY, rgsabound) == 8 + 2 * Pointer);

static_assert(Is<VS_FIXEDFILEINFO, 52, 4>);
static_assert(offsetof(VS_FIXEDFILEINFO, dwFileVersionMS) == 8 && offsetof(VS_FIXEDFILEINFO, dwFileVersionLS) == 12);
static_assert(offsetof(VS_FIXEDFILEINFO, dwProductVersionMS) == 16);
static_assert(offsetof(VS_FIXEDFILEINFO, dwProductVersionLS) == 20 && offsetof(VS_FIXEDFILEINFO, dwFileFlags) == 28);
static_assert(offsetof(VS_FIXEDFILEINFO, dwFileOS) == 32 && offsetof(VS_FIXEDFILEINFO, dwFileType) == 36);

// The conversion of a system error to a code.
static_assert(HRESULT_FROM_WIN32(5) == static_cast<HRESULT>(0x80070005) && HRESULT_FROM_WIN32(0) == 0);
static_assert(HRESULT_FROM_WIN32(0x12345) == static_cast<HRESULT>(0x80072345));
static_assert(HRESULT_FROM_WIN32(0x80040302) == static_cast<HRESULT>(0x80040302));

}  // namespace
