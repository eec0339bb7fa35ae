// services.h: rsvctl plays the daemon: the nine services the module calls,
// answered from the cluster file.
#ifndef RSVCTL_SERVICES_H
#define RSVCTL_SERVICES_H

#include "cluster.h"

namespace rsvctl {

// Install the services for `cluster` with RsvMod_init. The cluster must
// outlive every module call; uninstallServices releases the name table.
void installServices(Cluster &cluster);
void uninstallServices();

} // namespace rsvctl

#endif
