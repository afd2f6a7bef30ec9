// The checks of the processes that have the log open: who writes, who owns the mutex and who waits, and whether all
// use the same mutex, file and time zone.
#include "verbs/doctor/findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace tool {
namespace {

using platform::LogUser;
using platform::LogUsers;
using platform::MutexUse;

std::string NameOf(const LogUser& user)
{
    return fmt::format("{} ({})", user.Process, user.Name);
}

std::string ListOf(const std::vector<const LogUser*>& users)
{
    std::string list;
    for (const LogUser* user : users)
        list += (list.empty() ? "" : ", ") + NameOf(*user);
    return list;
}

std::string ProcessesOf(const std::vector<const LogUser*>& users)
{
    std::string list;
    for (const LogUser* user : users)
        list += " " + std::to_string(user->Process);
    return list;
}

/// One user of one mutex of the log.
struct Use {
    const LogUser* User;
    const MutexUse* Mutex;
};

/// Whether a mutex has the name of the log: the path with underscores for backslashes, which may be spelled in several
/// ways, and the ending of mutexes. A process can have other mutexes too.
bool IsOfLog(const MutexUse& mutex, const std::string& path)
{
    const std::string ending = path.substr(path.rfind('/') + 1) + ".Mutex";
    if (!mutex.Name.ends_with(ending))
        return false;
    const std::size_t before = mutex.Name.size() - ending.size();
    return before == 0 || std::string_view("_/:").find(mutex.Name[before - 1]) != std::string_view::npos;
}

std::vector<Use> UsesOf(const std::string& path, const LogUsers& users)
{
    std::vector<Use> uses;
    for (const LogUser& user : users.Found) {
        for (const MutexUse& mutex : user.Mutexes) {
            if (user.Writes && IsOfLog(mutex, path))
                uses.push_back({&user, &mutex});
        }
    }
    return uses;
}

template <class Condition>
std::vector<const LogUser*> UsersThat(const LogUsers& users, Condition condition)
{
    std::vector<const LogUser*> chosen;
    for (const LogUser& user : users.Found) {
        if (condition(user))
            chosen.push_back(&user);
    }
    return chosen;
}

void CheckUsers(const LogUsers& users, Findings& findings)
{
    const auto writers = UsersThat(users, [](const LogUser& user) { return user.Writes; });
    const auto readers = UsersThat(users, [](const LogUser& user) { return !user.Writes; });
    findings.push_back(
        {"writers", Verdict::ok, writers.empty() ? "no process has the log open" : "open in " + ListOf(writers), {}});
    if (!readers.empty())
        findings.push_back({"readers", Verdict::ok, "read by " + ListOf(readers), {}});
}

void CheckOwner(const std::vector<Use>& uses, bool isComplete, Findings& findings)
{
    const auto isOwner = [](const Use& use) {
        const std::uint32_t owner = use.Mutex->Word & MutexUse::OwnerBits;
        return owner != 0 &&
               std::find(use.Mutex->Numbers.begin(), use.Mutex->Numbers.end(), owner) != use.Mutex->Numbers.end();
    };
    const auto owner = std::find_if(uses.begin(), uses.end(), isOwner);
    if (owner != uses.end() && owner->User->IsStopped) {
        findings.push_back(
            {"mutex", Verdict::failure,
             "the owner is stopped, so the others lose their records (0x80040302): " + NameOf(*owner->User),
             fmt::format("kill -CONT {}", owner->User->Process)});
    } else if (owner != uses.end()) {
        findings.push_back({"mutex", Verdict::ok, "owned by " + NameOf(*owner->User), {}});
    } else if (std::any_of(uses.begin(), uses.end(),
                           [](const Use& use) { return (use.Mutex->Word & MutexUse::OwnerBits) != 0; })) {
        findings.push_back({"mutex",
                            Verdict::ok,
                            isComplete ? "the owner has ended: the next process that waits takes the mutex"
                                       : "owned by a process that this account does not see",
                            {}});
    } else {
        findings.push_back({"mutex", Verdict::ok, "free", {}});
    }
    std::vector<const LogUser*> waiting;
    for (const Use& use : uses) {
        if (use.Mutex->Sleepers > 0)
            waiting.push_back(use.User);
    }
    if (!waiting.empty())
        findings.push_back({"waiting", Verdict::ok, "for the mutex: " + ListOf(waiting), {}});
}

void CheckStopped(const LogUsers& users, Findings& findings)
{
    const auto stopped = UsersThat(users, [](const LogUser& user) { return user.Writes && user.IsStopped; });
    if (!stopped.empty())
        findings.push_back({"stopped", Verdict::warning, "stopped, so they do not log: " + ListOf(stopped),
                            "kill -CONT" + ProcessesOf(stopped)});
}

void CheckRemoved(const LogUsers& users, Findings& findings)
{
    const auto writers = UsersThat(users, [](const LogUser& user) { return user.Writes && user.HasRemovedFile; });
    if (!writers.empty())
        findings.push_back({"removed", Verdict::warning,
                            "these have a removed file open until they write the next record: " + ListOf(writers),
                            "ls -l /proc/" + std::to_string(writers.front()->Process) + "/fd"});
}

/// All writers must have the same file of the mutex. What differs shows the reason.
void CheckMutexes(const std::vector<Use>& uses, Findings& findings)
{
    for (const Use& use : uses) {
        const MutexUse& first = *uses.front().Mutex;
        const MutexUse& other = *use.Mutex;
        if (other.File == first.File)
            continue;
        const std::string names = NameOf(*uses.front().User) + " and " + NameOf(*use.User);
        if (first.Name != other.Name) {
            findings.push_back({"spelling", Verdict::failure,
                                fmt::format("{} spell the path differently, so their records are not in order: {} "
                                            "and {}",
                                            names, first.Name, other.Name),
                                EditSettings()});
        } else if (first.IsRemoved || other.IsRemoved) {
            findings.push_back({"mutexes",
                                Verdict::failure,
                                names + " have two mutexes, because a file of the mutex was removed: restart them",
                                {}});
        } else {
            findings.push_back(
                {"mutexes", Verdict::failure,
                 fmt::format("{} have different runtime folders, so their records are not in order: {} "
                             "and {}. Give both the same, and restart them",
                             names, first.Folder, other.Folder),
                 "grep -az VELTRIX_RUNTIME" +
                     fmt::format(" /proc/{}/environ /proc/{}/environ", uses.front().User->Process, use.User->Process)});
        }
        return;
    }
    if (!uses.empty())
        findings.push_back(
            {"mutexes", Verdict::ok, "all writers have the same one, in " + uses.front().Mutex->Folder, {}});
}

void CheckZones(const LogUsers& users, Findings& findings)
{
    const auto writers = UsersThat(users, [](const LogUser& user) { return user.Writes; });
    for (const LogUser* user : writers) {
        if (user->Zone == writers.front()->Zone)
            continue;
        findings.push_back(
            {"zones", Verdict::warning,
             fmt::format("the time zones differ, and so do the times in the log: {} has {}, {} has {}",
                         NameOf(*writers.front()), writers.front()->Zone, NameOf(*user), user->Zone),
             fmt::format("grep -az ^TZ= /proc/{}/environ /proc/{}/environ", writers.front()->Process, user->Process)});
        return;
    }
    if (!writers.empty())
        findings.push_back({"zones", Verdict::ok, "all writers have " + writers.front()->Zone, {}});
}

}  // namespace

void CheckProcesses(const std::string& path, const LogUsers& users, Findings& findings)
{
    const std::vector<Use> uses = UsesOf(path, users);
    CheckUsers(users, findings);
    if (uses.empty() && users.Found.empty())
        return;
    if (!uses.empty())
        CheckOwner(uses, users.IsComplete, findings);
    CheckStopped(users, findings);
    CheckRemoved(users, findings);
    CheckMutexes(uses, findings);
    CheckZones(users, findings);
}

}  // namespace tool
