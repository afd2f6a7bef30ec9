// The help of the program and of each verb: examples first.
#pragma once

#include "output/output.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace tool {

/// An example of a verb: the command, and what it does.
struct Example {
    std::string Command;
    std::string Purpose;
};

/// An option or an argument of a verb, as help and the manual show it.
struct OptionText {
    std::string Names;  // "-n, --lines N" or "FILE"
    std::string Description;
    bool IsArgument;
};

/// "tessmaru log follow"
std::string FullName(const CLI::App& verb);

/// The level that has no verb above it.
const CLI::App& ProgramOf(const CLI::App& verb);

/// The long options that can follow a verb: its own, and those of all verbs.
std::vector<std::string> LongOptionsOf(const CLI::App& verb);

std::vector<Example> ExamplesOf(const CLI::App& verb);

/// The options of one level, arguments first.
std::vector<OptionText> OptionsOf(const CLI::App& verb);

/// "tessmaru log follow [OPTION]... [FILE]"
std::string UsageOf(const CLI::App& verb);

/// The verbs that a person should see, in the order of their registration.
std::vector<const CLI::App*> VerbsOf(const CLI::App& verb);

void WriteHelp(Output& out, const CLI::App& verb);

}  // namespace tool
