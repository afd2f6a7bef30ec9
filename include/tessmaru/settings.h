// The suite's settings, read-only, and the texts that a module carries in its string table.
//
// Each release and language has one tree of registry keys, below HKEY_LOCAL_MACHINE in
//
//     `SOFTWARE\Orvane Electronics Limited\Veltrix\4.09.00-en\`
//
// Nothing is cached: each call opens its key, reads and closes, so a change shows at the next call. No call reports a
// failure: for a missing key, a missing value or a denied read a number is 0, a text is empty, and a flag has the value
// that its accessor describes.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <cstdarg>
#include <vector>

/// The interface that callers use: one accessor per setting. Numbers are returned as stored; the library gives them no
/// unit and no range.
class TESSMARU_API CSettings {
public:
    CSettings() = default;
    CSettings(const CSettings&) = delete;
    CSettings& operator=(const CSettings&) = delete;
    virtual ~CSettings() = 0;

    /// The file of the tag specification database: the unnamed value of the key "Databases" if both arguments are
    /// empty, ".\TagSpec.mdb" for any other arguments.
    virtual utility::wstring getDbFileName(utility::wstring first, utility::wstring second) const = 0;

    /// Appends the result of getDbFileName for two empty texts to `names`.
    virtual void getDbFileNames(std::vector<utility::wstring>& names) const = 0;

    /// "RequestTimeout" and "ResponseTimeout" of the tag server, the stored 32 bits as a signed number.
    virtual LONG getRequestTimeout() const = 0;
    virtual LONG getResponseTimeout() const = 0;

    /// "MaxRequests" and "MaxResponses" of the tag server.
    virtual ULONG getMaxRequests() const = 0;
    virtual ULONG getMaxResponses() const = 0;

    /// The complete path of the log file, as stored.
    virtual utility::wstring getLogPath() const = 0;

    /// The log's debug mask as text of "0" and "1", bit 0 at the right.
    virtual utility::wstring getLogDebugMask() const = 0;

    /// The path of the log's key below HKEY_LOCAL_MACHINE. Never reads the registry.
    virtual utility::wstring getLogRegKey() const = 0;

    /// "Disabled" of the token processing: a text as stored, not a flag.
    virtual utility::wstring getTokenProcessingDisabled() const = 0;

    /// The module that holds the suite's messages.
    virtual utility::wstring getMsgResourceName() const = 0;

    /// True only for the text "Y" in either case.
    virtual bool getValidationDisabled() const = 0;

    /// "CancelRequestMethod" of the tag server, as stored.
    virtual utility::wstring getCancelRequestsMethod() const = 0;

    /// True only if the method is "async", or "sync", in any case. With any other text, or none, both are false.
    virtual bool CancelRequestsIsAsync() const = 0;
    virtual bool CancelRequestsIsSync() const = 0;

    /// "ElementResponseTimeout" of the protocol.
    virtual ULONG getProtocolResponseTimeout() const = 0;

    /// False only for the text "n" in either case: encryption is on unless it is switched off.
    virtual bool getProtocolEncryptionEnabled() const = 0;

    /// "PortNumber" of UDP, all 32 bits as stored: it can be above 65535.
    virtual ULONG getUDPPortNumber() const = 0;
};

/// The settings in the registry. One object serves one thread at a time; separate objects are independent. Construction
/// reads no key.
///
/// @code
///     const CSettingsRegistry settings;
///     const ULONG port = settings.getUDPPortNumber();  // 0 if there is none
/// @endcode
class TESSMARU_API CSettingsRegistry : public CSettings {
public:
    CSettingsRegistry();
    ~CSettingsRegistry() override;

    utility::wstring getDbFileName(utility::wstring first, utility::wstring second) const override;
    void getDbFileNames(std::vector<utility::wstring>& names) const override;
    LONG getRequestTimeout() const override;
    LONG getResponseTimeout() const override;
    ULONG getMaxRequests() const override;
    ULONG getMaxResponses() const override;
    utility::wstring getLogPath() const override;
    utility::wstring getLogDebugMask() const override;
    utility::wstring getLogRegKey() const override;
    utility::wstring getTokenProcessingDisabled() const override;
    utility::wstring getMsgResourceName() const override;
    bool getValidationDisabled() const override;
    utility::wstring getCancelRequestsMethod() const override;
    bool CancelRequestsIsAsync() const override;
    bool CancelRequestsIsSync() const override;
    ULONG getProtocolResponseTimeout() const override;
    bool getProtocolEncryptionEnabled() const override;
    ULONG getUDPPortNumber() const override;

protected:
    /// Opens a key below HKEY_LOCAL_MACHINE in place of the one that is open. If that fails, the earlier key stays open
    /// and queries continue to read from it.
    void OpenKey(const utility::wstring& path) const;

    /// The 32-bit value of this name in the open key; its type is not checked. 0 if no key is open, if the value is
    /// missing, or if it has more than 4 bytes. An empty name means the key's unnamed value.
    ULONG QueryValueDWord(const utility::wstring& name) const;

    /// The text of this name in the open key, up to its first zero unit; its type is not checked. Empty if no key is
    /// open, if the value is missing, or if it has more than 2048 bytes.
    utility::wstring QueryValueString(const utility::wstring& name) const;

    /// Closes the key if one is open.
    void CloseKey() const;

    /// Opens a key, reads one value and closes the key.
    ULONG GetValueDWord(const utility::wstring& path, const utility::wstring& name) const;
    utility::wstring GetValueString(const utility::wstring& path, const utility::wstring& name) const;

private:
    mutable HKEY OpenedKey = nullptr;
    utility::wstring RegRootKey;
    utility::wstring RegTagServerKey;
    utility::wstring RegProtocolKey;
    utility::wstring RegUdpKey;
    utility::wstring RegLogKey;
    utility::wstring RegTokenProcessingKey;
};

namespace utility {

/// The release and language of the library, which is also a part of every settings key: "4.09.00-en".
TESSMARU_API wstring GetVersionString();

/// A row of a module's string table, with the inserts in place of its `%1`-style marks.
///
/// @param module  a loaded module with resources.
/// @param inserts the caller's argument list at the first insert; null for a row without marks. The call reads the
///                list to its end.
/// @return the text; empty if the row is missing, if it has marks and no inserts are given, or if the result has more
///         than 1022 units.
TESSMARU_API wstring genStringFromResourceModule(HINSTANCE module, unsigned int row, va_list* inserts);

}  // namespace utility
