// Security records in their published layouts, and the mode bits that an access list asks for.
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
constexpr SID_IDENTIFIER_AUTHORITY WorldAuthority{{0, 0, 0, 0, 0, 1}};

constexpr DWORD FILE_READ_DATA = 1;
constexpr DWORD FILE_WRITE_DATA = 2;

DWORD SidBytes(BYTE subAuthorities)
{
    return static_cast<DWORD>(offsetof(SID, SubAuthority) + subAuthorities * sizeof(DWORD));
}

bool IsSid(const SID* sid)
{
    return sid != nullptr && sid->Revision == SidRevision && sid->SubAuthorityCount <= MaxSubAuthorities;
}

bool IsEveryone(const SID* sid)
{
    return IsSid(sid) && sid->SubAuthorityCount == 1 && sid->SubAuthority[0] == 0 &&
           std::memcmp(&sid->IdentifierAuthority, &WorldAuthority, sizeof WorldAuthority) == 0;
}

/// Where the next entry of a list goes: behind the last one. Null for a list that contradicts itself.
BYTE* EndOfEntries(ACL* acl)
{
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

BOOL AddEntry(BYTE type, ACL* acl, DWORD revision, DWORD mask, PSID sid)
{
    if (!IsSid(static_cast<SID*>(sid)))
        return layer::Fail(ERROR_INVALID_SID, FALSE);
    if (revision > MaxAclRevision)
        return layer::Fail(ERROR_REVISION_MISMATCH, FALSE);
    BYTE* const place = acl == nullptr ? nullptr : EndOfEntries(acl);
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
    std::memcpy(place, &entry, offsetof(ACCESS_ALLOWED_ACE, SidStart));
    std::memcpy(place + offsetof(ACCESS_ALLOWED_ACE, SidStart), sid, sidBytes);
    acl->AclRevision = std::max(acl->AclRevision, static_cast<BYTE>(revision));
    ++acl->AceCount;
    return TRUE;
}

/// The access bits of one entry's rights, as a digit of a mode.
unsigned Digit(DWORD mask)
{
    unsigned digit = 0;
    if ((mask & (GENERIC_ALL | GENERIC_READ | FILE_READ_DATA)) != 0)
        digit |= S_IROTH;
    if ((mask & (GENERIC_ALL | GENERIC_WRITE | FILE_WRITE_DATA)) != 0)
        digit |= S_IWOTH;
    return digit;
}

/// What a list gives everyone: each right goes by the first entry that speaks of it.
unsigned DigitOfEveryone(ACL* acl)
{
    unsigned allowed = 0;
    unsigned decided = 0;
    if (EndOfEntries(acl) == nullptr)
        return 0;
    const BYTE* entry = reinterpret_cast<const BYTE*>(acl) + sizeof(ACL);
    for (WORD i = 0; i < acl->AceCount; ++i) {
        const auto* const ace = reinterpret_cast<const ACCESS_ALLOWED_ACE*>(entry);
        entry += ace->Header.AceSize;
        if (ace->Header.AceSize < offsetof(ACCESS_ALLOWED_ACE, SidStart) + SidBytes(1) ||
            !IsEveryone(reinterpret_cast<const SID*>(&ace->SidStart)))
            continue;
        const unsigned digit = Digit(ace->Mask) & ~decided;
        decided |= digit;
        if (ace->Header.AceType == ACCESS_ALLOWED_ACE_TYPE)
            allowed |= digit;
    }
    return allowed;
}

}  // namespace

layer::FileMode layer::ModeOf(const SECURITY_ATTRIBUTES* attributes)
{
    constexpr unsigned everyClass = S_IXUSR | S_IXGRP | S_IXOTH;
    constexpr unsigned everything = S_IROTH | S_IWOTH;
    const auto* const descriptor =
        attributes == nullptr ? nullptr : static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor);
    if (descriptor == nullptr || (descriptor->Control & SE_DACL_PRESENT) == 0)
        return {everything * everyClass, false};
    return {(descriptor->Dacl == nullptr ? everything : DigitOfEveryone(descriptor->Dacl)) * everyClass, true};
}

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
    auto* const made = static_cast<SID*>(block);
    made->Revision = SidRevision;
    made->SubAuthorityCount = count;
    made->IdentifierAuthority = *authority;
    std::memcpy(made->SubAuthority, subAuthorities, count * sizeof(DWORD));
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
    if (present == FALSE)
        return TRUE;
    record->Control =
        static_cast<WORD>(record->Control | SE_DACL_PRESENT | (defaulted != FALSE ? SE_DACL_DEFAULTED : 0));
    record->Dacl = dacl;
    return TRUE;
}
