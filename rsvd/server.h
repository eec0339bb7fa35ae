// server.h: rsvd's event loop.
#ifndef RSVD_SERVER_H
#define RSVD_SERVER_H

#include <string>

#include "cluster.h"
#include "daemon.h"

namespace rsvd {

// Listen at the daemon's socket and serve until SIGTERM or SIGINT; 0 after a
// clean stop, 3 when the socket cannot be made.
int serve(Daemon &daemon);

// hosts.conf at `path`, parsed; throws with the reason.
rsvctl::Cluster readCluster(const std::string &path);

} // namespace rsvd

#endif
