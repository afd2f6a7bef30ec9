// Reads the version block of a module's file, PE or ELF.
#include "resources/version_file.h"

#include "base/last_error.h"
#include "files/paths.h"
#include "modules/modules.h"
#include "resources/elf_resource.h"
#include "resources/file_source.h"
#include "resources/pe_resource.h"
#include "resources/version_block.h"
#include "tessmaru/text.h"
#include "text/text.h"

#include <new>
#include <string>

namespace {

using layer::Extent;
using layer::Fail;

/// Finds the file of a path. A name without a folder is that of a loaded module, if there is one; otherwise the file is
/// in the current folder.
/// @return ERROR_SUCCESS, or the system error
DWORD FindFile(LPCWSTR path, std::string& found)
try {
    using namespace utility::literals;
    if (path != nullptr && layer::TextView(path).find_first_of(u"/\\:"_w) == layer::TextView::npos) {
        if (const HMODULE module = GetModuleHandleW(path); module != nullptr) {
            found = layer::ModulePath(module);
            return ERROR_SUCCESS;
        }
    }
    return layer::TranslatePath(path, found);
} catch (const std::bad_alloc&) {
    return ERROR_OUTOFMEMORY;
}

/// Opens a file and finds its version block.
/// @param use  called with the file and the range of the block; its result is the result
/// @return the system error, or what `use` returned
template <class Use>
DWORD WithVersionBlock(LPCWSTR path, Use use)
{
    std::string found;
    if (const DWORD error = FindFile(path, found); error != ERROR_SUCCESS)
        return error;
    layer::FileSource file(found.c_str());
    if (file.error() != ERROR_SUCCESS)
        return file.error();
    Extent block;
    const DWORD error = layer::FindVersionBlock(file, block);
    // If a read failed, the search saw a file that ends early. The error of the read is then the true one.
    if (file.error() != ERROR_SUCCESS)
        return file.error();
    // As in Win32, a file that is no module is one without resources.
    if (error == ERROR_BAD_EXE_FORMAT)
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    return error != ERROR_SUCCESS ? error : use(file, block);
}

}  // namespace

DWORD layer::FindVersionBlock(ByteSource& file, Extent& found)
{
    constexpr std::uint64_t maxBytes = 0xFFFF;
    // ERROR_BAD_EXE_FORMAT means "not a PE file"; any other error is final.
    DWORD error = FindPeResource(file, VersionType, VersionName, found);
    if (error == ERROR_BAD_EXE_FORMAT)
        error = FindElfResource(file, VersionType, VersionName, found);
    if (error != ERROR_SUCCESS)
        return error;
    found = found.Part(0, maxBytes);
    return found.Size != 0 ? ERROR_SUCCESS : ERROR_RESOURCE_DATA_NOT_FOUND;
}

DWORD GetFileVersionInfoSizeW(LPCWSTR path, DWORD* handle)
{
    if (handle != nullptr)
        *handle = 0;
    DWORD bytes = 0;
    const DWORD error = WithVersionBlock(path, [&bytes](layer::FileSource&, const Extent& block) {
        bytes = static_cast<DWORD>(block.Size);
        return ERROR_SUCCESS;
    });
    return error == ERROR_SUCCESS ? bytes : Fail(error, DWORD{0});
}

BOOL GetFileVersionInfoW(LPCWSTR path, DWORD, DWORD size, LPVOID data)
{
    if (data == nullptr)
        return Fail(ERROR_INVALID_PARAMETER, FALSE);
    const DWORD error = WithVersionBlock(path, [&](layer::FileSource& file, const Extent& block) {
        // A buffer that is too small gets the start of the block, as published.
        auto* const bytes = static_cast<std::byte*>(data);
        const std::size_t copied = file.Copy(block.Start, bytes, static_cast<std::size_t>(block.Part(0, size).Size));
        return layer::ClampVersionBlock(bytes, copied) ? ERROR_SUCCESS : ERROR_RESOURCE_DATA_NOT_FOUND;
    });
    return error == ERROR_SUCCESS ? TRUE : Fail(error, FALSE);
}
