// Reads the version block of a module's file, whatever kind of module it is.
#include "resources/version_file.h"

#include "base/last_error.h"
#include "files/paths.h"
#include "resources/elf_resource.h"
#include "resources/file_source.h"
#include "resources/pe_resource.h"
#include "resources/version_block.h"

#include <new>

namespace {

using layer::Extent;
using layer::Fail;

/// Opens the file of a path and gives its source and its block to `use`, whose result counts.
template <class Use>
DWORD WithVersionBlock(LPCWSTR path, Use use)
{
    std::string translated;
    try {
        if (const DWORD error = layer::TranslatePath(path, translated); error != ERROR_SUCCESS)
            return error;
    } catch (const std::bad_alloc&) {
        return ERROR_OUTOFMEMORY;
    }
    layer::FileSource file(translated.c_str());
    if (file.error() != ERROR_SUCCESS)
        return file.error();
    Extent block;
    const DWORD error = layer::FindVersionBlock(file, block);
    // A file that cannot be read looks like one that ends early.
    return file.error() != ERROR_SUCCESS ? file.error() : error != ERROR_SUCCESS ? error : use(file, block);
}

}  // namespace

DWORD layer::FindVersionBlock(ByteSource& file, Extent& found)
{
    constexpr std::uint64_t most = 0xFFFF;
    DWORD error = FindPeResource(file, VersionType, VersionName, found);
    if (error == ERROR_BAD_EXE_FORMAT)
        error = FindElfResource(file, VersionType, VersionName, found);
    if (error != ERROR_SUCCESS)
        return error;
    found = found.Part(0, most);
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
        auto* const bytes = static_cast<std::byte*>(data);
        const std::size_t copied = file.Copy(block.Start, bytes, static_cast<std::size_t>(block.Part(0, size).Size));
        return layer::SealVersionBlock(bytes, copied) ? ERROR_SUCCESS : ERROR_RESOURCE_DATA_NOT_FOUND;
    });
    return error == ERROR_SUCCESS ? TRUE : Fail(error, FALSE);
}
