// disabledbooking.cpp: disabling days of a recurring reservation that is
// booked: the entry's planners are brought in step with its new disabled
// days.
#include "rsv_internal.h"

extern "C" {

// As addDurationToDisabledList, with the entry's bookings taken out of every
// host's planners first and put back afterwards, so that dated planners
// leave the newly disabled days free. The planners are rebooked whatever the
// result. -1 with qob_errno 52 on a NULL argument or a one-off entry (rec
// stays the caller's, nothing changed).
int RsvTimeTbl_addDurationToDisabledList(RsvTimeTbl *tbl, RsvEnt *ent, RsvDisableDuration *rec)
{
    if (tbl == nullptr || ent == nullptr || rec == nullptr || !(ent->options & RSV_OPT_RECURRING)) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }

    const int recurring = ent->options & RSV_OPT_RECURRING;
    auto mapAll = [&](ResPlannerOp op) {
        for (int i = 0; i < ent->numHosts && ent->allocVector != nullptr; ++i) {
            const AllocElem &elem = ent->allocVector[i];
            List *planners = RsvTimeTbl_getPlannerList(tbl, elem.hostName);
            if (planners == nullptr)
                continue;
            ResPlannerList_map(planners, tbl, elem.hostName, ent->timeWindow, recurring, op, elem.numSlots, 0, ent);
        }
    };
    mapAll(ResPlannerEnt_decr);
    const int result = addDurationToDisabledList(ent, rec);
    const int savedErrno = qob_errno;
    mapAll(ResPlannerEnt_incr);
    qob_errno = savedErrno;
    return result;
}

} // extern "C"
