/* Date helpers of the scheduler's base library.
 *
 * A date integer is year * 10000 + month * 100 + day, with the month 0..11 as
 * localtime gives it (so 1 March 2026 is 20260201). All calendar work is in
 * local time. */
#ifndef KX_DATES_H
#define KX_DATES_H

#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility push(default) /* the library's public surface */
#endif

/* Parse a recurring time point: "H", "H:M" (daily; *day = 0) or "D:H:M"
 * (weekly; D 0..7, 0 and 7 both Sunday and returned as 7). H is 0..23, or 24
 * with minute 0; M is 0..59. Digits only: no blanks, signs or empty parts.
 * On success *hour = H + M / 60 and 0 is returned; otherwise a negative value
 * and the outputs are untouched. */
int parse_time(const char *text, float *hour, int *day);

/* As parse_time, but the minute and whole hour come back separately. */
int parse_time_ex(const char *text, float *minute, float *hour, int *day);

/* The local date integer of time t (0 if t cannot be converted). Does not
 * overwrite the shared result of localtime. */
int getNowday(time_t t);

/* The date integer n days after `date` (n may be negative), right across
 * month and year ends and daylight-saving changes. */
int nextDays(int date, int n);

/* "Www Mmm D YYYY" (for example "Fri Jan 9 2026": the day not padded) in a
 * static buffer overwritten by the next call. A day or month out of range is
 * carried over first (day 0 is the last day of the month before). */
char *intToDate(int date);

/* The date integer of (year, month 0..11, day of month); not checked. */
int dateToInt(int year, int mon, int mday);

/* The number of Sunday-to-Saturday weeks that the dates start..end span, both
 * ends included (1 when both lie in one week; 0 when end is before start). */
int evalNumWeeks(int startDate, int endDate);

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif
#endif
