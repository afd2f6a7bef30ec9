// Adds a verb to the command line.
#pragma once

#include "cli/session.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

namespace tool {

/// Adds a verb. `examples` are lines of a command and, after two blanks, what it does; help and the manual start with
/// them.
CLI::App* AddVerb(CLI::App& parent, const std::string& name, const std::string& summary, const std::string& examples);

/// Ends the verb with an error of usage if an option of a verb above it was given, unless all verbs share it.
void RefuseOptionsAbove(const CLI::App& verb);

/// Makes `run` the action of a verb. It is not called if a verb below this one is given. It gets the session and the
/// verb's options, which live as long as the verb.
template <class Options>
void SetAction(CLI::App* verb, Session& session, std::shared_ptr<Options> options,
               Exit (*run)(Session&, const Options&))
{
    verb->callback([verb, &session, options, run] {
        if (!verb->get_subcommands().empty())
            return;
        RefuseOptionsAbove(*verb);
        session.Result = run(session, *options);
    });
}

}  // namespace tool
