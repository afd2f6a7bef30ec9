// The processes of one generation: starts them, kills and stops some, and waits for their records.
#pragma once

#include "soak/log_check.h"
#include "soak/mode.h"

#include "testkit/process_family.h"
#include "testkit/writer_reports.h"

#include <chrono>
#include <cstdint>
#include <vector>

namespace soak {

class Family {
public:
    /// @param first  the number of the first process
    Family(Run& run, unsigned first);

    /// Starts all writers, waits until they have opened the log, and starts the holder.
    void Open();

    /// Kills and stops writers until all records are written. Each killed writer is replaced.
    void WriteAll();

    /// Kills all processes after a part of the records is written.
    void KillAll();

    void End();

    const Writers& writers() const { return Of; }
    std::uint64_t Total() const;

private:
    struct Slot {
        testkit::Process* Process = nullptr;
        unsigned Number = 0;
    };
    struct Disturbance {
        std::uint64_t At;  // number of records that are in the file by then
        bool Kill;
    };

    void Start(unsigned slot, const std::vector<unsigned>& goals);
    testkit::Process* StartProcess(unsigned process, unsigned slot);
    std::vector<Disturbance> Plan();
    void Disturb(const Disturbance& disturbance);
    void Kill(const Slot& slot);
    std::uint64_t Written() const;
    bool AllOpen() const;
    void CheckFailures() const;

    template <class Condition>
    void WaitUntil(Condition condition);

    Run& TheRun;
    Writers Of;
    testkit::ProcessFamily Members;
    std::vector<Slot> Slots;
    Slot Holder;
    unsigned Next;
};

}  // namespace soak
