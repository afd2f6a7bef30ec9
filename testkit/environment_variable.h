// Environment variables of this process.
//
//     const EnvironmentVariable zone("TZ", "UTC");   // restored at the end of the scope
#pragma once

#include <optional>
#include <string>

namespace testkit {

/// Sets a variable for as long as the object lives, or removes it for nullopt.
class EnvironmentVariable {
public:
    EnvironmentVariable(const char* name, const std::optional<std::string>& value);
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable();

private:
    std::string Name;
    std::optional<std::string> Before;
};

/// Sets a variable to the end of the process, or removes it for nullopt.
void SetVariable(const char* name, const std::optional<std::string>& value);

}  // namespace testkit
