// The translation of a fault into an exception, as InstallSETranslator uses it.
#pragma once

#include "errors/structured_exception_text.h"
#include "system.h"

/// The translator that InstallSETranslator installs: throws a structured_exception with the text of the fault.
[[noreturn]] void translateStructuredException(unsigned int code, EXCEPTION_POINTERS* info);
