#include "paths.h"

#include "registry.h"
#include "tessmaru/text.h"

#include <algorithm>
#include <climits>

namespace {

using layer::Text;
using layer::TextView;
using namespace utility::literals;

bool IsSeparator(WCHAR unit)
{
    return unit == '\\' || unit == '/';
}

bool IsLetter(WCHAR unit)
{
    return (unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z');
}

/// The folder of a drive, as the store has it. Only a store without it leaves C to the root.
DWORD DriveFolder(WCHAR letter, Text& folder)
{
    const WCHAR drive[] = {letter, ':', 0};
    LSTATUS status = 0;
    if (layer::ReadStoreText(HKEY_LOCAL_MACHINE, u"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\DOS Devices"_w,
                             drive, folder, &status))
        return ERROR_SUCCESS;
    folder.assign(1, '/');
    if (status != LSTATUS{ERROR_FILE_NOT_FOUND})
        return static_cast<DWORD>(status);
    return letter == 'C' || letter == 'c' ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

/// Every unit of a path stands for itself: half a pair names no file.
bool HasUnpairedHalf(TextView text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned kind = text[i] & 0xFC00U;
        if (kind == 0xDC00)
            return true;
        if (kind == 0xD800 && (++i == text.size() || (text[i] & 0xFC00U) != 0xDC00))
            return true;
    }
    return false;
}

DWORD ToUtf8(const Text& path, std::string& translated)
{
    if (HasUnpairedHalf(path))
        return ERROR_INVALID_NAME;
    const auto units = static_cast<int>(path.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, path.data(), units, nullptr, 0, nullptr, nullptr);
    if (bytes >= PATH_MAX)
        return ERROR_FILENAME_EXCED_RANGE;
    translated.resize(static_cast<std::size_t>(bytes));
    WideCharToMultiByte(CP_UTF8, 0, path.data(), units, translated.data(), bytes, nullptr, nullptr);
    return ERROR_SUCCESS;
}

}  // namespace

DWORD layer::TranslatePath(LPCWSTR path, std::string& translated)
{
    constexpr WCHAR plainPrefix[] = {'\\', '\\', '?', '\\'};
    TextView rest(path);
    if (rest.starts_with(TextView(plainPrefix, std::size(plainPrefix))))
        rest.remove_prefix(std::size(plainPrefix));
    else if (rest.size() >= 2 && rest[0] == '\\' && rest[1] == '\\')
        return ERROR_BAD_NETPATH;
    if (rest.empty())
        return ERROR_PATH_NOT_FOUND;
    if (rest.size() > PATH_MAX)
        return ERROR_FILENAME_EXCED_RANGE;
    Text whole;
    if (rest.size() >= 2 && IsLetter(rest[0]) && rest[1] == ':') {
        if (const DWORD error = DriveFolder(rest[0], whole); error != ERROR_SUCCESS)
            return error;
        if (whole.empty() || !IsSeparator(whole.back()))
            whole += '/';
        rest.remove_prefix(2);
        while (!rest.empty() && IsSeparator(rest[0]))
            rest.remove_prefix(1);
    }
    whole += rest;
    std::replace(whole.begin(), whole.end(), WCHAR{'\\'}, WCHAR{'/'});
    return ToUtf8(whole, translated);
}
