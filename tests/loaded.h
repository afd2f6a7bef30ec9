// The shared library as a program loads it by hand.
#pragma once

#include "tessmaru/log.h"

namespace support {

/// Loads the library; it stays in the process until Unload, or the end.
class Loaded {
public:
    Loaded();
    Loaded(const Loaded&) = delete;
    Loaded& operator=(const Loaded&) = delete;

    explicit operator bool() const { return Library != nullptr; }

    using GetInstance = utilities::CLog*();
    GetInstance* getInstance() const;
    utilities::CLog* OpenLog() const { return getInstance()(); }

    /// False if the library stays in the process.
    bool Unload();

private:
    void* Library;
};

}  // namespace support
