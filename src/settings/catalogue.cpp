// The catalogue of settings: each one's key, its value name, and its result if it is missing.
#include "tessmaru/settings.h"

#include "settings/tag_specification.h"
#include "tessmaru/text.h"

#include <algorithm>

using namespace utility::literals;
using tag_specification::EmptyString;
using utility::wstring;

namespace {

constexpr unsigned short CaseBit = 0x20;

/// The text in lower case: the letters A to Z only, independent of the locale of the process.
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
    // The arguments only select: their texts are not used.
    if (first != EmptyString || second != EmptyString)
        return u".\\TagSpec.mdb"_w;
    return GetValueString(RegTagServerKey + u"Databases"_w, EmptyString);
}

void CSettingsRegistry::getDbFileNames(std::vector<wstring>& names) const
{
    // Through the virtual operation, so that an override decides.
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

// A text, not a flag, in spite of its name.
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

// Not the opposite of CancelRequestsIsSync: any other text makes both false.
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

// A missing value is not "n", so encryption is on by default.
bool CSettingsRegistry::getProtocolEncryptionEnabled() const
{
    return Lower(GetValueString(RegProtocolKey, u"EncryptionEnabled"_w)) != u"n"_w;
}

ULONG CSettingsRegistry::getUDPPortNumber() const
{
    return GetValueDWord(RegUdpKey, u"PortNumber"_w);
}
