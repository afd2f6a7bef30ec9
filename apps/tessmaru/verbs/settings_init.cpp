// `tessmaru settings init`: a new store with all settings.
#include "cli/command.h"
#include "platform/disk.h"
#include "platform/store.h"
#include "settings/catalogue.h"
#include "verbs/settings_verbs.h"

#include <fmt/format.h>

namespace tool {
namespace {

struct InitOptions {
    std::string File;
};

/// The store as text. It is plain ASCII with CR LF: every editor, the library and the registry editor read that.
std::string NewStore()
{
    std::string text =
        "Windows Registry Editor Version 5.00\r\n\r\n"
        "; The settings of the suite, with their defaults. A line with a semicolon is a comment.\r\n";
    std::string_view key;
    for (const Setting& setting : Settings()) {
        if (setting.Key != key)
            text += fmt::format("\r\n[{}]\r\n", KeyOf(setting));
        key = setting.Key;
        const std::string name = setting.Name.empty() ? "@" : fmt::format("\"{}\"", setting.Name);
        text += fmt::format("; {}: {}\r\n", NameOf(setting.Kind), setting.Meaning);
        if (setting.Key.starts_with("HKEY_"))
            text += ";";  // an empty value would not mean the same as none
        text += setting.Kind == SettingKind::number ? fmt::format("{}=dword:{:0>8}\r\n", name, setting.Default)
                                                    : fmt::format("{}=\"{}\"\r\n", name, setting.Default);
    }
    return text;
}

Exit Init(Session& session, const InitOptions& options)
{
    if (options.File.empty() && !platform::IsStoreFile())
        throw Failure(Exit::usage,
                      "the settings of this machine are in the registry: give a file, which the registry "
                      "editor can import");
    const std::string path = options.File.empty() ? platform::MachineStoreLocation() : options.File;
    const std::string folder = platform::FolderOf(path);
    if (platform::StateOf(path).Kind != platform::FileKind::missing)
        throw Failure(Exit::unreadable, path + " exists, and stays as it is");
    if (platform::StateOf(folder).Kind == platform::FileKind::missing)
        throw Failure(Exit::unreadable, fmt::format("the folder {} does not exist; create it: install -d -m 0755 {}",
                                                    folder, platform::QuotedWord(folder)));
    platform::WriteNewFile(path, NewStore());
    session.Say(fmt::format("{} is written. Set FilePath in it, then run: tessmaru settings check {}", path,
                            platform::QuotedWord(path)));
    return Exit::done;
}

}  // namespace

void AddSettingsInit(CLI::App& settings, Session& session)
{
    CLI::App* const verb = AddVerb(settings, "init", "Write a new store with all settings, their defaults and comments",
                                   "tessmaru settings init  write the store of this machine, if there is none\n"
                                   "tessmaru settings init new.reg  write a file");
    const auto options = std::make_shared<InitOptions>();
    verb->add_option("file", options->File, "The new file; without it, the store of this machine")->type_name("FILE");
    SetAction(verb, session, options, Init);
}

}  // namespace tool
