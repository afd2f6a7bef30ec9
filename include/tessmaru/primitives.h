// Small classes over the platform: a lock of one process, security attributes open to every account, a stop watch.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <atomic>
#include <memory>

namespace utility {

/// A recursive lock of one process, and a flag for its last operation.
///
/// Copies share the source's platform lock: while one is locked, no other thread can lock any of them. The platform
/// lock is deleted with the last copy. Each object has its own flag.
///
/// Any thread may call any operation; the thread that locked must unlock.
class TESSMARU_API CCriticalSection {
public:
    /// @throws std::bad_alloc if there is no memory for the platform's record.
    CCriticalSection();
    CCriticalSection(const CCriticalSection& other);
    CCriticalSection& operator=(const CCriticalSection& other);
    virtual ~CCriticalSection();

    /// Waits for the lock without a time limit. @return 0
    virtual LONG Lock();

    /// The same as Lock: it waits until it has the lock. @return 0
    virtual LONG AttemptLock();

    /// Undoes one Lock. The lock is free when each Lock of the thread has had its Unlock. @return 0
    virtual LONG Unlock();

    /// True from a Lock to the next Unlock: a flag, not a count. It is written apart from the lock, so it does not show
    /// whether another thread holds the lock at this moment.
    bool IsLocked() const;

protected:
    /// Gives this object a new platform lock, shared with no other object. @return 0
    virtual LONG Init();

    /// Gives up the platform lock; the last object that does so deletes it. @return 0
    virtual LONG Term();

private:
    LONG Make();
    LONG Leave();

    std::atomic<bool> Locked{false};
    std::shared_ptr<CRITICAL_SECTION> Section;
};

/// Security attributes that open a named mutex or a file to every account, except for changes of its access list and
/// its owner.
///
/// The access list denies everyone WRITE_DAC and WRITE_OWNER and then allows everyone GENERIC_ALL. Copies share the
/// source's memory blocks, and the last copy releases them. There is no locking: an object must not change during a
/// platform call that uses it.
class TESSMARU_API CSecurityDescriptor {
public:
    /// @throws _com_error with the code of the platform call that failed.
    CSecurityDescriptor();
    CSecurityDescriptor(const CSecurityDescriptor& other) noexcept;
    CSecurityDescriptor& operator=(const CSecurityDescriptor& other) noexcept;
    virtual ~CSecurityDescriptor();

    /// References to the object's own pointers. The object owns what they point to. Set a pointer to null to take its
    /// block away: the object does not release it then.
    void*& getSecurityDescriptor();
    SECURITY_ATTRIBUTES*& getSecurityAttributes();  ///< for CreateMutexW and the like
    ACL*& getNewDacl();                             ///< the access list of the descriptor
    void*& getEveryone();                           ///< the SID of all users, S-1-1-0

protected:
    /// Replaces the object's blocks by new ones. @return 0, or a failure code; the object has no blocks then.
    LONG initSecurityDescriptor();

    /// Gives up the object's share of the blocks and sets its pointers to null. May be called again. @return 0
    LONG freeSecurityDescriptor();

private:
    struct Blocks;

    void* SecurityDescriptor = nullptr;
    SECURITY_ATTRIBUTES* SecurityAttributes = nullptr;
    ACL* NewDacl = nullptr;
    void* Everyone = nullptr;
    std::shared_ptr<Blocks> Shared;
};

/// Measures wall time in seconds, from its construction and from a mark that can be moved. The clock counts
/// milliseconds; times of up to 24 days are correct.
///
/// There is no locking: Mark must not run while another thread uses the object.
///
/// @code
///     utility::CStopWatch watch;
///     ReadSites();
///     const double reading = watch.Mark();
///     CheckSites();
///     log->LogInfo(u"read in %f seconds, checked in %s"_w, u"Import"_w, reading,
///                  watch.strElapsedTimeSinceMark().c_str());
/// @endcode
class TESSMARU_API CStopWatch {
public:
    CStopWatch();
    virtual ~CStopWatch();

    /// Returns the seconds since the last mark and sets a new one. The time between the two steps is not counted.
    double Mark();

    /// Seconds since construction; a mark does not change this.
    double ElapsedTime() const;

    /// Seconds since the last mark, or since construction if there was no mark.
    double ElapsedTimeSinceMark() const;

    /// The same as text, in the form of getAsStr.
    wstring strElapsedTime() const;
    wstring strElapsedTimeSinceMark() const;

    /// Seconds as text: "2.500000 seconds", at most 63 units.
    wstring getAsStr(double seconds) const;

protected:
    /// Seconds since the clock, in milliseconds, had this value.
    double getTimeSince(LONG ticks) const;

private:
    LONG StartTicks;
    LONG MarkTicks;
};

}  // namespace utility
