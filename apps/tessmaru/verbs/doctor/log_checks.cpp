// The checks of the settings, the log's file and the disk.
#include "cli/session.h"
#include "platform/disk.h"
#include "platform/store.h"
#include "settings/check.h"
#include "settings/values.h"
#include "verbs/doctor/findings.h"

#include <fmt/format.h>

namespace tool {
namespace {

using platform::FileKind;
using platform::PathState;
using platform::QuotedWord;

void CheckFolder(const std::string& folder, const PathState& state, Findings& findings)
{
    const std::string word = QuotedWord(folder);
    if (!state.Error.empty()) {
        findings.push_back({"folder", Verdict::failure, folder + ": " + state.Error, "sudo tessmaru doctor"});
    } else if (state.Kind == FileKind::missing) {
        findings.push_back({"folder", Verdict::failure, folder + " does not exist",
                            platform::IsStoreFile() ? "install -d -m 2770 -g veltrix " + word : "mkdir " + word});
    } else if (state.Kind == FileKind::file || state.Kind == FileKind::other) {
        findings.push_back({"folder", Verdict::failure, folder + " is no folder", {}});
    } else {
        findings.push_back({"folder", Verdict::ok, folder + " exists", {}});
    }
}

/// The permissions that matter: of the folder to create and roll over the log, of the file to append to it.
void CheckPermissions(const std::string& folder, const PathState& ofFolder, const std::string& path,
                      const PathState& ofFile, Findings& findings)
{
    if (ofFile.Kind == FileKind::file && !ofFile.CanWrite) {
        findings.push_back({"permission", Verdict::failure, "this account must not write to " + path,
                            "chmod a+rw " + QuotedWord(path)});
    } else if (!ofFolder.CanWrite) {
        findings.push_back({"permission", Verdict::failure,
                            "this account must not create files in " + folder +
                                ". Log in again after it has become a member of the group",
                            "usermod --append --groups veltrix ACCOUNT"});
    } else if (ofFolder.IsOpenToAll) {
        const std::string word = QuotedWord(folder);
        findings.push_back({"permission", Verdict::warning, "every account may remove or replace files in " + folder,
                            fmt::format("chgrp veltrix {} && chmod 2770 {}", word, word)});
    } else {
        findings.push_back({"permission", Verdict::ok, "this account may create and append", {}});
    }
}

void CheckFile(const std::string& path, const PathState& state, Findings& findings)
{
    const std::string word = QuotedWord(path);
    const auto fail = [&](const std::string& text, const std::string& mend) {
        findings.push_back({"file", Verdict::failure, path + text, mend});
    };
    if (!state.Error.empty())
        fail(": " + state.Error, "sudo tessmaru doctor");
    else if (state.Kind == FileKind::link)
        fail(" is a symbolic link: it cannot be opened (0x80070781)", "unlink " + word);
    else if (state.Kind == FileKind::folder)
        fail(" is a folder (0x80070005)", "rmdir " + word);
    else if (state.Kind == FileKind::other)
        fail(" is a device or a pipe (0x80070005)", "unlink " + word);
    else if (state.Links > 1)
        fail(fmt::format(" has {} links: it cannot be opened (0x80070476)", state.Links),
             fmt::format("find {} -xdev -samefile {}", QuotedWord(platform::FolderOf(path)), word));
    else if (state.Kind == FileKind::missing)
        findings.push_back({"file", Verdict::ok, path + " does not exist: the first process creates it", {}});
    else
        findings.push_back({"file", Verdict::ok, path + " is a regular file with one link", {}});
}

void CheckSpace(const std::string& folder, Findings& findings)
{
    constexpr std::uint64_t mebibyte = 1024 * 1024;
    constexpr std::uint64_t enough = 1024 * mebibyte;
    constexpr std::uint64_t little = 16 * mebibyte;
    const auto space = platform::FreeSpace(folder);
    if (!space)
        return findings.push_back({"space", Verdict::warning, "the free space is not known", {}});
    if (*space >= enough)
        return findings.push_back({"space", Verdict::ok, "at least 1 GiB is free", {}});
    findings.push_back(
        {"space", *space < little ? Verdict::failure : Verdict::warning,
         fmt::format("only {} MiB are free: on a full disk records are lost (0x80070070)", *space / mebibyte),
         platform::IsStoreFile() ? "du -xh " + QuotedWord(folder) + " | sort -h | tail" : ""});
}

}  // namespace

std::string EditSettings()
{
    return platform::IsStoreFile() ? "editor " + QuotedWord(platform::MachineStoreLocation()) : "regedit";
}

std::optional<Store> CheckSettings(Findings& findings)
try {
    Store store = platform::ReadMachineStore();
    const auto faults = CheckStore(store);
    if (faults.empty()) {
        findings.push_back({"settings", Verdict::ok, store.Location + " has no faults", {}});
    } else {
        findings.push_back(
            {"settings", Verdict::failure,
             fmt::format("{} {} in {}", faults.size(), faults.size() == 1 ? "fault" : "faults", store.Location),
             platform::IsStoreFile() ? "tessmaru settings check " + QuotedWord(store.Location)
                                     : "tessmaru settings check"});
    }
    return store;
} catch (const Failure& failure) {
    const std::string store = platform::MachineStoreLocation();
    findings.push_back({"settings", Verdict::failure, std::string(failure.what()) + ": no process can log (0x80070002)",
                        platform::StateOf(store).Kind == FileKind::missing
                            ? "tessmaru settings init " + QuotedWord(store)
                            : "sudo tessmaru doctor"});
    return std::nullopt;
}

std::string CheckLog(Findings& findings)
{
    const std::string setting = LogPathSetting();
    if (setting.empty()) {
        findings.push_back(
            {"path", Verdict::failure, "FilePath is not set: no process can log (0x80070002)",
             platform::IsStoreFile() ? "editor " + QuotedWord(platform::MachineStoreLocation()) : "regedit"});
        return {};
    }
    std::string path;
    try {
        path = platform::PathOnDisk(setting);
    } catch (const Failure& failure) {
        findings.push_back({"path", Verdict::failure, std::string(failure.what()) + " (0x80070003)", EditSettings()});
        return {};
    }
    findings.push_back({"path", Verdict::ok, path == setting ? path : setting + " is " + path, {}});
    const std::string folder = platform::FolderOf(path);
    // The folder may be reached through a link, so the state of what the link leads to counts.
    const PathState ofFolder = platform::StateOf(folder + "/.");
    const PathState ofEntry = platform::StateOf(folder);
    CheckFolder(folder, ofFolder.Kind == FileKind::missing ? ofEntry : ofFolder, findings);
    if (ofFolder.Kind != FileKind::folder)
        return path;
    const PathState ofFile = platform::StateOf(path);
    CheckPermissions(folder, ofFolder, path, ofFile, findings);
    CheckFile(path, ofFile, findings);
    CheckSpace(folder, findings);
    return path;
}

void CheckRuntimeFolder(Findings& findings)
{
    const std::string folder = platform::RuntimeFolder();
    if (folder.empty())
        return;
    const PathState state = platform::StateOf(folder + "/.");
    const std::string word = QuotedWord(folder);
    if (state.Kind != FileKind::folder)
        findings.push_back({"runtime", Verdict::failure, folder + " does not exist: no process can log (0x80070003)",
                            "install -d -m 2770 -g veltrix " + word});
    else if (!state.CanWrite)
        findings.push_back({"runtime", Verdict::failure,
                            "this account must not create files in " + folder + " (0x80070005)",
                            "usermod --append --groups veltrix ACCOUNT"});
    else if (folder == "/dev/shm")
        findings.push_back({"runtime", Verdict::warning,
                            "/dev/shm holds the files of the mutexes: every account can create them first",
                            "install -d -m 2770 -g veltrix /run/veltrix"});
    else
        findings.push_back({"runtime", Verdict::ok, folder + " holds the files of the mutexes", {}});
}

}  // namespace tool
