// Translates paths. Only the form of a path matters here, never whether the file exists.
#include "files/paths.h"

#include "store/registry.h"
#include "tessmaru/text.h"
#include "text/utf8.h"

#include <climits>

namespace {

using namespace utility::literals;
using layer::Text;
using layer::TextView;

constexpr TextView PlainPrefix = u"\\\\?\\"_w;
constexpr TextView PlainNetPrefix = u"\\\\?\\UNC\\"_w;
constexpr const WCHAR* DevicesKey = u"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices"_w;

bool IsSeparator(WCHAR unit)
{
    return unit == '\\' || unit == '/';
}

bool StartsWithSeparator(TextView path)
{
    return !path.empty() && IsSeparator(path.front());
}

bool IsOfOtherMachine(TextView path)
{
    return StartsWithSeparator(path) && StartsWithSeparator(path.substr(1));
}

bool StartsWithDrive(TextView path)
{
    const auto isLetter = [](unsigned unit) { return unit - 'A' < 26 || unit - 'a' < 26; };
    return path.size() >= 2 && isLetter(path[0]) && path[1] == ':';
}

/// The folder of a drive. Drive C is the root only if the store has no entry for it. A store that cannot be read, or a
/// malformed entry, never falls back to another folder.
DWORD FindDriveFolder(WCHAR letter, Text& folder)
{
    const WCHAR drive[] = {letter, ':', 0};
    LSTATUS result = 0;
    if (layer::ReadStoreText(HKEY_LOCAL_MACHINE, DevicesKey, drive, folder, &result))
        return StartsWithSeparator(folder) ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
    if (result != LSTATUS{ERROR_FILE_NOT_FOUND})
        return static_cast<DWORD>(result);
    return letter == 'C' || letter == 'c' ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

DWORD Append(TextView path, std::string& translated)
{
    while (!path.empty()) {
        const std::optional<std::uint32_t> point = layer::TakeCodePoint(path);
        if (!point)
            return ERROR_INVALID_NAME;
        const layer::Utf8Character character = layer::EncodeUtf8(*point == '\\' ? '/' : *point);
        translated.append(character.Bytes, character.Count);
        if (translated.size() >= PATH_MAX)
            return ERROR_FILENAME_EXCED_RANGE;
    }
    return ERROR_SUCCESS;
}

/// Removes the drive from the start of `path` and appends its folder to `translated`.
DWORD TakeDrive(TextView& path, std::string& translated)
{
    Text folder;
    if (const DWORD error = FindDriveFolder(path[0], folder); error != ERROR_SUCCESS)
        return error;
    if (const DWORD error = Append(folder, translated); error != ERROR_SUCCESS)
        return error;
    path.remove_prefix(2);
    while (StartsWithSeparator(path))
        path.remove_prefix(1);
    if (!translated.ends_with('/'))
        translated += '/';
    return ERROR_SUCCESS;
}

}  // namespace

DWORD layer::TranslatePath(LPCWSTR path, std::string& translated)
{
    TextView rest = path == nullptr ? TextView() : TextView(path);
    const bool net = rest.starts_with(PlainNetPrefix);
    if (rest.starts_with(PlainPrefix))
        rest.remove_prefix(PlainPrefix.size());
    if (net || IsOfOtherMachine(rest))
        return ERROR_BAD_NETPATH;
    if (rest.empty())
        return ERROR_PATH_NOT_FOUND;
    std::string result;
    if (StartsWithDrive(rest)) {
        if (const DWORD error = TakeDrive(rest, result); error != ERROR_SUCCESS)
            return error;
    }
    if (const DWORD error = Append(rest, result); error != ERROR_SUCCESS)
        return error;
    translated.swap(result);
    return ERROR_SUCCESS;
}
