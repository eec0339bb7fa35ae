// plannerlist.cpp: the planner list of each host, calendar weeks, and the one
// entry (ResPlannerList_map) through which bookings, releases and queries
// reach the planners of the weeks that a window touches.
#include <cstdio>
#include <cstring>

#include "planner_internal.h"
#include "timewin/timewin_internal.h"
#include "rsv_internal.h"

namespace {

constexpr int kDaysPerWeek = 7;
// Bounded scratch sizes: list names, the halves of a one-off window (two epoch
// numbers) and one time expression.
constexpr size_t kListNameSize = 512;
constexpr size_t kTimeTextSize = 64;
constexpr size_t kTimexprSize = 32;

constexpr const char *kOpenEnd = "0:0:0";

RsvWeek weekThisCall;           // Rsv_thisWeek's record
char timexprBuffer[kTimexprSize]; // RsvTime_toVktTimexpr's buffer

// Epoch seconds of a one-off window end. strtoll instead of atoi so that times
// past 2038 are read whole; for every other text the value is atoi's.
time_t epochOf(const char *text)
{
    return static_cast<time_t>(std::strtoll(text, nullptr, 10));
}

// List element destructor: a planner with its name.
void destroyPlannerElement(void *planner)
{
    ResPlanner_destroy(static_cast<ResPlanner *>(planner));
}

} // namespace

namespace rsv {

List *newPlannerList(const char *hostName)
{
    char name[kListNameSize];
    std::snprintf(name, sizeof name, "Planner list for host <%s>", hostName);
    List *list = listCreate(name);
    if (!list)
        return nullptr;
    ResPlanner *recurring = ResPlanner_new(hostName, &rsvWeekRecur);
    if (!recurring) {
        listDestroy(list, nullptr);
        return nullptr;
    }
    listInsertEntryAtBack(list, &recurring->links);
    return list;
}

void destroyPlannerList(List *list)
{
    forgetWeekIndex(list);
    if (list)
        listDestroy(list, destroyPlannerElement);
}

RsvWeek *mapWeeks(List *plannerList, const char *timeWindow, int recurring, int *numWeeks)
{
    return recurring ? ResPlannerList_getWeeks(plannerList, numWeeks) : RsvTimeWindow_getWeeks(timeWindow, numWeeks);
}

char *weekWindow(const RsvWeek *week, const char *timeWindow, int recurring)
{
    return recurring ? rsv::dupText(timeWindow) : RsvWeek_getOverlapTimeWindow(week, timeWindow);
}

ResPlanner *plannerOfWeek(List *plannerList, const RsvWeek *week)
{
    return reinterpret_cast<ResPlanner *>(
        listSearchEntry(plannerList, const_cast<RsvWeek *>(week), ResPlanner_equal, 0));
}

bool oneOffSpan(const char *timeWindow, OneOffSpan &span)
{
    char startText[kTimeTextSize];
    char endText[kTimeTextSize];
    RsvTimeWindow_toTimeRangeBounded(timeWindow, startText, endText, sizeof startText);
    const time_t startTime = epochOf(startText);
    const time_t endTime = epochOf(endText);
    span.startTm = {};
    span.endTm = {};
    if (!localtime_r(&startTime, &span.startTm) || !localtime_r(&endTime, &span.endTm))
        return false;
    const int startDate = dateToInt(span.startTm.tm_year + 1900, span.startTm.tm_mon, span.startTm.tm_mday);
    const int endDate = dateToInt(span.endTm.tm_year + 1900, span.endTm.tm_mon, span.endTm.tm_mday);
    span.numWeeks = evalNumWeeks(startDate, endDate);
    span.firstSunday = span.numWeeks > 0 ? nextDays(startDate, -span.startTm.tm_wday) : 0;
    return true;
}

int sundayOfSpanWeek(const OneOffSpan &span, int i)
{
    // Calendar weeks, Sunday to Sunday, rather than 604800 seconds: a
    // daylight-saving change inside the window would otherwise skip a week
    // (or repeat one) and leave part of the window unbooked.
    return i == 0 ? span.firstSunday : nextDays(span.firstSunday, i * kDaysPerWeek);
}

ResPlanner *newWeekPlanner(RsvTimeTbl *tbl, const char *hostName, const RsvWeek *week)
{
    ResPlanner *planner = ResPlanner_new(hostName, week);
    if (planner)
        ResPlanner_addRecurs(planner, tbl, hostName);
    return planner;
}

} // namespace rsv

extern "C" {


// The planner list of `hostName` (the name exactly as given is the key), made on
// first use with the zero-week planner as its only element. The table owns the
// list. NULL when an argument is NULL or memory runs out; the table is then
// unchanged.
List *RsvTimeTbl_getPlannerList(RsvTimeTbl *tbl, const char *hostName)
{
    if (!tbl || !hostName)
        return nullptr;
    HashEnt *found = h_getEnt_(&tbl->plannerLists, hostName);
    List *current = found ? static_cast<List *>(found->value) : nullptr;
    // A change in progress keeps the list as it was before handing it out.
    if (!rsv::PlannerJournal_record(tbl, hostName, current))
        return nullptr;
    if (found)
        return current;

    // A lazy table builds the host's planners from its reservations now.
    List *list = rsv::plannersLazy(tbl) ? rsv::buildPlannerList(tbl, hostName) : rsv::newPlannerList(hostName);
    if (!list)
        return nullptr;
    HashEnt *he = h_addEnt_(&tbl->plannerLists, hostName, nullptr);
    if (!he) {
        rsv::destroyPlannerList(list);
        return nullptr;
    }
    he->value = list;
    return list;
}

// Apply `op` with `arg` to the planners of every week `timeWindow` touches:
// for a recurring window every week the list holds (the zero week included);
// for a one-off window each calendar week from its start to its end, with the
// part of the window inside that week. A week without a planner gets a new one
// holding the host's recurring bookings; it is kept in the list when `keepNew`
// is non-zero and thrown away after use otherwise, so a query leaves nothing
// behind. `rsv` (may be NULL) names the reservation whose disabled days dated
// planners skip.
void ResPlannerList_map(List *plannerList, RsvTimeTbl *tbl, const char *hostName, const char *timeWindow,
                        int recurring, ResPlannerOp op, int64_t arg, int keepNew, RsvEnt *rsv)
{
    if (!plannerList || !timeWindow || !op)
        return;
    int numWeeks = 0;
    rsv::CPtr<RsvWeek> weeks(rsv::mapWeeks(plannerList, timeWindow, recurring, &numWeeks));
    if (!weeks)
        return;
    for (int i = 0; i < numWeeks; ++i) {
        RsvWeek *week = &weeks.get()[i];
        rsv::CPtr<char> window(rsv::weekWindow(week, timeWindow, recurring));
        if (!window)
            continue;
        ResPlanner *planner = rsv::plannerOfWeek(plannerList, week);
        bool made = false;
        if (!planner) {
            planner = rsv::newWeekPlanner(tbl, hostName, week);
            if (!planner)
                continue;
            if (keepNew)
                listInsertEntryAtBack(plannerList, &planner->links);
            made = true;
        }
        ResPlanner_map(planner, window.get(), op, arg, rsv);
        if (made && !keepNew)
            ResPlanner_destroy(planner);
    }
}

// Copies of every planner's week, in list order, after the trim step. The
// caller frees the array; NULL with *numWeeks 0 for an empty list or when
// memory runs out.
RsvWeek *ResPlannerList_getWeeks(List *plannerList, int *numWeeks)
{
    if (numWeeks)
        *numWeeks = 0;
    if (!plannerList || !numWeeks)
        return nullptr;
    ResPlannerList_trimOutdatedPlanners(plannerList);
    int count = 0;
    for (ListEntry *e = plannerList->forw; e != reinterpret_cast<ListEntry *>(plannerList); e = e->forw)
        ++count;
    if (count == 0)
        return nullptr;
    auto *weeks = static_cast<RsvWeek *>(rsv::allocRecord(count, sizeof(RsvWeek), "ResPlannerList_getWeeks"));
    if (!weeks)
        return nullptr;
    int i = 0;
    for (ListEntry *e = plannerList->forw; e != reinterpret_cast<ListEntry *>(plannerList); e = e->forw)
        weeks[i++] = reinterpret_cast<ResPlanner *>(e)->week;
    *numWeeks = count;
    return weeks;
}

// The calendar weeks that the one-off window "start-end" (epoch seconds) spans,
// from the start's week to the end's week. The caller frees the array; NULL
// with *numWeeks 0 when the end lies before the start, the text is NULL, or
// memory runs out.
RsvWeek *RsvTimeWindow_getWeeks(const char *timeWindow, int *numWeeks)
{
    if (numWeeks)
        *numWeeks = 0;
    if (!timeWindow || !numWeeks)
        return nullptr;
    rsv::OneOffSpan span;
    if (!rsv::oneOffSpan(timeWindow, span) || span.numWeeks <= 0)
        return nullptr;
    const int count = span.numWeeks;
    auto *weeks = static_cast<RsvWeek *>(rsv::allocRecord(count, sizeof(RsvWeek), "RsvTimeWindow_getWeeks"));
    if (!weeks)
        return nullptr;
    for (int i = 0; i < count; ++i)
        rsv::weekFromSunday(rsv::sundayOfSpanWeek(span, i), &weeks[i]);
    *numWeeks = count;
    return weeks;
}

// Drop the planners that ResPlanner_isOutdated reports against the current
// week. That predicate never holds, so the list stays as it is: dated planners
// live as long as the table.
void ResPlannerList_trimOutdatedPlanners(List *plannerList)
{
    if (!plannerList)
        return;
    RsvWeek current = *Rsv_thisWeek();
    ListEntry *e = plannerList->forw;
    while (e != reinterpret_cast<ListEntry *>(plannerList)) {
        ListEntry *next = e->forw;
        if (ResPlanner_isOutdated(e, &current, 0)) {
            listRemoveEntry(plannerList, e);
            ResPlanner_destroy(reinterpret_cast<ResPlanner *>(e));
        }
        e = next;
    }
}

// The planner window of the part of the one-off window inside `week`: each end
// that falls in the week as its time expression, the other as "0:0:0" (the
// week's beginning or end). A new text the caller frees; NULL on a NULL
// argument or when memory runs out.
char *RsvWeek_getOverlapTimeWindow(const RsvWeek *week, const char *timeWindow)
{
    if (!week || !timeWindow)
        return nullptr;
    char startText[kTimeTextSize];
    char endText[kTimeTextSize];
    RsvTimeWindow_toTimeRangeBounded(timeWindow, startText, endText, sizeof startText);

    // Each expression is copied out of the shared buffer before the next call.
    char startExpr[kTimexprSize];
    char endExpr[kTimexprSize];
    RsvWeek pointWeek;
    const time_t startTime = epochOf(startText);
    RsvTime_toWeek(startTime, &pointWeek);
    std::snprintf(startExpr, sizeof startExpr, "%s",
                  RsvWeek_equal(&pointWeek, week) ? RsvTime_toVktTimexpr(startTime) : kOpenEnd);
    const time_t endTime = epochOf(endText);
    RsvTime_toWeek(endTime, &pointWeek);
    std::snprintf(endExpr, sizeof endExpr, "%s",
                  RsvWeek_equal(&pointWeek, week) ? RsvTime_toVktTimexpr(endTime) : kOpenEnd);

    char window[2 * kTimexprSize + 2];
    std::snprintf(window, sizeof window, "%s-%s", startExpr, endExpr);
    return rsv::dupText(window);
}

// Non-zero when the two weeks begin on the same day (the Saturday half is not
// compared). Two NULLs are equal; NULL and a week are not.
int RsvWeek_equal(const RsvWeek *a, const RsvWeek *b)
{
    if (!a || !b)
        return a == b;
    return a->startDay == b->startDay && a->startWeekday == b->startWeekday && a->startMonth == b->startMonth &&
           a->startYear == b->startYear;
}

// The week of the current time, in a module-level record that the next call
// overwrites.
RsvWeek *Rsv_thisWeek(void)
{
    RsvTime_toWeek(rsv::now(), &weekThisCall);
    return &weekThisCall;
}

// "day:hour:minute" of t in local time, Sunday written as 7 (seconds dropped),
// in a module-level buffer that the next call overwrites. "" when t has no
// local time.
char *RsvTime_toVktTimexpr(time_t t)
{
    struct tm tm {};
    if (!localtime_r(&t, &tm)) {
        timexprBuffer[0] = '\0';
        return timexprBuffer;
    }
    const int day = tm.tm_wday == 0 ? 7 : tm.tm_wday;
    std::snprintf(timexprBuffer, sizeof timexprBuffer, "%d:%d:%d", day, tm.tm_hour, tm.tm_min);
    return timexprBuffer;
}

// Split `timeWindow` at its first '-' into `start` and `end`, each a caller
// buffer that holds the whole window text. A text without '-' is all start
// and an empty end; a NULL text gives two empty texts. Returns `end`.
char *RsvTimeWindow_toTimeRange(const char *timeWindow, char *start, char *end)
{
    const size_t whole = timeWindow ? std::strlen(timeWindow) + 1 : 1;
    return RsvTimeWindow_toTimeRangeBounded(timeWindow, start, end, whole);
}

// As RsvTimeWindow_toTimeRange, each buffer of `bufSize` bytes; a longer part
// is cut to fit.
char *RsvTimeWindow_toTimeRangeBounded(const char *timeWindow, char *start, char *end, size_t bufSize)
{
    if (!start || !end || bufSize == 0)
        return end;
    start[0] = '\0';
    end[0] = '\0';
    if (!timeWindow)
        return end;
    const char *dash = std::strchr(timeWindow, '-');
    const size_t startLength = dash ? static_cast<size_t>(dash - timeWindow) : std::strlen(timeWindow);
    const size_t startCopy = startLength < bufSize ? startLength : bufSize - 1;
    std::memcpy(start, timeWindow, startCopy);
    start[startCopy] = '\0';
    if (dash)
        std::snprintf(end, bufSize, "%s", dash + 1);
    return end;
}

} // extern "C"
