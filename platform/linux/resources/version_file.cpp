// Reads the version block of a module's file, PE or ELF.
#include "resources/version_file.h"

#include "base/last_error.h"
#include "files/paths.h"
#include "resources/elf_resource.h"
#include "resources/file_source.h"
#include "resources/pe_resource.h"
#include "resources/version_block.h"

#include <string>

namespace {

using layer::Extent;
using layer::Fail;

/// Opens a file and finds its version block.
/// @param use  called with the file and the range of the block; its result is the result
/// @return the system error, or what `use` returned
template <class Use>
DWORD WithVersionBlock(LPCWSTR path, Use use)
{
    std::string translated;
    if (const DWORD error = layer::TranslatePath(path, translated); error != ERROR_SUCCESS)
        return error;
    layer::FileSource file(translated.c_str());
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
