// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

int RsvTimeTbl_ToRsvInfoReply(RsvTimeTbl *tbl, RsvInfoReply *reply)
{
    (void)tbl; (void)reply; return {};
}

void RsvInfoEnt_destroy(RsvInfoEnt *ent)
{
    (void)ent;
}

void RsvInfoReply_destroy(RsvInfoReply *reply)
{
    (void)reply;
}

char *RsvReq_ToString(const RsvReq *req)
{
    (void)req; return {};
}

} // extern "C"
