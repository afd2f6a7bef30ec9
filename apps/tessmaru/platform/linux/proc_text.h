// Files of /proc, which other processes can give any content.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace tool::platform {

/// The start of a file, at most a megabyte; empty if it cannot be read.
std::string ReadProc(const std::string& path);

/// Where a link of /proc leads; empty if it cannot be read.
std::string ReadProcLink(const std::string& path);

/// The names in a folder, without `.` and `..`. @return false if the folder cannot be read
bool ForEachName(const std::string& folder, const std::function<void(const std::string&)>& visit);

void ForEachLine(std::string_view text, const std::function<void(std::string_view)>& visit);

/// The next word of a line, without the blanks around it.
std::string_view TakeWord(std::string_view& line);

/// The value of a variable in the content of a file `environ`. @return false if it is not set
bool FindVariable(std::string_view environment, std::string_view name, std::string& value);

}  // namespace tool::platform
