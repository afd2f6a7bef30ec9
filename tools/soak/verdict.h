// What a run has found.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace soak {

struct Verdict {
    /// The number of faults of each kind that was looked for. A run passes if each is 0.
    std::map<std::string, std::uint64_t> Faults;
    /// Other figures, for the reader.
    std::map<std::string, std::uint64_t> Counts;
    std::uint64_t Written = 0;
    /// The first faults in detail.
    std::vector<std::string> Samples;

    bool IsClean() const
    {
        for (const auto& [word, count] : Faults) {
            if (count != 0)
                return false;
        }
        return true;
    }

    void AddFault(const std::string& word, const std::string& sample)
    {
        constexpr std::size_t samples = 12;
        ++Faults[word];
        if (Samples.size() < samples)
            Samples.push_back(word + ": " + sample.substr(0, 300));
    }
};

}  // namespace soak
