// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

int tmDay_getDayFromTime(time_t t, tmDay *day)
{
    (void)t; (void)day; return {};
}

int tmDay_earlierThan(const tmDay *a, const tmDay *b, int orEqual)
{
    (void)a; (void)b; (void)orEqual; return {};
}

int tmDay_dayAfter(const tmDay *a, const tmDay *b)
{
    (void)a; (void)b; return {};
}

void RsvTimeWindow_getCurrentInstance(const char *timeWindow, List *disabledDurations, time_t reference, time_t *start, time_t *end)
{
    (void)timeWindow; (void)disabledDurations; (void)reference; (void)start; (void)end;
}

void RsvEnt_getCurrentInstanceAtTime(RsvEnt *ent, int useDisabled, time_t reference, time_t *start, time_t *end)
{
    (void)ent; (void)useDisabled; (void)reference; (void)start; (void)end;
}

void RsvEnt_getCurrentInstance(RsvEnt *ent, int useDisabled, time_t *start, time_t *end)
{
    (void)ent; (void)useDisabled; (void)start; (void)end;
}

void RsvEnt_getNextInstance(RsvEnt *ent, int useDisabled, time_t *start, time_t *end)
{
    (void)ent; (void)useDisabled; (void)start; (void)end;
}

void RsvEnt_setNextInstance(RsvEnt *ent, time_t start, time_t end)
{
    (void)ent; (void)start; (void)end;
}

void setCalendarTimeDuration(time_t start, time_t end, char **text)
{
    (void)start; (void)end; (void)text;
}

} // extern "C"
