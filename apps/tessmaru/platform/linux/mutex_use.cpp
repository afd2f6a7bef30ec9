// Reads the file of a mutex and the locks and threads of a process that uses it. Nothing in the file is trusted: it is
// read once, as bytes, and never locked.
#include "platform/linux/mutex_use.h"

#include "platform/linux/proc_text.h"
#include "text/wide.h"

#include <array>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool::platform {
namespace {

constexpr std::string_view Prefix = "veltrix-mutex-";
constexpr std::size_t PageBytes = 4096;
constexpr std::size_t WordOffset = 64;
constexpr std::size_t NameOffset = 128;
constexpr std::uint32_t Mark = 0x314D5556;  // "VUM1"
constexpr std::uint64_t MostNumber = 65535;

template <class Number>
bool ReadNumber(std::string_view word, Number& number, int base = 10)
{
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number, base);
    return error == std::errc() && end == word.data() + word.size();
}

/// The page of a mutex. @return false if the file is none
bool ReadPage(const std::string& path, MutexUse& use)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0)
        return false;
    std::array<char, PageBytes> page{};
    const ssize_t count = pread(file, page.data(), page.size(), 0);
    close(file);
    std::uint32_t mark = 0;
    std::uint32_t units = 0;
    std::memcpy(&mark, page.data(), sizeof mark);
    std::memcpy(&units, page.data() + sizeof mark, sizeof units);
    if (count != static_cast<ssize_t>(PageBytes) || mark != Mark || units > (PageBytes - NameOffset) / 2)
        return false;
    std::memcpy(&use.Word, page.data() + WordOffset, sizeof use.Word);
    utility::wstring name(units, 0);
    std::memcpy(name.data(), page.data() + NameOffset, units * sizeof name[0]);
    use.Name = ToUtf8(name);
    return true;
}

/// The numbers that a descriptor keeps locked: lines such as "lock: 1: OFDLCK  ADVISORY  WRITE -1 00:1a:77 5 5".
void ReadLocks(const std::string& information, MutexUse& use)
{
    ForEachLine(information, [&](std::string_view line) {
        if (!line.starts_with("lock:"))
            return;
        std::string_view first;
        std::string_view last;
        while (!line.empty()) {
            first = last;
            last = TakeWord(line);
        }
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
        if (!ReadNumber(first, begin) || !ReadNumber(last, end) || end > MostNumber)
            return;
        // Byte 0, which an opening process locks for a moment, joins the lock of byte 1.
        for (std::uint64_t number = begin == 0 ? 1 : begin; number <= end; ++number)
            use.Numbers.push_back(static_cast<std::uint32_t>(number));
    });
}

/// The address of the word in the process; 0 if the file is not mapped there.
std::uint64_t FindWord(const std::string& process, const MutexUse& use)
{
    std::uint64_t address = 0;
    ForEachLine(ReadProc(process + "/maps"), [&](std::string_view line) {
        const std::string_view range = TakeWord(line);
        const bool isShared = TakeWord(line).ends_with('s');
        const std::string_view offset = TakeWord(line);
        TakeWord(line);  // the device, which not every file system gives as `stat` does
        std::uint64_t inode = 0;
        std::uint64_t begin = 0;
        std::uint64_t skipped = 0;
        if (isShared && ReadNumber(TakeWord(line), inode) && inode == use.File.File &&
            ReadNumber(range.substr(0, range.find('-')), begin, 16) && ReadNumber(offset, skipped, 16) && skipped == 0)
            address = begin + WordOffset;
    });
    return address;
}

/// Threads that sleep on the word: the first argument of their system call is its address.
unsigned CountSleepers(const std::string& process, std::uint64_t word)
{
    unsigned sleepers = 0;
    const std::string threads = process + "/task";
    ForEachName(threads, [&](const std::string& thread) {
        const std::string text = ReadProc(threads + "/" + thread + "/syscall");
        std::string_view line = text;
        TakeWord(line);  // the number of the call
        const std::string_view argument = TakeWord(line);
        std::uint64_t address = 0;
        if (argument.starts_with("0x") && ReadNumber(argument.substr(2), address, 16) && address == word)
            ++sleepers;
    });
    return sleepers;
}

}  // namespace

std::optional<MutexUse> ReadMutexUse(const std::string& process, const std::string& descriptor)
{
    const std::string path = process + "/fd/" + descriptor;
    const std::string target = ReadProcLink(path);
    const std::size_t place = target.rfind('/') + 1;
    const std::string_view name = std::string_view(target).substr(place);
    // The process that created the file gave it its name later: it still sees it under the name "#" and a number.
    const bool isNamed = place != 0 && (name.starts_with(Prefix) || name.starts_with('#'));
    MutexUse use;
    struct stat status {};
    if (!isNamed || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || !ReadPage(path, use))
        return std::nullopt;
    use.File = {status.st_dev, status.st_ino};
    use.Folder = target.substr(0, place == 1 ? 1 : place - 1);
    use.IsRemoved = status.st_nlink == 0;
    ReadLocks(ReadProc(process + "/fdinfo/" + descriptor), use);
    if (const std::uint64_t word = FindWord(process, use); word != 0)
        use.Sleepers = CountSleepers(process, word);
    return use;
}

}  // namespace tool::platform
