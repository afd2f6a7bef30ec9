// `tessmaru settings list` and `get`: the values of the settings.
#include "cli/command.h"
#include "output/json.h"
#include "platform/store.h"
#include "settings/catalogue.h"
#include "text/wide.h"
#include "verbs/settings_verbs.h"

#include <fmt/format.h>

#include <algorithm>

namespace tool {
namespace {

struct ListOptions {};

struct GetOptions {
    std::string Name;
};

struct Row {
    const Setting* What;
    const StoreValue* Stored;  // null: missing
    std::string Value;
    std::string Place;
};

std::vector<Row> RowsOf(const Store& store)
{
    std::vector<Row> rows;
    for (const Setting& setting : Settings()) {
        const StoreValue* const stored = store.Find(KeyOf(setting), setting.Name);
        rows.push_back({&setting, stored, CurrentValue(setting, store),
                        stored == nullptr ? "default" : store.PlaceOf(stored->Line)});
    }
    return rows;
}

void WriteJson(Output& out, const Row& row, const Store& store)
{
    JsonLine json;
    json.Text("key", KeyOf(*row.What));
    json.Text("name", row.What->Name);
    json.Text("kind", NameOf(row.What->Kind));
    if (row.What->Kind == SettingKind::number)
        json.Number("value", std::stoll(row.Value));
    else
        json.Text("value", row.Value);
    json.Flag("set", row.Stored != nullptr);
    json.Text("source", row.Stored == nullptr ? "default" : store.Location);
    if (row.Stored != nullptr && row.Stored->Line != 0)
        json.Number("line", static_cast<std::int64_t>(row.Stored->Line));
    json.Text("meaning", row.What->Meaning);
    out.Line(json.Take());
}

std::size_t WidthOf(const std::vector<Row>& rows, std::string (*text)(const Row&))
{
    // A longer text moves only its own line.
    constexpr std::size_t most = 40;
    std::size_t width = 0;
    for (const Row& row : rows)
        width = std::max(width, std::min(text(row).size(), most));
    return width;
}

std::string ValueText(const Row& row)
{
    return row.Value.empty() ? "(empty)" : Shown(row.Value);
}

Exit List(Session& session, const ListOptions&)
{
    const Store store = platform::ReadMachineStore();
    const std::vector<Row> rows = RowsOf(store);
    const std::size_t names = WidthOf(rows, [](const Row& row) { return DisplayName(*row.What); });
    const std::size_t values = WidthOf(rows, ValueText);
    const std::size_t places = WidthOf(rows, [](const Row& row) { return row.Place; });
    for (const Row& row : rows) {
        if (session.Json) {
            WriteJson(session.Out, row, store);
            continue;
        }
        session.Out.Write(fmt::format("{:<{}}  ", DisplayName(*row.What), names), Style::bold);
        session.Out.Write(fmt::format("{:<{}}  {:<{}}  ", ValueText(row), values, row.Place, places),
                          row.Stored == nullptr ? Style::dim : Style::plain);
        session.Out.Line(row.What->Meaning);
    }
    return Exit::done;
}

Exit Get(Session& session, const GetOptions& options)
{
    const Setting& setting = FindSetting(options.Name);
    const Store store = platform::ReadMachineStore();
    const StoreValue* const stored = store.Find(KeyOf(setting), setting.Name);
    const std::string value = CurrentValue(setting, store);
    if (session.Json) {
        WriteJson(session.Out, {&setting, stored, value, {}}, store);
        return stored == nullptr ? Exit::nothing : Exit::done;
    }
    if (stored != nullptr) {
        session.Out.Line(Shown(value));
        return Exit::done;
    }
    session.Say(
        fmt::format("{} is not set{}", DisplayName(setting), value.empty() ? "" : ": the library uses " + value));
    return Exit::nothing;
}

}  // namespace

void AddSettingsList(CLI::App& settings, Session& session)
{
    CLI::App* const verb =
        AddVerb(settings, "list", "Show each setting, its value, where it comes from and its meaning",
                "tessmaru settings list  show the settings of this machine\n"
                "tessmaru settings list --registry new.reg  show those of a file\n"
                "tessmaru settings list --json  write a line of JSON for each setting");
    SetAction(verb, session, std::make_shared<ListOptions>(), List);
}

void AddSettingsGet(CLI::App& settings, Session& session)
{
    CLI::App* const verb = AddVerb(settings, "get", "Write the value of a setting; the exit code is 1 if it is not set",
                                   "tessmaru settings get FilePath  write the path of the log\n"
                                   "tessmaru settings get \"Tag Server\\MaxRequests\"  name the key too");
    const auto options = std::make_shared<GetOptions>();
    verb->add_option("name", options->Name, "The setting, with or without its key")->required()->type_name("NAME");
    SetAction(verb, session, options, Get);
}

}  // namespace tool
