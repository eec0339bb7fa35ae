// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

int fillRsvFinishLog(RsvFinishLog *record, RsvTimeTbl *tbl, const char *rsvId)
{
    (void)record; (void)tbl; (void)rsvId; return {};
}

void setJobRsvInActive(int64_t jobId, int flag)
{
    (void)jobId; (void)flag;
}

int jobListRsvId_equal(void *element, void *key, int ignored)
{
    (void)element; (void)key; (void)ignored; return {};
}

} // extern "C"
