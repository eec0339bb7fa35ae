// STUB: generated placeholder; replace each function with its implementation.
#include "kx_dates.h"

extern "C" {


int parse_time(const char *text, float *hour, int *day)
{
    (void)text; (void)hour; (void)day; return {};
}

int parse_time_ex(const char *text, float *minute, float *hour, int *day)
{
    (void)text; (void)minute; (void)hour; (void)day; return {};
}

int getNowday(time_t t)
{
    (void)t; return {};
}

int nextDays(int date, int n)
{
    (void)date; (void)n; return {};
}

char *intToDate(int date)
{
    (void)date; return {};
}

int dateToInt(int year, int mon, int mday)
{
    (void)year; (void)mon; (void)mday; return {};
}

int evalNumWeeks(int startDate, int endDate)
{
    (void)startDate; (void)endDate; return {};
}

} // extern "C"
