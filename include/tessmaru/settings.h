// The suite's settings, read-only, and the texts that a module carries in its string table.
//
// Settings lie in one tree of registry keys per release and language, below HKEY_LOCAL_MACHINE in
// `SOFTWARE\Orvane Electronics Limited\Veltrix\4.09.00-en\`. Nothing is cached: each call opens its key,
// reads and closes, so a change shows at the next call. No call reports a failure: a missing key, a missing
// value and a denied read give the accessor's own answer.
#pragma once

#include "tessmaru/platform.h"
#include "tessmaru/text.h"

#include <cstdarg>
#include <vector>

/// What callers program against: every setting by its own accessor. The library attaches no unit to the
/// numbers and hands them on as stored.
class TESSMARU_API CSettings {
public:
    CSettings() = default;
    CSettings(const CSettings&) = delete;
    CSettings& operator=(const CSettings&) = delete;
    virtual ~CSettings() = 0;

    /// The file of the tag specification database. With both arguments empty it is the unnamed value of the
    /// key "Databases" (empty if missing); with any other arguments it is ".\TagSpec.mdb".
    virtual utility::wstring getDbFileName(utility::wstring first, utility::wstring second) const = 0;

    /// Appends getDbFileName of two empty texts; what `names` held stays.
    virtual void getDbFileNames(std::vector<utility::wstring>& names) const = 0;

    virtual LONG getRequestTimeout() const = 0;
    virtual LONG getResponseTimeout() const = 0;
    virtual ULONG getMaxRequests() const = 0;
    virtual ULONG getMaxResponses() const = 0;

    /// The complete path of the log file, as stored.
    virtual utility::wstring getLogPath() const = 0;

    /// The log's debug mask as text of "0" and "1", bit 0 at the right.
    virtual utility::wstring getLogDebugMask() const = 0;

    /// The path of the log's key below HKEY_LOCAL_MACHINE. Never reads the registry.
    virtual utility::wstring getLogRegKey() const = 0;

    /// A text, in spite of its name; as stored.
    virtual utility::wstring getTokenProcessingDisabled() const = 0;

    /// The module that holds the suite's messages.
    virtual utility::wstring getMsgResourceName() const = 0;

    /// True only for the text "Y" in either case.
    virtual bool getValidationDisabled() const = 0;

    virtual utility::wstring getCancelRequestsMethod() const = 0;

    /// True only for the text "async" in any case. Not the opposite of CancelRequestsIsSync: any third
    /// text, and none at all, make both false.
    virtual bool CancelRequestsIsAsync() const = 0;
    virtual bool CancelRequestsIsSync() const = 0;

    virtual ULONG getProtocolResponseTimeout() const = 0;

    /// False only for the text "n" in either case: encryption is on unless it is turned off.
    virtual bool getProtocolEncryptionEnabled() const = 0;

    /// All 32 bits as stored; no range is imposed.
    virtual ULONG getUDPPortNumber() const = 0;
};

/// The settings as the registry has them. One object serves one thread at a time; objects on separate
/// threads are independent. Construction reads no key.
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
    /// Opens a key below HKEY_LOCAL_MACHINE in place of the one that is open. A key that cannot be opened
    /// changes nothing: queries go on reading from the one before.
    void OpenKey(const utility::wstring& path) const;

    /// The 32-bit value of this name in the open key, whatever its type; 0 without a key, without the value,
    /// or for a value of more than 4 bytes. An empty name means the key's unnamed value.
    ULONG QueryValueDWord(const utility::wstring& name) const;

    /// The text of this name in the open key, up to its first zero unit; empty without a key, without the
    /// value, or for a value of more than 2048 bytes.
    utility::wstring QueryValueString(const utility::wstring& name) const;

    /// Closes the open key, if there is one.
    void CloseKey() const;

    /// OpenKey, the query, CloseKey.
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

/// The release and language of the library, which is also a segment of every settings key: "4.09.00-en".
TESSMARU_API wstring GetVersionString();

/// Row `row` of a module's string table with the inserts put in for its `%1`-style marks.
///
/// @param module  a loaded module that carries resources.
/// @param inserts the caller's argument list, positioned at the first insert; null for a row without marks.
///                The list is used up by the call.
/// @return the text; empty for a missing row, for marks without inserts, and for a result of more than 1022
///         units.
TESSMARU_API wstring genStringFromResourceModule(HINSTANCE module, unsigned int row, va_list* inserts);

}  // namespace utility
