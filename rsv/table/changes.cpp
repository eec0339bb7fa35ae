// Combined changes: each call checks a change, applies it to the entry and
// the planners, and rewrites the state and id files, so that a daemon cannot
// forget a step. A failed change leaves the entry, the planners and the files
// exactly as they were.
#include <cstring>

#include "rsv_internal.h"
#include "table/change.h"

namespace {

constexpr int kCopiedModBits = 0x1000 | 0x2000 | 0x4000;

int failWith(int error)
{
    qob_errno = error;
    return -1;
}

// Begins a change of `ent`, keeping its fields. False (qob_errno 55) when
// that cannot be done; nothing has changed then.
bool beginChange(rsv::Change &change, RsvEnt *ent)
{
    if (change.started() && change.keepEntry(ent))
        return true;
    qob_errno = RSV_ERR_NO_MEMORY;
    return false;
}

// The error of a change that failed: out of memory when any allocation of
// the change failed on the way, whatever a step made of the shortage (a
// window text that could not be copied reads as a malformed window, a
// planner that could not be made as a host without free slots); else
// `error`. Also stored in qob_errno.
int changeError(const rsv::Change &change, int error)
{
    qob_errno = change.ranShort() ? RSV_ERR_NO_MEMORY : error;
    return qob_errno;
}

// Disables (or, with `enable`, enables) the days of every date text for the
// recurring reservation `rsvId`, in one change: every text is checked and
// applied in turn, and the first that fails undoes them all.
int changeDayList(RsvTimeTbl *tbl, const char *rsvId, const char *const *dateTexts, int count, int *failedIndex,
                  bool enable)
{
    if (failedIndex)
        *failedIndex = -1;
    if (!tbl || !rsvId || !dateTexts || count < 1)
        return failWith(RSV_ERR_BAD_ARGUMENT);
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, rsvId);
    if (!ent)
        return failWith(RSV_ERR_NO_SUCH_RSV);
    if (!(ent->options & RSV_OPT_RECURRING))
        return failWith(RSV_ERR_BAD_ARGUMENT);
    rsv::Change change(tbl);
    if (!beginChange(change, ent))
        return -1;
    for (int i = 0; i < count; ++i) {
        rsv::CPtr<RsvDisableDuration> rec(createRsvDisableDuration(dateTexts[i], 1));
        int status = rec ? 0 : -1;
        if (rec && enable) {
            status = rsv::enableDisabledDays(tbl, ent, *rec);
        } else if (rec) {
            status = RsvTimeTbl_addDurationToDisabledList(tbl, ent, rec.get());
            // The list took the duration, or freed one it already covers.
            if (status == 0 || qob_errno == RSV_ERR_DURATION_EXISTS)
                (void)rec.release();
        }
        if (status != 0) {
            if (failedIndex)
                *failedIndex = i;
            changeError(change, qob_errno);
            return -1;
        }
    }
    return change.finish() == RSV_OK ? 0 : -1;
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

    rsv::Change change(tbl);
    if (!beginChange(change, ent))
        return RSV_ERR_NO_MEMORY;
    // The window is built in a copy of the request, so that a rejected
    // change leaves the caller's request as it was.
    RsvModReq trial = *modReq;
    rsv::CPtr<char> modText(modReq->req.timeWindow ? rsv::dupText(modReq->req.timeWindow) : nullptr);
    if (modReq->req.timeWindow && !modText) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return RSV_ERR_NO_MEMORY;
    }
    trial.req.timeWindow = modText.release();
    int status = RsvMod_updateModReqTimeWindow(&trial, ent);
    rsv::CPtr<char> newWindow(trial.req.timeWindow);
    if (status != RSV_OK)
        return changeError(change, status);

    // A refused re-check has released some hosts; undoing the change books
    // them again exactly as they were.
    if (Rsv_chkupdRsv4NewTimeWindow(tbl, ent, newWindow.get(), 1) != 0)
        return changeError(change, qob_errno);

    trial.req.options |= RSV_MOD_TIMEWINDOW;
    RsvEnt_updateWithMod(ent, &trial);
    status = change.finish();
    if (status != RSV_OK)
        return status;
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
    rsv::Change change(tbl);
    if (!beginChange(change, ent))
        return -1;
    RsvModReq trial = *modReq;
    trial.req.timeWindow = ent->timeWindow;
    trial.req.options = (modReq->req.options & ~RSV_OPT_RECURRING) | (ent->options & RSV_OPT_RECURRING);
    if (RsvTimeTbl_modEntrywithAddHosts(tbl, &trial) != 0) {
        changeError(change, qob_errno);
        return -1;
    }
    return change.finish() == RSV_OK ? 0 : -1;
}

// Removes hosts or processors from the reservation (see
// RsvTimeTbl_modEntryWithRmHosts) and rewrites the files. Slots removed, or
// -1 with qob_errno.
int RsvTimeTbl_removeHosts(RsvTimeTbl *tbl, RsvModReq *modReq, HashTab *hosts, int rmFlags)
{
    RsvEnt *ent = tbl && modReq && modReq->rsvId ? RsvTimeTbl_getEntry(tbl, modReq->rsvId) : nullptr;
    if (!ent)
        return RsvTimeTbl_modEntryWithRmHosts(tbl, modReq, hosts, rmFlags) < 0 ? -1 : 0;
    rsv::Change change(tbl);
    if (!beginChange(change, ent))
        return -1;
    int removed = RsvTimeTbl_modEntryWithRmHosts(tbl, modReq, hosts, rmFlags);
    if (removed < 0) {
        changeError(change, qob_errno);
        return -1;
    }
    return change.finish() == RSV_OK ? removed : -1;
}

// Disables the days of `dateText` (a date or a range in the forms of
// qob_getdisableddates, none before today) for the recurring reservation
// `rsvId`, with the planners brought up to date and the files rewritten. 0,
// or -1 with qob_errno: 52 (NULL argument or a one-off reservation), 311
// (no such reservation), 35/320/334/55 (the date text), 325 (already
// disabled).
int RsvTimeTbl_disableDays(RsvTimeTbl *tbl, const char *rsvId, const char *dateText)
{
    return changeDayList(tbl, rsvId, &dateText, 1, nullptr, false);
}

int RsvTimeTbl_disableDayList(RsvTimeTbl *tbl, const char *rsvId, const char *const *dateTexts, int count,
                              int *failedIndex)
{
    return changeDayList(tbl, rsvId, dateTexts, count, failedIndex, false);
}

int RsvTimeTbl_enableDayList(RsvTimeTbl *tbl, const char *rsvId, const char *const *dateTexts, int count,
                             int *failedIndex)
{
    return changeDayList(tbl, rsvId, dateTexts, count, failedIndex, true);
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

    rsv::Change change(tbl);
    if (!beginChange(change, ent))
        return -1;
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
    return change.finish() == RSV_OK ? 0 : -1;
}

} // extern "C"
