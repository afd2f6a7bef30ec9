// The program that runs: its file and its command line.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace testkit {

/// The path of the program's file.
std::filesystem::path ThisProgram();

/// The arguments after the program's name, in UTF-8.
std::vector<std::string> Arguments(int count, char** arguments);

}  // namespace testkit
