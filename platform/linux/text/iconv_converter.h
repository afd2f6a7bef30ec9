// Converts code pages with the `iconv` of the C library.
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

/// The name that `iconv` has for 16-bit text in the byte order of this machine.
extern const char WideCharset[];

/// The output of a conversion call. It counts all units and stores those that fit. A buffer of size 0 makes the
/// call a query for the size of the result.
template <class Unit>
class Sink {
public:
    Sink(Unit* buffer, int size) : Buffer(buffer), Size(static_cast<std::size_t>(size)) {}

    /// Adds one unit.
    void Put(Unit unit)
    {
        if (Count < Size)
            Buffer[Count] = unit;
        ++Count;
    }

    /// Adds several units.
    void Put(const Unit* units, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            Put(units[i]);
    }

    /// Adds the ASCII characters at the beginning of `text`. Most texts consist of them, and they need no conversion.
    /// @return their number
    template <class Other>
    std::size_t PutAscii(const Other* text, std::size_t length)
    {
        const std::size_t fitting = Count < Size ? std::min(Size - Count, length) : 0;
        std::size_t units = 0;
        for (; units < fitting && static_cast<std::make_unsigned_t<Other>>(text[units]) < 0x80; ++units)
            Buffer[Count + units] = static_cast<Unit>(static_cast<std::make_unsigned_t<Other>>(text[units]));
        // The buffer is full; the rest is only counted.
        if (units == fitting) {
            while (units < length && static_cast<std::make_unsigned_t<Other>>(text[units]) < 0x80)
                ++units;
        }
        Count += units;
        return units;
    }

    /// Whether the result does not fit, so that the conversion may stop. Never true for a query.
    bool full() const { return Size != 0 && Count > Size; }

    /// The units so far, stored or not.
    std::size_t count() const { return Count; }

    /// The return value of the conversion call: the count, or 0 with the last error set.
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

/// A terminated name.
using CharsetName = std::array<char, 24>;

/// The name that `iconv` has for a code page. It may be one that the C library does not know.
CharsetName CharsetNameOf(UINT codePage);

/// A conversion between two character sets, in one direction. It has a state, so threads must not share one: each call
/// opens its own.
class Converter {
public:
    /// Opens the conversion. @param to, from names as `iconv` uses them
    Converter(const char* to, const char* from) : Descriptor(iconv_open(to, from)), OpenError(errno) {}
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter()
    {
        if (open())
            iconv_close(Descriptor);
    }

    /// Whether the constructor succeeded.
    bool open() const { return Descriptor != reinterpret_cast<iconv_t>(~std::uintptr_t{0}); }
    /// Whether the constructor failed for lack of memory.
    bool outOfMemory() const { return !open() && OpenError == ENOMEM; }

    /// The system error if the constructor failed. Any failure but lack of memory means an unknown code page.
    DWORD openError() const { return outOfMemory() ? ERROR_OUTOFMEMORY : ERROR_INVALID_PARAMETER; }

    /// Converts `from` up to its end, or up to the first character that cannot be converted, and removes what was
    /// converted.
    /// @return 0, or the `errno` of that character, with which `from` then begins
    template <class Unit>
    int Convert(std::string_view& from, Sink<Unit>& sink)
    {
        while (!from.empty() && !sink.full()) {
            char* in = const_cast<char*>(from.data());
            std::size_t left = from.size();
            // E2BIG only means that the chunk is full.
            if (const int error = ConvertChunk(&in, &left, sink); error != 0 && error != E2BIG) {
                from.remove_prefix(from.size() - left);
                return error;
            }
            from.remove_prefix(from.size() - left);
        }
        return 0;
    }

    /// Writes what the conversion has held back, and returns it to its initial state.
    template <class Unit>
    void Finish(Sink<Unit>& sink)
    {
        ConvertChunk(nullptr, nullptr, sink);
    }

private:
    /// Makes one call of `iconv`. Its output goes through a chunk, so that a query and a full buffer need no special
    /// case.
    /// @return 0 or `errno`
    template <class Unit>
    int ConvertChunk(char** in, std::size_t* left, Sink<Unit>& sink)
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
    const int OpenError;  // the `errno` of opening; without meaning if that succeeded
};

}  // namespace layer
