// Changing a reservation's hosts, as the table sees it: the reservation is
// found here by its identifier, and the planner steps (planner/hostchange.cpp)
// change its allocation vector and the planners together.
#include "planner/planner_internal.h"
#include "rsv_internal.h"

namespace {

constexpr int kTraceBits = LC_RSV | LC_TRACE;

const char *nameOrEmpty(const char *text)
{
    return text ? text : "";
}

// The reservation a host change names, after the change's trace; NULL with
// qob_errno 52 (NULL argument) or 311 (not found, logged with `notFound`
// when the log-class bits `notFoundBits` are on).
RsvEnt *entryToChange(RsvTimeTbl *tbl, const RsvModReq *modReq, const char *fn, int notFoundBits,
                      const char *notFound)
{
    if (rsv::logOn(kTraceBits))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", fn);
    if (!tbl || !modReq) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return nullptr;
    }
    RsvEnt *ent = modReq->rsvId ? RsvTimeTbl_getEntry(tbl, modReq->rsvId) : nullptr;
    if (!ent) {
        if (rsv::logOn(notFoundBits))
            kx_syslog(KX_LOG_DEBUG, notFound, fn, nameOrEmpty(modReq->rsvId));
        qob_errno = RSV_ERR_NO_SUCH_RSV;
    }
    return ent;
}

} // namespace

extern "C" {

// Grows the reservation `modReq->rsvId` by the request's hosts and processor
// range, over the request's window. 0, or -1 with qob_errno: 52 (NULL
// argument), 311 (no such reservation), 190 (fewer reservable processors
// than minNumProcs), 55 (no memory), or the error of the reservable-slot
// query. Asked host names in the request are replaced by official names. A
// failure leaves the entry and the planners as they were.
int RsvTimeTbl_modEntrywithAddHosts(RsvTimeTbl *tbl, RsvModReq *modReq)
{
    RsvEnt *ent = entryToChange(tbl, modReq, "RsvTimeTbl_modEntrywithAddHosts", kTraceBits,
                                "%s: reservation <%s> is not found");
    return ent ? rsv::addHostsToEntry(tbl, modReq, ent) : -1;
}

// Gives back hosts or processors of the reservation `modReq->rsvId`:
// RSV_RM_HOSTS the hosts named in `hosts` (whose marks are set to 2 when
// found in the reservation), widened by RSV_RM_UNFLAGGED and RSV_RM_MARKED;
// RSV_RM_NUMPROCS a number of processors given by the request's range.
// Returns the number of slots removed, or -1 with qob_errno 311, 190, 317,
// 327, 330 or 55. Every check runs before a planner is touched, so a failure
// leaves the entry and the planners as they were (only marks stay set).
int RsvTimeTbl_modEntryWithRmHosts(RsvTimeTbl *tbl, RsvModReq *modReq, HashTab *hosts, int rmFlags)
{
    RsvEnt *ent = entryToChange(tbl, modReq, "RsvTimeTbl_modEntryWithRmHosts", LC_RSV, "%s: rsvId <%s>  not found");
    return ent ? rsv::removeHostsFromEntry(tbl, modReq, ent, hosts, rmFlags) : -1;
}

} // extern "C"
