// Processor faults as C++ exceptions: bad pointers, divisions by zero and the like.
#pragma once

#include "tessmaru/platform.h"

#include <exception>
#include <stdexcept>

/// A fault on a thread that an InstallSETranslator protects. `what` says what happened and at which address.
class TESSMARU_API structured_exception : public std::exception {
public:
    /// Keeps a copy of `text`.
    explicit structured_exception(const char* text);
    structured_exception(const structured_exception& other) noexcept;
    structured_exception& operator=(const structured_exception& other) noexcept;
    ~structured_exception() override;

    const char* what() const noexcept override;

private:
    std::runtime_error Text;  // copies of it share the text, so that copying cannot fail
};

/// While an object is installed, from its construction on, each fault of its thread is thrown as a structured_exception
/// at the faulting instruction.
///
/// @code
/// void Worker(Queue& queue)
/// {
///     const InstallSETranslator translator;          // this thread, and no other
///     for (;;) {
///         try {
///             queue.Take().Run();
///         } catch (const structured_exception& fault) {
///             Report(fault.what());                  // "SE exception at address 0x...: The thread attempted to ..."
///         } catch (const std::exception& failure) {  // would catch faults as well
///             Report(failure.what());
///         }
///     }
/// }
/// @endcode
///
/// Threads: an object protects the thread that called `install`. Its destructor removes the translator of the thread
/// that runs the destructor. Construct and destroy an object on one thread; each thread needs its own object.
///
/// No nesting: when an object ends, the thread has no translator, even if another object or the caller had set one
/// before.
///
/// Compiler: the code that faults, and all code that the exception passes through, needs `-fnon-call-exceptions`. The
/// package passes that flag on to its callers. Without it the compiler assumes that only calls throw, and removes a
/// handler around a plain memory access. g++ obeys the flag. clang++ accepts it without effect: there a handler catches
/// the faults in functions that it calls and that the compiler cannot inline. docs/faults.md lists what has been tried.
///
/// Some faults are not thrown. They end the process, as they would without an object:
/// - a fault that no handler would catch, or that would have to pass a `noexcept` function, a destructor or a call that
///   the compiler assumes not to throw, such as one of `memcpy`. On Linux the process then ends by the signal of the
///   fault, at the failing instruction, and the text of the fault is written to standard error; on Windows it ends by
///   std::terminate;
/// - a fault while another fault of the same thread is being translated;
/// - on Linux, a fault inside the memory allocator or the dynamic linker, which may hold a lock;
/// - a signal that a process sends (kill, raise);
/// - a stack overflow if the frames at the end of the stack have destructors to run. On Windows, a thread that has
///   caught one must call `_resetstkoflw` before the next;
/// - on Windows x86-32, a fault inside a function of the system.
///
/// Host programs: on Linux the faults of generated code, and those that a signal handler repairs which was installed
/// before, are left to the host program.
///
/// Signals: on Linux `install` unblocks SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGTRAP for the thread, since the kernel
/// ends a process that faults while they are blocked. `uninstall` blocks again those that were blocked.
///
/// Memory: what a fault needs is set aside by `install`. Only if more than 8 exceptions of faults are kept at the same
/// time, a further one is allocated when it is thrown.
///
/// The code that faults does not finish: locks of the C library that it held stay held, and half-changed data stays
/// half-changed.
class TESSMARU_API InstallSETranslator {
public:
    InstallSETranslator();
    InstallSETranslator(const InstallSETranslator&) = delete;
    InstallSETranslator& operator=(const InstallSETranslator&) = delete;
    ~InstallSETranslator();

    /// Protects the calling thread from now on. May be called again. Reports no failure: without memory the thread has
    /// no translator.
    void install();

    /// Removes the calling thread's translator. May be called again.
    void uninstall();

private:
    _se_translator_function PreviousTranslator = nullptr;
    _se_translator_function CurrentTranslator = nullptr;
};
