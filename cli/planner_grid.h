// planner_grid.h: a host's weekly planner as rsvctl reads it: booked slots
// per 10-minute cell, and which cells a time window covers.
#ifndef RSVCTL_PLANNER_GRID_H
#define RSVCTL_PLANNER_GRID_H

#include <array>
#include <string>

#include "qob.rsvimpl.h"

namespace rsvctl {

using CellGrid = std::array<std::array<int, RSV_PLANNER_SLOTS_PER_DAY>, RSV_PLANNER_DAYS>;

// Booked slots of `host` (an official name) in `week`: the host's planner for
// that week when there is one, otherwise what the module would see there (the
// recurring bookings), built and thrown away as the module's own queries do.
CellGrid hostWeekGrid(RsvTimeTbl *tbl, const std::string &host, const RsvWeek &week);

// The slots that `ent` itself holds on `host` in `week` (for answering "why"
// a change of that reservation does not fit).
CellGrid entryWeekGrid(const RsvEnt *ent, const std::string &host, const RsvWeek &week);

// 1 in every cell of `week` that `window` covers (a one-off epoch window or a
// recurring one), by the module's own cell rules.
CellGrid windowCoverage(const RsvWeek &week, const std::string &window, bool recurring);

// The week holding time t.
RsvWeek weekOf(time_t t);
// True for the recurring (any-week) planner's week.
bool isRecurringWeek(const RsvWeek &week);
// Local start time of a cell of a dated week.
time_t cellStart(const RsvWeek &week, int day, int slot);
// Local midnight starting the week's Sunday.
time_t weekStart(const RsvWeek &week);

} // namespace rsvctl

#endif
