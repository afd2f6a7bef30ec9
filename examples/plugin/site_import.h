// The function of the plug-in that the service calls.
#pragma once

struct SitesRead {
    unsigned int All;
    unsigned int New;
    unsigned int Changed;
};

extern "C" SitesRead ReadSites(const char* region);
