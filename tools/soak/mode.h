// A mode of the soak: how its writers behave, what disturbs them, and what is checked.
#pragma once

#include "soak/options.h"
#include "soak/record_text.h"

#include "tessmaru/log.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

namespace soak {

class Run;
struct WriterOrder;

/// A deliberate fault, and the word under which a run has to report it.
struct Control {
    const char* Fault;
    const char* Word;
};

/// What holds for a mode.
struct Rules {
    Lengths Texts = Lengths::usual;
    bool BearsFailures = false;      // a call or an opening may fail; the writer tries again
    bool HasOneMutex = true;         // all writers use the same mutex, so the time stamps are in order
    bool ClosesLog = true;           // each process that ends writes the closing lines
    bool KillsFamilies = false;      // each second generation is killed as a whole
    bool NeedsDisturbances = false;  // a run without disturbances by the mode proves nothing
};

/// One object serves one run. Another object serves each writing process.
class Mode {
public:
    virtual ~Mode() = default;

    virtual Rules rules() const { return {}; }
    virtual void SetDefaults(Options&) const {}
    virtual std::vector<Control> controls() const = 0;

    // In the process that starts and checks the writers.

    /// Before the first writer starts.
    virtual void Begin(Run&) {}
    /// Before a process starts. The holder has the number of the slot after the last writer.
    virtual void BeforeStart(Run&, unsigned /*slot*/) {}
    /// Again and again while the writers write.
    virtual void Tick(Run&) {}
    /// Before the processes of a generation may end.
    virtual void BeforeEnd(Run&) {}
    /// The files in which the records of a generation are, the oldest first.
    virtual std::vector<std::filesystem::path> Files(const Run& run) const;
    /// After the records of a generation have been checked.
    virtual void Check(Run&) {}

    // In a writing process.

    /// First of all.
    virtual void EnterWriter(const WriterOrder&) {}
    /// After the log is open; the writing threads have not started.
    virtual void LogIsOpen(const WriterOrder&, utilities::CLog&) {}
    /// Held around each call of the log.
    virtual std::shared_lock<std::shared_mutex> HoldDuringCall() { return {}; }
    /// After the last record of this process.
    virtual void AllIsWritten() {}
    /// Waits until the process may end.
    virtual void WaitToEnd(const WriterOrder&);
};

/// A mode that can be selected by its name.
struct NamedMode {
    std::string Name;
    std::string About;
    std::function<std::unique_ptr<Mode>()> Make;
};

/// All modes of this platform.
std::vector<NamedMode> AllModes();

/// The modes that only this platform has.
std::vector<NamedMode> PlatformModes();

/// Runs a process that a mode of this platform has started besides the writers. @return whether the words are of one
bool RunPlatformProcess(const std::vector<std::string>& words);

/// @throws std::invalid_argument
NamedMode FindMode(const std::string& name);

}  // namespace soak
