// Functions that fault, each in its own way. The compiler cannot predict the faults: every operand is volatile.
//
//     EXPECT_THROW(Invoke(ReadNull), structured_exception);
#pragma once

namespace testkit {

// Sanitizers would report these faults themselves.
#define TESSMARU_FAULTING __attribute__((noinline, no_sanitize("address", "thread", "undefined")))

template <class Value>
inline Value* volatile Null = nullptr;
inline volatile int Zero = 0;
inline volatile int Target = 0;

TESSMARU_FAULTING inline void ReadNull()
{
    Target = *Null<int>;
}
TESSMARU_FAULTING inline void WriteNull()
{
    *Null<int> = 1;
}
TESSMARU_FAULTING inline void DivideByZero()
{
    Target = 5 / Zero;
}
TESSMARU_FAULTING inline void RunIllegal()
{
    asm volatile("ud2");
}
TESSMARU_FAULTING inline void RunBreakpoint()
{
    asm volatile("int3");
}
TESSMARU_FAULTING inline void RunPrivileged()
{
    asm volatile("hlt");
}
TESSMARU_FAULTING inline void CallNull()
{
    using Function = void();
    Function* const function = Null<Function>;
    function();
    Target = 1;  // keeps the call from being the function's last
}

using Faulting = void (*)();

/// A call that the compiler cannot inline.
inline void Invoke(Faulting function)
{
    Faulting volatile hidden = function;
    hidden();
}

}  // namespace testkit
