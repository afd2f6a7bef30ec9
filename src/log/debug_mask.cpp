// The debug mask: 64 bits that decide which debug records are written.
#include "log/codes.h"
#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/log.h"
#include "tessmaru/settings.h"

#include <algorithm>
#include <memory>
#include <new>
#include <stdexcept>

namespace utilities {

namespace {

constexpr std::size_t MaskBits = 64;

/// Bit 0 is the last of the first 64 characters. Sets what stands to the right of an invalid character, then
/// throws.
void ReadMask(const std::string& text, std::bitset<MaskBits>& mask)
{
    const std::size_t length = std::min(text.size(), MaskBits);
    for (std::size_t bit = 0; bit < length; ++bit) {
        const char digit = text[length - 1 - bit];
        if (digit == '1')
            mask.set(bit);
        else if (digit != '0')
            throw std::invalid_argument("invalid bitset<N> char");
    }
}

}  // namespace

LONG CLog::initDebugMask()
{
    std::string text;
    const LONG code = GetDebugMask(&text);
    if (code < 0)
        return code;
    std::unique_ptr<std::bitset<MaskBits>> mask(new (std::nothrow) std::bitset<MaskBits>);
    if (!mask)
        return code;
    try {
        ReadMask(text, *mask);
    } catch (const std::invalid_argument&) {
        LogWarn(u"Debug mask contains invalid data - All bits forced to OFF!"_w, u"Log"_w);
        mask->reset();
    }
    DebugMask = mask.release();
    if (DebugMask->any())
        LogInfo(u"Debug mask: %d bits ON"_w, u"Log"_w, static_cast<int>(DebugMask->count()));
    return code;
}

LONG CLog::GetDebugMask(std::string* mask)
{
    mask->clear();
    const utility::wstring text = CSettingsRegistry().getLogDebugMask();
    if (text.empty())
        return 0;
    const auto units = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_ACP, 0, platform::Wide(text.data()), units, nullptr, 0, nullptr, nullptr);
    try {
        mask->resize(static_cast<std::size_t>(bytes));
    } catch (const std::bad_alloc&) {
        throw _com_error(E_OUTOFMEMORY);
    }
    if (bytes == 0 ||
        WideCharToMultiByte(CP_ACP, 0, platform::Wide(text.data()), units, mask->data(), bytes, nullptr, nullptr) == 0)
        throw _com_error(log_codes::LastError());
    return 0;
}

}  // namespace utilities
