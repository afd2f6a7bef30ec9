// Security attributes that admit every account. Copies of an object share its blocks, which the last of them releases.
#include "errors/last_error.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/primitives.h"

#include <atomic>
#include <new>

namespace {

/// A platform object that copies of one CSecurityDescriptor share. It is released if at least one of them has given it
/// back. A caller takes it away by setting the member to null.
class SharedObject {
public:
    void GiveBack() { IsBack.store(true, std::memory_order_relaxed); }

protected:
    bool isBack() const { return IsBack.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> IsBack{false};
};

/// A zeroed block of the process heap.
class HeapBlock : public SharedObject {
public:
    HeapBlock() = default;
    HeapBlock(const HeapBlock&) = delete;
    HeapBlock& operator=(const HeapBlock&) = delete;
    ~HeapBlock()
    {
        if (Block != nullptr && isBack())
            HeapFree(GetProcessHeap(), 0, Block);
    }

    bool Allocate(SIZE_T bytes)
    {
        Block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes);
        return Block != nullptr;
    }
    void* get() const { return Block; }

private:
    void* Block = nullptr;
};

/// The SID of all users, S-1-1-0.
class EveryoneSid : public SharedObject {
public:
    EveryoneSid() = default;
    EveryoneSid(const EveryoneSid&) = delete;
    EveryoneSid& operator=(const EveryoneSid&) = delete;
    ~EveryoneSid()
    {
        if (Sid != nullptr && isBack())
            FreeSid(Sid);
    }

    bool Allocate()
    {
        SID_IDENTIFIER_AUTHORITY world{{0, 0, 0, 0, 0, 1}};
        return AllocateAndInitializeSid(&world, 1, 0, 0, 0, 0, 0, 0, 0, 0, &Sid) != FALSE;
    }
    PSID get() const { return Sid; }

private:
    PSID Sid = nullptr;
};

/// Gives an object back, unless the caller has taken it away.
template <class Owner>
void GiveBack(const void* member, Owner& owner)
{
    if (member != nullptr && member == owner.get())
        owner.GiveBack();
}

}  // namespace

namespace utility {

/// What the copies of one object share. The members are released from the last to the first: the attributes refer to
/// the descriptor, the descriptor to the access list, the access list to the SID.
struct CSecurityDescriptor::Blocks {
    LONG Make();

    SECURITY_ATTRIBUTES* Attributes() const { return static_cast<SECURITY_ATTRIBUTES*>(AttributesBlock.get()); }
    ACL* Dacl() const { return static_cast<ACL*>(DaclBlock.get()); }

    EveryoneSid Everyone;
    HeapBlock DaclBlock;
    HeapBlock DescriptorBlock;
    HeapBlock AttributesBlock;
};

LONG CSecurityDescriptor::Blocks::Make()
{
    constexpr DWORD changeRights = WRITE_DAC | WRITE_OWNER;
    if (!Everyone.Allocate())
        return LastErrorCode();
    // Two entries with the SID; 32 bytes are enough for the header of the list and those of the entries.
    const DWORD daclBytes = 2 * GetLengthSid(Everyone.get()) + 32;
    if (!DaclBlock.Allocate(daclBytes))
        return E_OUTOFMEMORY;
    // The denial comes first: the first entry that matches a right decides.
    if (!InitializeAcl(Dacl(), daclBytes, ACL_REVISION) ||
        !AddAccessDeniedAce(Dacl(), ACL_REVISION, changeRights, Everyone.get()) ||
        !AddAccessAllowedAce(Dacl(), ACL_REVISION, GENERIC_ALL, Everyone.get()))
        return LastErrorCode();
    if (!DescriptorBlock.Allocate(sizeof(SECURITY_DESCRIPTOR)))
        return E_OUTOFMEMORY;
    if (!InitializeSecurityDescriptor(DescriptorBlock.get(), SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(DescriptorBlock.get(), TRUE, Dacl(), FALSE))
        return LastErrorCode();
    if (!AttributesBlock.Allocate(sizeof(SECURITY_ATTRIBUTES)))
        return E_OUTOFMEMORY;
    Attributes()->nLength = sizeof(SECURITY_ATTRIBUTES);
    Attributes()->lpSecurityDescriptor = DescriptorBlock.get();
    Attributes()->bInheritHandle = FALSE;
    return 0;
}

CSecurityDescriptor::CSecurityDescriptor()
{
    if (const LONG code = initSecurityDescriptor(); code < 0)
        throw _com_error(code);
}

CSecurityDescriptor::CSecurityDescriptor(const CSecurityDescriptor& other) noexcept = default;

CSecurityDescriptor& CSecurityDescriptor::operator=(const CSecurityDescriptor& other) noexcept
{
    if (this != &other) {
        freeSecurityDescriptor();
        SecurityDescriptor = other.SecurityDescriptor;
        SecurityAttributes = other.SecurityAttributes;
        NewDacl = other.NewDacl;
        Everyone = other.Everyone;
        Shared = other.Shared;
    }
    return *this;
}

CSecurityDescriptor::~CSecurityDescriptor()
{
    freeSecurityDescriptor();
}

LONG CSecurityDescriptor::initSecurityDescriptor()
{
    // First, so that a failure leaves the object without blocks.
    freeSecurityDescriptor();
    try {
        const auto made = std::make_shared<Blocks>();
        const LONG code = made->Make();
        SecurityDescriptor = made->DescriptorBlock.get();
        SecurityAttributes = made->Attributes();
        NewDacl = made->Dacl();
        Everyone = made->Everyone.get();
        Shared = made;
        if (code < 0)
            freeSecurityDescriptor();
        return code;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

LONG CSecurityDescriptor::freeSecurityDescriptor()
{
    if (Shared != nullptr) {
        GiveBack(SecurityAttributes, Shared->AttributesBlock);
        GiveBack(SecurityDescriptor, Shared->DescriptorBlock);
        GiveBack(NewDacl, Shared->DaclBlock);
        GiveBack(Everyone, Shared->Everyone);
        Shared.reset();
    }
    SecurityAttributes = nullptr;
    SecurityDescriptor = nullptr;
    NewDacl = nullptr;
    Everyone = nullptr;
    return 0;
}

void*& CSecurityDescriptor::getSecurityDescriptor()
{
    return SecurityDescriptor;
}

SECURITY_ATTRIBUTES*& CSecurityDescriptor::getSecurityAttributes()
{
    return SecurityAttributes;
}

ACL*& CSecurityDescriptor::getNewDacl()
{
    return NewDacl;
}

void*& CSecurityDescriptor::getEveryone()
{
    return Everyone;
}

}  // namespace utility
