// log4cplus, set up for a file of several processes: appending, flushed at each record, with a lock file. The layout
// has the fields of the library's record.
#include "writer.h"

#include <log4cplus/fileappender.h>
#include <log4cplus/helpers/property.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace bench {
namespace {

class Log4cplusWriter : public Writer {
public:
    explicit Log4cplusWriter(const std::string& path) : Log(log4cplus::Logger::getInstance("Import"))
    {
        log4cplus::helpers::Properties properties;
        properties.setProperty("File", path);
        properties.setProperty("Append", "true");
        properties.setProperty("ImmediateFlush", "true");
        properties.setProperty("UseLockFile", "true");
        log4cplus::SharedAppenderPtr appender(new log4cplus::FileAppender(properties));
        appender->setLayout(
            std::make_unique<log4cplus::PatternLayout>("%D{%Y-%m-%d %H:%M:%S.%q} | %8i | %8T | %4p | %12c | %m%n"));
        Log.addAppender(appender);
        Log.setAdditivity(false);
    }

    bool Write(int number) override
    {
        LOG4CPLUS_INFO_FMT(Log, "%d sites read from %s, done", 100000 + number, "North.mdb");
        return true;
    }

private:
    log4cplus::Initializer Initializer;
    log4cplus::Logger Log;
};

}  // namespace

std::unique_ptr<Writer> MakeWriter(const std::string& path)
{
    return std::make_unique<Log4cplusWriter>(path);
}

}  // namespace bench
