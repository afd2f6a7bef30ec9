// A process without rights on the log that disturbs the mutexes of a folder.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace soak {

/// The account of the attacker, if this process may change its account. It owns no file of the machine.
constexpr unsigned AttackerAccount = 65534;

struct AttackOrder {
    std::filesystem::path Runtime;  // the folder of the mutexes
    std::filesystem::path Counts;   // a file with the number of attacks
    std::filesystem::path Target;   // what a symbolic link at a mutex's path leads to
    unsigned Seed = 0;

    std::vector<std::string> Words() const;
    /// @return no order if the words are none
    static std::optional<AttackOrder> Read(const std::vector<std::string>& words);
};

/// Attacks until the process is killed.
[[noreturn]] void Attack(const AttackOrder& order);

}  // namespace soak
