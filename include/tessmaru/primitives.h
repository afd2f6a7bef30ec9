// Small classes over the platform: a lock of one process, security attributes open to every account, a stop watch.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <atomic>
#include <memory>

namespace utility {

/// A recursive lock of one process, with a flag beside it that tells what was last done.
///
/// Copies share the source's platform lock: locking one excludes the holders of every other. The platform
/// lock goes with the last of them. `Locked` is each object's own.
///
/// Any thread may call any operation; the thread that locked has to unlock.
class TESSMARU_API CCriticalSection {
public:
    /// @throws std::bad_alloc without memory for the platform's record.
    CCriticalSection();
    CCriticalSection(const CCriticalSection& other);
    CCriticalSection& operator=(const CCriticalSection& other);
    virtual ~CCriticalSection();

    /// Waits for the lock, as long as it takes. @return 0
    virtual LONG Lock();

    /// The same as Lock: it blocks until the lock is there. @return 0
    virtual LONG AttemptLock();

    /// Lets go once. The lock is free when every Lock of the thread has had its Unlock. @return 0
    virtual LONG Unlock();

    /// True from Lock until the first Unlock, however many Lock calls are still open. A flag, not a count,
    /// and written beside the lock: it cannot tell whether another thread holds the lock right now.
    bool IsLocked() const;

protected:
    /// Makes a platform lock of this object's own. @return 0
    virtual LONG Init();

    /// Leaves the platform lock; the last object to leave deletes it. @return 0
    virtual LONG Term();

private:
    LONG Make();
    LONG Leave();

    std::atomic<bool> Locked{false};
    std::shared_ptr<CRITICAL_SECTION> Section;
};

/// Security attributes with which a named mutex or a file is open to every account, except for changes of
/// its access list and its owner.
///
/// The access list denies everyone WRITE_DAC and WRITE_OWNER and then allows everyone GENERIC_ALL. Copies
/// share the source's blocks, and the last of them releases the blocks. No locking: an object that is passed
/// to a platform call has to stay as it is until the call returns.
class TESSMARU_API CSecurityDescriptor {
public:
    /// @throws _com_error with the code of the platform call that failed; nothing is left behind then.
    CSecurityDescriptor();
    CSecurityDescriptor(const CSecurityDescriptor& other) noexcept;
    CSecurityDescriptor& operator=(const CSecurityDescriptor& other) noexcept;
    virtual ~CSecurityDescriptor();

    /// The object's own pointers, not copies of them. The blocks stay the object's.
    void*& getSecurityDescriptor();
    SECURITY_ATTRIBUTES*& getSecurityAttributes();
    ACL*& getNewDacl();
    void*& getEveryone();

protected:
    /// Makes new blocks in place of what the object had. @return 0, or a failure code, and then the object
    /// has none.
    LONG initSecurityDescriptor();

    /// Gives the object's share of the blocks up; may run any number of times. @return 0
    LONG freeSecurityDescriptor();

private:
    struct Blocks;

    void* SecurityDescriptor = nullptr;
    SECURITY_ATTRIBUTES* SecurityAttributes = nullptr;
    ACL* NewDacl = nullptr;
    void* Everyone = nullptr;
    std::shared_ptr<Blocks> Shared;
};

/// Measures wall time in seconds, from its construction and from a mark that can be moved. The clock has ticks of a
/// millisecond; spans of up to 24 days come out right.
///
/// No locking: Mark must not run while another thread uses the object.
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

    /// Gives the seconds since the last mark and sets a new one. The moment between belongs to neither span.
    double Mark();

    /// Seconds since construction, whatever was marked.
    double ElapsedTime() const;

    /// Seconds since the last mark, or since construction if there was none.
    double ElapsedTimeSinceMark() const;

    /// The same as text.
    wstring strElapsedTime() const;
    wstring strElapsedTimeSinceMark() const;

    /// Seconds as text: "2.500000 seconds", at most 63 units.
    wstring getAsStr(double seconds) const;

protected:
    /// Seconds since the clock had this value.
    double getTimeSince(LONG ticks) const;

private:
    LONG StartTicks;
    LONG MarkTicks;
};

}  // namespace utility
