// planner_grid.cpp: reading planners through the module, never around it.
#include "planner_grid.h"

#include <cstdlib>
#include <ctime>
#include <cstring>
#include <memory>

namespace rsvctl {

namespace {

struct PlannerDeleter {
    void operator()(ResPlanner *p) const { ResPlanner_destroy(p); }
};
using PlannerPtr = std::unique_ptr<ResPlanner, PlannerDeleter>;

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};

CellGrid copyCells(const ResPlanner *p)
{
    CellGrid grid{};
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            grid[d][s] = p->slots[d][s].reserved;
    return grid;
}

// The part of a one-off window inside `week`, or "" when it misses the week.
std::string overlapText(const RsvWeek &week, const std::string &window)
{
    size_t dash = window.find('-');
    if (dash == std::string::npos)
        return "";
    long long start = std::atoll(window.substr(0, dash).c_str());
    long long end = std::atoll(window.substr(dash + 1).c_str());
    RsvWeek next{};
    time_t begin = weekStart(week);
    RsvTime_toWeek(begin + 8 * 86400, &next);
    time_t finish = weekStart(next);
    if (end <= begin || start >= finish)
        return "";
    std::unique_ptr<char, FreeDeleter> text(RsvWeek_getOverlapTimeWindow(&week, window.c_str()));
    return text ? std::string(text.get()) : "";
}

// The text a planner of `week` maps for a window, or "" when none.
std::string plannerWindow(const RsvWeek &week, const std::string &window, bool recurring)
{
    if (recurring)
        return window;
    if (isRecurringWeek(week))
        return "";  // a one-off window never touches the any-week planner
    return overlapText(week, window);
}

} // namespace

CellGrid hostWeekGrid(RsvTimeTbl *tbl, const std::string &host, const RsvWeek &week)
{
    List *list = RsvTimeTbl_getPlannerList(tbl, host.c_str());
    if (list) {
        auto *found = reinterpret_cast<ResPlanner *>(
            listSearchEntry(list, const_cast<RsvWeek *>(&week), &ResPlanner_equal, 0));
        if (found)
            return copyCells(found);
    }
    PlannerPtr temp(ResPlanner_new(host.c_str(), &week));
    if (!temp)
        return CellGrid{};
    if (!isRecurringWeek(week))
        ResPlanner_addRecurs(temp.get(), tbl, host.c_str());
    return copyCells(temp.get());
}

CellGrid entryWeekGrid(const RsvEnt *ent, const std::string &host, const RsvWeek &week)
{
    CellGrid grid{};
    if (!ent || !ent->timeWindow)
        return grid;
    bool recurring = (ent->options & RSV_OPT_RECURRING) != 0;
    std::string text = plannerWindow(week, ent->timeWindow, recurring);
    if (text.empty())
        return grid;
    PlannerPtr temp(ResPlanner_new(host.c_str(), &week));
    if (!temp)
        return grid;
    for (int i = 0; i < ent->numHosts; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        if (elem.hostName && host == elem.hostName)
            ResPlanner_map(temp.get(), text.c_str(), &ResPlannerEnt_incr, elem.numSlots,
                           const_cast<RsvEnt *>(ent));
    }
    return copyCells(temp.get());
}

CellGrid windowCoverage(const RsvWeek &week, const std::string &window, bool recurring)
{
    std::string text = plannerWindow(week, window, recurring);
    if (text.empty())
        return CellGrid{};
    PlannerPtr temp(ResPlanner_new("coverage", &week));
    if (!temp)
        return CellGrid{};
    ResPlanner_map(temp.get(), text.c_str(), &ResPlannerEnt_incr, 1, nullptr);
    return copyCells(temp.get());
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
