// Each setting: its key, its value name, and what a caller gets when it is not there.
#include "tessmaru/settings.h"

#include "settings/tag_specification.h"
#include "tessmaru/text.h"

#include <algorithm>

using namespace utility::literals;
using tag_specification::EmptyString;
using utility::wstring;

namespace {

constexpr unsigned short CaseBit = 0x20;

/// The text with the letters A to Z small; the locale of the process has no say.
wstring Lower(wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned short unit) {
        return unit >= 'A' && unit <= 'Z' ? static_cast<unsigned short>(unit | CaseBit) : unit;
    });
    return text;
}

}  // namespace

wstring CSettingsRegistry::getDbFileName(wstring first, wstring second) const
{
    if (first != EmptyString || second != EmptyString)
        return u".\\TagSpec.mdb"_w;
    return GetValueString(RegTagServerKey + u"Databases"_w, EmptyString);
}

void CSettingsRegistry::getDbFileNames(std::vector<wstring>& names) const
{
    names.push_back(getDbFileName(EmptyString, EmptyString));
}

LONG CSettingsRegistry::getRequestTimeout() const
{
    return static_cast<LONG>(GetValueDWord(RegTagServerKey, u"RequestTimeout"_w));
}

LONG CSettingsRegistry::getResponseTimeout() const
{
    return static_cast<LONG>(GetValueDWord(RegTagServerKey, u"ResponseTimeout"_w));
}

ULONG CSettingsRegistry::getMaxRequests() const
{
    return GetValueDWord(RegTagServerKey, u"MaxRequests"_w);
}

ULONG CSettingsRegistry::getMaxResponses() const
{
    return GetValueDWord(RegTagServerKey, u"MaxResponses"_w);
}

wstring CSettingsRegistry::getLogPath() const
{
    return GetValueString(RegLogKey, u"FilePath"_w);
}

wstring CSettingsRegistry::getLogDebugMask() const
{
    return GetValueString(RegLogKey, u"DebugMask"_w);
}

wstring CSettingsRegistry::getTokenProcessingDisabled() const
{
    return GetValueString(RegTokenProcessingKey, u"Disabled"_w);
}

wstring CSettingsRegistry::getMsgResourceName() const
{
    return GetValueString(RegTagServerKey, u"MessageResource"_w);
}

bool CSettingsRegistry::getValidationDisabled() const
{
    return Lower(GetValueString(RegTagServerKey, u"ValidationDisabled"_w)) == u"y"_w;
}

wstring CSettingsRegistry::getCancelRequestsMethod() const
{
    return GetValueString(RegTagServerKey, u"CancelRequestMethod"_w);
}

bool CSettingsRegistry::CancelRequestsIsAsync() const
{
    return Lower(GetValueString(RegTagServerKey, u"CancelRequestMethod"_w)) == u"async"_w;
}

bool CSettingsRegistry::CancelRequestsIsSync() const
{
    return Lower(GetValueString(RegTagServerKey, u"CancelRequestMethod"_w)) == u"sync"_w;
}

ULONG CSettingsRegistry::getProtocolResponseTimeout() const
{
    return GetValueDWord(RegProtocolKey, u"ElementResponseTimeout"_w);
}

bool CSettingsRegistry::getProtocolEncryptionEnabled() const
{
    return Lower(GetValueString(RegProtocolKey, u"EncryptionEnabled"_w)) != u"n"_w;
}

ULONG CSettingsRegistry::getUDPPortNumber() const
{
    return GetValueDWord(RegUdpKey, u"PortNumber"_w);
}
