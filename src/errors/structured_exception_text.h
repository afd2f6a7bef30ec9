// The text of a processor fault.
#pragma once

#include "common/fault_text.h"
#include "system.h"

#include <string>

/// The text that says what happened and where. The code is that of the argument, not of the record. Of the record it
/// reads the address and the first two words of information.
std::string describeStructuredException(unsigned int code, EXCEPTION_POINTERS* info);

/// The same without an allocation.
void describeStructuredException(unsigned int code, const EXCEPTION_POINTERS& info, fault_text::Text& text);
