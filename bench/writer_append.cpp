// The machine's own limit for several writers: a write of the size of a record to a file that is open for appending.
#include "writer.h"

#include <fcntl.h>
#include <unistd.h>

namespace bench {
namespace {

class AppendWriter : public Writer {
public:
    explicit AppendWriter(const std::string& path)
        : File(open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600))
    {
    }
    ~AppendWriter() override { close(File); }

    bool Write(int) override { return write(File, Record, sizeof Record) == sizeof Record; }

private:
    static constexpr char Record[220] = {};
    int File;
};

}  // namespace

std::unique_ptr<Writer> MakeWriter(const std::string& path)
{
    return std::make_unique<AppendWriter>(path);
}

}  // namespace bench
