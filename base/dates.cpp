// Date helpers: recurring time points and integer calendar dates.
//
// Date arithmetic is pure civil-calendar arithmetic on day counts, so it
// never sees a clock change: a day across a daylight-saving switch is still
// one day. Only getNowday consults the local zone, to learn which date an
// instant falls on.
#include "kx_civil.h"
#include "kx_dates.h"

#include <cstdint>
#include <cstdio>

namespace {

// Parts of a time point are compared against small ranges; anything longer
// than this many digits is out of range whatever its value, which keeps the
// accumulation far from overflow (a bare epoch number such as 1136102400 is
// all digits but no hour).
constexpr int kMaxPartDigits = 4;

struct TimePoint {
    int day;    // 0 without a day part, else 1..7 (7 = Sunday)
    int hour;   // 0..24
    int minute; // 0..59
};

// Reads one part: one to kMaxPartDigits decimal digits. Advances *text past
// them; false on an empty, over-long or non-digit part.
bool readPart(const char **text, int *value)
{
    const char *p = *text;
    int v = 0;
    int digits = 0;
    while (*p >= '0' && *p <= '9') {
        if (++digits > kMaxPartDigits)
            return false;
        v = v * 10 + (*p - '0');
        ++p;
    }
    if (digits == 0)
        return false;
    *value = v;
    *text = p;
    return true;
}

// "H", "H:M" or "D:H:M", digits and colons only, each part in range.
bool parsePoint(const char *text, TimePoint *out)
{
    if (!text)
        return false;
    int parts[3];
    int count = 0;
    const char *p = text;
    for (;;) {
        if (count == 3 || !readPart(&p, &parts[count]))
            return false;
        ++count;
        if (*p == '\0')
            break;
        if (*p != ':')
            return false;
        ++p;
    }

    TimePoint tp{0, 0, 0};
    switch (count) {
    case 1: tp.hour = parts[0]; break;
    case 2: tp.hour = parts[0]; tp.minute = parts[1]; break;
    default: tp.day = parts[0]; tp.hour = parts[1]; tp.minute = parts[2]; break;
    }
    if (count == 3) {
        if (tp.day > 7)
            return false;
        // Sunday may be written 0 or 7; the planners read 7.
        if (tp.day == 0)
            tp.day = 7;
    }
    if (tp.minute > 59 || tp.hour > 24 || (tp.hour == 24 && tp.minute != 0))
        return false;
    *out = tp;
    return true;
}

// Days since 1970-01-01 of a proleptic Gregorian date (month 1..12; days
// outside the month simply carry over).
int64_t daysFromCivil(int64_t y, int64_t m, int64_t d)
{
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

// The day count of a date integer (month 0..11). A month or day outside its
// range carries over the way mktime normalises it.
int64_t daysOfDate(int date)
{
    int64_t year = date / 10000;
    int64_t month0 = date % 10000 / 100;
    int64_t day = date % 100;
    year += month0 / 12;
    month0 %= 12;
    if (month0 < 0) {
        month0 += 12;
        year -= 1;
    }
    return daysFromCivil(year, month0 + 1, day);
}

int dateOfDays(int64_t days)
{
    kx::Civil c = kx::civilFromDays(days);
    return static_cast<int>(c.year * 10000 + (c.month - 1) * 100 + c.day);
}

// 0 = Sunday ... 6 = Saturday; 1970-01-01 was a Thursday.
int weekdayOfDays(int64_t days)
{
    int64_t w = (days + 4) % 7;
    return static_cast<int>(w < 0 ? w + 7 : w);
}

} // namespace

namespace kx {

Civil civilFromDays(int64_t z)
{
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    const int m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    return {era * 400 + yoe + (m <= 2), m, d};
}

} // namespace kx

extern "C" {

// 0 with *hour = H + M / 60 and *day (0 for a daily point, 1..7 with 7 for
// Sunday); -1 for anything that is not a recurring time point, or a NULL
// argument, leaving the outputs untouched. Callers rely on the negative
// result to tell a one-off time (an epoch number) from a recurring point.
int parse_time(const char *text, float *hour, int *day)
{
    TimePoint tp;
    if (!hour || !day || !parsePoint(text, &tp))
        return -1;
    *hour = static_cast<float>(tp.hour) + static_cast<float>(tp.minute) / 60.0f;
    *day = tp.day;
    return 0;
}

// As parse_time, with the minute and the whole hour returned separately.
int parse_time_ex(const char *text, float *minute, float *hour, int *day)
{
    TimePoint tp;
    if (!minute || !hour || !day || !parsePoint(text, &tp))
        return -1;
    *minute = static_cast<float>(tp.minute);
    *hour = static_cast<float>(tp.hour);
    *day = tp.day;
    return 0;
}

// The local date integer of t. Uses localtime_r so that a struct tm a caller
// still holds from localtime is not overwritten. 0 if t cannot be converted.
int getNowday(time_t t)
{
    struct tm tm;
    if (!localtime_r(&t, &tm))
        return 0;
    return dateToInt(tm.tm_year + 1900, tm.tm_mon, tm.tm_mday);
}

// The date integer n days after `date` (n may be negative). Counted in
// calendar days, so month and year ends and clock changes need no care.
int nextDays(int date, int n)
{
    return dateOfDays(daysOfDate(date) + n);
}

// "Www Mmm D YYYY" with no padding of the day, in a static buffer that the
// next call overwrites. A day or month out of range is carried over first,
// as nextDays does (day 0 is the last day of the month before).
char *intToDate(int date)
{
    static const char *const weekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    static char buffer[64];
    int64_t days = daysOfDate(date);
    kx::Civil c = kx::civilFromDays(days);
    std::snprintf(buffer, sizeof buffer, "%s %s %d %lld", weekdays[weekdayOfDays(days)],
                  months[c.month - 1], c.day, static_cast<long long>(c.year));
    return buffer;
}

// year * 10000 + mon * 100 + mday, mon 0..11 as localtime gives it. The
// fields are not checked; nextDays and intToDate carry over any excess.
int dateToInt(int year, int mon, int mday)
{
    return static_cast<int>(static_cast<int64_t>(year) * 10000 + static_cast<int64_t>(mon) * 100 + mday);
}

// The number of Sunday-to-Saturday weeks that start..end touch, both ends
// included: 1 within one week, 2 from a Saturday to the next day, 0 when end
// is before start.
int evalNumWeeks(int startDate, int endDate)
{
    int64_t start = daysOfDate(startDate);
    int64_t end = daysOfDate(endDate);
    if (end < start)
        return 0;
    int64_t firstSunday = start - weekdayOfDays(start);
    return static_cast<int>((end - firstSunday) / 7 + 1);
}

} // extern "C"
