// Processes that a test starts, and gates at which processes wait for each other. The same on every platform: what
// a process is to do stands in the test as a lambda without captures, which is given the test's world.
#pragma once

#include "support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

namespace support {

/// Closed at first; what passes waits until somebody opens it, once for each passing. All who name the same path
/// mean the same gate, which is there as long as one of them is: the test makes it before it starts the others.
class Gate {
public:
    explicit Gate(const std::string& path);
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    ~Gate();

    void Open() const;
    void Pass() const;

private:
    std::intptr_t Handle;
};

/// A process that runs one function of this program and then ends as a program does. Its result is 0 if all that it
/// expected was so. Killed at the end of the test if it is still there.
class Process {
public:
    template <class World>
    Process(const World& world, std::type_identity_t<void (*)(const World&)> work)
        : Process(&Enter<World>, reinterpret_cast<Function>(work), &world)
    {
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process();

    std::uint32_t id() const { return Id; }

    /// 0, or another number for a process that failed or was killed.
    int Wait();
    void Kill();

    using Function = void (*)();
    using Entry = void (*)(Function work, const void* world);

private:
    Process(Entry entry, Function work, const void* world);

    /// `world` is null in a process that started anew: that one joins the world of its test by making it.
    template <class World>
    static void Enter(Function work, const void* world)
    {
        const auto run = reinterpret_cast<void (*)(const World&)>(work);
        if (world == nullptr)
            run(World());
        else
            run(*static_cast<const World*>(world));
    }

    std::uint32_t Id = 0;
    std::intptr_t Handle = -1;
};

/// Ends this process at once, as by a kill.
[[noreturn]] void Die();

/// Runs `work` in a process of its own, which ends as a program does, with the closing of its log.
template <class World>
void RunAlone(const World& world, std::type_identity_t<void (*)(const World&)> work)
{
    EXPECT_EQ(Process(world, work).Wait(), 0) << "the process that ran alone";
}

/// Does what a process was started anew for, and gives its exit status.
int RunStarted();

}  // namespace support
