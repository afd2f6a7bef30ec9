// What a service calls in the plug-in.
#pragma once

struct SitesRead {
    unsigned int All;
    unsigned int New;
    unsigned int Changed;
};

extern "C" SitesRead ReadSites(const char* region);
