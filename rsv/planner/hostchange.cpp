// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

int RsvTimeTbl_modEntrywithAddHosts(RsvTimeTbl *tbl, RsvModReq *modReq)
{
    (void)tbl; (void)modReq; return {};
}

int Rsv_reallocwithAddHosts(RsvTimeTbl *tbl, int numAvail, ResAlloc *avail, RsvModReq *modReq, RsvEnt *ent, const char *mode)
{
    (void)tbl; (void)numAvail; (void)avail; (void)modReq; (void)ent; (void)mode; return {};
}

int RsvTimeTbl_modEntryWithRmHosts(RsvTimeTbl *tbl, RsvModReq *modReq, HashTab *hosts, int rmFlags)
{
    (void)tbl; (void)modReq; (void)hosts; (void)rmFlags; return {};
}

int Rsv_rmHosts_checkHostsInRsv(HashTab *hosts)
{
    (void)hosts; return {};
}

int Rsv_getNumSlotsReserved(const RsvEnt *ent)
{
    (void)ent; return {};
}

} // extern "C"
