// Combined changes: each call checks a change, applies it to the entry and
// the planners, and rewrites the state and id files, so that a daemon cannot
// forget a step. A failed change leaves the entry, the planners and the files
// exactly as they were.
#include <cstring>

#include "rsv_internal.h"

namespace {

constexpr int kCopiedModBits = 0x1000 | 0x2000 | 0x4000;

int failWith(int error)
{
    qob_errno = error;
    return -1;
}

// Books (or releases) every host of the entry over `timeWindow`.
void mapHosts(RsvTimeTbl *tbl, RsvEnt *ent, const char *timeWindow, ResPlannerOp op, int keepNew, int upTo)
{
    const int recurring = ent->options & RSV_OPT_RECURRING;
    for (int i = 0; i < upTo; ++i) {
        const AllocElem &el = ent->allocVector[i];
        if (!el.hostName)
            continue;
        List *list = RsvTimeTbl_getPlannerList(tbl, el.hostName);
        ResPlannerList_map(list, tbl, el.hostName, timeWindow, recurring, op, el.numSlots, keepNew, ent);
    }
}

int numElements(const RsvEnt *ent)
{
    return ent->allocVector && ent->numHosts > 0 ? ent->numHosts : 0;
}

// The re-check of a new window stops at the first host that cannot hold its
// slots, after releasing that host and every one before it, and leaves the
// later hosts booked. This finds that host the same way (the hosts released
// so far do not change what another host has free), so that exactly the
// released ones are booked again. Returns the number of released hosts.
int hostsReleasedByFailedCheck(RsvTimeTbl *tbl, RsvEnt *ent, const char *newWindow)
{
    const int count = numElements(ent);
    const int recurring = ent->options & RSV_OPT_RECURRING;
    for (int i = 0; i < count; ++i) {
        const AllocElem &el = ent->allocVector[i];
        const RsvHost *host = el.hostName ? miscFuncs.findHost(el.hostName) : nullptr;
        if (!host)
            return i + 1;
        int used = 0;
        List *list = RsvTimeTbl_getPlannerList(tbl, el.hostName);
        ResPlannerList_map(list, tbl, el.hostName, newWindow, recurring, ResPlannerEnt_getMaxRsv,
                           static_cast<int64_t>(reinterpret_cast<intptr_t>(&used)), 0, ent);
        if (used != 0 && (ent->options & RSV_OPT_SYSTEM))
            return i + 1;
        if (static_cast<int64_t>(host->maxSlots) - used < el.numSlots)
            return i + 1;
    }
    return count;
}

} // namespace

extern "C" {

// Moves the reservation `modReq->rsvId` to the window that the modification
// text "start&end" in modReq->req.timeWindow makes of its current one, if
// the new window is acceptable and every host can hold its slots over it.
// 0 (entry, planners and files changed; the request's timeWindow now holds
// the complete new window), or an error number, also stored in qob_errno:
// 52, 311, the window check's 36/247/248/323/385, the re-check's 23/190, or
// 55. On failure nothing has changed, the request included.
int RsvTimeTbl_modifyTimeWindow(RsvTimeTbl *tbl, RsvModReq *modReq)
{
    if (!tbl || !modReq) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return RSV_ERR_BAD_ARGUMENT;
    }
    RsvEnt *ent = modReq->rsvId ? RsvTimeTbl_getEntry(tbl, modReq->rsvId) : nullptr;
    if (!ent) {
        qob_errno = RSV_ERR_NO_SUCH_RSV;
        return RSV_ERR_NO_SUCH_RSV;
    }

    // The window is built in a copy of the request, so that a rejected
    // change leaves the caller's request as it was.
    RsvModReq trial = *modReq;
    rsv::CPtr<char> modText(modReq->req.timeWindow ? miscFuncs.dupString(modReq->req.timeWindow) : nullptr);
    if (modReq->req.timeWindow && !modText) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return RSV_ERR_NO_MEMORY;
    }
    trial.req.timeWindow = modText.release();
    int status = RsvMod_updateModReqTimeWindow(&trial, ent);
    rsv::CPtr<char> newWindow(trial.req.timeWindow);
    if (status != RSV_OK) {
        qob_errno = status;
        return status;
    }

    if (Rsv_chkupdRsv4NewTimeWindow(tbl, ent, newWindow.get(), 1) != 0) {
        status = qob_errno;
        mapHosts(tbl, ent, ent->timeWindow, ResPlannerEnt_incr, 1,
                 hostsReleasedByFailedCheck(tbl, ent, newWindow.get()));
        qob_errno = status;
        return status;
    }

    trial.req.options |= RSV_MOD_TIMEWINDOW;
    // The new text is copied before the old one is freed, so an unchanged
    // address means the entry kept its window.
    const auto oldWindow = reinterpret_cast<uintptr_t>(ent->timeWindow);
    RsvEnt_updateWithMod(ent, &trial);
    if (reinterpret_cast<uintptr_t>(ent->timeWindow) == oldWindow) {
        // The entry kept its window (no memory for the copy): move the
        // booking back to it.
        mapHosts(tbl, ent, newWindow.get(), ResPlannerEnt_decr, 0, numElements(ent));
        mapHosts(tbl, ent, ent->timeWindow, ResPlannerEnt_incr, 1, numElements(ent));
        qob_errno = RSV_ERR_NO_MEMORY;
        return RSV_ERR_NO_MEMORY;
    }
    RsvTimeTbl_logStat(tbl);
    free(modReq->req.timeWindow);
    modReq->req.timeWindow = newWindow.release();
    return RSV_OK;
}

// Adds the request's hosts or processors to the reservation `modReq->rsvId`
// over the reservation's own window, and rewrites the files. 0, or -1 with
// qob_errno (see RsvTimeTbl_modEntrywithAddHosts). Asked host names in the
// request are replaced by official names, also on failure.
int RsvTimeTbl_addHosts(RsvTimeTbl *tbl, RsvModReq *modReq)
{
    if (!tbl || !modReq)
        return failWith(RSV_ERR_BAD_ARGUMENT);
    RsvEnt *ent = modReq->rsvId ? RsvTimeTbl_getEntry(tbl, modReq->rsvId) : nullptr;
    if (!ent)
        return RsvTimeTbl_modEntrywithAddHosts(tbl, modReq);
    // The slots are booked over the request's window: it must be the
    // reservation's own, whatever the daemon put there. The asked hosts stay
    // shared, so official names land in the caller's request.
    RsvModReq trial = *modReq;
    trial.req.timeWindow = ent->timeWindow;
    trial.req.options = (modReq->req.options & ~RSV_OPT_RECURRING) | (ent->options & RSV_OPT_RECURRING);
    if (RsvTimeTbl_modEntrywithAddHosts(tbl, &trial) != 0)
        return -1;
    RsvTimeTbl_logStat(tbl);
    return 0;
}

// Removes hosts or processors from the reservation (see
// RsvTimeTbl_modEntryWithRmHosts) and rewrites the files. Slots removed, or
// -1 with qob_errno.
int RsvTimeTbl_removeHosts(RsvTimeTbl *tbl, RsvModReq *modReq, HashTab *hosts, int rmFlags)
{
    int removed = RsvTimeTbl_modEntryWithRmHosts(tbl, modReq, hosts, rmFlags);
    if (removed < 0)
        return -1;
    RsvTimeTbl_logStat(tbl);
    return removed;
}

// Disables the days of `dateText` (a date or a range in the forms of
// qob_getdisableddates, none before today) for the recurring reservation
// `rsvId`, with the planners brought up to date and the files rewritten. 0,
// or -1 with qob_errno: 52 (NULL argument or a one-off reservation), 311
// (no such reservation), 35/320/334/55 (the date text), 325 (already
// disabled).
int RsvTimeTbl_disableDays(RsvTimeTbl *tbl, const char *rsvId, const char *dateText)
{
    if (!tbl || !rsvId)
        return failWith(RSV_ERR_BAD_ARGUMENT);
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, rsvId);
    if (!ent)
        return failWith(RSV_ERR_NO_SUCH_RSV);
    if (!(ent->options & RSV_OPT_RECURRING))
        return failWith(RSV_ERR_BAD_ARGUMENT);
    RsvDisableDuration *rec = createRsvDisableDuration(dateText, 1);
    if (!rec)
        return -1;
    if (RsvTimeTbl_addDurationToDisabledList(tbl, ent, rec) != 0) {
        // A duration already covered is released by the list; any other
        // refusal leaves it with us.
        if (qob_errno != RSV_ERR_DURATION_EXISTS)
            free(rec);
        return -1;
    }
    RsvTimeTbl_logStat(tbl);
    return 0;
}

// Replaces the description of the reservation `rsvId` (NULL or "" removes
// it) and rewrites the files; no other field or option bit changes. 0, or -1
// with qob_errno 52 (NULL table or identifier), 311 (no such reservation) or
// 55 (no memory; entry unchanged).
int RsvTimeTbl_setDescription(RsvTimeTbl *tbl, const char *rsvId, const char *description)
{
    if (!tbl || !rsvId)
        return failWith(RSV_ERR_BAD_ARGUMENT);
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, rsvId);
    if (!ent)
        return failWith(RSV_ERR_NO_SUCH_RSV);
    const bool removing = !description || description[0] == '\0';

    RsvModReq mod{};
    mod.rsvId = ent->rsvId;
    mod.req.options = RSV_MOD_DESCRIPTION | (ent->options & kCopiedModBits);
    mod.req.description = removing ? nullptr : const_cast<char *>(description);
    const int savedOptions = ent->options;
    const auto oldDescription = reinterpret_cast<uintptr_t>(ent->description);
    RsvEnt_updateWithMod(ent, &mod);
    // A description change is no change of owner, window or run flag: the
    // marks of the last such change stay as they were.
    ent->options = savedOptions;
    if (!removing && reinterpret_cast<uintptr_t>(ent->description) == oldDescription)
        return failWith(RSV_ERR_NO_MEMORY);
    RsvTimeTbl_logStat(tbl);
    return 0;
}

} // extern "C"
