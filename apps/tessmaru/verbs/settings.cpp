// `tessmaru settings`: the settings of the suite.
#include "cli/command.h"
#include "verbs/settings_verbs.h"
#include "verbs/verbs.h"

namespace tool {

void AddSettings(CLI::App& program, Session& session)
{
    CLI::App* const settings = AddVerb(program, "settings", "Show and check the settings of the suite",
                                       "tessmaru settings list  show all settings and where they come from\n"
                                       "tessmaru settings get PortNumber  write one value\n"
                                       "tessmaru settings check  find mistakes");
    settings->require_subcommand(1);
    AddSettingsList(*settings, session);
    AddSettingsGet(*settings, session);
    AddSettingsCheck(*settings, session);
    AddSettingsDiff(*settings, session);
    AddSettingsInit(*settings, session);
}

}  // namespace tool
