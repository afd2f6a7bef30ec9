// Reads a property of the machine. A missing value is distinguished from one that could not be read this time, because
// callers cache the result for the rest of the process and must not cache a temporary failure.
#include "store/machine_value.h"

#include "store/registry.h"

#include <algorithm>
#include <new>

namespace {

layer::LookupResult Read(HKEY hive, LPCWSTR key, LPCWSTR value, std::span<WCHAR> text)
{
    layer::Text found;
    LSTATUS result = 0;
    if (!layer::ReadStoreText(hive, key, value, found, &result)) {
        const bool permanent = result == LSTATUS{ERROR_FILE_NOT_FOUND} || result == LSTATUS{ERROR_PATH_NOT_FOUND} ||
                               result == LSTATUS{ERROR_ACCESS_DENIED};
        return permanent ? layer::LookupResult::missing : layer::LookupResult::unavailable;
    }
    // No valid value of these properties is longer than the buffer, so a longer one counts as missing.
    if (found.size() >= text.size())
        return layer::LookupResult::missing;
    std::ranges::fill(text, WCHAR{0});
    std::ranges::copy(found, text.begin());
    return layer::LookupResult::found;
}

}  // namespace

layer::LookupResult layer::ReadMachineText(HKEY hive, LPCWSTR key, LPCWSTR value, std::span<WCHAR> text)
{
    const DWORD lastError = GetLastError();
    LookupResult result = LookupResult::unavailable;
    try {
        result = Read(hive, key, value, text);
    } catch (const std::bad_alloc&) {
        result = LookupResult::unavailable;
    }
    SetLastError(lastError);
    return result;
}
