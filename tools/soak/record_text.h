// The text of a record, which follows from its mark and the seed, so that a single wrong unit shows.
#pragma once

#include "tessmaru/text.h"

#include "testkit/ledger.h"

namespace soak {

enum class Lengths { usual, toTheLimit };

/// The text that a writer passes to the log. Usual texts are short, some have up to 900 letters. Texts to the limit
/// have more than 1000 units, some more than the log keeps, and characters beyond the basic plane.
utility::wstring TextOf(const testkit::Mark& mark, unsigned seed, Lengths lengths);

/// The part of a text that the log keeps: 1022 units.
utility::wstring KeptPart(utility::wstring text);

}  // namespace soak
