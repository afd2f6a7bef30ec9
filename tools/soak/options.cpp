// Reads the command line.
#include "soak/options.h"

#include <algorithm>
#include <map>
#include <random>
#include <stdexcept>

namespace soak {
namespace {

/// A few thousand records, for a test of the modes themselves.
void MakeQuick(Options& options)
{
    options.Processes = 4;
    options.Threads = 2;
    options.Generations = std::min(options.Generations, 6U);
    options.Records = options.Generations > 1 ? 80 : 500;
    options.Kills = std::min(options.Kills, 5U);
    options.Stops = 0;
    // Some disturbances need the change of a second.
    if (options.Pause != 0)
        options.Pause = 3000;
}

}  // namespace

unsigned Number(const std::string& word)
{
    return static_cast<unsigned>(std::stoul(word));
}

Options Command::Apply(Options options) const
{
    options.Seed = std::random_device()();
    if (Quick)
        MakeQuick(options);
    const std::map<std::string, unsigned*> places = {
        {"--processes", &options.Processes}, {"--threads", &options.Threads}, {"--records", &options.Records},
        {"--kills", &options.Kills},         {"--stops", &options.Stops},     {"--generations", &options.Generations},
        {"--pause", &options.Pause},         {"--seed", &options.Seed},       {"--seconds", &options.Seconds}};
    for (std::size_t i = 0; i < Words.size(); i += 2) {
        const auto place = places.find(Words[i]);
        if (i + 1 == Words.size() || (place == places.end() && Words[i] != "--control"))
            throw std::invalid_argument("unknown option or no value: " + Words[i]);
        if (place == places.end())
            options.Control = Words[i + 1];
        else
            *place->second = Number(Words[i + 1]);
    }
    if (options.Processes == 0 || options.Threads == 0 || options.Records == 0 || options.Generations == 0)
        throw std::invalid_argument("there is nothing to write");
    return options;
}

Command ReadCommand(std::vector<std::string> words)
{
    Command command;
    if (!words.empty() && !words[0].starts_with("--")) {
        command.Mode = words[0];
        words.erase(words.begin());
    }
    command.Quick = std::erase(words, "--quick") != 0;
    command.Words = std::move(words);
    return command;
}

}  // namespace soak
