// The library's log. The settings name its path.
#include "writer.h"

#include "tessmaru/log.h"
#include "tessmaru/text.h"

namespace bench {
namespace {

using namespace utility::literals;

class LogWriter : public Writer {
public:
    explicit LogWriter(utilities::CLog& log) : Log(log) {}

    bool Write(int number) override
    {
        return Log.LogInfo(u"%d sites read from %s, done"_w, u"Import"_w, 100000 + number, u"North.mdb"_w) == 0;
    }

private:
    utilities::CLog& Log;
};

}  // namespace

std::unique_ptr<Writer> MakeWriter(const std::string&)
{
    utilities::CLog* log = utilities::CLog::GetInstance();
    return log == nullptr ? nullptr : std::make_unique<LogWriter>(*log);
}

}  // namespace bench
