// Contract of security records in their published layouts, and of the heap.
#include "system.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

BYTE everyone[] = {1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};

std::vector<BYTE> Bytes(const void* record, std::size_t count)
{
    const auto* const first = static_cast<const BYTE*>(record);
    return {first, first + count};
}

/// The error of a call that must fail.
DWORD Refused(BOOL done)
{
    const DWORD error = GetLastError();
    EXPECT_FALSE(done);
    return error;
}

class Acl {
public:
    explicit Acl(DWORD bytes) : Made(InitializeAcl(get(), bytes, ACL_REVISION)) { EXPECT_TRUE(Made); }
    ACL* get() { return reinterpret_cast<ACL*>(Room); }
    ACL* operator->() { return get(); }
    std::vector<BYTE> bytes(std::size_t count) const { return Bytes(Room, count); }

private:
    alignas(8) BYTE Room[128]{};
    const BOOL Made;
};

TEST(Security, SidsCarryTheirSubAuthorities)
{
    SID_IDENTIFIER_AUTHORITY authority{{1, 2, 3, 4, 5, 6}};
    PSID sid = nullptr;
    ASSERT_TRUE(AllocateAndInitializeSid(&authority, 2, 0x11121314, 0xFF, 9, 9, 9, 9, 9, 9, &sid));
    EXPECT_EQ(GetLengthSid(sid), 16U);
    EXPECT_EQ(Bytes(sid, 16), (std::vector<BYTE>{1, 2, 1, 2, 3, 4, 5, 6, 0x14, 0x13, 0x12, 0x11, 0xFF, 0, 0, 0}));
    EXPECT_EQ(FreeSid(sid), nullptr);

    ASSERT_TRUE(AllocateAndInitializeSid(&authority, 8, 1, 2, 3, 4, 5, 6, 7, 8, &sid));
    EXPECT_EQ(GetLengthSid(sid), 40U);
    for (DWORD i = 0; i < 8; ++i)
        EXPECT_EQ(static_cast<SID*>(sid)->SubAuthority[i], i + 1);
    EXPECT_EQ(FreeSid(sid), nullptr);
    EXPECT_EQ(Refused(AllocateAndInitializeSid(&authority, 9, 1, 2, 3, 4, 5, 6, 7, 8, &sid)), DWORD{ERROR_INVALID_SID});
}

TEST(Security, ListsHoldTheirEntriesInOrder)
{
    Acl list(64);
    EXPECT_EQ(list.bytes(8), (std::vector<BYTE>{2, 0, 64, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(AddAccessDeniedAce(list.get(), ACL_REVISION, WRITE_DAC | WRITE_OWNER, everyone));
    EXPECT_TRUE(AddAccessAllowedAce(list.get(), ACL_REVISION, GENERIC_ALL, everyone));
    EXPECT_EQ(list.bytes(48), (std::vector<BYTE>{2, 0, 64, 0, 2, 0, 0,    0,                                         //
                                                 1, 0, 20, 0, 0, 0, 0x0C, 0,    1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0,  //
                                                 0, 0, 20, 0, 0, 0, 0,    0x10, 1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}));
}

TEST(Security, ListRefusesEntriesThatDoNotFit)
{
    Acl list(sizeof(ACL) + 2 * 20);
    EXPECT_TRUE(AddAccessAllowedAce(list.get(), ACL_REVISION, 1, everyone));
    EXPECT_TRUE(AddAccessDeniedAce(list.get(), ACL_REVISION, 1, everyone));
    EXPECT_EQ(Refused(AddAccessAllowedAce(list.get(), ACL_REVISION, 1, everyone)),
              DWORD{ERROR_ALLOTTED_SPACE_EXCEEDED});
    EXPECT_EQ(Refused(AddAccessDeniedAce(list.get(), ACL_REVISION, 1, everyone)), DWORD{ERROR_ALLOTTED_SPACE_EXCEEDED});
    EXPECT_EQ(list->AceCount, 2);
}

TEST(Security, ListHasTheHighestRevisionOfItsEntries)
{
    constexpr DWORD forDirectories = 4;
    Acl list(64);
    EXPECT_TRUE(AddAccessAllowedAce(list.get(), ACL_REVISION, 1, everyone));
    EXPECT_EQ(list->AclRevision, ACL_REVISION);
    EXPECT_TRUE(AddAccessAllowedAce(list.get(), forDirectories, 1, everyone));
    EXPECT_EQ(list->AclRevision, forDirectories);
    ASSERT_TRUE(InitializeAcl(list.get(), 64, forDirectories));
    EXPECT_TRUE(AddAccessDeniedAce(list.get(), ACL_REVISION, 1, everyone));
    EXPECT_EQ(list->AclRevision, forDirectories);
    EXPECT_EQ(list->AceCount, 1);
}

TEST(Security, ListRefusesInvalidRecords)
{
    alignas(8) BYTE room[64]{};
    auto* const list = reinterpret_cast<ACL*>(room);
    EXPECT_EQ(Refused(InitializeAcl(list, sizeof(ACL) - 1, ACL_REVISION)), DWORD{ERROR_INSUFFICIENT_BUFFER});
    for (const DWORD revision : {0U, 1U, 5U, 9U})
        EXPECT_EQ(Refused(InitializeAcl(list, sizeof room, revision)), DWORD{ERROR_INVALID_PARAMETER}) << revision;
    EXPECT_EQ(Refused(InitializeAcl(list, 0x10000, ACL_REVISION)), DWORD{ERROR_INVALID_PARAMETER});
    ASSERT_TRUE(InitializeAcl(list, sizeof room, ACL_REVISION));

    BYTE unknownSid[] = {2, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0};
    for (const auto add : {AddAccessAllowedAce, AddAccessDeniedAce}) {
        EXPECT_EQ(Refused(add(list, ACL_REVISION, 1, unknownSid)), DWORD{ERROR_INVALID_SID});
        EXPECT_EQ(Refused(add(list, 9, 1, everyone)), DWORD{ERROR_REVISION_MISMATCH});
        list->AceCount = 1;
        const BYTE overrun[] = {0, 0, 200, 0};
        std::memcpy(room + sizeof(ACL), overrun, sizeof overrun);
        EXPECT_EQ(Refused(add(list, ACL_REVISION, 1, everyone)), DWORD{ERROR_INVALID_ACL})
            << "a list with a wrong count";
        list->AceCount = 0;
        ACL zeros[8]{};
        EXPECT_EQ(Refused(add(zeros, ACL_REVISION, 1, everyone)), DWORD{ERROR_INVALID_ACL}) << "not even a header";
        EXPECT_EQ(zeros[0].AceCount, 0);
    }
    EXPECT_TRUE(AddAccessAllowedAce(list, ACL_REVISION, 1, everyone));
}

TEST(Security, DescriptorsReferToTheirList)
{
    Acl list(64);
    SECURITY_DESCRIPTOR descriptor;
    std::memset(&descriptor, 0xEE, sizeof descriptor);
    ASSERT_TRUE(InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    EXPECT_EQ(descriptor.Revision, 1);
    EXPECT_EQ(descriptor.Sbz1, 0);
    EXPECT_EQ(descriptor.Control, 0);
    EXPECT_TRUE(descriptor.Owner == nullptr && descriptor.Group == nullptr);
    EXPECT_TRUE(descriptor.Sacl == nullptr && descriptor.Dacl == nullptr);

    const struct {
        BOOL Present;
        ACL* List;
        BOOL Defaulted;
        WORD Control;
    } rows[] = {
        {TRUE, list.get(), FALSE, SE_DACL_PRESENT},
        {TRUE, list.get(), TRUE, SE_DACL_PRESENT | SE_DACL_DEFAULTED},
        {TRUE, nullptr, FALSE, SE_DACL_PRESENT},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(SetSecurityDescriptorDacl(&descriptor, row.Present, row.List, row.Defaulted));
        EXPECT_EQ(descriptor.Control, row.Control);
        EXPECT_EQ(descriptor.Dacl, row.List);
    }
    EXPECT_TRUE(SetSecurityDescriptorDacl(&descriptor, FALSE, list.get(), FALSE));
    EXPECT_EQ(descriptor.Control & SE_DACL_PRESENT, 0);

    EXPECT_EQ(Refused(InitializeSecurityDescriptor(&descriptor, 2)), DWORD{ERROR_UNKNOWN_REVISION});
    descriptor.Revision = 2;
    EXPECT_EQ(Refused(SetSecurityDescriptorDacl(&descriptor, TRUE, list.get(), FALSE)), DWORD{ERROR_UNKNOWN_REVISION});
}

TEST(Heap, FillsBlocksWithZerosOnRequest)
{
    const HANDLE heap = GetProcessHeap();
    ASSERT_NE(heap, nullptr);
    EXPECT_EQ(GetProcessHeap(), heap);
    for (const SIZE_T bytes : {SIZE_T{1}, SIZE_T{100}, SIZE_T{5000}}) {
        for (int round = 0; round < 20; ++round) {
            void* const block = HeapAlloc(heap, HEAP_ZERO_MEMORY, bytes);
            ASSERT_NE(block, nullptr);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % (2 * sizeof(void*)), 0U);
            EXPECT_EQ(Bytes(block, bytes), std::vector<BYTE>(bytes, 0));
            std::memset(block, 0xEE, bytes);
            EXPECT_TRUE(HeapFree(heap, 0, block));
        }
    }
    void* const one = HeapAlloc(heap, 0, 0);
    void* const other = HeapAlloc(heap, 0, 0);
    EXPECT_TRUE(one != nullptr && other != nullptr && one != other) << "blocks of size 0 are different blocks";
    EXPECT_TRUE(HeapFree(heap, 0, one));
    EXPECT_TRUE(HeapFree(heap, 0, other));
}

}  // namespace
