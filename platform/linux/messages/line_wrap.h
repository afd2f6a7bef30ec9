// Breaks text into lines of a limited width.
#pragma once

#include "text/text.h"
#include "text/unit_writer.h"

namespace layer {

/// Writes a text in lines of at most `width` units. Lines are broken at blanks and tabs, which the line end replaces. A
/// word that is longer than a line is not split. The line ends of the text are kept.
void WrapLines(TextView text, std::size_t width, UnitWriter& out);

}  // namespace layer
