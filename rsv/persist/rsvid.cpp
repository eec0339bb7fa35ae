// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

char *RsvId_new(RsvTimeTbl *tbl, RsvReq *req)
{
    (void)tbl; (void)req; return {};
}

void RsvId_setCur(const char *rsvId)
{
    (void)rsvId;
}

void initRsvIdTbl(const char *idFile)
{
    (void)idFile;
}

void RsvTimeTbl_logId(RsvTimeTbl *tbl)
{
    (void)tbl;
}

void RsvId_clearTbl(void)
{
    
}

} // extern "C"
