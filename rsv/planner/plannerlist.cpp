// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

const RsvWeek rsvWeekRecur = {0, 0, 0, 0, 0, 0, 0, 0};

List *RsvTimeTbl_getPlannerList(RsvTimeTbl *tbl, const char *hostName)
{
    (void)tbl; (void)hostName; return {};
}

void ResPlannerList_map(List *plannerList, RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring, ResPlannerOp op, int64_t arg, int keepNew, RsvEnt *rsv)
{
    (void)plannerList; (void)tbl; (void)hostName; (void)timeWindow; (void)recurring; (void)op; (void)arg; (void)keepNew; (void)rsv;
}

RsvWeek *ResPlannerList_getWeeks(List *plannerList, int *numWeeks)
{
    (void)plannerList; (void)numWeeks; return {};
}

RsvWeek *RsvTimeWindow_getWeeks(const char *timeWindow, int *numWeeks)
{
    (void)timeWindow; (void)numWeeks; return {};
}

void ResPlannerList_trimOutdatedPlanners(List *plannerList)
{
    (void)plannerList;
}

char *RsvWeek_getOverlapTimeWindow(const RsvWeek *week, const char *timeWindow)
{
    (void)week; (void)timeWindow; return {};
}

int RsvWeek_equal(const RsvWeek *a, const RsvWeek *b)
{
    (void)a; (void)b; return {};
}

void RsvTime_toWeek(time_t t, RsvWeek *week)
{
    (void)t; (void)week;
}

RsvWeek *Rsv_thisWeek(void)
{
     return {};
}

char *RsvTime_toVktTimexpr(time_t t)
{
    (void)t; return {};
}

char *RsvTimeWindow_toTimeRange(const char *timeWindow, char *start, char *end, size_t bufSize)
{
    (void)timeWindow; (void)start; (void)end; (void)bufSize; return {};
}

} // extern "C"
