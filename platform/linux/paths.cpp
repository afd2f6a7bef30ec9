// Only the form of a path is looked at here, never whether something is there.
#include "paths.h"

#include "machine_text.h"
#include "registry.h"

#include <climits>

namespace {

using layer::Text;
using layer::TextView;

constexpr auto PlainPrefix = layer::Literal(u"\\\\?\\");
constexpr auto PlainNetPrefix = layer::Literal(u"\\\\?\\UNC\\");
constexpr auto DevicesKey = layer::Literal(u"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices");

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

/// The folder of a drive. Only where the store says nothing of drive C is that the root: a store that cannot be
/// read, or that says something else, leads nobody to another folder.
DWORD FindDriveFolder(WCHAR letter, Text& folder)
{
    const WCHAR drive[] = {letter, ':', 0};
    LSTATUS result = 0;
    if (layer::ReadStoreText(HKEY_LOCAL_MACHINE, DevicesKey.data(), drive, folder, &result))
        return StartsWithSeparator(folder) ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
    if (result != LSTATUS{ERROR_FILE_NOT_FOUND})
        return static_cast<DWORD>(result);
    return letter == 'C' || letter == 'c' ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

/// Takes the first character off a text; false for half a surrogate pair.
bool TakeCodePoint(TextView& text, std::uint32_t& point)
{
    const auto isHigh = [](unsigned unit) { return (unit & 0xFC00) == 0xD800; };
    const auto isLow = [](unsigned unit) { return (unit & 0xFC00) == 0xDC00; };
    point = text[0];
    if (isLow(point))
        return false;
    if (isHigh(point)) {
        if (text.size() < 2 || !isLow(text[1]))
            return false;
        point = 0x10000 + ((point & 0x3FF) << 10) + (text[1] & 0x3FF);
        text.remove_prefix(1);
    }
    text.remove_prefix(1);
    return true;
}

void AppendUtf8(std::uint32_t point, std::string& text)
{
    const auto append = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    const auto appendTail = [&](int shift) { append(0x80 | (point >> shift & 0x3F)); };
    if (point < 0x80) {
        append(point);
    } else if (point < 0x800) {
        append(0xC0 | point >> 6);
        appendTail(0);
    } else if (point < 0x10000) {
        append(0xE0 | point >> 12);
        appendTail(6);
        appendTail(0);
    } else {
        append(0xF0 | point >> 18);
        appendTail(12);
        appendTail(6);
        appendTail(0);
    }
}

DWORD Append(TextView path, std::string& translated)
{
    while (!path.empty()) {
        std::uint32_t point = 0;
        if (!TakeCodePoint(path, point))
            return ERROR_INVALID_NAME;
        AppendUtf8(point == '\\' ? '/' : point, translated);
        if (translated.size() >= PATH_MAX)
            return ERROR_FILENAME_EXCED_RANGE;
    }
    return ERROR_SUCCESS;
}

/// Replaces the drive in front of `path` by its folder, which goes to `translated`.
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
    const bool net = rest.starts_with(PlainNetPrefix.data());
    if (rest.starts_with(PlainPrefix.data()))
        rest.remove_prefix(PlainPrefix.size() - 1);
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
