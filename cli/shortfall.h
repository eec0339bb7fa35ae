// shortfall.h: saying why a request or change does not fit: per asked host,
// its free slots over the window and the first 10-minute cell where it falls
// short.
#ifndef RSVCTL_SHORTFALL_H
#define RSVCTL_SHORTFALL_H

#include <string>
#include <vector>

#include "qob.rsvimpl.h"

namespace rsvctl {

class Cluster;

struct HostNeed {
    std::string host;  // official name
    int needed = 1;    // slots the host would have to give
};

struct HostShortfall {
    std::string host;
    bool known = true;
    int capacity = 0;
    int needed = 0;
    int freeSlots = 0;        // free over the whole window
    bool hasShortCell = false;
    std::string shortCell;    // "Tue 2026-11-24 14:00", or "any week, Tue 14:00"
    int freeAtCell = 0;
};

// For each host, as the module answers it: free slots over `window` (with
// the bookings of reservation `ownId` given back when its own change is
// asked about; "" for none) and the first cell where fewer than `needed`
// are free (for a system request, where anything at all is booked).
std::vector<HostShortfall> explainShortfall(RsvTimeTbl *tbl, const Cluster &cluster,
                                            const std::vector<HostNeed> &hosts, const std::string &window,
                                            bool recurring, bool system, const std::string &ownId);

// The report as aligned lines, each ending in a newline.
std::string formatShortfall(const std::vector<HostShortfall> &report, bool system);

} // namespace rsvctl

#endif
