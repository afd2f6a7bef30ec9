// What the two sources of the cases share.
#pragma once

extern int* volatile nowhere;
extern volatile int zero;
extern volatile int target;
extern void (*volatile noFunction)();

// The faults, each as statements for a function.
#define FAULTS(FAULT)                      \
    FAULT(read, target = *nowhere;)        \
    FAULT(write, *nowhere = 1;)            \
    FAULT(divide, target = 5 / zero;)      \
    FAULT(call, noFunction(); target = 1;) \
    FAULT(illegal, asm volatile("ud2"); target = 1;)

#define DECLARE_UNSEEN(name, ...) void Unseen_##name();
FAULTS(DECLARE_UNSEEN)
