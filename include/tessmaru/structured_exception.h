// Faults of the processor as C++ exceptions: bad pointers, divisions by zero and their like.
#pragma once

#include "tessmaru/platform.h"

#include <stdexcept>

/// A fault of a thread that an InstallSETranslator protects. `what` tells what happened and where.
class TESSMARU_API structured_exception : public std::runtime_error {
public:
    /// Keeps a copy of `text`.
    explicit structured_exception(const char* text);
    structured_exception(const structured_exception& other) noexcept;
    structured_exception& operator=(const structured_exception& other) noexcept;
    ~structured_exception() override;
};

/// As long as it is installed, from its construction on, each fault of its thread is thrown as a structured_exception
/// at the instruction that failed.
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
/// Thread: an object protects the thread that called `install`, and its destructor takes the translator of the thread
/// that runs it. Make and destroy it on one thread; each thread needs its own.
///
/// No nesting: the end of an object leaves the thread without any translator, also where another object, or a
/// translator of the caller's own, was there before.
///
/// Compiler: the code that faults, and all code that an exception passes on its way, needs `-fnon-call-exceptions`.
/// The package hands that flag on to its callers. Without it the compiler assumes that only calls throw, and drops a
/// handler around a mere access. g++ heeds the flag, clang++ accepts it and does nothing: there a handler catches the
/// faults of functions that it calls and the compiler cannot see into. docs/faults.md lists what has been tried.
///
/// What cannot be translated ends the process, as it would without an object:
/// - a fault below a `noexcept` function, a destructor for example (by std::terminate), or below code without unwind
///   data;
/// - a fault while another one of the same thread is being translated;
/// - a signal that a process sends (kill, raise);
/// - a stack overflow where the frames at its end have destructors to run. On Windows a thread has to call
///   `_resetstkoflw` after it has caught one, before the next.
/// - on Windows x86-32 a fault inside of a function of the system.
///
/// What faults has not finished: locks of the C library that it held stay held, and half-changed data stays so.
class TESSMARU_API InstallSETranslator {
public:
    InstallSETranslator();
    InstallSETranslator(const InstallSETranslator&) = delete;
    InstallSETranslator& operator=(const InstallSETranslator&) = delete;
    ~InstallSETranslator();

    /// Protects the calling thread from now on. May be called again.
    void install();

    /// Leaves the calling thread without a translator. May be called again.
    void uninstall();

private:
    _se_translator_function PreviousTranslator = nullptr;
    _se_translator_function CurrentTranslator = nullptr;
};
