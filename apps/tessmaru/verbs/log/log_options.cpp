// The options of `tessmaru log` that choose a log and its records.
#include "verbs/log/log_options.h"

#include "platform/file.h"
#include "settings/values.h"

namespace tool {

void AddFileOptions(CLI::App* verb, LogOptions& options)
{
    verb->add_option("file", options.File, "The log; - is standard input; without it, the log of the settings")
        ->type_name("FILE");
    verb->add_flag("--previous", options.Previous, "Read the old file, which the last rollover left");
    verb->add_option("--date-pattern", options.DatePattern, "How the log writes dates, such as dd/MM/yyyy")
        ->type_name("PATTERN");
}

void AddFilterOptions(CLI::App* verb, LogOptions& options)
{
    verb->add_option("--level", options.Levels,
                     "Only these levels: ERR, WARN, INFO, STATUS, DBUG; WARN+ is WARN and "
                     "worse")
        ->delimiter(',')
        ->type_name("LEVEL");
    verb->add_option("--since", options.Since, "Only records from this time on: 2026-11-22, 09:30, 15m, 2h, 3d")
        ->type_name("TIME");
    verb->add_option("--until", options.Until, "Only records before this time")->type_name("TIME");
    verb->add_option("--pid", options.Processes, "Only this process: 3054, 0xbee, or 00000bee as in the log")
        ->delimiter(',')
        ->type_name("PID");
    verb->add_option("--tid", options.Threads, "Only this thread")->delimiter(',')->type_name("TID");
    verb->add_option("--source", options.Sources, "Only this source")->delimiter(',')->type_name("NAME");
    verb->add_option("--grep", options.Texts, "Only records with this text")->type_name("TEXT");
    verb->add_option("--regex", options.Expression, "Only records whose text matches this expression (RE2)")
        ->type_name("RE");
    verb->add_option("-n,--lines", options.Count, "Only the last N records")->type_name("N");
}

std::string PreviousFileOf(const std::string& file)
{
    const std::size_t name = file.find_last_of("/\\") + 1;
    return file.substr(0, name) + "Previous " + file.substr(name);
}

std::string LogFileOf(const LogOptions& options)
{
    std::string file = options.File;
    if (file.empty()) {
        const std::string setting = LogPathSetting();
        if (setting.empty())
            throw Failure(Exit::unreadable, "the settings name no log. Give a file, or see: tessmaru doctor");
        file = platform::PathOnDisk(setting);
    }
    return options.Previous && file != "-" ? PreviousFileOf(file) : file;
}

}  // namespace tool
