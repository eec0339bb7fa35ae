// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

void RsvTimeTbl_logStat(RsvTimeTbl *tbl)
{
    (void)tbl;
}

int RsvTimeTbl_load(RsvTimeTbl *tbl, int *numRejected)
{
    (void)tbl; (void)numRejected; return {};
}

} // extern "C"
