// Changes of a folder by inotify, and the signals SIGINT and SIGTERM by a pipe.
#include "platform/changes.h"

#include "cli/session.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace tool::platform {
namespace {

constexpr unsigned Events =
    IN_MODIFY | IN_CREATE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

int endPipe[2] = {-1, -1};

void OnSignal(int)
{
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(endPipe[1], "", 1);
    errno = error;
}

void NoticeSignals()
{
    if (pipe2(endPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        throw Failure(Exit::internal, std::string("cannot make a pipe: ") + std::strerror(errno));
    struct sigaction action {};
    action.sa_handler = OnSignal;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    for (const int number : {SIGINT, SIGTERM})
        sigaction(number, &action, nullptr);
}

class FolderChanges final : public Changes {
public:
    explicit FolderChanges(std::string folder)
        : Folder(std::move(folder)), Queue(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        NoticeSignals();
        AddWatch();
    }
    FolderChanges(const FolderChanges&) = delete;
    FolderChanges& operator=(const FolderChanges&) = delete;
    ~FolderChanges() override
    {
        if (Queue >= 0)
            close(Queue);
    }

    bool Wait(std::chrono::milliseconds time) override
    {
        AddWatch();
        pollfd waits[] = {{endPipe[0], POLLIN, 0}, {Queue, POLLIN, 0}};
        // Without inotify there is a negative descriptor, which poll ignores.
        if (poll(waits, 2, static_cast<int>(time.count())) > 0 && waits[1].revents != 0)
            Drain();
        return waits[0].revents == 0;
    }

private:
    /// To be called often, because the folder may be replaced. For a folder that is watched this changes nothing.
    void AddWatch() const
    {
        if (Queue >= 0)
            inotify_add_watch(Queue, Folder.c_str(), Events);
    }

    /// Takes all events. What they say does not matter, only that there were some.
    void Drain() const
    {
        alignas(inotify_event) char events[16 * 1024];
        while (read(Queue, events, sizeof events) > 0) {
        }
    }

    const std::string Folder;
    const int Queue;
};

}  // namespace

std::unique_ptr<Changes> Changes::Watch(const std::string& folder)
{
    return std::make_unique<FolderChanges>(folder);
}

}  // namespace tool::platform
