// Translates paths of the platform's form into paths on disk. Only the form of a path matters, not whether it exists.
#include "files/paths.h"

#include "store/registry.h"
#include "tessmaru/text.h"
#include "text/utf8.h"

#include <climits>
#include <new>

namespace {

using namespace utility::literals;
using layer::Text;
using layer::TextView;

// The prefixes of an extended-length path. The limit that they lift does not exist here, so they are removed.
constexpr TextView ExtendedPrefix = u"\\\\?\\"_w;
constexpr TextView ExtendedNetPrefix = u"\\\\?\\UNC\\"_w;
constexpr const WCHAR* DevicesKey = u"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices"_w;

bool IsSeparator(WCHAR unit)
{
    return unit == '\\' || unit == '/';
}

bool StartsWithSeparator(TextView path)
{
    return !path.empty() && IsSeparator(path.front());
}

/// Whether the path names another machine. Two slashes count as two backslashes do.
bool IsNetworkPath(TextView path)
{
    return StartsWithSeparator(path) && StartsWithSeparator(path.substr(1));
}

bool StartsWithDrive(TextView path)
{
    // One comparison per range: a unit below its start wraps around to a large value.
    const auto isLetter = [](unsigned unit) { return unit - 'A' < 26 || unit - 'a' < 26; };
    return path.size() >= 2 && isLetter(path[0]) && path[1] == ':';
}

/// Finds the folder of a drive. Drive C is the root only if the store has no entry for it. A store that cannot be read,
/// or a malformed entry, never falls back to another folder.
/// @param folder  receives the folder; stays empty for the root
/// @return ERROR_SUCCESS, or the system error
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

/// Appends a path in UTF-8, with slashes for backslashes. The length is checked on the way, so that a long text fails
/// early.
/// @return ERROR_SUCCESS, ERROR_INVALID_NAME or ERROR_FILENAME_EXCED_RANGE
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
    // A drive has no current folder here: `C:App.log` means the same as `C:\App.log`.
    while (StartsWithSeparator(path))
        path.remove_prefix(1);
    if (!translated.ends_with('/'))
        translated += '/';
    return ERROR_SUCCESS;
}

}  // namespace

DWORD layer::TranslatePath(LPCWSTR path, std::string& translated)
try {
    TextView rest = path == nullptr ? TextView() : TextView(path);
    const bool isNetwork = rest.starts_with(ExtendedNetPrefix);
    if (rest.starts_with(ExtendedPrefix))
        rest.remove_prefix(ExtendedPrefix.size());
    if (isNetwork || IsNetworkPath(rest))
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
} catch (const std::bad_alloc&) {
    return ERROR_OUTOFMEMORY;
}
