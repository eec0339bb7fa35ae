// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

int isValidTimeWindow(const char *timeWindow, int recurring)
{
    (void)timeWindow; (void)recurring; return {};
}

int isNonRecValidTimeWindow(const char *timeWindow)
{
    (void)timeWindow; return {};
}

int isRecValidTimeWindow(const char *timeWindow)
{
    (void)timeWindow; return {};
}

int isValidModTimeWindow(const char *newTimeWindow, RsvEnt *ent, int recurring)
{
    (void)newTimeWindow; (void)ent; (void)recurring; return {};
}

char *RsvMod_buildTimeWindow(const char *currentWindow, const char *modText)
{
    (void)currentWindow; (void)modText; return {};
}

int RsvMod_updateModReqTimeWindow(RsvModReq *modReq, RsvEnt *ent)
{
    (void)modReq; (void)ent; return {};
}

void RsvEnt_updateWithMod(RsvEnt *ent, RsvModReq *modReq)
{
    (void)ent; (void)modReq;
}

} // extern "C"
