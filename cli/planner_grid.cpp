// planner_grid.cpp: reading planners through the module, never around it.
#include "planner_grid.h"

#include <ctime>

#include "cli_error.h"

namespace rsvctl {

CellGrid hostWeekGrid(RsvTimeTbl *tbl, const std::string &host, const RsvWeek &week)
{
    int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
    if (RsvTimeTbl_hostWeekCells(tbl, host.c_str(), &week, cells) != 0)
        queryFailed(qob_errno);
    CellGrid grid{};
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            grid[d][s] = cells[d][s];
    return grid;
}

RsvWeek weekOf(time_t t)
{
    RsvWeek week{};
    RsvTime_toWeek(t, &week);
    return week;
}

bool isRecurringWeek(const RsvWeek &week)
{
    return week.startYear == 0;
}

time_t cellStart(const RsvWeek &week, int day, int slot)
{
    std::tm tm{};
    tm.tm_year = week.startYear - 1900;
    tm.tm_mon = week.startMonth;
    tm.tm_mday = week.startDay + day;
    tm.tm_hour = slot / 6;
    tm.tm_min = slot % 6 * 10;
    tm.tm_isdst = -1;
    return mktime(&tm);
}

time_t weekStart(const RsvWeek &week)
{
    return cellStart(week, 0, 0);
}

} // namespace rsvctl
