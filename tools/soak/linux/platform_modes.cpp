// The list of the modes that only Linux has.
#include "soak/linux/platform_modes.h"

#include "soak/linux/attacker.h"

std::vector<soak::NamedMode> soak::PlatformModes()
{
    return {
        {"forks", "each writer also forks children that log", MakeForks},
        {"spellings", "half of the writers spell the path of the log differently and so use another mutex",
         MakeSpellings},
        {"private-runtime", "groups of writers have their own folders of mutexes, as containers have",
         MakePrivateRuntime},
        {"hostile", "a process of another account damages, truncates, locks and replaces the mutex's file",
         MakeHostile},
        {"closed-streams", "writers start without standard streams and print while they log", MakeClosedStreams},
        {"close-all", "writers close all descriptors again and again and open files of their own", MakeCloseAll},
        {"moved", "the log is moved away and removed under its writers", MakeMoved},
    };
}

bool soak::RunPlatformProcess(const std::vector<std::string>& words)
{
    if (const auto order = AttackOrder::Read(words))
        Attack(*order);
    return false;
}
