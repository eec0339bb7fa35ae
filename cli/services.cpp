// services.cpp: the daemon's side of the module, for a command-line process:
// zeroed allocation and string copies from the C library, hosts and aliases
// from the cluster file, no jobs, and an empty reservation name table.
#include "services.h"

#include <cstdlib>
#include <cstring>

namespace rsvctl {

namespace {

Cluster *theCluster = nullptr;
HashTab nameTable{};
bool nameTableReady = false;

void *allocZeroed(int count, size_t size, const char * /*caller*/)
{
    if (count < 0)
        return nullptr;
    // calloc(0, n) may return NULL, which the module would read as failure.
    return std::calloc(count > 0 ? static_cast<size_t>(count) : 1, size > 0 ? size : 1);
}

char *dupString(const char *text)
{
    return text ? strdup(text) : nullptr;
}

// rsvctl runs no jobs: no job is ever found.
RsvJob *findJob(int64_t /*jobId*/)
{
    return nullptr;
}

RsvHost *findHost(const char *name)
{
    if (!theCluster || !name)
        return nullptr;
    ClusterHost *host = theCluster->find(name);
    return host ? &host->record : nullptr;
}

char *officialHostName(const char *name)
{
    if (!theCluster || !name)
        return nullptr;
    const ClusterHost *host = theCluster->find(name);
    return host ? strdup(host->name.c_str()) : nullptr;
}

HashTab *rsvNameTable()
{
    return &nameTable;
}

int maxRsvPerOwner()
{
    return theCluster ? theCluster->maxPerOwner() : 0;
}

void freeNameEntry(void *value)
{
    auto *ent = static_cast<RsvEnt *>(value);
    RsvEnt_destroy(ent);
    std::free(ent);
}

} // namespace

void installServices(Cluster &cluster)
{
    theCluster = &cluster;
    if (!nameTableReady) {
        h_initTab_(&nameTable, 37);
        nameTableReady = true;
    }
    RsvMiscFuncs services{};
    services.allocZeroed = &allocZeroed;
    services.dupString = &dupString;
    services.findJob = &findJob;
    services.findHost = &findHost;
    services.officialHostName = &officialHostName;
    services.rsvNameTable = &rsvNameTable;
    services.maxRsvPerOwner = &maxRsvPerOwner;
    RsvMod_init(&services);
    // Operators book windows past 2038 like any other.
    RsvMod_setWideTimes(1);
}

void uninstallServices()
{
    if (nameTableReady) {
        h_freeTab_(&nameTable, &freeNameEntry);
        nameTableReady = false;
    }
    theCluster = nullptr;
}

} // namespace rsvctl
