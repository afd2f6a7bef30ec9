// Exceptions that are made before the fault that they report, so that a fault can be thrown without memory.
#pragma once

#include "common/fault_text.h"

/// Makes as many as may be thrown at the same time. May be called again; memory that is missing is requested again by
/// the next call.
void makeSpareExceptions();

/// Throws a structured_exception with this text. It uses a spare one; if all of them are in use, it makes another.
[[noreturn]] void throwStructuredException(const fault_text::Text& text);
