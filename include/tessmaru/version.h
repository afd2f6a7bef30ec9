// Version information: of the files of modules, and of the library itself.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"
#include "tessmaru/version_number.h"

#include <vector>

namespace utility {

/// The version block of a module's file: two versions in numbers, and texts in one or more languages.
///
/// Select a module with setModule, then query it. The file is read once, by setModule, and not kept open. If the module
/// has no block or its file cannot be read, every query returns an empty text.
///
/// On Windows the files are PE files. On Linux they are PE files, and ELF files into which a resource script has been
/// compiled; there a path may separate directories by slashes or backslashes. A file need not be loaded, nor be made
/// for this machine.
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
    /// The versions of the block that are numbers.
    enum eFIXED_VER_INFO { eFIXED_PRODUCT_VERSION, eFIXED_FILE_VERSION };

    /// The values of the block that are texts: eLANG_COMPANY_NAME is the value "CompanyName", and so on.
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

    /// Reads the block of a loaded module, or of the file at a path. If that is the present module, in exactly the same
    /// letters, nothing is read, even if the file has changed. A path without a folder finds a loaded module of this
    /// name first. A file that cannot be read is not a failure.
    /// @throws std::exception for a null handle, a handle that is not a module, and an empty path; the object is not
    ///         changed then.
    void setModule(HINSTANCE const& module);
    void setModule(const wstring& path);

    /// The setting "MessageResource"; empty if it is not set. Does not depend on the object's module.
    wstring getDefaultModule() const;

    /// The path of the present module; empty before the first setModule.
    wstring getModuleFileName() const;

    /// A version in numbers, at least two digits each: `03,10,00,00`.
    /// @throws std::out_of_range for a value outside the enumeration.
    wstring getVersionInfoFixedValue(eFIXED_VER_INFO value) const;

    /// A text in the section of a language and a code page, for example 0x0409 and 0x04B0. Empty if the block does not
    /// have that section: no other section is tried.
    /// @throws std::out_of_range for a value outside the enumeration.
    wstring getVersionInfoLanguageValue(eLANG_VER_INFO value, unsigned short language, unsigned short codePage) const;

protected:
    /// Replaces the present block by that of a file.
    void getModuleVerInfo(const wstring& path);

    /// As the public ones, by the name of the value: "ProductVersion" or "FileVersion" for numbers, any name for a
    /// text. An unknown name gives an empty text.
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
