// Mapped files on Linux.
#include "testkit/mapped_file.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace testkit {

MappedFile::MappedFile(const std::filesystem::path& path, std::size_t size) : Size(size)
{
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0)
        throw std::system_error(errno, std::generic_category(), path.string());
    void* memory = MAP_FAILED;
    if (ftruncate(file, static_cast<off_t>(size)) == 0)
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    const int error = errno;
    close(file);
    if (memory == MAP_FAILED)
        throw std::system_error(error, std::generic_category(), path.string());
    Memory = memory;
}

MappedFile::~MappedFile()
{
    munmap(Memory, Size);
}

}  // namespace testkit
