// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

RsvEnt *RsvEnt_new(int options, const char *name, const char *timeWindow)
{
    (void)options; (void)name; (void)timeWindow; return {};
}

void RsvEnt_destroy(RsvEnt *ent)
{
    (void)ent;
}

int isRsvActive(const RsvEnt *ent)
{
    (void)ent; return {};
}

void setRsvActive(RsvTimeTbl *tbl, RsvEnt *ent)
{
    (void)tbl; (void)ent;
}

void setRsvInactive(RsvTimeTbl *tbl, RsvEnt *ent)
{
    (void)tbl; (void)ent;
}

void RsvEnt_freeAllocVector(AllocElem **vector, int count)
{
    (void)vector; (void)count;
}

AllocElem *RsvEnt_DupAllocVector(const RsvEnt *ent)
{
    (void)ent; return {};
}

} // extern "C"
