// Text for calls of the platform, and from them.
#pragma once

#include <string>

namespace tool::platform {

std::wstring Wide(const std::string& text);
std::string Narrow(const wchar_t* text);

/// What went wrong in the last call of the platform, in the words that all platforms share.
std::string LastErrorText();

}  // namespace tool::platform
