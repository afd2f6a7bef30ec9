// Version information: of the files of modules, and of the library itself.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"
#include "tessmaru/version_number.h"

#include <vector>

namespace utility {

/// The version block of a module's file: two versions in numbers, and texts in one or more languages.
///
/// Name a module with setModule, then ask. The file is read once, when it is named, and not kept open. A module without
/// a block, or whose file cannot be read, answers every question with an empty text.
///
/// On Windows the files are PE files. On Linux they are PE files, and ELF files into which a resource script has
/// been compiled; a path may have either form there. Neither needs to be loaded, or made for this machine.
///
/// One object serves one thread at a time.
///
/// @code
///     using utility::CVersionInfo;
///     CVersionInfo version;
///     version.setModule(GetModuleHandleW(u"site_import.so"_w));
///     log->LogInfo(u"%s %s"_w, u"Import"_w,
///                  version.getVersionInfoLanguageValue(CVersionInfo::eLANG_PRODUCT_NAME, 0x0409, 0x04B0).c_str(),
///                  version.getVersionInfoFixedValue(CVersionInfo::eFIXED_FILE_VERSION).c_str());
/// @endcode
class TESSMARU_API CVersionInfo {
public:
    enum eFIXED_VER_INFO { eFIXED_PRODUCT_VERSION, eFIXED_FILE_VERSION };

    enum eLANG_VER_INFO {
        eLANG_COMMENTS,
        eLANG_INTERNAL_NAME,
        eLANG_PRODUCT_NAME,
        eLANG_COMPANY_NAME,
        eLANG_LEGAL_COPYRIGHT,
        eLANG_PRODUCT_VERSION,
        eLANG_FILE_DESCRIPTION,
        eLANG_LEGAL_TRADEMARKS,
        eLANG_PRIVATE_BUILD,
        eLANG_FILE_VERSION,
        eLANG_ORIGINAL_FILENAME,
        eLANG_SPECIAL_BUILD
    };

    CVersionInfo();
    CVersionInfo(const CVersionInfo&) = delete;
    CVersionInfo& operator=(const CVersionInfo&) = delete;
    virtual ~CVersionInfo();

    /// Reads the block of a loaded module, or of the file at a path. Naming the present module again, in the same
    /// letters, reads nothing, even if its file has changed.
    /// @throws std::exception for a null handle, one that is no module's, and an empty path; the object then stays as
    /// it
    ///         was. A file that cannot be read is no failure.
    void setModule(HINSTANCE const& module);
    void setModule(const wstring& path);

    /// The setting "MessageResource", whatever module the object has; empty if it is not set.
    wstring getDefaultModule() const;

    /// The path of the module named last, empty at first.
    wstring getModuleFileName() const;

    /// A version in numbers, at least two digits each: `03,10,00,00`.
    /// @throws std::out_of_range for a value that is none of the enumeration, here and below.
    wstring getVersionInfoFixedValue(eFIXED_VER_INFO value) const;

    /// A text of the section of a language and a code page, 0x0409 and 0x04B0, say. No other section stands in for one
    /// that the block does not have.
    wstring getVersionInfoLanguageValue(eLANG_VER_INFO value, unsigned short language, unsigned short codePage) const;

protected:
    /// Reads the block of a file in place of the present one.
    void getModuleVerInfo(const wstring& path);

    /// The same by the name of the value: "ProductVersion" or "FileVersion" for the numbers, any name for a text.
    wstring getVersionInfoFixedValue(const wstring& name) const;
    wstring getVersionInfoLanguageValue(const wstring& name, unsigned short language, unsigned short codePage) const;

private:
    void Release();

    wstring ModuleFileName;
    DWORD VersionInfoSize = 0;
    DWORD VersionInfoHandle = 0;
    void* VersionInfoData = nullptr;
    const VS_FIXEDFILEINFO* FixedFileInfo = nullptr;  // in the block
    std::vector<wstring> FixedValueNames;
    std::vector<wstring> LanguageValueNames;
};

}  // namespace utility
