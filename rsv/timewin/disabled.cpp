// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

int fillInRsvDisableDurationDate(char *text, tmDay *day, int numColons, int checkPast)
{
    (void)text; (void)day; (void)numColons; (void)checkPast; return {};
}

RsvDisableDuration *createRsvDisableDuration(const char *dateText, int checkPast)
{
    (void)dateText; (void)checkPast; return {};
}

RsvDisableDuration *createNextDisableDuration(RsvEnt *ent)
{
    (void)ent; return {};
}

int addDurationToDisabledList(RsvEnt *ent, RsvDisableDuration *rec)
{
    (void)ent; (void)rec; return {};
}

int RsvTimeTbl_addDurationToDisabledList(RsvTimeTbl *tbl, RsvEnt *ent, RsvDisableDuration *rec)
{
    (void)tbl; (void)ent; (void)rec; return {};
}

void RsvTimeTbl_cleanDisabledDurations(HashTab *entries)
{
    (void)entries;
}

void getDisabledDaysInWeek(const RsvWeek *week, RsvEnt *ent, int days[7])
{
    (void)week; (void)ent; (void)days;
}

void getDisabledDaysInPreviousWeek(const RsvWeek *week, RsvEnt *ent, int days[7])
{
    (void)week; (void)ent; (void)days;
}

void setCalendarDayDuration(const tmDay *first, const tmDay *last, char **text)
{
    (void)first; (void)last; (void)text;
}

int qob_getdisableddates(const char *dateText, char **first, char **last, char **range)
{
    (void)dateText; (void)first; (void)last; (void)range; return {};
}

} // extern "C"
