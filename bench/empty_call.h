// The floor of a call with a variable argument list: an empty function in a shared library.
#pragma once

namespace bench {

class EmptyLog {
public:
    int LogDebug(int bit, const unsigned short* format, const unsigned short* source, ...);
};

}  // namespace bench
