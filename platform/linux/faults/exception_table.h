// The tables by which the C++ runtime finds the handlers of a function: what it would do with an exception.
#pragma once

#include <cstdint>
#include <typeinfo>

#include <unwind.h>

namespace layer {

/// What happens to an exception in one frame.
enum class FrameAction {
    pass,   // goes on to the caller, perhaps after destructors
    take,   // a handler takes it
    refuse  // the function does not let it through: std::terminate
};

/// What the frame does with an exception.
/// @param context  the frame; without a table it lets everything pass
/// @param pc       an address inside the instruction at which the exception arrives
/// @param thrown   the type of the exception; null if it is unknown, then each handler counts as one that takes it
FrameAction ActionOf(_Unwind_Context* context, std::uintptr_t pc, const std::type_info* thrown);

}  // namespace layer
