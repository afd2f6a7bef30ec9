// Files on Windows.
#include "platform/file.h"

#include "cli/session.h"
#include "platform/windows/wide.h"

#include <fmt/format.h>

#include <windows.h>

#include <algorithm>

namespace tool::platform {
namespace {

class OpenFile final : public InputFile {
public:
    OpenFile(HANDLE file, std::string path) : File(file), Path(std::move(path)) {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() override { CloseHandle(File); }

    std::uint64_t Size() override
    {
        LARGE_INTEGER size{};
        if (GetFileSizeEx(File, &size) == FALSE)
            Fail();
        return static_cast<std::uint64_t>(size.QuadPart);
    }

    std::size_t ReadAt(std::uint64_t offset, void* buffer, std::size_t bytes) override
    {
        constexpr std::size_t most = 1 << 30;
        OVERLAPPED place{};
        place.Offset = static_cast<DWORD>(offset);
        place.OffsetHigh = static_cast<DWORD>(offset >> 32);
        DWORD count = 0;
        if (ReadFile(File, buffer, static_cast<DWORD>(std::min(bytes, most)), &count, &place) == FALSE &&
            GetLastError() != ERROR_HANDLE_EOF)
            Fail();
        return count;
    }

    FileIdentity Identity() const override
    {
        BY_HANDLE_FILE_INFORMATION information{};
        if (GetFileInformationByHandle(File, &information) == FALSE)
            Fail();
        return {information.dwVolumeSerialNumber,
                std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow};
    }

private:
    [[noreturn]] void Fail() const
    {
        throw Failure(Exit::unreadable, fmt::format("cannot read {}: {}", Path, LastErrorText()));
    }

    HANDLE File;
    std::string Path;
};

}  // namespace

std::unique_ptr<InputFile> InputFile::Open(const std::string& path)
{
    auto opened = OpenIfThere(path);
    if (opened == nullptr)
        throw Failure(Exit::unreadable, fmt::format("cannot open {}: No such file or directory", path));
    return opened;
}

std::unique_ptr<InputFile> InputFile::OpenIfThere(const std::string& path)
{
    // All sharing is allowed: the writers move the file when they roll it over.
    const HANDLE file =
        CreateFileW(Wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    const DWORD error = file == INVALID_HANDLE_VALUE ? GetLastError() : ERROR_SUCCESS;
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return nullptr;
    if (error != ERROR_SUCCESS)
        throw Failure(Exit::unreadable, fmt::format("cannot open {}: {}", path, LastErrorText()));
    return std::make_unique<OpenFile>(file, path);
}

bool IsSameFile(const InputFile& file, const std::string& path)
{
    const HANDLE other = CreateFileW(Wide(path).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                     nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    return other != INVALID_HANDLE_VALUE && file.Identity() == OpenFile(other, path).Identity();
}

std::size_t ReadInput(void* buffer, std::size_t bytes)
{
    DWORD count = 0;
    if (ReadFile(GetStdHandle(STD_INPUT_HANDLE), buffer, static_cast<DWORD>(bytes), &count, nullptr) == FALSE &&
        GetLastError() != ERROR_BROKEN_PIPE)
        throw Failure(Exit::unreadable, fmt::format("cannot read standard input: {}", LastErrorText()));
    return count;
}

std::string PathOnDisk(const std::string& path)
{
    return path;
}

}  // namespace tool::platform
