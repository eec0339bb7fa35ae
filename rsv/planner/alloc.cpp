// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

ResAlloc *ResAlloc_new(int numElems)
{
    (void)numElems; return {};
}

int RsvTimeTbl_getReservableAlloc(RsvTimeTbl *tbl, RsvReq *req, ResAlloc **out, RsvEnt *ent)
{
    (void)tbl; (void)req; (void)out; (void)ent; return {};
}

int Rsv_alloc(RsvTimeTbl *tbl, int numAvail, ResAlloc *avail, RsvReq *req, AllocElem **out, const char *mode)
{
    (void)tbl; (void)numAvail; (void)avail; (void)req; (void)out; (void)mode; return {};
}

void Rsv_dealloc(RsvTimeTbl *tbl, RsvEnt *ent)
{
    (void)tbl; (void)ent;
}

int Rsv_getMaxAvailonHost(RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring, RsvEnt *ent)
{
    (void)tbl; (void)hostName; (void)timeWindow; (void)recurring; (void)ent; return {};
}

int Rsv_chkupdRsv4NewTimeWindow(RsvTimeTbl *tbl, RsvEnt *ent, const char *newTimeWindow, int update)
{
    (void)tbl; (void)ent; (void)newTimeWindow; (void)update; return {};
}

} // extern "C"
