// disabledbooking.cpp: disabling days of a recurring reservation that is
// booked: the entry's planners are brought in step with its new disabled
// days.
#include "rsv_internal.h"

namespace {

// Apply `op` with each host's slots over the entry's window to its planners.
void mapEntry(RsvTimeTbl *tbl, RsvEnt *ent, ResPlannerOp op)
{
    const int recurring = ent->options & RSV_OPT_RECURRING;
    for (int i = 0; i < ent->numHosts && ent->allocVector != nullptr; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        List *planners = RsvTimeTbl_getPlannerList(tbl, elem.hostName);
        if (planners == nullptr)
            continue;
        ResPlannerList_map(planners, tbl, elem.hostName, ent->timeWindow, recurring, op, elem.numSlots, 0, ent);
    }
}

} // namespace

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

    mapEntry(tbl, ent, ResPlannerEnt_decr);
    const int result = addDurationToDisabledList(ent, rec);
    const int savedErrno = qob_errno;
    mapEntry(tbl, ent, ResPlannerEnt_incr);
    qob_errno = savedErrno;
    return result;
}

} // extern "C"

namespace rsv {

int enableDisabledDays(RsvTimeTbl *tbl, RsvEnt *ent, const RsvDisableDuration &rec) noexcept
{
    if (tbl == nullptr || ent == nullptr || !(ent->options & RSV_OPT_RECURRING)) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    mapEntry(tbl, ent, ResPlannerEnt_decr);
    const int removed = removeDisabledDays(ent, rec);
    if (removed <= 0) {
        mapEntry(tbl, ent, ResPlannerEnt_incr);
        qob_errno = removed == 0 ? RSV_ERR_NOT_DISABLED : RSV_ERR_NO_MEMORY;
        return -1;
    }
    // The enabled days book the entry's cells again: each host must have
    // its slots free there, as a new booking would.
    for (int i = 0; i < ent->numHosts && ent->allocVector != nullptr; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        if (elem.hostName == nullptr || elem.numSlots <= 0)
            continue;
        if (Rsv_getMaxAvailonHost(tbl, elem.hostName, ent->timeWindow, 1, ent) < elem.numSlots) {
            qob_errno = RSV_ERR_NOT_ENOUGH_SLOTS;
            return -1;
        }
    }
    mapEntry(tbl, ent, ResPlannerEnt_incr);
    return 0;
}

} // namespace rsv
