// The plug-in of the example: it reads the sites of a region. Its texts and its version are in its resources.
#include "site_import.h"

#include <cstring>

SitesRead ReadSites(const char* region)
{
    static constexpr struct {
        const char* Region;
        SitesRead Read;
    } table[] = {{"North", {12, 2, 1}}, {"Coast", {307, 0, 15}}};
    for (const auto& row : table) {
        if (std::strcmp(row.Region, region) == 0)
            return row.Read;
    }
    return {};
}
