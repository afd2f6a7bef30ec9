// Conversions of code pages other than UTF-8, by the C library's `iconv`.
#pragma once

#include "base/last_error.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <iconv.h>
#include <string_view>
#include <type_traits>

namespace layer {

/// The form of 16-bit text in memory, as `iconv` calls it.
extern const char WideCharset[];

/// Counts what a conversion gives and keeps it as far as there is room; a buffer of no room only asks.
template <class Unit>
class Sink {
public:
    Sink(Unit* buffer, int size) : Buffer(buffer), Size(static_cast<std::size_t>(size)) {}

    void Put(Unit unit)
    {
        if (Count < Size)
            Buffer[Count] = unit;
        ++Count;
    }

    void Put(const Unit* units, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            Put(units[i]);
    }

    /// Puts the ASCII that `text` begins with. @return how much that is.
    template <class Other>
    std::size_t PutAscii(const Other* text, std::size_t length)
    {
        const std::size_t fitting = Count < Size ? std::min(Size - Count, length) : 0;
        std::size_t units = 0;
        for (; units < fitting && static_cast<std::make_unsigned_t<Other>>(text[units]) < 0x80; ++units)
            Buffer[Count + units] = static_cast<Unit>(static_cast<std::make_unsigned_t<Other>>(text[units]));
        if (units == fitting) {
            while (units < length && static_cast<std::make_unsigned_t<Other>>(text[units]) < 0x80)
                ++units;
        }
        Count += units;
        return units;
    }

    bool full() const { return Size != 0 && Count > Size; }

    std::size_t count() const { return Count; }

    /// What the call is to return.
    int Result() const
    {
        if (full())
            return Fail(ERROR_INSUFFICIENT_BUFFER, 0);
        if (Count > INT_MAX)
            return Fail(ERROR_INVALID_PARAMETER, 0);
        return static_cast<int>(Count);
    }

private:
    Unit* const Buffer;
    const std::size_t Size;
    std::size_t Count = 0;
};

using CharsetName = std::array<char, 24>;

/// The C library's name of a code page.
CharsetName NameOf(UINT codePage);

/// A conversion of the C library in one direction.
class Converter {
public:
    Converter(const char* to, const char* from) : Descriptor(iconv_open(to, from)), OpenError(errno) {}
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter()
    {
        if (open())
            iconv_close(Descriptor);
    }

    bool open() const { return Descriptor != reinterpret_cast<iconv_t>(~std::uintptr_t{0}); }
    bool outOfMemory() const { return !open() && OpenError == ENOMEM; }

    /// The last error of a conversion that could not be opened: `iconv` knows no such page, or had no memory.
    DWORD openError() const { return outOfMemory() ? ERROR_OUTOFMEMORY : ERROR_INVALID_PARAMETER; }

    /// Converts until the end of `from`, or until something in it cannot be converted, and moves it on.
    /// @return 0, or the `errno` of what stands at `from` now.
    template <class Unit>
    int Run(std::string_view& from, Sink<Unit>& sink)
    {
        while (!from.empty() && !sink.full()) {
            char* in = const_cast<char*>(from.data());
            std::size_t left = from.size();
            if (const int error = Step(&in, &left, sink); error != 0 && error != E2BIG) {
                from.remove_prefix(from.size() - left);
                return error;
            }
            from.remove_prefix(from.size() - left);
        }
        return 0;
    }

    /// Puts what the conversion still keeps back, and starts anew.
    template <class Unit>
    void Finish(Sink<Unit>& sink)
    {
        Step(nullptr, nullptr, sink);
    }

private:
    template <class Unit>
    int Step(char** in, std::size_t* left, Sink<Unit>& sink)
    {
        Unit chunk[128];
        char* out = reinterpret_cast<char*>(chunk);
        std::size_t room = sizeof chunk;
        const bool failed = iconv(Descriptor, in, left, &out, &room) == static_cast<std::size_t>(-1);
        const int error = failed ? errno : 0;
        sink.Put(chunk, (sizeof chunk - room) / sizeof(Unit));
        return error;
    }

    const iconv_t Descriptor;
    const int OpenError;
};

}  // namespace layer
