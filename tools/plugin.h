// A module that is loaded at run time.
#pragma once

#include "tessmaru/platform.h"

#include <filesystem>

namespace tools {

class Plugin {
public:
    /// @throws std::runtime_error with the system's reason.
    explicit Plugin(const std::filesystem::path& file);
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    ~Plugin();

    HINSTANCE Module() const { return Handle; }

    /// The function of this plain name.
    /// @throws std::runtime_error if there is none.
    template <class Function>
    Function* Find(const char* name) const
    {
        return reinterpret_cast<Function*>(FindAddress(name));
    }

private:
    void* FindAddress(const char* name) const;

    void* Library;
    HINSTANCE Handle;
};

}  // namespace tools
