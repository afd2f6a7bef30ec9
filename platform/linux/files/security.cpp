// Builds security records in their published layouts, and derives the mode bits of a file from them.
//
// A SID names an account. An access control list (ACL) is a header and AceCount entries, one after another: a header
// with the entry's size, an access mask and a SID. Callers hand in all of this memory, so every size is checked.
#include "files/security.h"

#include "base/last_error.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <sys/stat.h>

namespace {

constexpr BYTE SidRevision = 1;
constexpr BYTE MaxSubAuthorities = 8;
constexpr BYTE MaxAclRevision = 4;
// "Everyone" is S-1-1-0: this authority, and 0 as its only subauthority.
constexpr SID_IDENTIFIER_AUTHORITY WorldAuthority{{0, 0, 0, 0, 0, 1}};

// Rights on a file that an entry may grant instead of the generic ones.
constexpr DWORD FILE_READ_DATA = 1;
constexpr DWORD FILE_WRITE_DATA = 2;

DWORD SidBytes(BYTE subAuthorities)
{
    return static_cast<DWORD>(offsetof(SID, SubAuthority) + subAuthorities * sizeof(DWORD));
}

bool IsValidSid(const SID* sid)
{
    return sid != nullptr && sid->Revision == SidRevision && sid->SubAuthorityCount <= MaxSubAuthorities;
}

bool IsEveryone(const SID* sid)
{
    return IsValidSid(sid) && sid->SubAuthorityCount == 1 && sid->SubAuthority[0] == 0 &&
           std::memcmp(&sid->IdentifierAuthority, &WorldAuthority, sizeof WorldAuthority) == 0;
}

/// The end of a list's last entry, where the next one goes.
/// @return null if the header or an entry does not fit into the list's size
BYTE* FindEndOfEntries(ACL* acl)
{
    if (acl->AclSize < sizeof(ACL))
        return nullptr;
    auto* const start = reinterpret_cast<BYTE*>(acl);
    BYTE* entry = start + sizeof(ACL);
    BYTE* const end = start + acl->AclSize;
    for (WORD i = 0; i < acl->AceCount; ++i) {
        if (end - entry < static_cast<std::ptrdiff_t>(sizeof(ACE_HEADER)))
            return nullptr;
        ACE_HEADER header{};
        std::memcpy(&header, entry, sizeof header);
        if (header.AceSize < sizeof(ACE_HEADER) || header.AceSize > end - entry)
            return nullptr;
        entry += header.AceSize;
    }
    return entry;
}

/// Appends an entry of a type to a list, and raises the list's revision to the entry's.
/// @return FALSE with the last error set, and the list unchanged
BOOL AddEntry(BYTE type, ACL* acl, DWORD revision, DWORD mask, PSID sid)
{
    if (!IsValidSid(static_cast<SID*>(sid)))
        return layer::Fail(ERROR_INVALID_SID, FALSE);
    if (revision > MaxAclRevision)
        return layer::Fail(ERROR_REVISION_MISMATCH, FALSE);
    BYTE* const place = acl == nullptr ? nullptr : FindEndOfEntries(acl);
    if (place == nullptr)
        return layer::Fail(ERROR_INVALID_ACL, FALSE);
    const DWORD sidBytes = GetLengthSid(sid);
    const auto bytes = static_cast<DWORD>(offsetof(ACCESS_ALLOWED_ACE, SidStart) + sidBytes);
    if (bytes > acl->AclSize - static_cast<DWORD>(place - reinterpret_cast<BYTE*>(acl)))
        return layer::Fail(ERROR_ALLOTTED_SPACE_EXCEEDED, FALSE);
    ACCESS_ALLOWED_ACE entry{};
    entry.Header.AceType = type;
    entry.Header.AceSize = static_cast<WORD>(bytes);
    entry.Mask = mask;
    // SidStart only marks where the SID starts, so it is not copied.
    std::memcpy(place, &entry, offsetof(ACCESS_ALLOWED_ACE, SidStart));
    std::memcpy(place + offsetof(ACCESS_ALLOWED_ACE, SidStart), sid, sidBytes);
    acl->AclRevision = std::max(acl->AclRevision, static_cast<BYTE>(revision));
    ++acl->AceCount;
    return TRUE;
}

/// The rights of an entry as the mode bits for "other": one octal digit.
unsigned AccessBits(DWORD mask)
{
    unsigned bits = 0;
    if ((mask & (GENERIC_ALL | GENERIC_READ | FILE_READ_DATA)) != 0)
        bits |= S_IROTH;
    if ((mask & (GENERIC_ALL | GENERIC_WRITE | FILE_WRITE_DATA)) != 0)
        bits |= S_IWOTH;
    return bits;
}

/// The access that a list gives to everyone, as mode bits for "other". The first entry that grants or denies a right
/// decides it, as in the platform's access check. Entries for other accounts have no counterpart in mode bits.
unsigned AccessOfEveryone(ACL* acl)
{
    unsigned allowed = 0;
    unsigned decided = 0;
    if (FindEndOfEntries(acl) == nullptr)
        return 0;
    const BYTE* entry = reinterpret_cast<const BYTE*>(acl) + sizeof(ACL);
    for (WORD i = 0; i < acl->AceCount; ++i) {
        // Allow and deny entries have the same layout.
        const auto* const ace = reinterpret_cast<const ACCESS_ALLOWED_ACE*>(entry);
        entry += ace->Header.AceSize;
        if (ace->Header.AceSize < offsetof(ACCESS_ALLOWED_ACE, SidStart) + SidBytes(1) ||
            !IsEveryone(reinterpret_cast<const SID*>(&ace->SidStart)))
            continue;
        const unsigned bits = AccessBits(ace->Mask) & ~decided;
        decided |= bits;
        if (ace->Header.AceType == ACCESS_ALLOWED_ACE_TYPE)
            allowed |= bits;
    }
    return allowed;
}

}  // namespace

layer::FileMode layer::ModeOf(const SECURITY_ATTRIBUTES* attributes)
{
    // This factor copies the octal digit of "other" to owner and group, which belong to everyone.
    constexpr unsigned allClasses = S_IXUSR | S_IXGRP | S_IXOTH;
    constexpr unsigned fullAccess = S_IROTH | S_IWOTH;
    const auto* const descriptor =
        attributes == nullptr ? nullptr : static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor);
    if (descriptor == nullptr || (descriptor->Control & SE_DACL_PRESENT) == 0)
        return {fullAccess * allClasses, false};
    return {(descriptor->Dacl == nullptr ? fullAccess : AccessOfEveryone(descriptor->Dacl)) * allClasses, true};
}

// FreeSid frees what AllocateAndInitializeSid allocates, so both use the process heap.
BOOL AllocateAndInitializeSid(SID_IDENTIFIER_AUTHORITY* authority, BYTE count, DWORD sub0, DWORD sub1, DWORD sub2,
                              DWORD sub3, DWORD sub4, DWORD sub5, DWORD sub6, DWORD sub7, PSID* sid)
{
    if (authority == nullptr || sid == nullptr)
        return layer::Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (count > MaxSubAuthorities)
        return layer::Fail(ERROR_INVALID_SID, FALSE);
    void* const block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, SidBytes(count));
    if (block == nullptr)
        return layer::Fail(ERROR_OUTOFMEMORY, FALSE);
    const DWORD subAuthorities[MaxSubAuthorities] = {sub0, sub1, sub2, sub3, sub4, sub5, sub6, sub7};
    auto* const result = static_cast<SID*>(block);
    result->Revision = SidRevision;
    result->SubAuthorityCount = count;
    result->IdentifierAuthority = *authority;
    std::memcpy(result->SubAuthority, subAuthorities, count * sizeof(DWORD));
    *sid = block;
    return TRUE;
}

DWORD GetLengthSid(PSID sid)
{
    return SidBytes(static_cast<const SID*>(sid)->SubAuthorityCount);
}

PVOID FreeSid(PSID sid)
{
    HeapFree(GetProcessHeap(), 0, sid);
    return nullptr;
}

BOOL InitializeAcl(ACL* acl, DWORD bytes, DWORD revision)
{
    const bool isKnown = revision >= ACL_REVISION && revision <= MaxAclRevision;
    if (acl == nullptr || !isKnown || bytes > std::numeric_limits<WORD>::max())
        return layer::Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (bytes < sizeof(ACL))
        return layer::Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    *acl = ACL{static_cast<BYTE>(revision), 0, static_cast<WORD>(bytes), 0, 0};
    return TRUE;
}

BOOL AddAccessDeniedAce(ACL* acl, DWORD revision, DWORD mask, PSID sid)
{
    return AddEntry(ACCESS_DENIED_ACE_TYPE, acl, revision, mask, sid);
}

BOOL AddAccessAllowedAce(ACL* acl, DWORD revision, DWORD mask, PSID sid)
{
    return AddEntry(ACCESS_ALLOWED_ACE_TYPE, acl, revision, mask, sid);
}

BOOL InitializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision)
{
    if (descriptor == nullptr)
        return layer::Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (revision != SECURITY_DESCRIPTOR_REVISION)
        return layer::Fail(ERROR_UNKNOWN_REVISION, FALSE);
    *static_cast<SECURITY_DESCRIPTOR*>(descriptor) = SECURITY_DESCRIPTOR{};
    static_cast<SECURITY_DESCRIPTOR*>(descriptor)->Revision = SECURITY_DESCRIPTOR_REVISION;
    return TRUE;
}

BOOL SetSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, ACL* dacl, BOOL defaulted)
{
    auto* const record = static_cast<SECURITY_DESCRIPTOR*>(descriptor);
    if (record == nullptr)
        return layer::Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (record->Revision != SECURITY_DESCRIPTOR_REVISION)
        return layer::Fail(ERROR_UNKNOWN_REVISION, FALSE);
    record->Control = static_cast<WORD>(record->Control & ~(SE_DACL_PRESENT | SE_DACL_DEFAULTED));
    record->Dacl = nullptr;
    // "Not present" differs from a list that is null: the first leaves access to the defaults, the second grants all.
    if (present == FALSE)
        return TRUE;
    record->Control =
        static_cast<WORD>(record->Control | SE_DACL_PRESENT | (defaulted != FALSE ? SE_DACL_DEFAULTED : 0));
    record->Dacl = dacl;
    return TRUE;
}
