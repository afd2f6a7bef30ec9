// Values of the machine's settings, read through the library.
#include "settings/values.h"

#include "cli/session.h"
#include "platform/store.h"
#include "tessmaru/settings.h"
#include "text/wide.h"

namespace tool {
namespace {

/// Reads any key, as a program may that derives from the settings.
class AnyKey : public CSettingsRegistry {
public:
    utility::wstring Read(const std::string& key, const std::string& name) const
    {
        return GetValueString(FromUtf8(key), FromUtf8(name));
    }

    std::uint32_t ReadNumber(const std::string& key, const std::string& name) const
    {
        return GetValueDWord(FromUtf8(key), FromUtf8(name));
    }
};

}  // namespace

std::string MachineValue(const std::string& key, const std::string& name)
{
    return ToUtf8(AnyKey().Read(key, name));
}

std::uint32_t MachineNumber(const std::string& key, const std::string& name)
{
    return AnyKey().ReadNumber(key, name);
}

std::string LogPathSetting()
{
    return ToUtf8(CSettingsRegistry().getLogPath());
}

std::string ShortDatePattern()
try {
    const Store store = platform::ReadMachineStore();
    const StoreValue* const value = store.Find("HKEY_USERS\\.DEFAULT\\Control Panel\\International", "sShortDate");
    return value == nullptr ? std::string() : TextOf(*value);
} catch (const Failure&) {
    return {};
}

}  // namespace tool
