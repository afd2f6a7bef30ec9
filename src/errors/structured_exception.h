// The translation of a fault into an exception, as InstallSETranslator uses it.
#pragma once

#include "system.h"

#include <string>

/// The text that says what happened and where. The code is that of the argument, not of the record. Of the record it
/// reads the address and the first two words of information.
std::string describeStructuredException(unsigned int code, EXCEPTION_POINTERS* info);

/// The translator that InstallSETranslator installs: throws a structured_exception with the text of the fault.
[[noreturn]] void translateStructuredException(unsigned int code, EXCEPTION_POINTERS* info);
