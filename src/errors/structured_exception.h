// What makes an exception of a fault: the inside of InstallSETranslator.
#pragma once

#include "system.h"

#include <string>

/// The text that tells what happened and where. Reads the code's own argument, and of the record the address and the
/// first two words of information.
std::string describeStructuredException(unsigned int code, EXCEPTION_POINTERS* info);

/// The translator of InstallSETranslator: throws a structured_exception with the text of the fault.
[[noreturn]] void translateStructuredException(unsigned int code, EXCEPTION_POINTERS* info);
