// Files and folders on Windows.
#include "platform/disk.h"

#include "platform/windows/wide.h"

#include <windows.h>

#include <cctype>

namespace tool::platform {

PathState StateOf(const std::string& path)
{
    PathState state;
    const std::wstring wide = Wide(path);
    const DWORD attributes = GetFileAttributesW(wide.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        const DWORD error = GetLastError();
        if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
            state.Error = "error " + std::to_string(error);
        return state;
    }
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        state.Kind = FileKind::link;
    else
        state.Kind = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileKind::folder : FileKind::file;
    // The access is asked for, not the content: nothing of the file changes.
    const DWORD access = state.Kind == FileKind::folder ? FILE_ADD_FILE : FILE_APPEND_DATA;
    const HANDLE file = CreateFileW(wide.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    const bool isOpen = file != INVALID_HANDLE_VALUE;
    state.CanWrite = isOpen || GetLastError() == ERROR_SHARING_VIOLATION;
    BY_HANDLE_FILE_INFORMATION information{};
    if (isOpen && GetFileInformationByHandle(file, &information) != FALSE)
        state.Links = information.nNumberOfLinks;
    if (isOpen)
        CloseHandle(file);
    return state;
}

std::optional<std::uint64_t> FreeSpace(const std::string& folder)
{
    ULARGE_INTEGER bytes{};
    if (GetDiskFreeSpaceExW(Wide(folder).c_str(), &bytes, nullptr, nullptr) == FALSE)
        return std::nullopt;
    return bytes.QuadPart;
}

std::string FolderOf(const std::string& path)
{
    const std::size_t end = path.find_last_of("/\\");
    if (end == std::string::npos)
        return ".";
    // A drive's own folder keeps its separator.
    return path.substr(0, end == 0 || (end == 2 && path[1] == ':') ? end + 1 : end);
}

std::string PathFault(const std::string& path)
{
    const auto isSeparator = [&](std::size_t at) { return at < path.size() && (path[at] == '/' || path[at] == '\\'); };
    const bool hasDrive = path.size() >= 2 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0])) != 0;
    return (hasDrive && isSeparator(2)) || (isSeparator(0) && isSeparator(1))
               ? std::string()
               : "it is not complete, so it depends on the folder of each process";
}

std::string RuntimeFolder()
{
    return {};
}

std::string QuotedWord(const std::string& word)
{
    return "\"" + word + "\"";
}

}  // namespace tool::platform
