// Names of keys and values without case: by the simple capitals of the character set, whatever the locale.
#include "registry_file.h"

#include <algorithm>
#include <clocale>
#include <cstring>
#include <cwctype>

namespace {

class CapitalLocale {
public:
    CapitalLocale() : Made(newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{})) {}
    CapitalLocale(const CapitalLocale&) = delete;
    CapitalLocale& operator=(const CapitalLocale&) = delete;
    ~CapitalLocale()
    {
        if (Made != locale_t{})
            freelocale(Made);
    }

    WCHAR Capital(WCHAR unit) const { return Made == locale_t{} ? unit : static_cast<WCHAR>(towupper_l(unit, Made)); }

private:
    locale_t Made;
};

WCHAR Fold(WCHAR unit)
{
    if (unit < 0x80)
        return unit >= 'a' && unit <= 'z' ? static_cast<WCHAR>(unit - ('a' - 'A')) : unit;
    static const CapitalLocale locale;
    return locale.Capital(unit);
}

// Four units at once: most of an open key's time beside its `stat` was the hash, unit by unit.
constexpr std::size_t UnitsAtOnce = sizeof(std::uint64_t) / sizeof(WCHAR);
constexpr std::uint64_t EveryUnit = 0x0001000100010001;

bool AllAscii(std::uint64_t units)
{
    return (units & EveryUnit * 0xFF80) == 0;
}

/// The capitals of four ASCII units: 0x20 less where bit 7 tells that a unit is at least 'a' and not above 'z'.
std::uint64_t FoldAscii(std::uint64_t units)
{
    const std::uint64_t fromA = units + EveryUnit * (0x80 - 'a');
    const std::uint64_t aboveZ = units + EveryUnit * (0x80 - ('z' + 1));
    return units - ((fromA & ~aboveZ & EveryUnit * 0x80) >> 2U);
}

std::uint64_t FoldEach(std::uint64_t units)
{
    std::uint64_t folded = 0;
    for (unsigned shift = 0; shift < 64; shift += 16)
        folded |= std::uint64_t{Fold(static_cast<WCHAR>(units >> shift))} << shift;
    return folded;
}

std::uint64_t Mix(std::uint64_t hash, std::uint64_t units)
{
    constexpr std::uint64_t prime = 0x9E3779B97F4A7C15;
    hash = (hash ^ (AllAscii(units) ? FoldAscii(units) : FoldEach(units))) * prime;
    return hash ^ hash >> 32U;
}

}  // namespace

namespace layer {

std::size_t FoldHash::operator()(TextView text) const noexcept
{
    std::uint64_t hash = text.size();
    std::uint64_t units = 0;
    for (; text.size() >= UnitsAtOnce; text.remove_prefix(UnitsAtOnce)) {
        std::memcpy(&units, text.data(), sizeof units);
        hash = Mix(hash, units);
    }
    units = 0;
    if (!text.empty())
        std::memcpy(&units, text.data(), text.size() * sizeof(WCHAR));
    return static_cast<std::size_t>(Mix(hash, units));
}

bool FoldEqual::operator()(TextView left, TextView right) const noexcept
{
    if (left.size() != right.size())
        return false;
    // Most names come as they are stored.
    if (left.empty() || std::memcmp(left.data(), right.data(), left.size() * sizeof(WCHAR)) == 0)
        return true;
    return std::equal(left.begin(), left.end(), right.begin(),
                      [](WCHAR one, WCHAR other) { return Fold(one) == Fold(other); });
}

}  // namespace layer
