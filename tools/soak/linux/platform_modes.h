// The modes that only Linux has. Each function makes the mode of its file.
#pragma once

#include "soak/mode.h"

namespace soak {

std::unique_ptr<Mode> MakeForks();
std::unique_ptr<Mode> MakeSpellings();
std::unique_ptr<Mode> MakePrivateRuntime();
std::unique_ptr<Mode> MakeHostile();
std::unique_ptr<Mode> MakeClosedStreams();
std::unique_ptr<Mode> MakeCloseAll();
std::unique_ptr<Mode> MakeMoved();

}  // namespace soak
