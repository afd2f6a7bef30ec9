// The settings store: any bytes give a content that can be asked.
#include "registry_file.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const layer::RegistryFile file({data, size});
    const WCHAR names[][4] = {{0}, {'a', 0}, {'A', '\\', 'b', 0}, {'\\', 0}};
    for (const auto& path : names) {
        const layer::RegistryKey* const key = file.Find(HKEY_LOCAL_MACHINE, path);
        if (key == nullptr)
            continue;
        for (const auto& [name, value] : key->second) {
            // What is stored is found again.
            if (!key->second.contains(layer::TextView(name)))
                std::abort();
        }
    }
    return 0;
}
