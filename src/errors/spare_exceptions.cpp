// Keeps exceptions for faults in advance.
//
// A spare exception lies in memory of the C++ runtime, which releases it after its last handler as any other. Its text
// is made of blanks at first; the fault writes its own over it. When a spare one has been released, the next is made:
// that is after the handler, in ordinary code.
#include "errors/spare_exceptions.h"

#include "settings/tag_specification.h"
#include "tessmaru/structured_exception.h"

#include <array>
#include <atomic>
#include <cstring>
#include <new>
#include <typeinfo>

#include <cxxabi.h>

namespace {

/// The spare exceptions of the process. An exception that is used again after this object has ended is not freed.
struct Spares {
    Spares() = default;
    Spares(const Spares&) = delete;
    Spares& operator=(const Spares&) = delete;
    ~Spares();

    std::array<std::atomic<void*>, 8> Exceptions{};
};

constinit Spares spares;

constexpr auto Blanks = [] {
    std::array<char, fault_text::MaxBytes> text{};
    text.fill(' ');
    text.back() = '\0';
    return text;
}();

/// @return null if there is no memory
void* Make()
{
    void* const memory = abi::__cxa_allocate_exception(sizeof(structured_exception));
    try {
        return new (memory) structured_exception(Blanks.data());
    } catch (const std::bad_alloc&) {
        abi::__cxa_free_exception(memory);
        return nullptr;
    }
}

void Discard(void* exception)
{
    static_cast<structured_exception*>(exception)->~structured_exception();
    abi::__cxa_free_exception(exception);
}

/// Called by the runtime instead of the exception's destructor; it frees the memory itself. On Windows x86-32 it is
/// called as a destructor is; the compiler reports that for a function which is none.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wattributes"
void _GLIBCXX_CDTOR_CALLABI Release(void* exception)
{
    static_cast<structured_exception*>(exception)->~structured_exception();
    makeSpareExceptions();
}
#pragma GCC diagnostic pop

Spares::~Spares()
{
    for (std::atomic<void*>& spare : Exceptions) {
        if (void* const exception = spare.exchange(nullptr))
            Discard(exception);
    }
}

void* TakeSpare()
{
    for (std::atomic<void*>& spare : spares.Exceptions) {
        if (void* const exception = spare.exchange(nullptr))
            return exception;
    }
    return nullptr;
}

}  // namespace

void makeSpareExceptions()
{
    for (std::atomic<void*>& spare : spares.Exceptions) {
        if (spare.load(std::memory_order_relaxed) != nullptr)
            continue;
        void* const made = Make();
        void* expected = nullptr;
        if (made != nullptr && !spare.compare_exchange_strong(expected, made))
            Discard(made);
    }
}

void throwStructuredException(const fault_text::Text& text)
{
    void* const spare = TakeSpare();
    if (spare == nullptr)
        throw structured_exception(text.Data());
    // The blanks are this object's own memory, and no other object shares them yet.
    char* const blanks = const_cast<char*>(static_cast<structured_exception*>(spare)->what());
    std::memcpy(blanks, text.Data(), text.Size() + 1);
    abi::__cxa_throw(spare, const_cast<std::type_info*>(&typeid(structured_exception)), Release);
}
