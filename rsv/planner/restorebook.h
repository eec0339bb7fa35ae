// restorebook.h: booking the start-up's reservations one host at a time
// (restorebook.cpp).
#ifndef RSV_PLANNER_RESTOREBOOK_H
#define RSV_PLANNER_RESTOREBOOK_H

#include <cstddef>

#include "qob.rsvimpl.h"

namespace rsv {

// One reservation's share of a host: element `elem` of its allocation vector.
struct HostShare {
    RsvEnt *ent;
    int elem;
};

// Books `shares` (of `hostName`, in table order) into `list`, a planner list
// just made for the host that holds only its zero week, leaving exactly the
// weeks, their order and the cells that ResPlannerList_map with
// ResPlannerEnt_incr gives when called for each share in turn, provided every
// recurring booking of the host in the table is among `shares`. Nothing is
// reported: a step that runs out of memory skips its work, as the map does,
// and the failure is counted.
void bookNewHostList(RsvTimeTbl *tbl, List *list, const char *hostName, const HostShare *shares, size_t count);

} // namespace rsv

#endif
