// Reads a property of the machine. A missing value differs from one that could not be read this time: only the first
// result may be kept for the rest of the process.
#include "store/machine_value.h"

#include "store/registry.h"

#include <algorithm>
#include <new>

namespace {

layer::Lookup Read(HKEY hive, LPCWSTR key, LPCWSTR value, std::span<WCHAR> text)
{
    layer::Text found;
    LSTATUS result = 0;
    if (!layer::ReadStoreText(hive, key, value, found, &result)) {
        const bool lasting = result == LSTATUS{ERROR_FILE_NOT_FOUND} || result == LSTATUS{ERROR_PATH_NOT_FOUND} ||
                             result == LSTATUS{ERROR_ACCESS_DENIED};
        return lasting ? layer::Lookup::missing : layer::Lookup::failed;
    }
    if (found.size() >= text.size())
        return layer::Lookup::missing;
    std::ranges::fill(text, WCHAR{0});
    std::ranges::copy(found, text.begin());
    return layer::Lookup::found;
}

}  // namespace

layer::Lookup layer::ReadMachineText(HKEY hive, LPCWSTR key, LPCWSTR value, std::span<WCHAR> text)
{
    const DWORD lastError = GetLastError();
    Lookup result = Lookup::failed;
    try {
        result = Read(hive, key, value, text);
    } catch (const std::bad_alloc&) {
        result = Lookup::failed;
    }
    SetLastError(lastError);
    return result;
}
