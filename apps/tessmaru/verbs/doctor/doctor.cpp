// `tessmaru doctor`: why a process does not log. It only reads: the log is neither created nor opened.
#include "cli/command.h"
#include "output/json.h"
#include "text/wide.h"
#include "verbs/doctor/findings.h"
#include "verbs/verbs.h"

#include <fmt/format.h>

#include <algorithm>

namespace tool {
namespace {

struct DoctorOptions {};

constexpr std::string_view Words[] = {"ok", "WARN", "FAIL"};
constexpr Style Styles[] = {Style::green, Style::yellow, Style::red};

void Write(Session& session, const Finding& finding)
{
    const auto result = static_cast<std::size_t>(finding.Result);
    if (session.Json) {
        JsonLine json;
        json.Text("check", finding.Check);
        json.Text("result", Words[result]);
        json.Text("text", finding.Text);
        if (!finding.Mend.empty())
            json.Text("mend", finding.Mend);
        session.Out.Line(json.Take());
        return;
    }
    session.Out.Write(fmt::format("{:<4}", Words[result]), Styles[result]);
    session.Out.Line(fmt::format("  {:<10}  {}", finding.Check, Shown(finding.Text)));
    if (!finding.Mend.empty())
        session.Out.Line("      " + Shown(finding.Mend));
}

Exit Diagnose(Session& session, const DoctorOptions&)
{
    Findings findings;
    const auto store = CheckSettings(findings);
    const std::string path = store ? CheckLog(findings) : std::string();
    if (store)
        CheckDates(*store, findings);
    CheckRuntimeFolder(findings);
    if (!path.empty() && platform::CanFindLogUsers()) {
        const platform::LogUsers users = platform::FindLogUsers(path);
        CheckProcesses(path, users, findings);
        if (!users.IsComplete)
            session.Say(
                "this account does not see what processes of other accounts have open: run it as root to see all");
    }
    for (const Finding& finding : findings)
        Write(session, finding);
    const bool isFailed = std::any_of(findings.begin(), findings.end(),
                                      [](const Finding& each) { return each.Result == Verdict::failure; });
    return isFailed ? Exit::nothing : Exit::done;
}

}  // namespace

void AddDoctor(CLI::App& program, Session& session)
{
    CLI::App* const verb = AddVerb(program, "doctor",
                                   "Find out why a process does not log; the exit code is 1 if a "
                                   "check fails",
                                   "tessmaru doctor  check the settings, the log and the processes that use it\n"
                                   "sudo tessmaru doctor  see the processes of all accounts\n"
                                   "tessmaru doctor --json  write a line of JSON for each check");
    SetAction(verb, session, std::make_shared<DoctorOptions>(), Diagnose);
}

}  // namespace tool
