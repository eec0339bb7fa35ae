// cellscan.cpp: the availability read of a host over a window -- the most
// slots booked in any cell the window covers -- taken straight from the
// planners, with no text, array or planner made on the heap. It reads the
// same weeks and cells as ResPlannerList_map with ResPlannerEnt_getMaxRsv,
// which stays the reference (the planner tests compare the two).
#include <cstring>

#include "planner_internal.h"
#include "timewin/timewin_internal.h"
#include "rsv_internal.h"

namespace {

constexpr int kDaysPerWeek = 7;

// Lanes of the maximum: eight counts side by side, a fixed trip count the
// compiler turns into vector compares even under its cheapest cost model.
constexpr int kLanes = 8;

int64_t accumulatorArg(int *acc)
{
    return static_cast<int64_t>(reinterpret_cast<intptr_t>(acc));
}

// The week's end of a one-off window, as the time expression of the point
// ("D:H:M", Sunday as 7) when it falls in the week, else the open end.
rsv::WindowPoint pointInWeek(const struct tm &tm, bool inWeek, bool isEnd)
{
    if (!inWeek)
        return rsv::openWindowEnd(isEnd);
    return rsv::pointOfClock(tm.tm_wday == 0 ? kDaysPerWeek : tm.tm_wday, tm.tm_hour, tm.tm_min, isEnd);
}

// A one-off window "start-end": each calendar week from the start's to the
// end's, the part of the window inside it, the week's planner or, without
// one, a planner holding the host's recurring bookings.
int maxOverOneOff(List *list, RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, RsvEnt *rsv)
{
    rsv::OneOffSpan span;
    if (!rsv::oneOffSpan(timeWindow, span))
        return 0;
    int used = 0;
    for (int i = 0; i < span.numWeeks; ++i) {
        RsvWeek week;
        rsv::weekFromSunday(rsv::sundayOfSpanWeek(span, i), &week);
        const rsv::WindowPoint start = pointInWeek(span.startTm, i == 0, false);
        const rsv::WindowPoint end = pointInWeek(span.endTm, i == span.numWeeks - 1, true);
        if (ResPlanner *planner = rsv::indexedPlannerOfWeek(list, week)) {
            rsv::mapParsedWindow(planner, start, end, ResPlannerEnt_getMaxRsv, accumulatorArg(&used), rsv);
            continue;
        }
        // What a new planner of the week would hold, made where it is read.
        ResPlanner scratch;
        std::memset(&scratch, 0, sizeof scratch);
        scratch.week = week;
        ResPlanner_addRecurs(&scratch, tbl, hostName);
        rsv::mapParsedWindow(&scratch, start, end, ResPlannerEnt_getMaxRsv, accumulatorArg(&used), rsv);
    }
    return used;
}

// A recurring window: every planner of the list, the zero week first. A list
// never holds two planners of one week (a planner is added only where the
// search for its week failed), so each planner is its week's.
int maxOverRecurring(List *list, const char *timeWindow, RsvEnt *rsv)
{
    ResPlannerList_trimOutdatedPlanners(list);
    rsv::WindowPoint start;
    rsv::WindowPoint end;
    if (!rsv::parsePlannerWindow(timeWindow, start, end))
        return 0;
    int used = 0;
    for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw)
        rsv::mapParsedWindow(reinterpret_cast<ResPlanner *>(e), start, end, ResPlannerEnt_getMaxRsv,
                             accumulatorArg(&used), rsv);
    return used;
}

} // namespace

namespace rsv {

int maxBookedInCells(const ResPlannerEnt *cells, int count, int init) noexcept
{
    int s = 0;
    int best = init;
    if (count >= kLanes) {
        int lane[kLanes];
        for (int k = 0; k < kLanes; ++k)
            lane[k] = init;
        for (; s + kLanes <= count; s += kLanes)
            for (int k = 0; k < kLanes; ++k)
                lane[k] = lane[k] < cells[s + k].reserved ? cells[s + k].reserved : lane[k];
        for (int k = 0; k < kLanes; ++k)
            best = best < lane[k] ? lane[k] : best;
    }
    for (; s < count; ++s)
        best = best < cells[s].reserved ? cells[s].reserved : best;
    return best;
}

int maxBookedOverWindow(List *list, RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring,
                        RsvEnt *rsv)
{
    if (!list || !timeWindow)
        return 0;
    return recurring ? maxOverRecurring(list, timeWindow, rsv) : maxOverOneOff(list, tbl, hostName, timeWindow, rsv);
}

} // namespace rsv
