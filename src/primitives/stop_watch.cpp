// The stop watch: differences of the platform's clock, which counts milliseconds.
#include "tessmaru/primitives.h"

#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/text.h"

#include <iterator>

using namespace utility::literals;

namespace utility {

CStopWatch::CStopWatch() : StartTicks(platform::Clock()), MarkTicks(platform::Clock()) {}

CStopWatch::~CStopWatch() = default;

double CStopWatch::Mark()
{
    // Two readings of the clock, by contract: the time between them is not counted.
    const double seconds = ElapsedTimeSinceMark();
    MarkTicks = platform::Clock();
    return seconds;
}

double CStopWatch::ElapsedTime() const
{
    return getTimeSince(StartTicks);
}

double CStopWatch::ElapsedTimeSinceMark() const
{
    return getTimeSince(MarkTicks);
}

wstring CStopWatch::strElapsedTime() const
{
    return getAsStr(ElapsedTime());
}

wstring CStopWatch::strElapsedTimeSinceMark() const
{
    return getAsStr(ElapsedTimeSinceMark());
}

wstring CStopWatch::getAsStr(double seconds) const
{
    unsigned short text[64]{};
    _snwprintf(platform::Wide(text), std::size(text) - 1, platform::Wide(u"%f seconds"_w), seconds);
    return text;
}

double CStopWatch::getTimeSince(LONG ticks) const
{
    // Unsigned, because the clock wraps around at the end of its 32 bits.
    const ULONG passed = static_cast<ULONG>(platform::Clock()) - static_cast<ULONG>(ticks);
    return static_cast<LONG>(passed) * 0.001;
}

}  // namespace utility
