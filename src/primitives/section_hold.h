// A critical section that is held until the end of a scope.
#pragma once

#include "tessmaru/primitives.h"

class SectionHold {
public:
    explicit SectionHold(utility::CCriticalSection& section) : Section(section) { Section.Lock(); }
    SectionHold(const SectionHold&) = delete;
    SectionHold& operator=(const SectionHold&) = delete;
    ~SectionHold() { Section.Unlock(); }

private:
    // A copy, which shares the lock: the object itself may be destroyed while a thread still waits, when the process
    // ends.
    utility::CCriticalSection Section;
};
