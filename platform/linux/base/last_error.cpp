// The last error of each thread, and the table from `errno` values to system errors.
#include "base/last_error.h"

#include <cerrno>

namespace {

thread_local DWORD lastError = ERROR_SUCCESS;

}  // namespace

DWORD GetLastError()
{
    return lastError;
}

void SetLastError(DWORD error)
{
    lastError = error;
}

DWORD layer::ErrorFromErrno(int error)
{
    switch (error) {
        case 0: return ERROR_SUCCESS;
        case ENOENT: return ERROR_FILE_NOT_FOUND;
        case ENOTDIR: return ERROR_PATH_NOT_FOUND;
        // EISDIR: in Win32 the attempt to open a directory as a file is an access error.
        case EACCES:
        case EPERM:
        case EISDIR: return ERROR_ACCESS_DENIED;
        case EROFS: return ERROR_WRITE_PROTECT;
        case EBADF: return ERROR_INVALID_HANDLE;
        case ENOMEM: return ERROR_OUTOFMEMORY;
        case EMFILE:
        case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
        // A quota and a file size limit are reported like a full disk: all three mean that the file cannot grow.
        case ENOSPC:
        case EDQUOT:
        case EFBIG: return ERROR_DISK_FULL;
        case EEXIST:
        case ENOTEMPTY: return ERROR_ALREADY_EXISTS;
        case EINVAL: return ERROR_INVALID_PARAMETER;
        case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
        case ELOOP: return ERROR_CANT_RESOLVE_FILENAME;
        case EBUSY: return ERROR_BUSY;
        case ETXTBSY: return ERROR_SHARING_VIOLATION;
        case EIO: return ERROR_IO_DEVICE;
        case ENOSYS:
        case EOPNOTSUPP: return ERROR_NOT_SUPPORTED;
        default: return ERROR_GEN_FAILURE;
    }
}
