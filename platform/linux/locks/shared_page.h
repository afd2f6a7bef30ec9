// The part of a named mutex that all processes share: one page of a small file.
//
// The page holds a word that names the owner. Byte locks on the file show which of its users are alive.
//
// Nothing in the page is trusted. Any process that may open the file may write anything into the page or truncate the
// file. That can delay a lock or break its exclusion, but it cannot crash another process: values from the page are
// compared and never used as an address, an index or a size, and a truncated file is filled up again.
#pragma once

#include "base/descriptor.h"
#include "base/futex.h"
#include "files/security.h"
#include "text/text.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace layer {

/// One process's use of a shared page. Not thread-safe: the named mutex serialises its calls.
class SharedPage {
public:
    SharedPage() = default;
    SharedPage(const SharedPage&) = delete;
    SharedPage& operator=(const SharedPage&) = delete;
    ~SharedPage();

    /// Opens the page of a name, or creates it. Waits for processes that open or leave the page at that moment, until
    /// the deadline. What is no page is removed if this process may do that; a damaged one is repaired.
    /// @param mode   the access to a page that is created
    /// @param owned  whether the caller owns a new page from the start
    /// @param isNew  receives whether no living process was using the page
    /// @return ERROR_SUCCESS, ERROR_TIMEOUT, or another system error; then nothing is open
    DWORD Open(TextView name, FileMode mode, bool owned, Deadline& deadline, bool& isNew);

    /// In the child of a `fork`: makes the child a user of the page besides its parent. The parent remains the owner of
    /// what it owns. If the child cannot open the page, Word() is null from then on.
    void ReopenAfterFork();

    /// Opens the file of the page again if the program has closed its descriptor: without it the process seems dead to
    /// the others. To be called while this process owns the page, which it keeps.
    void Restore();

    /// The lock word of the page, or null if the page is not open. A `fork` may change the result.
    std::atomic<std::uint32_t>* Word() const;

    /// The number of this process among the users: the value of the word while this process owns the page.
    std::uint32_t slot() const { return Slot; }

    /// Makes this process the owner if the present owner is dead.
    /// @param seen  the word as the caller read it; if it has changed since then, nothing happens
    /// @return whether this process owns the page now
    bool TakeFromDeadOwner(std::uint32_t seen);

    // The parts of the word. Waiting: threads may sleep on the word, so a release has to wake one. Abandoned: the last
    // owner died or ended without a release. The rest is the slot number of the owner, 0 while the page is free.
    static constexpr std::uint32_t Waiting = 1U << 31;
    static constexpr std::uint32_t Abandoned = 1U << 30;
    static constexpr std::uint32_t SlotMask = Abandoned - 1;

private:
    DWORD OpenFile(FileMode mode, Deadline& deadline);
    DWORD OpenLocked(TextView name, bool owned, bool& isNew);
    DWORD ClaimSlot();
    bool Adopt(Descriptor file);
    void ForgetLostDescriptor();
    void Close();

    Descriptor File;
    FileIdentity Identity;  // of File once the page is open
    void* Page = nullptr;
    std::uint32_t Slot = 0;
    std::string Path;
};

}  // namespace layer
