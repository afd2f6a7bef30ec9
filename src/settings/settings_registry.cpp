// The tree of settings keys, and reading one value. The settings themselves are in catalogue.cpp.
#include "tessmaru/settings.h"

#include "settings/module_strings.h"
#include "settings/tag_specification.h"
#include "system.h"

#include <cstddef>

namespace {

constexpr unsigned int RootRow = 256;
constexpr unsigned int TagServerRow = 257;
constexpr unsigned int ProtocolRow = 258;
constexpr unsigned int LogRow = 259;
constexpr unsigned int TokenProcessingRow = 260;
constexpr unsigned int UdpRow = 261;

// A longer value counts as missing.
constexpr DWORD MaxTextBytes = 2048;

}  // namespace

CSettings::~CSettings() = default;

CSettingsRegistry::CSettingsRegistry()
{
    // From the string table, so that each release and language has its own tree.
    RegRootKey = genStringFromOwnModule(RootRow);
    RegRootKey += utility::GetVersionString();
    RegRootKey += u'\\';
    RegTagServerKey = RegRootKey + genStringFromOwnModule(TagServerRow);
    RegProtocolKey = RegRootKey + genStringFromOwnModule(ProtocolRow);
    RegLogKey = RegRootKey + genStringFromOwnModule(LogRow);
    RegTokenProcessingKey = RegRootKey + genStringFromOwnModule(TokenProcessingRow);
    RegUdpKey = RegRootKey + genStringFromOwnModule(UdpRow);
}

CSettingsRegistry::~CSettingsRegistry()
{
    CloseKey();
}

void CSettingsRegistry::OpenKey(const utility::wstring& path) const
{
    // Into a local first: if the call fails, the earlier key stays open.
    HKEY opened = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, platform::Wide(path.c_str()), 0, KEY_QUERY_VALUE, &opened) != 0)
        return;
    CloseKey();
    OpenedKey = opened;
}

ULONG CSettingsRegistry::QueryValueDWord(const utility::wstring& name) const
{
    DWORD value = 0;
    DWORD bytes = sizeof value;
    DWORD type = 0;
    // The stored type is not checked, here and below: the bytes are taken as they are.
    const LSTATUS status = RegQueryValueExW(OpenedKey, platform::Wide(name.c_str()), nullptr, &type,
                                            reinterpret_cast<BYTE*>(&value), &bytes);
    return status == 0 ? value : 0;
}

utility::wstring CSettingsRegistry::QueryValueString(const utility::wstring& name) const
{
    // One unit more than a value may have, as a stored text need not have a terminator.
    unsigned short text[MaxTextBytes / sizeof(unsigned short) + 1];
    DWORD bytes = MaxTextBytes;
    DWORD type = 0;
    const LSTATUS status = RegQueryValueExW(OpenedKey, platform::Wide(name.c_str()), nullptr, &type,
                                            reinterpret_cast<BYTE*>(text), &bytes);
    if (status != 0)
        return {};
    // A last odd byte is the lower half of a unit.
    if (bytes % sizeof(unsigned short) != 0)
        reinterpret_cast<BYTE*>(text)[bytes++] = 0;
    text[bytes / sizeof(unsigned short)] = 0;
    return text;
}

void CSettingsRegistry::CloseKey() const
{
    if (OpenedKey == nullptr)
        return;
    RegCloseKey(OpenedKey);
    OpenedKey = nullptr;
}

ULONG CSettingsRegistry::GetValueDWord(const utility::wstring& path, const utility::wstring& name) const
{
    OpenKey(path);
    const ULONG value = QueryValueDWord(name);
    CloseKey();
    return value;
}

utility::wstring CSettingsRegistry::GetValueString(const utility::wstring& path, const utility::wstring& name) const
{
    OpenKey(path);
    utility::wstring value = QueryValueString(name);
    CloseKey();
    return value;
}

utility::wstring CSettingsRegistry::getLogRegKey() const
{
    return RegLogKey;
}
