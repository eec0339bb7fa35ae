// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

ResPlanner *ResPlanner_new(const char *hostName, const RsvWeek *week)
{
    (void)hostName; (void)week; return {};
}

void ResPlanner_destroy(ResPlanner *planner)
{
    (void)planner;
}

void ResPlanner_map(ResPlanner *planner, const char *timeWindow, ResPlannerOp op, int64_t arg, RsvEnt *rsv)
{
    (void)planner; (void)timeWindow; (void)op; (void)arg; (void)rsv;
}

void ResPlanner_addRecurs(ResPlanner *planner, RsvTimeTbl *tbl, const char *hostName)
{
    (void)planner; (void)tbl; (void)hostName;
}

int ResPlanner_equal(void *planner, void *week, int ignored)
{
    (void)planner; (void)week; (void)ignored; return {};
}

int ResPlanner_isOutdated(void *planner, void *week, int ignored)
{
    (void)planner; (void)week; (void)ignored; return {};
}

int64_t ResPlannerEnt_incr(ResPlannerEnt *cell, int64_t n)
{
    (void)cell; (void)n; return {};
}

int64_t ResPlannerEnt_decr(ResPlannerEnt *cell, int64_t n)
{
    (void)cell; (void)n; return {};
}

int64_t ResPlannerEnt_getMaxRsv(ResPlannerEnt *cell, int64_t accumulator)
{
    (void)cell; (void)accumulator; return {};
}

void freePlanner(List *plannerList)
{
    (void)plannerList;
}

void freePlanner_t(void *planner)
{
    (void)planner;
}

} // extern "C"
