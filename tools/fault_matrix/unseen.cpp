// Faults in functions whose code the compiler does not see at the call.
#include "cases.h"

int* volatile nowhere = nullptr;
volatile int zero = 0;
volatile int target = 0;
void (*volatile noFunction)() = nullptr;

#define DEFINE_UNSEEN(name, ...) \
    void Unseen_##name()         \
    {                            \
        __VA_ARGS__              \
    }
FAULTS(DEFINE_UNSEEN)
