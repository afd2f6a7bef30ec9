// Finds messages in the message table of a module's resources.
#pragma once

#include "resources/byte_source.h"
#include "system.h"
#include "text/text.h"

namespace layer {

/// Copies the text of a message.
/// @param resources  the resource file of a module, not trusted
/// @param number     the message's number
/// @param text       receives the text, perhaps with zero units at its end
/// @return ERROR_SUCCESS; ERROR_RESOURCE_DATA_NOT_FOUND without resources; ERROR_RESOURCE_TYPE_NOT_FOUND without a
///         message table; ERROR_MR_MID_NOT_FOUND without this message
/// @throws std::bad_alloc
DWORD FindMessage(Bytes resources, DWORD number, Text& text);

}  // namespace layer
