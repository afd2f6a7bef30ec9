// The least that a call with a variable argument list costs: into a shared library, and nothing in it.
#pragma once

namespace bench {

class EmptyLog {
public:
    int LogDebug(int bit, const unsigned short* format, const unsigned short* source, ...);
};

}  // namespace bench
