// Changes of a folder by ReadDirectoryChangesW, and the console's requests to end the program by an event.
#include "platform/changes.h"

#include "platform/windows/wide.h"

#include <windows.h>

namespace tool::platform {
namespace {

constexpr DWORD Events = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE;

HANDLE endEvent = nullptr;

BOOL WINAPI OnConsole(DWORD)
{
    // The second request finds the event set, and is left to the default action.
    if (WaitForSingleObject(endEvent, 0) == WAIT_OBJECT_0)
        return FALSE;
    SetEvent(endEvent);
    return TRUE;
}

class FolderChanges final : public Changes {
public:
    explicit FolderChanges(const std::string& folder) : Folder(Wide(folder))
    {
        Operation.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        endEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        SetConsoleCtrlHandler(OnConsole, TRUE);
    }
    FolderChanges(const FolderChanges&) = delete;
    FolderChanges& operator=(const FolderChanges&) = delete;
    ~FolderChanges() override
    {
        SetConsoleCtrlHandler(OnConsole, FALSE);
        Forget();
        CloseHandle(Operation.hEvent);
    }

    bool Wait(std::chrono::milliseconds time) override
    {
        if (!IsPending)
            Start();
        const HANDLE events[] = {endEvent, Operation.hEvent};
        const DWORD result = WaitForMultipleObjects(IsPending ? 2 : 1, events, FALSE, static_cast<DWORD>(time.count()));
        if (result == WAIT_OBJECT_0 + 1) {
            DWORD bytes = 0;
            // A failure means that the folder is gone. It is opened again.
            if (GetOverlappedResult(Handle, &Operation, &bytes, FALSE) == FALSE)
                Forget();
            IsPending = false;
        }
        return result != WAIT_OBJECT_0;
    }

private:
    void Start()
    {
        constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
        if (Handle == INVALID_HANDLE_VALUE)
            Handle = CreateFileW(Folder.c_str(), FILE_LIST_DIRECTORY, shareAll, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
        ResetEvent(Operation.hEvent);
        IsPending =
            Handle != INVALID_HANDLE_VALUE &&
            ReadDirectoryChangesW(Handle, Buffer, sizeof Buffer, FALSE, Events, nullptr, &Operation, nullptr) != FALSE;
        if (!IsPending)
            Forget();
    }

    /// Closes the folder. An operation that is pending has ended before this returns, as it writes to the buffer.
    void Forget()
    {
        if (Handle == INVALID_HANDLE_VALUE)
            return;
        DWORD bytes = 0;
        if (IsPending && CancelIo(Handle) != FALSE)
            GetOverlappedResult(Handle, &Operation, &bytes, TRUE);
        CloseHandle(Handle);
        Handle = INVALID_HANDLE_VALUE;
        IsPending = false;
    }

    const std::wstring Folder;
    HANDLE Handle = INVALID_HANDLE_VALUE;
    OVERLAPPED Operation{};
    bool IsPending = false;
    alignas(DWORD) char Buffer[16 * 1024];
};

}  // namespace

std::unique_ptr<Changes> Changes::Watch(const std::string& folder)
{
    return std::make_unique<FolderChanges>(folder);
}

}  // namespace tool::platform
