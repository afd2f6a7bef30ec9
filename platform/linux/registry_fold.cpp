// Names of keys and values without case: by the simple capitals of the character set, whatever the locale.
#include "registry_file.h"

#include <algorithm>
#include <cstring>
#include <clocale>
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

    WCHAR Capital(WCHAR unit) const
    {
        return Made == locale_t{} ? unit : static_cast<WCHAR>(towupper_l(unit, Made));
    }

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

}  // namespace

namespace layer {

std::size_t FoldHash::operator()(TextView text) const noexcept
{
    constexpr std::size_t prime = sizeof(std::size_t) == 8 ? static_cast<std::size_t>(0x9E3779B97F4A7C15) : 0x9E3779B1;
    std::size_t hash = text.size();
    for (const WCHAR unit : text)
        hash = (hash ^ Fold(unit)) * prime;
    return hash ^ hash >> (sizeof(hash) * 4);
}

bool FoldEqual::operator()(TextView left, TextView right) const noexcept
{
    if (left.size() != right.size())
        return false;
    // Most names come as they are stored.
    if (std::memcmp(left.data(), right.data(), left.size() * sizeof(WCHAR)) == 0)
        return true;
    return std::equal(left.begin(), left.end(), right.begin(),
                      [](WCHAR one, WCHAR other) { return Fold(one) == Fold(other); });
}

}  // namespace layer
