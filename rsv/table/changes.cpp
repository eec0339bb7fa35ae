// STUB: generated placeholder; replace each function with its implementation.
#include "rsv_internal.h"

extern "C" {

int RsvTimeTbl_modifyTimeWindow(RsvTimeTbl *tbl, RsvModReq *modReq)
{
    (void)tbl; (void)modReq; return {};
}

int RsvTimeTbl_addHosts(RsvTimeTbl *tbl, RsvModReq *modReq)
{
    (void)tbl; (void)modReq; return {};
}

int RsvTimeTbl_removeHosts(RsvTimeTbl *tbl, RsvModReq *modReq, HashTab *hosts, int rmFlags)
{
    (void)tbl; (void)modReq; (void)hosts; (void)rmFlags; return {};
}

int RsvTimeTbl_disableDays(RsvTimeTbl *tbl, const char *rsvId, const char *dateText)
{
    (void)tbl; (void)rsvId; (void)dateText; return {};
}

int RsvTimeTbl_setDescription(RsvTimeTbl *tbl, const char *rsvId, const char *description)
{
    (void)tbl; (void)rsvId; (void)description; return {};
}

} // extern "C"
