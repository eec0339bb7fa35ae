// A minimal daemon behind the module's services for the fuzz targets: plain
// calloc/strdup, three known hosts (with one alias) and the default limit.
#ifndef RSV_FUZZ_SERVICES_H
#define RSV_FUZZ_SERVICES_H

#include <cstdlib>
#include <cstring>

#include "qob.rsvimpl.h"

namespace rsvfuzz {

inline void *allocZeroed(int count, size_t size, const char *)
{
    if (count <= 0 || size == 0)
        return std::calloc(1, 1);
    return std::calloc(static_cast<size_t>(count), size);
}

inline char *dupString(const char *text) { return strdup(text ? text : ""); }

inline RsvHost *findHost(const char *name)
{
    static RsvHost host{8, 8, 0, 0};
    return name && (std::strcmp(name, "hostA") == 0 || std::strcmp(name, "hostB") == 0) ? &host : nullptr;
}

inline char *officialHostName(const char *name)
{
    if (!name)
        return nullptr;
    if (std::strcmp(name, "b-alias") == 0)
        return strdup("hostB");
    return findHost(name) ? strdup(name) : nullptr;
}

inline int maxRsvPerOwner() { return 100; }

inline void quietSink(int, const char *) {}

// Installs the services and silences the log once per process.
inline void setUp()
{
    static bool done = [] {
        RsvMiscFuncs services{};
        services.allocZeroed = allocZeroed;
        services.dupString = dupString;
        services.findHost = findHost;
        services.officialHostName = officialHostName;
        services.maxRsvPerOwner = maxRsvPerOwner;
        RsvMod_init(&services);
        kx_setLogSink(quietSink);
        return true;
    }();
    (void)done;
}

} // namespace rsvfuzz

#endif
