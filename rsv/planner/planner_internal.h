// planner_internal.h: what the planner units share and nothing else sees.
#ifndef RSV_PLANNER_INTERNAL_H
#define RSV_PLANNER_INTERNAL_H

#include <string_view>
#include <unordered_map>
#include <vector>

#include "qob.rsvimpl.h"

namespace rsv {

// One recurring reservation's share of a host: element `elem` of its
// allocation vector.
struct RecurringShare {
    RsvEnt *ent;
    int elem;
};
using RecurringBookings = std::vector<RecurringShare>;

// For the life of the object, ResPlanner_addRecurs on `tbl` reads the recurring
// shares of each host from one walk of the table, made when the first new
// planner needs it, instead of walking every reservation again for each new
// planner. The shares keep the table's
// entry order and each entry's element order, so the bookings are exactly
// those of a walk. Use it only around work that does not change the table's
// reservations (queries and bookings of one request); nested objects defer to
// the outermost one. If memory runs out the object does nothing.
class RecurringSnapshot {
public:
    explicit RecurringSnapshot(RsvTimeTbl *tbl);
    ~RecurringSnapshot();
    RecurringSnapshot(const RecurringSnapshot &) = delete;
    RecurringSnapshot &operator=(const RecurringSnapshot &) = delete;

    // Whether a snapshot of `tbl` is in force.
    static bool covers(const RsvTimeTbl *tbl);
    // The shares of `hostName` (exact name) in the snapshot of `tbl`, or NULL
    // when there is no snapshot or the host has none.
    static const RecurringBookings *sharesOf(const RsvTimeTbl *tbl, const char *hostName);

private:
    // The active snapshot of `tbl`, its walk made on first use; NULL when none
    // is in force or its walk ran out of memory.
    static RecurringSnapshot *builtFor(const RsvTimeTbl *tbl);

    RsvTimeTbl *tbl_ = nullptr;
    bool built_ = false;
    bool failed_ = false;
    // Keys point at the entries' own host names, which outlive the snapshot.
    std::unordered_map<std::string_view, RecurringBookings> byHost_;
    static RecurringSnapshot *active_;
};

} // namespace rsv

#endif
