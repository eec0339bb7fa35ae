// planner_grid.h: a host's weekly planner as rsvctl reads it: booked slots
// per 10-minute cell, and the times of weeks and cells.
#ifndef RSVCTL_PLANNER_GRID_H
#define RSVCTL_PLANNER_GRID_H

#include <array>
#include <string>

#include "qob.rsvimpl.h"

namespace rsvctl {

using CellGrid = std::array<std::array<int, RSV_PLANNER_SLOTS_PER_DAY>, RSV_PLANNER_DAYS>;

// Booked slots of `host` (an official name) in `week`, as the module sees
// them (RsvTimeTbl_hostWeekCells). Throws CliError when the module cannot
// answer (no memory).
CellGrid hostWeekGrid(RsvTimeTbl *tbl, const std::string &host, const RsvWeek &week);

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
