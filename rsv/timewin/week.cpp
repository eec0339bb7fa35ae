// week.cpp: calendar weeks, Sunday to Saturday, in local time, and the
// zero week of the recurring planners.
#include <ctime>

#include "rsv_internal.h"
#include "timewin/timewin_internal.h"

namespace rsv {

// Fill `week` with the Sunday-to-Saturday week whose Sunday is `sunday` (a
// date integer).
void weekFromSunday(int sunday, RsvWeek *week)
{
    const int saturday = nextDays(sunday, 7 - 1);
    week->startDay = sunday % 100;
    week->startWeekday = 0;
    week->startMonth = sunday % 10000 / 100;
    week->startYear = sunday / 10000;
    week->endDay = saturday % 100;
    week->endWeekday = 6;
    week->endMonth = saturday % 10000 / 100;
    week->endYear = saturday / 10000;
}

// The date integer of the Sunday that begins t's week; false when t has no
// local time.
bool sundayOf(time_t t, int *sunday)
{
    struct tm tm {};
    if (!localtime_r(&t, &tm))
        return false;
    const int date = dateToInt(tm.tm_year + 1900, tm.tm_mon, tm.tm_mday);
    *sunday = nextDays(date, -tm.tm_wday);
    return true;
}

} // namespace rsv

extern "C" {

// The zero week: the planner that holds recurring bookings for any week.
const RsvWeek rsvWeekRecur = {0, 0, 0, 0, 0, 0, 0, 0};

// Fill `week` with the local Sunday-to-Saturday week that contains t. A time
// without a local calendar date gives the zero week.
void RsvTime_toWeek(time_t t, RsvWeek *week)
{
    if (!week)
        return;
    int sunday = 0;
    if (!rsv::sundayOf(t, &sunday)) {
        *week = rsvWeekRecur;
        return;
    }
    rsv::weekFromSunday(sunday, week);
}

} // extern "C"
