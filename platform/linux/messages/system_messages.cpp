// The layer's own sentences for the system's codes. The low words of system errors are in win32_messages.def, the whole
// values of other codes in hresult_messages.def, one row each.
#include "messages/system_messages.h"

#include "common/packed_texts.h"

#include <algorithm>
#include <iterator>

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

constexpr auto hresultStarts = packed_texts::StartsOf(hresultCodes, hresultTexts);
constexpr auto win32Starts = packed_texts::StartsOf(win32Codes, win32Texts);

static_assert(packed_texts::AreSorted(hresultCodes) && packed_texts::AreSorted(win32Codes));
static_assert(std::string_view(hresultTexts, sizeof hresultTexts).find('%') == std::string_view::npos &&
                  std::string_view(win32Texts, sizeof win32Texts).find('%') == std::string_view::npos,
              "a text with a mark would count as not given");

template <std::size_t Rows>
std::string_view Find(DWORD code, const DWORD (&codes)[Rows], const packed_texts::Starts<Rows>& starts,
                      const char* texts)
{
    const auto* const found = std::lower_bound(codes, codes + Rows, code);
    if (found == codes + Rows || *found != code)
        return {};
    return packed_texts::TextOf(static_cast<std::size_t>(found - codes), texts, starts);
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
