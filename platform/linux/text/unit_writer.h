// Where text of the layer is put together: a buffer with a limit, or a measure of the room it would take.
#pragma once

#include "text/text.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace layer {

/// Puts units into a buffer up to its limit; what does not fit is dropped and remembered as an overrun.
/// No step costs more than the units that still fit. Without a buffer it counts only.
class UnitWriter {
public:
    UnitWriter(WCHAR* buffer, std::size_t room) : Buffer(buffer), Room(room) {}

    std::size_t used() const { return Used; }
    bool overrun() const { return Overrun; }

    void Put(WCHAR unit) { Fill(unit, 1); }

    void Fill(WCHAR unit, std::uint64_t times)
    {
        const std::size_t fitting = Fitting(times);
        if (Buffer != nullptr)
            std::fill_n(Buffer + Used, fitting, unit);
        Used += fitting;
    }

    /// Puts units or plain ASCII.
    template <class Unit>
    void Put(std::basic_string_view<Unit> text)
    {
        const std::size_t fitting = Fitting(text.size());
        if (Buffer != nullptr) {
            for (std::size_t i = 0; i < fitting; ++i)
                Buffer[Used + i] = static_cast<WCHAR>(static_cast<std::make_unsigned_t<Unit>>(text[i]));
        }
        Used += fitting;
    }

    /// Puts what stands in front of the first zero unit, `stop` or `limit`. @return where that is.
    const WCHAR* PutUntil(WCHAR stop, const WCHAR* text, std::size_t limit = std::numeric_limits<std::size_t>::max())
    {
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
        if (units == most && units < limit && text[units] != 0 && text[units] != stop)
            Overrun = true;
        return text + units;
    }

private:
    std::size_t Fitting(std::uint64_t units)
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
