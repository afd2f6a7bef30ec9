// A module that this process loads at run time.
//
//     LoadedModule module(file);
//     const auto function = module.Find<int(int)>("name");
#pragma once

#include "tessmaru/platform.h"

#include <filesystem>

namespace testkit {

/// The destructor unloads the module.
class LoadedModule {
public:
    /// @throws std::runtime_error with the system's reason.
    explicit LoadedModule(const std::filesystem::path& file);
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;
    ~LoadedModule();

    /// The module's handle. A program that calls this is linked to the library.
    HINSTANCE Module() const
    {
        const std::u16string name = File.u16string();
        return GetModuleHandleW(reinterpret_cast<LPCWSTR>(name.c_str()));
    }

    /// The function of this name as it is in the file.
    /// @throws std::runtime_error if there is none.
    template <class Function>
    Function* Find(const char* name) const
    {
        return reinterpret_cast<Function*>(FindAddress(name));
    }

    /// @return false if the module stays in the process.
    bool Unload();

    /// The destructor leaves the module in the process.
    void Keep() { Library = nullptr; }

private:
    void* FindAddress(const char* name) const;

    const std::filesystem::path File;
    void* Library;
};

}  // namespace testkit
