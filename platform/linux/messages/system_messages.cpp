// The sentences stand in two tables, one row each: the low words of system errors in win32_messages.def, the whole
// values of other codes in hresult_messages.def. The texts of a table lie behind each other, so that nothing has to be
// relocated.
#include "messages/system_messages.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>

namespace {

#define MESSAGE(code, text) code,
constexpr DWORD hresultCodes[] = {
#include "hresult_messages.def"
};
constexpr DWORD win32Codes[] = {
#include "win32_messages.def"
};
#undef MESSAGE

#define MESSAGE(code, text) text "\0"
constexpr char hresultTexts[] =
#include "hresult_messages.def"
    ;
constexpr char win32Texts[] =
#include "win32_messages.def"
    ;
#undef MESSAGE

/// Where each text starts, and where the last one ends.
template <std::size_t Count, std::size_t Bytes>
constexpr auto StartsOf(const DWORD (&)[Count], const char (&texts)[Bytes])
{
    static_assert(Bytes <= 0x10000);
    std::array<std::uint16_t, Count + 1> starts{};
    std::size_t text = 0;
    for (std::size_t at = 0; at + 1 < Bytes; ++at) {
        if (texts[at] == '\0')
            starts[++text] = static_cast<std::uint16_t>(at + 1);
    }
    return starts;
}

constexpr auto hresultStarts = StartsOf(hresultCodes, hresultTexts);
constexpr auto win32Starts = StartsOf(win32Codes, win32Texts);

template <std::size_t Count>
constexpr bool AreSorted(const DWORD (&codes)[Count])
{
    return std::adjacent_find(codes, codes + Count, std::greater_equal<>()) == codes + Count;
}

static_assert(AreSorted(hresultCodes) && AreSorted(win32Codes));
static_assert(std::string_view(hresultTexts, sizeof hresultTexts).find('%') == std::string_view::npos &&
                  std::string_view(win32Texts, sizeof win32Texts).find('%') == std::string_view::npos,
              "a text with a mark would count as not given");

template <std::size_t Count>
std::string_view Find(DWORD code, const DWORD (&codes)[Count], const std::array<std::uint16_t, Count + 1>& starts,
                      const char* texts)
{
    const auto* const found = std::lower_bound(codes, codes + Count, code);
    if (found == codes + Count || *found != code)
        return {};
    const std::size_t row = static_cast<std::size_t>(found - codes);
    return {texts + starts[row], static_cast<std::size_t>(starts[row + 1] - starts[row] - 1)};
}

}  // namespace

std::string_view layer::SystemMessage(DWORD code)
{
    constexpr DWORD facilityMask = 0x1FFF0000;
    constexpr DWORD win32Facility = 0x00070000;
    constexpr DWORD lowWord = 0xFFFF;
    const std::string_view whole = Find(code, hresultCodes, hresultStarts, hresultTexts);
    if (!whole.empty())
        return whole;
    if (code > lowWord && (code & facilityMask) != win32Facility)
        return {};
    return Find(code & lowWord, win32Codes, win32Starts, win32Texts);
}
