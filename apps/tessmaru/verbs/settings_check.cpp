// `tessmaru settings check`: what is wrong in the settings.
#include "cli/command.h"
#include "output/json.h"
#include "platform/store.h"
#include "settings/check.h"
#include "text/wide.h"
#include "verbs/settings_verbs.h"

#include <fmt/format.h>

namespace tool {
namespace {

struct CheckOptions {
    std::string File;
};

Exit Check(Session& session, const CheckOptions& options)
{
    const Store store = options.File.empty() ? platform::ReadMachineStore() : ReadStoreFile(options.File);
    const auto faults = CheckStore(store);
    for (const StoreFault& fault : faults) {
        if (session.Json) {
            JsonLine json;
            json.Text("file", store.Location);
            json.Number("line", static_cast<std::int64_t>(fault.Line));
            json.Text("text", fault.Text);
            session.Out.Line(json.Take());
        } else {
            session.Out.Line(store.PlaceOf(fault.Line) + ": " + Shown(fault.Text));
        }
    }
    if (!faults.empty())
        return Exit::nothing;
    session.Say(
        fmt::format("{}: no fault in {} keys and {} values", store.Location, store.Keys.size(), store.Values.size()));
    return Exit::done;
}

}  // namespace

void AddSettingsCheck(CLI::App& settings, Session& session)
{
    CLI::App* const verb =
        AddVerb(settings, "check", "Find mistakes in the settings; the exit code is 1 if there are any",
                "tessmaru settings check  check the settings of this machine\n"
                "tessmaru settings check new.reg  check a file before it is installed");
    const auto options = std::make_shared<CheckOptions>();
    verb->add_option("file", options->File, "The store; without it, that of this machine")->type_name("FILE");
    SetAction(verb, session, options, Check);
}

}  // namespace tool
