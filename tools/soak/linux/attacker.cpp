// Attacks on the files of mutexes: what any account can do that reaches them.
#include "soak/linux/attacker.h"

#include "soak/linux/writer_process.h"

#include "testkit/mapped_file.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <thread>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace soak {
namespace {

constexpr off_t WordAt = 64;
constexpr int PageBytes = 4096;
constexpr int LastSlot = 0xFFFF;

struct flock Range(short type, off_t start, off_t length)
{
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    return lock;
}

class Attacker {
public:
    explicit Attacker(const AttackOrder& order) : Order(order), Chance(order.Seed) {}

    void Once()
    {
        for (const std::filesystem::path& path : Mutexes()) {
            const int file = open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
            if (file >= 0)
                AttackFile(file);
            if (file >= 0)
                close(file);
            if (Below(20) == 0)
                AttackPath(path);
        }
    }

private:
    int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(Chance); }

    void Sleep(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

    std::vector<std::filesystem::path> Mutexes() const
    {
        std::vector<std::filesystem::path> paths;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(Order.Runtime, ignored)) {
            if (entry.path().filename().string().starts_with("veltrix-mutex-"))
                paths.push_back(entry.path());
        }
        return paths;
    }

    void AttackFile(int file)
    {
        switch (Below(8)) {
            case 0: Put(file, WordAt, static_cast<std::uint32_t>(Chance())); break;
            case 1: Put(file, WordAt, 0); break;
            case 2: HoldAsLiveOwner(file); break;
            case 3: FillPage(file); break;
            case 4: Truncate(file, 0); break;
            case 5: Truncate(file, Below(PageBytes)); break;
            case 6: Lock(file, 0, 1, Below(40)); break;
            default: Lock(file, Below(LastSlot), Below(LastSlot) + 1, Below(5)); break;
        }
    }

    void Put(int file, off_t at, std::uint32_t value) { static_cast<void>(!pwrite(file, &value, sizeof value, at)); }

    /// Writes the number of a living process, which the others then wait for. It does not stay for ever: a mutex that
    /// seems to be held is held, by contract, until the process of that number uses it again, and some here only wait.
    void HoldAsLiveOwner(int file)
    {
        struct flock lock = Range(F_WRLCK, 1 + Below(LastSlot), 0);
        if (fcntl(file, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) {
            lock = Range(F_WRLCK, 1, LastSlot);
            fcntl(file, F_OFD_GETLK, &lock);
        }
        Put(file, WordAt, static_cast<std::uint32_t>(lock.l_start) | static_cast<std::uint32_t>(Below(4)) << 30U);
        // Longer than a record waits, now and then.
        Sleep(Below(200) == 0 ? 1200 : Below(4));
        Put(file, WordAt, 0);
    }

    void FillPage(int file)
    {
        std::array<std::uint32_t, PageBytes / sizeof(std::uint32_t)> page{};
        for (std::uint32_t& word : page)
            word = static_cast<std::uint32_t>(Chance());
        static_cast<void>(!pwrite(file, page.data(), PageBytes, 0));
    }

    void Truncate(int file, off_t size)
    {
        static_cast<void>(!ftruncate(file, size));
        if (Below(2) == 0)
            static_cast<void>(!ftruncate(file, PageBytes));
    }

    /// Byte 0 is held by a process that opens the mutex, each other byte by a user of it.
    void Lock(int file, off_t start, off_t length, int milliseconds)
    {
        struct flock lock = Range(Below(2) == 0 ? F_WRLCK : F_RDLCK, start, length);
        if (fcntl(file, F_OFD_SETLK, &lock) == 0)
            Sleep(milliseconds);
    }

    /// Puts something else at the path of a mutex: in a sticky folder only if this account owns the file.
    void AttackPath(const std::filesystem::path& path)
    {
        const std::string link = path.parent_path() / "second-link";
        switch (Below(5)) {
            case 0:
                static_cast<void>(!::link(path.c_str(), link.c_str()));
                Sleep(Below(20));
                unlink(link.c_str());
                break;
            case 1:
                unlink(path.c_str());
                static_cast<void>(!symlink(Order.Target.c_str(), path.c_str()));
                break;
            case 2:
                unlink(path.c_str());
                mkdir(path.c_str(), 0777);
                break;
            case 3:
                unlink(path.c_str());
                mkfifo(path.c_str(), 0666);
                break;
            default: unlink(path.c_str()); break;
        }
    }

    const AttackOrder Order;
    std::mt19937 Chance;
};

}  // namespace

std::vector<std::string> AttackOrder::Words() const
{
    return {"--attack", Runtime.string(), Counts.string(), Target.string(), std::to_string(Seed)};
}

std::optional<AttackOrder> AttackOrder::Read(const std::vector<std::string>& words)
{
    if (words.size() != 5 || words[0] != "--attack")
        return std::nullopt;
    return AttackOrder{words[1], words[2], words[3], Number(words[4])};
}

void Attack(const AttackOrder& order)
{
    const testkit::SharedValue<std::atomic<std::uint32_t>> attacks(order.Counts);
    if (geteuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setresgid(AttackerAccount, AttackerAccount, AttackerAccount) != 0 ||
         setresuid(AttackerAccount, AttackerAccount, AttackerAccount) != 0))
        std::exit(EXIT_FAILURE);
    DieWithParent();
    Attacker attacker(order);
    for (;;) {
        attacker.Once();
        ++*attacks;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

}  // namespace soak
