// planner.cpp: the weekly capacity book of one host (7 days x 144 ten-minute
// cells) and the cell operations that every booking, release and query ends in.
#include <cstdio>
#include <cstring>

#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

using rsv::WindowPoint;

constexpr int kDays = RSV_PLANNER_DAYS;
constexpr int kSlotsPerDay = RSV_PLANNER_SLOTS_PER_DAY;
constexpr int kSlotsPerHour = 6;
constexpr int kMinutesPerHour = 60;
// Added to an end minute before the division so that an end time rounds up to
// the next slot boundary (12:01 ends after slot 72, 12:00 before it).
constexpr float kEndMinuteRoundUp = 9.0f;

// Scratch sizes: the planner name buffer and the longest window text taken.
constexpr size_t kPlannerNameSize = 512;
constexpr size_t kWindowTextSize = 256;

constexpr const char *kWholeWeek = "0:0:0-0:0:0";
// An open end of a planner window: the week's first or last moment.
constexpr const char *kOpenEnd = "0:0:0";

int clampSlot(int slot)
{
    return slot < 0 ? 0 : (slot > kSlotsPerDay ? kSlotsPerDay : slot);
}

int slotOf(float hour, float minute)
{
    const int h = static_cast<int>(hour);
    const int m = static_cast<int>(minute);
    return clampSlot(h * kSlotsPerHour + (m * kSlotsPerHour) / kMinutesPerHour);
}

// Parse D:H:M or H:M; false when the text is not a time point.
bool parsePoint(const char *text, bool isEnd, WindowPoint &point)
{
    float minute = 0.0f;
    float hour = 0.0f;
    int day = 0;
    if (parse_time_ex(text, &minute, &hour, &day) < 0)
        return false;
    if (day < 0 || day > 7)
        return false;
    point.day = day;
    point.hour = hour;
    point.minute = minute;
    point.slot = slotOf(hour, isEnd ? minute + kEndMinuteRoundUp : minute);
    return true;
}

// Apply `op` to cells [from, to) of one day. The three cell operations of the
// module get direct loops, which give exactly what calling them per cell gives;
// any other operation is called once per cell in slot order.
void applyRange(ResPlanner *planner, int day, int from, int to, ResPlannerOp op, int64_t arg)
{
    if (day < 0 || day >= kDays)
        return;
    from = clampSlot(from);
    to = clampSlot(to);
    if (from >= to)
        return;
    ResPlannerEnt *row = planner->slots[day];
    if (op == &ResPlannerEnt_incr) {
        const int n = static_cast<int>(arg);
        for (int s = from; s < to; ++s)
            row[s].reserved = static_cast<int>(static_cast<int64_t>(row[s].reserved) + n);
    } else if (op == &ResPlannerEnt_decr) {
        const int n = static_cast<int>(arg);
        for (int s = from; s < to; ++s)
            row[s].reserved = static_cast<int>(static_cast<int64_t>(row[s].reserved) - n);
    } else if (op == &ResPlannerEnt_getMaxRsv) {
        int *acc = reinterpret_cast<int *>(static_cast<intptr_t>(arg));
        if (acc)
            *acc = rsv::maxBookedInCells(&row[from], to - from, *acc);
    } else {
        for (int s = from; s < to; ++s)
            op(&row[s], arg);
    }
}

bool listHasElements(const List *list)
{
    return list && list->forw != reinterpret_cast<const ListEntry *>(list);
}

// The two ends of a planner window; false when the text is not one.
bool parseWindow(const char *timeWindow, WindowPoint &start, WindowPoint &end)
{
    // Split into a bounded scratch copy; no window text comes near its size,
    // so a longer text is not a window and changes nothing.
    char text[kWindowTextSize];
    const size_t length = std::strlen(timeWindow);
    if (length >= sizeof text)
        return false;
    std::memcpy(text, timeWindow, length + 1);
    if (std::strcmp(text, kWholeWeek) == 0) {
        start.day = 0;
        start.slot = 0;
        end.day = 6;
        end.slot = kSlotsPerDay;
        return true;
    }
    char *dash = std::strchr(text, '-');
    if (!dash)
        return false;
    *dash = '\0';
    const char *startText = text;
    const char *endText = dash + 1;
    if (std::strcmp(startText, kOpenEnd) == 0) {
        start.day = 0;
        start.slot = 0;
    } else if (!parsePoint(startText, false, start)) {
        return false;
    }
    if (std::strcmp(endText, kOpenEnd) == 0) {
        end.day = 6;
        end.slot = kSlotsPerDay;
    } else if (!parsePoint(endText, true, end)) {
        return false;
    }
    return true;
}

// The days of the planner's week, and of the week before, on which an
// occurrence of `rsv` is disabled. Disabled days exist only for dated weeks
// of recurring reservations; the zero-week planner stands for every week and
// is never thinned out.
void disabledDaysOf(const ResPlanner *planner, RsvEnt *rsv, int thisWeek[kDays], int previousWeek[kDays])
{
    if (planner->week.startYear != 0 && rsv && (rsv->options & RSV_OPT_RECURRING) &&
        listHasElements(rsv->disabledDurations)) {
        getDisabledDaysInWeek(&planner->week, rsv, thisWeek);
        getDisabledDaysInPreviousWeek(&planner->week, rsv, previousWeek);
    }
}

// A daily window: every day from start to end, or, when it wraps past
// midnight, the evening of each day's occurrence and the morning of the one
// before.
void mapDaily(ResPlanner *planner, const WindowPoint &start, WindowPoint end, const int thisWeek[kDays],
              const int previousWeek[kDays], ResPlannerOp op, int64_t arg)
{
    const bool wraps = start.hour > end.hour || (start.hour == end.hour && start.minute > end.minute);
    // The rounded-up end of a wrapping window must not run into its start.
    if (wraps && start.slot < end.slot)
        end.slot = start.slot;
    for (int d = 0; d < kDays; ++d) {
        if (!wraps) {
            if (!thisWeek[d])
                applyRange(planner, d, start.slot, end.slot, op, arg);
            continue;
        }
        // Evening of the occurrence that starts on day d.
        if (!thisWeek[d])
            applyRange(planner, d, start.slot, kSlotsPerDay, op, arg);
        // Morning of the occurrence that started the day before.
        const bool dayBeforeDisabled = d > 0 ? thisWeek[d - 1] != 0 : previousWeek[6] != 0;
        if (!dayBeforeDisabled)
            applyRange(planner, d, 0, end.slot, op, arg);
    }
}

// A window with days: from the start day's slot to the end day's, or, when it
// runs past Saturday, this week's occurrence from the start day on and the
// previous week's from Sunday to the end day.
void mapWithDays(ResPlanner *planner, const WindowPoint &start, const WindowPoint &end, const int thisWeek[kDays],
                 const int previousWeek[kDays], ResPlannerOp op, int64_t arg)
{
    // Days 7 and 0 both mean Sunday in a window with days.
    const int startDay = start.day % 7;
    const int endDay = end.day % 7;
    auto applyDay = [&](int d) {
        const int from = d == startDay ? start.slot : 0;
        const int to = d == endDay ? end.slot : kSlotsPerDay;
        applyRange(planner, d, from, to, op, arg);
    };
    if (startDay <= endDay) {
        if (thisWeek[startDay])
            return;
        for (int d = startDay; d <= endDay; ++d)
            applyDay(d);
        return;
    }
    int d = thisWeek[startDay] ? 0 : startDay;
    do {
        if (d == 0 && previousWeek[startDay])
            break;
        applyDay(d);
        d = (d + 1) % 7;
    } while (d != endDay + 1);
}

// Book one entry's share of `hostName` when it recurs.
void addRecursOf(ResPlanner *planner, RsvEnt *ent, const char *hostName)
{
    if (!ent || !(ent->options & RSV_OPT_RECURRING) || !ent->allocVector)
        return;
    for (int i = 0; i < ent->numHosts; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        if (elem.hostName && std::strcmp(elem.hostName, hostName) == 0)
            ResPlanner_map(planner, ent->timeWindow, ResPlannerEnt_incr, elem.numSlots, ent);
    }
}

} // namespace

extern "C" {

// A new planner of `hostName` for `week` (copied; NULL is the zero week) with
// every cell at 0 and its name "Resource Weekly Planner for host <host>".
// Owned by the caller (ResPlanner_destroy); NULL when memory runs out, with
// nothing left allocated.
ResPlanner *ResPlanner_new(const char *hostName, const RsvWeek *week)
{
    auto *planner = static_cast<ResPlanner *>(rsv::allocRecord(1, sizeof(ResPlanner), "ResPlanner_new"));
    if (!planner)
        return nullptr;
    // Host names are far shorter than the buffer; a longer one only shortens
    // the planner's name, which nothing looks up.
    char name[kPlannerNameSize];
    std::snprintf(name, sizeof name, "Resource Weekly Planner for host <%s>", hostName ? hostName : "");
    planner->plannerName = rsv::dupText(name);
    if (!planner->plannerName) {
        std::free(planner);
        return nullptr;
    }
    planner->week = week ? *week : rsvWeekRecur;
    return planner;
}

// Free the planner's name and the planner itself. NULL is ignored.
void ResPlanner_destroy(ResPlanner *planner)
{
    if (!planner)
        return;
    std::free(planner->plannerName);
    std::free(planner);
}

// Apply `op` with `arg` to every cell that `timeWindow` covers in the planner's
// week: the whole-week literal "0:0:0-0:0:0", a daily window H:M-H:M, or a
// weekly/dated window D:H:M-D:H:M whose "0:0:0" ends stand for the week's
// beginning and end. On a dated planner the days on which an occurrence of the
// recurring reservation `rsv` is disabled are skipped. Nothing is reported: a
// text that is not a window changes no cell.
void ResPlanner_map(ResPlanner *planner, const char *timeWindow, ResPlannerOp op, int64_t arg, RsvEnt *rsv)
{
    if (!planner || !timeWindow || !op)
        return;
    WindowPoint start;
    WindowPoint end;
    if (!parseWindow(timeWindow, start, end))
        return;
    rsv::mapParsedWindow(planner, start, end, op, arg, rsv);
}

} // extern "C"

namespace rsv {

WindowPoint pointOfClock(int day, int hour, int minute, bool isEnd)
{
    WindowPoint point;
    point.day = day;
    point.hour = static_cast<float>(hour);
    point.minute = static_cast<float>(minute);
    point.slot = slotOf(point.hour, isEnd ? point.minute + kEndMinuteRoundUp : point.minute);
    return point;
}

WindowPoint openWindowEnd(bool isEnd)
{
    WindowPoint point;
    point.day = isEnd ? 6 : 0;
    point.slot = isEnd ? kSlotsPerDay : 0;
    return point;
}

bool parsePlannerWindow(const char *timeWindow, WindowPoint &start, WindowPoint &end)
{
    return timeWindow && parseWindow(timeWindow, start, end);
}

void mapParsedWindow(ResPlanner *planner, const WindowPoint &start, const WindowPoint &end, ResPlannerOp op,
                     int64_t arg, RsvEnt *rsv)
{
    if (!planner || !op)
        return;
    int thisWeek[kDays] = {0, 0, 0, 0, 0, 0, 0};
    int previousWeek[kDays] = {0, 0, 0, 0, 0, 0, 0};
    disabledDaysOf(planner, rsv, thisWeek, previousWeek);
    if (start.day == 0 && end.day == 0)
        mapDaily(planner, start, end, thisWeek, previousWeek, op, arg);
    else
        mapWithDays(planner, start, end, thisWeek, previousWeek, op, arg);
}

} // namespace rsv

extern "C" {

// Book every recurring reservation's slots on `hostName` (exact, case-sensitive
// match of the allocation's host name) into `planner`, in the table's entry
// order. A dated planner made after those reservations thus starts with them.
void ResPlanner_addRecurs(ResPlanner *planner, RsvTimeTbl *tbl, const char *hostName)
{
    if (!planner || !tbl || !hostName)
        return;
    // The table's recurring index gives the same bookings in the same order
    // without visiting every reservation; the walk is what it stands for, and
    // what is left when no index can be had.
    if (rsv::addRecursFromIndex(planner, tbl, hostName))
        return;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter))
        addRecursOf(planner, static_cast<RsvEnt *>(he->value), hostName);
}

// List search predicate: non-zero when the planner covers `week` (an RsvWeek).
int ResPlanner_equal(void *planner, void *week, int ignored)
{
    (void)ignored;
    if (!planner || !week)
        return 0;
    return RsvWeek_equal(&static_cast<ResPlanner *>(planner)->week, static_cast<const RsvWeek *>(week));
}

// List search predicate for the trim step: always 0. Dated planners are kept for
// the life of the table, because recurring bookings and later queries on past
// weeks must find the counts they left; a daemon relies on nothing being trimmed.
int ResPlanner_isOutdated(void *planner, void *week, int ignored)
{
    (void)planner;
    (void)week;
    (void)ignored;
    return 0;
}

// Add n (a 32-bit count) to the cell; returns the new count.
int64_t ResPlannerEnt_incr(ResPlannerEnt *cell, int64_t n)
{
    if (!cell)
        return 0;
    cell->reserved = static_cast<int>(static_cast<int64_t>(cell->reserved) + static_cast<int>(n));
    return cell->reserved;
}

// Subtract n from the cell; returns n, not the new count. The asymmetry with
// ResPlannerEnt_incr is kept on purpose: no caller reads it, and a daemon may
// have been written against it.
int64_t ResPlannerEnt_decr(ResPlannerEnt *cell, int64_t n)
{
    if (!cell)
        return n;
    cell->reserved = static_cast<int>(static_cast<int64_t>(cell->reserved) - static_cast<int>(n));
    return n;
}

// `accumulator` is (int64_t)(intptr_t)&acc for an int acc; acc becomes the
// larger of acc and the cell's count (a tie keeps acc). Returns the new acc.
int64_t ResPlannerEnt_getMaxRsv(ResPlannerEnt *cell, int64_t accumulator)
{
    int *acc = reinterpret_cast<int *>(static_cast<intptr_t>(accumulator));
    if (!acc)
        return 0;
    if (cell && cell->reserved > *acc)
        *acc = cell->reserved;
    return *acc;
}

// Destroy a planner list and every planner in it (freePlanner_t). NULL is
// ignored.
void freePlanner(void *plannerList)
{
    rsv::forgetWeekIndex(static_cast<List *>(plannerList));
    if (plannerList)
        listDestroy(static_cast<List *>(plannerList), freePlanner_t);
}

// Free one planner record, but not its name: the planner lists of a temporary
// table are byte copies (listDup) whose names are the real planners' names, so
// freeing them here would free the real table's names. NULL is ignored.
void freePlanner_t(void *planner)
{
    std::free(planner);
}

} // extern "C"
