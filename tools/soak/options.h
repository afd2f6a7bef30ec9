// The sizes of a run, and the command line.
#pragma once

#include <string>
#include <vector>

namespace soak {

struct Options {
    unsigned Processes = 8;
    unsigned Threads = 4;
    unsigned Records = 31250;  // of each thread in one generation, over all incarnations of its process
    unsigned Kills = 40;       // in one generation
    unsigned Stops = 0;
    unsigned Generations = 1;  // of the family: it closes the log and opens it again
    unsigned Pause = 0;        // microseconds after each record
    unsigned Seed = 0;
    unsigned Seconds = 600;
    std::string Control;  // a deliberate fault, which the run has to report

    unsigned Incarnations() const { return Processes + Kills; }
    /// The writers of one generation, and a process that writes nothing and keeps the log open.
    unsigned ProcessesOfGeneration() const { return Incarnations() + 1; }
    unsigned AllProcesses() const { return Generations * ProcessesOfGeneration(); }
};

/// What the command line selects.
struct Command {
    std::string Mode = "plain";
    bool Quick = false;
    std::vector<std::string> Words;  // names and values of options

    /// Replaces the defaults of a mode. @throws std::invalid_argument
    Options Apply(Options defaults) const;
};

/// @throws std::invalid_argument
Command ReadCommand(std::vector<std::string> words);

unsigned Number(const std::string& word);

}  // namespace soak
