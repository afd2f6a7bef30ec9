// Mapped files on Windows.
#include "testkit/mapped_file.h"

#include "testkit/paths.h"
#include "testkit/windows/last_failure.h"

namespace testkit {

MappedFile::MappedFile(const std::filesystem::path& path, std::size_t size) : Size(size)
{
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        ThrowLastFailure(ToUtf8(path));
    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(size), nullptr);
    if (mapping != nullptr)
        Memory = MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, size);
    const DWORD error = GetLastError();
    if (mapping != nullptr)
        CloseHandle(mapping);
    CloseHandle(file);
    SetLastError(error);
    if (Memory == nullptr)
        ThrowLastFailure(ToUtf8(path));
}

MappedFile::~MappedFile()
{
    UnmapViewOfFile(Memory);
}

}  // namespace testkit
