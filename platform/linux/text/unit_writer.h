// Builds text in a buffer of limited size, or measures the size that the text would need.
#pragma once

#include "text/text.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace layer {

/// Writes units into a buffer. Units that do not fit are dropped and recorded as an overrun. Without a buffer the units
/// are only counted, up to the same limit. The time of each operation is limited by the free room, so that a huge count
/// or a long text costs nothing once the buffer is full.
class UnitWriter {
public:
    /// @param buffer null to count only
    /// @param room   the limit in units. No terminator is written: a caller that needs one leaves room for it.
    UnitWriter(WCHAR* buffer, std::size_t room) : Buffer(buffer), Room(room) {}

    /// The units written or counted so far.
    std::size_t used() const { return Used; }
    /// Whether anything was dropped.
    bool overrun() const { return Overrun; }

    /// Writes one unit.
    void Put(WCHAR unit) { Fill(unit, 1); }

    /// Writes the same unit `times` times.
    void Fill(WCHAR unit, std::uint64_t times)
    {
        const std::size_t fitting = CountThatFits(times);
        if (Buffer != nullptr)
            std::fill_n(Buffer + Used, fitting, unit);
        Used += fitting;
    }

    /// Writes a text of units, or of ASCII characters, each of which becomes a unit.
    template <class Unit>
    void Put(std::basic_string_view<Unit> text)
    {
        const std::size_t fitting = CountThatFits(text.size());
        if (Buffer != nullptr) {
            for (std::size_t i = 0; i < fitting; ++i)
                Buffer[Used + i] = static_cast<WCHAR>(static_cast<std::make_unsigned_t<Unit>>(text[i]));
        }
        Used += fitting;
    }

    /// Copies `text` up to, but not including, the first zero unit or `stop`. Reads at most `limit` units, and no
    /// further than the free room requires.
    /// @return the position after the last unit that was copied
    const WCHAR* PutUntil(WCHAR stop, const WCHAR* text, std::size_t limit = std::numeric_limits<std::size_t>::max())
    {
        // Two loops, so that the copying one does not test for a buffer at each unit: most text of a log passes through
        // it.
        const std::size_t most = std::min(limit, Room - Used);
        std::size_t units = 0;
        if (Buffer != nullptr) {
            WCHAR* const to = Buffer + Used;
            for (; units < most && text[units] != 0 && text[units] != stop; ++units)
                to[units] = text[units];
        } else {
            while (units < most && text[units] != 0 && text[units] != stop)
                ++units;
        }
        Used += units;
        // The copy has stopped for lack of room, not at an end of the text.
        if (units == most && units < limit && text[units] != 0 && text[units] != stop)
            Overrun = true;
        return text + units;
    }

private:
    /// How many of `units` still fit. Records an overrun if that is fewer.
    std::size_t CountThatFits(std::uint64_t units)
    {
        if (units <= Room - Used)
            return static_cast<std::size_t>(units);
        Overrun = true;
        return Room - Used;
    }

    WCHAR* const Buffer;
    const std::size_t Room;
    std::size_t Used = 0;
    bool Overrun = false;
};

}  // namespace layer
