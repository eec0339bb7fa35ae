// planner_render.h: a host's week as a picture: a heat map for the terminal
// and an SVG file.
#ifndef RSVCTL_PLANNER_RENDER_H
#define RSVCTL_PLANNER_RENDER_H

#include <string>

#include "planner_grid.h"

namespace rsvctl {

struct PlannerPicture {
    std::string host;
    int capacity = 0;
    RsvWeek week{};
    CellGrid booked{};
};

// 7 rows (Sunday to Saturday), one column per 30 minutes shaded by the
// busiest of its three cells over capacity, an hour ruler and a legend.
// ANSI colour only when `colour` is set.
std::string renderHeatMap(const PlannerPicture &picture, bool colour);

// The full 7 x 144 grid with hour lines, labels and a colour scale.
std::string renderSvg(const PlannerPicture &picture);

// The shading level 0..6 of a cell: 0 free, 1..4 quarter steps, 5 full,
// 6 over capacity.
int shadeLevel(int booked, int capacity);

} // namespace rsvctl

#endif
