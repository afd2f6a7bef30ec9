// `tessmaru log`: the verbs that read the log.
#include "cli/command.h"
#include "verbs/log/log_verbs.h"
#include "verbs/verbs.h"

namespace tool {

void AddLog(CLI::App& program, Session& session)
{
    CLI::App* const log = AddVerb(program, "log", "Read the log",
                                  "tessmaru log -n 20  show the last 20 records\n"
                                  "tessmaru log --level WARN+ --since 2h  show warnings and errors of two hours\n"
                                  "tessmaru log follow  show new records as they are written\n"
                                  "tessmaru log convert -o App.txt  write the log as UTF-8");
    AddLogShow(*log, session);
    AddLogFollow(*log, session);
    AddLogConvert(*log, session);
    AddLogSummary(*log, session);
    AddLogRotate(*log, session);
}

}  // namespace tool
