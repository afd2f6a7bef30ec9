// Reads the version block of a module's file.
#include "tessmaru/version.h"

#include "settings/tag_specification.h"
#include "system.h"
#include "tessmaru/settings.h"
#include "tessmaru/text.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

using namespace utility::literals;
using tag_specification::EmptyString;

namespace utility {

namespace {

const wstring& At(const std::vector<wstring>& names, int index)
{
    if (index < 0 || static_cast<std::size_t>(index) >= names.size())
        throw std::out_of_range("invalid vector<T> subscript");  // the text is part of the contract
    return names[static_cast<std::size_t>(index)];
}

wstring FileNameOf(HINSTANCE module)
{
    wstring path(MAX_PATH, u'\0');
    DWORD units = 0;
    // A path that fills the buffer may have been cut. A result of 0 gives an empty path, which setModule rejects.
    while ((units = GetModuleFileNameW(module, platform::Wide(path.data()), static_cast<DWORD>(path.size()))) ==
           path.size())
        path.resize(2 * path.size());
    path.resize(units);
    return path;
}

wstring VersionText(DWORD most, DWORD least)
{
    unsigned short text[64]{};
    _snwprintf(platform::Wide(text), std::size(text) - 1, platform::Wide(u"%02d,%02d,%02d,%02d"_w), most >> 16,
               most & 0xFFFF, least >> 16, least & 0xFFFF);
    return text;
}

}  // namespace

CVersionInfo::CVersionInfo()
    : ModuleFileName(EmptyString), FixedValueNames{u"ProductVersion"_w, u"FileVersion"_w},
      LanguageValueNames{u"Comments"_w,       u"InternalName"_w,   u"ProductName"_w,      u"CompanyName"_w,
                         u"LegalCopyright"_w, u"ProductVersion"_w, u"FileDescription"_w,  u"LegalTrademarks"_w,
                         u"PrivateBuild"_w,   u"FileVersion"_w,    u"OriginalFilename"_w, u"SpecialBuild"_w}
{
}

CVersionInfo::~CVersionInfo()
{
    Release();
}

void CVersionInfo::setModule(HINSTANCE const& module)
{
    if (module == nullptr)
        throw std::exception();
    setModule(FileNameOf(module));
}

void CVersionInfo::setModule(const wstring& path)
{
    if (path.empty())
        throw std::exception();
    // The same module is not read again, even if its file has changed.
    if (path == ModuleFileName)
        return;
    ModuleFileName = path;
    getModuleVerInfo(path);
}

wstring CVersionInfo::getDefaultModule() const
{
    return CSettingsRegistry().getMsgResourceName();
}

wstring CVersionInfo::getModuleFileName() const
{
    return ModuleFileName;
}

wstring CVersionInfo::getVersionInfoFixedValue(eFIXED_VER_INFO value) const
{
    return getVersionInfoFixedValue(At(FixedValueNames, value));
}

wstring CVersionInfo::getVersionInfoLanguageValue(eLANG_VER_INFO value, unsigned short language,
                                                  unsigned short codePage) const
{
    return getVersionInfoLanguageValue(At(LanguageValueNames, value), language, codePage);
}

void CVersionInfo::getModuleVerInfo(const wstring& path)
{
    // First, so that after a failure no query answers for an earlier module.
    Release();
    VersionInfoSize = GetFileVersionInfoSizeW(platform::Wide(path.c_str()), &VersionInfoHandle);
    if (VersionInfoSize == 0)
        return;
    VersionInfoData = std::malloc(VersionInfoSize);
    if (VersionInfoData == nullptr)
        return;
    if (!GetFileVersionInfoW(platform::Wide(path.c_str()), VersionInfoHandle, VersionInfoSize, VersionInfoData)) {
        Release();
        return;
    }
    // A block without the record of numbers still has its texts.
    void* found = nullptr;
    UINT bytes = 0;
    if (VerQueryValueW(VersionInfoData, platform::Wide(u"\\"_w), &found, &bytes) && bytes >= sizeof(VS_FIXEDFILEINFO))
        FixedFileInfo = static_cast<const VS_FIXEDFILEINFO*>(found);
}

wstring CVersionInfo::getVersionInfoFixedValue(const wstring& name) const
{
    if (FixedFileInfo != nullptr && name == u"ProductVersion"_w)
        return VersionText(FixedFileInfo->dwProductVersionMS, FixedFileInfo->dwProductVersionLS);
    if (FixedFileInfo != nullptr && name == u"FileVersion"_w)
        return VersionText(FixedFileInfo->dwFileVersionMS, FixedFileInfo->dwFileVersionLS);
    return EmptyString;
}

wstring CVersionInfo::getVersionInfoLanguageValue(const wstring& name, unsigned short language,
                                                  unsigned short codePage) const
{
    if (VersionInfoData == nullptr)
        return EmptyString;
    // A longer query is cut and finds nothing.
    unsigned short query[500]{};
    _snwprintf(platform::Wide(query), std::size(query) - 1, platform::Wide(u"\\StringFileInfo\\%04x%04x\\%s"_w),
               language, codePage, name.c_str());
    void* found = nullptr;
    UINT length = 0;
    if (!VerQueryValueW(VersionInfoData, platform::Wide(query), &found, &length))
        return EmptyString;
    // The length in the block may be wrong: the text ends at its first zero unit, and at the end of the block.
    const auto* const text = static_cast<const unsigned short*>(found);
    const auto* const end = reinterpret_cast<const unsigned short*>(static_cast<const char*>(VersionInfoData) +
                                                                    VersionInfoSize / sizeof *text * sizeof *text);
    return {text, std::find(text, text + std::min<std::size_t>(length, static_cast<std::size_t>(end - text)), 0)};
}

void CVersionInfo::Release()
{
    std::free(VersionInfoData);
    VersionInfoData = nullptr;
    VersionInfoSize = 0;
    FixedFileInfo = nullptr;
}

}  // namespace utility
