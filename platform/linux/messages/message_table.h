// The message tables that modules carry in their resources.
#pragma once

#include "resources/byte_source.h"
#include "system.h"
#include "text/text.h"

namespace layer {

/// Copies the text of a message from the message table in a module's resources.
/// @return ERROR_SUCCESS, or the system error that tells why there is no such text
/// @throws std::bad_alloc
DWORD FindMessage(Bytes resources, DWORD number, Text& text);

}  // namespace layer
