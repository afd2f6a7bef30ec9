// spdlog with its plain file sink, flushed at each record. Only the appending write itself synchronises several
// processes. The layout has the fields of the library's record.
#include "writer.h"

#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

namespace bench {
namespace {

class SpdlogWriter : public Writer {
public:
    explicit SpdlogWriter(const std::string& path)
        : Log("Import", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path))
    {
        Log.set_pattern("%Y-%m-%d %H:%M:%S.%e | %8P | %8t | %4l | %12n | %v");
        Log.flush_on(spdlog::level::trace);
    }

    bool Write(int number) override
    {
        Log.info("{} sites read from {}, done", 100000 + number, "North.mdb");
        return true;
    }

private:
    spdlog::logger Log;
};

}  // namespace

std::unique_ptr<Writer> MakeWriter(const std::string& path)
{
    return std::make_unique<SpdlogWriter>(path);
}

}  // namespace bench
