// `tessmaru settings diff`: settings that differ from the defaults, or from those of another store.
#include "cli/command.h"
#include "output/json.h"
#include "platform/store.h"
#include "settings/catalogue.h"
#include "text/ascii.h"
#include "text/wide.h"
#include "verbs/settings_verbs.h"

#include <fmt/format.h>

#include <optional>

namespace tool {
namespace {

struct DiffOptions {
    std::string File;
};

std::string ValueText(const std::string& value)
{
    return value.empty() ? "(empty)" : Shown(value);
}

/// Whether the library gets the same from two values. Of a flag it knows one letter: the opposite of the default.
bool IsSame(const Setting& setting, const std::string& one, const std::string& other)
{
    if (setting.Kind != SettingKind::flag)
        return one == other;
    const std::string_view letter = setting.Default == "y" ? "n" : "y";
    return EqualIgnoringCase(one, letter) == EqualIgnoringCase(other, letter);
}

/// Both stores are read by the tool's own reader: the library can read only the one of the machine.
Exit Diff(Session& session, const DiffOptions& options)
{
    const Store here = platform::ReadMachineStore();
    std::optional<Store> other;
    if (!options.File.empty())
        other = ReadStoreFile(options.File);
    Exit result = Exit::nothing;
    for (const Setting& setting : Settings()) {
        const std::string key = KeyOf(setting);
        const std::string value = ShownValue(setting, here.Find(key, setting.Name));
        const std::string theirs =
            other ? ShownValue(setting, other->Find(key, setting.Name)) : std::string(setting.Default);
        if (IsSame(setting, value, theirs))
            continue;
        result = Exit::done;
        if (session.Json) {
            JsonLine json;
            json.Text("key", key);
            json.Text("name", setting.Name);
            json.Text("value", value);
            json.Text(other ? "other" : "default", theirs);
            session.Out.Line(json.Take());
            continue;
        }
        session.Out.Write(fmt::format("{:<34}  ", DisplayName(setting)), Style::bold);
        session.Out.Line(
            fmt::format("{} ({}: {})", ValueText(value), other ? other->Location : "default", ValueText(theirs)));
    }
    if (result == Exit::nothing)
        session.Say("no setting differs");
    return result;
}

}  // namespace

void AddSettingsDiff(CLI::App& settings, Session& session)
{
    CLI::App* const verb = AddVerb(settings, "diff", "Show the settings that differ; the exit code is 1 if none does",
                                   "tessmaru settings diff  show what differs from the defaults\n"
                                   "tessmaru settings diff other.reg  show what differs from another store");
    const auto options = std::make_shared<DiffOptions>();
    verb->add_option("file", options->File, "The other store; without it, the defaults")->type_name("FILE");
    SetAction(verb, session, options, Diff);
}

}  // namespace tool
