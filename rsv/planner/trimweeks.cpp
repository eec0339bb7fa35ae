// trimweeks.cpp: dropping the dated planners of weeks that are over. A
// long-running daemon books each new week's planner as reservations reach it
// and, by default, keeps every one for the life of the table; this call lets
// it give back the memory of the weeks behind it.
#include <algorithm>

#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

bool isRecurringWeek(const RsvWeek &week)
{
    return week.startYear == 0 && week.startMonth == 0 && week.startDay == 0 && week.endYear == 0;
}

// Local midnight after the week's Saturday: the moment the week is over.
time_t weekOver(const RsvWeek &week)
{
    struct tm tm {};
    tm.tm_year = week.endYear - 1900;
    tm.tm_mon = week.endMonth;
    tm.tm_mday = week.endDay + 1;
    tm.tm_isdst = -1;
    return mktime(&tm);
}

} // namespace

namespace rsv {

bool weekTrimmed(const RsvTimeTbl *tbl, const RsvWeek &week) noexcept
{
    const TableSettings *s = tableSettings(tbl, false);
    if (!s || s->trimmedBefore == 0 || isRecurringWeek(week))
        return false;
    time_t over = weekOver(week);
    return over != static_cast<time_t>(-1) && over <= s->trimmedBefore;
}

} // namespace rsv

extern "C" {

// Walks every host's planner list and unlinks the dated planners whose week
// is over by `before`. The lists change in the middle, which the week index
// cannot see from their length and last element alone, so each changed
// list's index is forgotten. The cut is kept with the table first (the one
// step that can fail), so that the verification knows those weeks are meant
// to be missing.
int RsvTimeTbl_trimPastWeeks(RsvTimeTbl *tbl, time_t before)
{
    if (!tbl) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    rsv::TableSettings *settings = rsv::tableSettings(tbl, true);
    if (!settings) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return -1;
    }
    settings->trimmedBefore = std::max(settings->trimmedBefore, before);
    int removed = 0;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->plannerLists, &iter); he; he = h_nextEnt_(&iter)) {
        auto *list = static_cast<List *>(he->value);
        if (!list)
            continue;
        bool changed = false;
        auto *head = reinterpret_cast<ListEntry *>(list);
        for (ListEntry *e = list->forw; e != head;) {
            ListEntry *next = e->forw;
            auto *planner = reinterpret_cast<ResPlanner *>(e);
            if (!isRecurringWeek(planner->week)) {
                time_t over = weekOver(planner->week);
                if (over != static_cast<time_t>(-1) && over <= before) {
                    listRemoveEntry(list, e);
                    ResPlanner_destroy(planner);
                    changed = true;
                    ++removed;
                }
            }
            e = next;
        }
        if (changed)
            rsv::forgetWeekIndex(list);
    }
    return removed;
}

} // extern "C"
