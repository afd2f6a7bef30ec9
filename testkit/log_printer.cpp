// Prints a log file to standard output.
#include "testkit/log_printer.h"

#include "testkit/log_reader.h"
#include "testkit/terminal.h"

#include <cstdio>

namespace testkit {

void PrintLog(const std::filesystem::path& path)
{
    PrepareTerminal();
    const LogFile log(path);
    for (const Record& record : log.Records())
        std::printf("%.*s\n", static_cast<int>(record.Line.size()), record.Line.data());
}

}  // namespace testkit
