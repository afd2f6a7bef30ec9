// The part of a named mutex that all processes share: one page of a small file, with a word that names the
// owner, and byte locks on the file that tell which of its users are alive.
//
// Nothing in the page is trusted. Whoever may open it may write anything into it, or cut the file off: that
// can delay a lock or break its exclusion, but every value is only compared, never followed, and a page that
// is cut off is put back.
#pragma once

#include "files/security.h"
#include "text/text.h"

#include <atomic>
#include <string>

namespace layer {

class SharedPage {
public:
    SharedPage() = default;
    SharedPage(const SharedPage&) = delete;
    SharedPage& operator=(const SharedPage&) = delete;
    ~SharedPage();

    /// Opens the page of this name, or makes it.
    /// @param mode   who may use a page that is made
    /// @param owned  whether a new page starts as the caller's
    /// @param isNew  receives whether no living process had the page
    /// @return 0, or the system error, and then nothing is open
    DWORD Open(TextView name, FileMode mode, bool owned, bool& isNew);

    /// In the child of a `fork`: becomes a user of its own. What the parent owns stays the parent's. A page
    /// that cannot be had is lost: its word is null.
    void ReopenAfterFork();

    /// The word of an open page, which has to be asked for anew after a `fork`; null for a lost one.
    std::atomic<std::uint32_t>* Word() const;

    /// What the word holds while this process owns the page.
    std::uint32_t Number() const { return Slot; }

    /// Takes the page for this process if its owner is dead and the word still holds `seen`.
    bool TakeFromDead(std::uint32_t seen);

    // The word beside the owner's number.
    static constexpr std::uint32_t Waiting = 1U << 31;
    static constexpr std::uint32_t Abandoned = 1U << 30;
    static constexpr std::uint32_t NumberMask = Abandoned - 1;

private:
    DWORD OpenFile(FileMode mode);
    DWORD OpenLocked(TextView name, bool owned, bool& isNew);
    DWORD TakeSlot();
    void Close();

    int File = -1;
    void* Page = nullptr;
    std::uint32_t Slot = 0;
    std::string Path;
};

}  // namespace layer
