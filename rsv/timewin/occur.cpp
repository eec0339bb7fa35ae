// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

time_t Rsv_time2occur(const char *timePoint, int mode)
{
    (void)timePoint; (void)mode; return {};
}

time_t Rsv_timeToOccurFromGivenTime(const char *timePoint, time_t reference, int mode)
{
    (void)timePoint; (void)reference; (void)mode; return {};
}

int64_t RsvEnt_getDuration(const RsvEnt *ent)
{
    (void)ent; return {};
}

time_t RsvEnt_getLeftTime(const RsvEnt *ent)
{
    (void)ent; return {};
}

int64_t RsvTimeWindow_toDuration(const char *timeWindow)
{
    (void)timeWindow; return {};
}

} // extern "C"
