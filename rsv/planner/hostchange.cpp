// Changing a reservation's hosts: growing it by hosts or processors, and
// giving back named hosts or a number of processors. The entry's allocation
// vector and the planners change together, so that afterwards the planners
// hold exactly the entry's new slots.
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

constexpr int kTraceBits = LC_RSV | LC_TRACE;

// Removal work record, one per element of the entry's vector.
constexpr unsigned kGone = 0x1;
struct RmWork {
    unsigned flags;
    int remaining;
    int removed;
};

const char *nameOrEmpty(const char *text)
{
    return text ? text : "";
}

void logCallocFailed(const char *fn)
{
    kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetShared, 1, "%s: %s() failed."), fn, "calloc");
}

// Frees the names of a vector that was never installed, then the vector.
void freeUnusedVector(AllocElem *vector, int count)
{
    if (!vector)
        return;
    for (int i = 0; i < count; ++i)
        free(vector[i].hostName);
    free(vector);
}

// Books or releases `numSlots` of the entry over `timeWindow` on one host.
void mapHost(RsvTimeTbl *tbl, const char *host, const char *timeWindow, int recurring, ResPlannerOp op, int numSlots,
             int keepNew, RsvEnt *ent)
{
    List *list = RsvTimeTbl_getPlannerList(tbl, host);
    ResPlannerList_map(list, tbl, host, timeWindow, recurring, op, numSlots, keepNew, ent);
}

// Whether an earlier element of `avail` that offers slots names the same host.
bool offeredEarlier(const ResAlloc *avail, int i)
{
    for (int k = 0; k < i; ++k)
        if (avail[k].numSlots != 0 && avail[k].hostName && std::strcmp(avail[k].hostName, avail[i].hostName) == 0)
            return true;
    return false;
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
    static const char *const fn = "RsvTimeTbl_modEntrywithAddHosts";
    if (rsv::logOn(kTraceBits))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", fn);
    if (!tbl || !modReq) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    RsvEnt *ent = modReq->rsvId ? RsvTimeTbl_getEntry(tbl, modReq->rsvId) : nullptr;
    if (!ent) {
        if (rsv::logOn(kTraceBits))
            kx_syslog(KX_LOG_DEBUG, "%s: reservation <%s> is not found", fn, nameOrEmpty(modReq->rsvId));
        qob_errno = RSV_ERR_NO_SUCH_RSV;
        return -1;
    }
    ResAlloc *availRaw = nullptr;
    int total = RsvTimeTbl_getReservableAlloc(tbl, &modReq->req, &availRaw, ent);
    // The names in the array are the request's own: only the array is freed.
    rsv::CPtr<ResAlloc> avail(availRaw);
    if (total == -1)
        return -1;
    if (total < modReq->req.minNumProcs) {
        qob_errno = RSV_ERR_NOT_ENOUGH_SLOTS;
        return -1;
    }
    int count = Rsv_reallocwithAddHosts(tbl, modReq->req.numAskedHosts, avail.get(), modReq, ent, "just_enough");
    if (count < 0)
        return -1;
    ent->numHosts = count;
    rsv::noteRecurringChange();
    return 0;
}

// Rebuilds the entry's vector with the offered slots of `avail` added, taking
// hosts in order until minNumProcs is met and never more than maxNumProcs:
// an existing host's old slots are released and booked again together with
// the new ones; untouched hosts are kept as they were. Returns the number of
// elements of the new vector (installed in the entry; the caller stores it in
// numHosts), or -1 with qob_errno 52 (NULL argument) or 55 (no memory), in
// which case nothing has changed. `mode` is accepted and ignored. A host
// named twice in `avail` offers its slots once.
int Rsv_reallocwithAddHosts(RsvTimeTbl *tbl, int numAvail, ResAlloc *avail, RsvModReq *modReq, RsvEnt *ent,
                            const char *mode)
{
    static const char *const fn = "Rsv_reallocwithAddHosts";
    (void)mode;
    if (rsv::logOn(kTraceBits))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", fn);
    if (!tbl || !modReq || !ent || (numAvail > 0 && !avail)) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    const int oldCount = (ent->allocVector && ent->numHosts > 0) ? ent->numHosts : 0;
    const int n = std::max(numAvail, 0);
    const char *timeWindow = modReq->req.timeWindow;
    const int recurring = modReq->req.options & RSV_OPT_RECURRING;

    // Everything is planned and allocated before a planner is touched, so
    // that running out of memory changes nothing. The work arrays come
    // first: when they cannot be had there is nothing to release.
    std::vector<int> slotsOffered;
    std::vector<int> existingAt;
    std::vector<int> bookedOn;
    try {
        slotsOffered.assign(static_cast<size_t>(n), 0);
        existingAt.assign(static_cast<size_t>(n), -1);
        bookedOn.assign(static_cast<size_t>(n), 0);
    } catch (const std::bad_alloc &) {
        rsv::noteAllocationFailure();
        qob_errno = RSV_ERR_NO_MEMORY;
        return -1;
    }
    rsv::CPtr<int> match;
    if (oldCount > 0) {
        match.reset(static_cast<int *>(rsv::allocRecord(oldCount, sizeof(int), fn)));
        if (!match) {
            qob_errno = RSV_ERR_NO_MEMORY;
            return -1;
        }
        std::fill(match.get(), match.get() + oldCount, -1);
    }

    // Counting pass: which offers are existing hosts, how many are new, and
    // how many slots are offered up to the point where minNumProcs is met.
    int visited = 0;
    int sum = 0;
    int newHosts = 0;
    for (int i = 0; i < n; ++i) {
        visited = i + 1;
        slotsOffered[i] = avail[i].hostName ? avail[i].numSlots : 0;
        if (slotsOffered[i] == 0)
            continue;
        if (offeredEarlier(avail, i)) {
            slotsOffered[i] = 0;
            continue;
        }
        for (int j = 0; j < oldCount; ++j) {
            const char *old = ent->allocVector[j].hostName;
            if (old && std::strcmp(old, avail[i].hostName) == 0) {
                existingAt[i] = j;
                match.get()[j] = i;
                break;
            }
        }
        if (existingAt[i] < 0)
            ++newHosts;
        sum += slotsOffered[i];
        if (sum >= modReq->req.minNumProcs)
            break;
    }
    const int target = std::min(modReq->req.maxNumProcs, sum);
    const int size = oldCount + newHosts;

    AllocElem *vector = nullptr;
    if (size > 0) {
        vector = static_cast<AllocElem *>(rsv::allocRecord(size, sizeof(AllocElem), fn));
        if (!vector) {
            qob_errno = RSV_ERR_NO_MEMORY;
            return -1;
        }
    }

    // Booking plan: hosts in order, each as far as it can, until the target.
    int k = 0;
    int booked = 0;
    if (n >= 1 && target >= 1) {
        for (int i = 0; i < visited && booked < target && k < size; ++i) {
            if (slotsOffered[i] == 0)
                continue;
            int amount = std::min(slotsOffered[i], target - booked);
            booked += amount;
            bookedOn[i] = amount;
            AllocElem &el = vector[k];
            el.hostName = rsv::dupText(avail[i].hostName);
            if (!el.hostName) {
                freeUnusedVector(vector, size);
                qob_errno = RSV_ERR_NO_MEMORY;
                return -1;
            }
            el.numSlots = amount;
            if (existingAt[i] >= 0) {
                const AllocElem &old = ent->allocVector[existingAt[i]];
                el.numSlots += old.numSlots;
                el.extra1 = old.extra1;
                el.extra2 = old.extra2;
            }
            ++k;
        }
    }
    const int numBooked = k;
    for (int j = 0; j < oldCount && k < size; ++j) {
        if (match.get()[j] != -1)
            continue;
        const AllocElem &old = ent->allocVector[j];
        AllocElem &el = vector[k++];
        el.hostName = old.hostName ? rsv::dupText(old.hostName) : nullptr;
        if (old.hostName && !el.hostName) {
            freeUnusedVector(vector, size);
            qob_errno = RSV_ERR_NO_MEMORY;
            return -1;
        }
        el.numSlots = old.numSlots;
        el.extra1 = old.extra1;
        el.extra2 = old.extra2;
    }

    // Commit: the offers as the booking left them, the existing hosts'
    // old slots released, the new elements booked.
    for (int i = 0; i < visited; ++i) {
        avail[i].extra1 = existingAt[i];
        if (slotsOffered[i] == 0 && avail[i].numSlots != 0)
            avail[i].numSlots = 0;
        else if (bookedOn[i] > 0)
            avail[i].numSlots = bookedOn[i];
        if (existingAt[i] >= 0) {
            const AllocElem &old = ent->allocVector[existingAt[i]];
            mapHost(tbl, old.hostName, timeWindow, recurring, ResPlannerEnt_decr, old.numSlots, 1, ent);
        }
    }
    for (int e = 0; e < numBooked; ++e)
        mapHost(tbl, vector[e].hostName, timeWindow, recurring, ResPlannerEnt_incr, vector[e].numSlots, 1, ent);

    RsvEnt_freeAllocVector(&ent->allocVector, ent->numHosts);
    ent->allocVector = vector;
    rsv::noteRecurringChange();
    return size;
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
    static const char *const fn = "RsvTimeTbl_modEntryWithRmHosts";
    if (rsv::logOn(kTraceBits))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", fn);
    if (!tbl || !modReq) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    const char *rsvId = nameOrEmpty(modReq->rsvId);
    RsvEnt *ent = modReq->rsvId ? RsvTimeTbl_getEntry(tbl, modReq->rsvId) : nullptr;
    if (!ent) {
        if (rsv::logOn(LC_RSV))
            kx_syslog(KX_LOG_DEBUG, "%s: rsvId <%s>  not found", fn, rsvId);
        qob_errno = RSV_ERR_NO_SUCH_RSV;
        return -1;
    }
    if (ent->numHosts < 1 || !ent->allocVector) {
        if (rsv::logOn(LC_RSV))
            kx_syslog(KX_LOG_DEBUG, "%s: rsvId <%s> has no allocation", fn, rsvId);
        qob_errno = RSV_ERR_NO_SUCH_RSV;
        return -1;
    }

    const bool byHosts = (rmFlags & RSV_RM_HOSTS) != 0;
    const bool byNumber = (rmFlags & RSV_RM_NUMPROCS) != 0;
    const bool takeUnflagged = (rmFlags & RSV_RM_UNFLAGGED) != 0;
    const bool takeMarked = (rmFlags & RSV_RM_MARKED) != 0;

    int minProcs = 0;
    int reserved = 0;
    int asked = 0;
    if (byNumber) {
        minProcs = modReq->req.minNumProcs;
        const int maxProcs = modReq->req.maxNumProcs;
        reserved = Rsv_getNumSlotsReserved(ent);
        if (minProcs > 0 && reserved < minProcs) {
            if (rsv::logOn(LC_RSV))
                kx_syslog(KX_LOG_DEBUG, "%s: rsvId <%s> has <%d> slots while requested to remove minNumProcs <%d>",
                          fn, rsvId, reserved, minProcs);
            qob_errno = RSV_ERR_NOT_ENOUGH_SLOTS;
            return -1;
        }
        asked = minProcs;
        if (maxProcs > 0) {
            asked = maxProcs;
            if (reserved < maxProcs) {
                asked = reserved;
                if (rsv::logOn(LC_RSV))
                    kx_syslog(KX_LOG_DEBUG,
                              "%s: rsvId <%s> has <%d> slots while requested to remove maxNumProcs <%d>", fn, rsvId,
                              reserved, maxProcs);
            }
        }
        if (rsv::logOn(LC_RSV))
            kx_syslog(KX_LOG_DEBUG, "%s: rsvId <%s> min <%d> max <%d> nRequested <%d> nReserved <%d>", fn, rsvId,
                      minProcs, maxProcs, asked, reserved);
    }

    const int count = ent->numHosts;
    rsv::CPtr<RmWork> work(static_cast<RmWork *>(rsv::allocRecord(count, sizeof(RmWork), fn)));
    if (!work) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return -1;
    }
    int left = asked;
    int removedHosts = 0;
    int used = 0;
    int slots = 0;
    bool busy = false;
    bool sawUnflagged = false;
    bool sawMarked = false;

    for (int j = 0; j < count; ++j) {
        AllocElem &el = ent->allocVector[j];
        RmWork &w = work.get()[j];
        w.flags = 0;
        w.remaining = el.numSlots;
        w.removed = 0;
        const char *host = nameOrEmpty(el.hostName);
        RsvHost *rec = el.hostName ? miscFuncs.findHost(el.hostName) : nullptr;
        if (!rec) {
            kx_syslog(KX_LOG_ERR,
                      kx_catgets(kx_catd, rsv::kCatSetRsv, 6101,
                                 "%s: host <%s> reserved by reservation <%s> no longer exists. Configuration "
                                 "changed?"),
                      fn, host, rsvId);
            continue;
        }
        if (byHosts) {
            HashEnt *named = hosts ? h_getEnt_(hosts, host) : nullptr;
            if (named && named->value)
                *static_cast<int *>(named->value) = 2;
            if (!(rec->status & RSV_HOST_STATUS_FLAGGED)) {
                sawUnflagged = true;
                if (!named && !takeUnflagged) {
                    if (rsv::logOn(LC_RSV))
                        kx_syslog(KX_LOG_DEBUG, "%s: skipping host <%s>, not requested", fn, host);
                    continue;
                }
            }
            if (rec->attr & RSV_HOST_ATTR_MARKED) {
                sawMarked = true;
                if (!named && !takeMarked) {
                    if (rsv::logOn(LC_RSV))
                        kx_syslog(KX_LOG_DEBUG, "%s: skipping host <%s>, not requested", fn, host);
                    continue;
                }
            }
        }
        if (byNumber && left <= 0)
            continue;
        bool changed = false;
        if (!byHosts || byNumber) {
            if (left > 0) {
                changed = true;
                const int freeSlots = el.numSlots - el.extra1 - el.extra2;
                used += el.extra1 + el.extra2;
                slots += el.numSlots;
                if (freeSlots > 0) {
                    const int t = std::min(left, freeSlots);
                    w.remaining -= t;
                    w.removed = t;
                    left -= t;
                }
            }
        } else {
            changed = true;
            if (el.extra1 < 1 && el.extra2 < 1) {
                const int t = el.numSlots - el.extra1 - el.extra2;
                if (t > 0) {
                    w.remaining -= t;
                    w.removed = t;
                    left -= t; // goes negative: counts the slots removed
                }
            } else {
                busy = true;
            }
        }
        if (changed && w.remaining < 1) {
            w.flags |= kGone;
            ++removedHosts;
        }
    }

    if (byHosts) {
        if (Rsv_rmHosts_checkHostsInRsv(hosts) < 0 || (takeMarked && !sawMarked) ||
            (takeUnflagged && !sawUnflagged)) {
            qob_errno = RSV_ERR_HOST_NOT_IN_RSV;
            return -1;
        }
        if (!byNumber) {
            if (takeUnflagged && takeMarked) {
                qob_errno = RSV_ERR_NOTHING_LEFT;
                return -1;
            }
            if (busy) {
                qob_errno = RSV_ERR_HOST_IN_USE;
                return -1;
            }
            if (removedHosts == 0) {
                qob_errno = RSV_ERR_HOST_NOT_IN_RSV;
                return -1;
            }
        }
    }
    int done = 0;
    if (byNumber) {
        done = asked - left;
        if (used > 0 && asked <= slots && (done == 0 || done < asked)) {
            qob_errno = RSV_ERR_HOST_IN_USE;
            return -1;
        }
        if (done < 1 || (left > 0 && minProcs > 0 && done < minProcs)) {
            if (rsv::logOn(LC_RSV))
                kx_syslog(KX_LOG_DEBUG, "%s: Not enough processors", fn);
            qob_errno = RSV_ERR_NOT_ENOUGH_SLOTS;
            return -1;
        }
        if (reserved <= done) {
            qob_errno = RSV_ERR_NOTHING_LEFT;
            return -1;
        }
    }
    const int newCount = count - removedHosts;
    if (newCount < 1) {
        qob_errno = RSV_ERR_NOTHING_LEFT;
        return -1;
    }

    // The new vector and its names are made before any slot is released, so
    // that running out of memory still leaves the planners untouched.
    auto *vector = static_cast<AllocElem *>(rsv::allocRecord(newCount, sizeof(AllocElem), fn));
    if (!vector) {
        logCallocFailed(fn);
        return -1;
    }
    int k = 0;
    for (int j = 0; j < count; ++j) {
        const AllocElem &el = ent->allocVector[j];
        if (work.get()[j].flags & kGone)
            continue;
        AllocElem &out = vector[k++];
        out.hostName = el.hostName ? rsv::dupText(el.hostName) : nullptr;
        if (el.hostName && !out.hostName) {
            logCallocFailed(fn);
            freeUnusedVector(vector, newCount);
            return -1;
        }
        out.numSlots = work.get()[j].remaining;
        out.extra1 = el.extra1;
        out.extra2 = el.extra2;
    }
    const int recurring = ent->options & RSV_OPT_RECURRING;
    for (int j = 0; j < count; ++j) {
        const AllocElem &el = ent->allocVector[j];
        if (work.get()[j].removed > 0)
            mapHost(tbl, el.hostName, ent->timeWindow, recurring, ResPlannerEnt_decr, work.get()[j].removed, 0, ent);
    }
    RsvEnt_freeAllocVector(&ent->allocVector, ent->numHosts);
    ent->allocVector = vector;
    ent->numHosts = newCount;
    rsv::noteRecurringChange();
    return byNumber ? done : -left;
}

// 0 when at least one host named in `hosts` was found in the reservation
// (its mark is 2), or when the table is NULL or empty; -1 when not one was.
// The walk stops at the first entry without a mark.
int Rsv_rmHosts_checkHostsInRsv(HashTab *hosts)
{
    static const char *const fn = "Rsv_rmHosts_checkHostsInRsv";
    if (rsv::logOn(kTraceBits))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", fn);
    if (!hosts || h_TabEmpty_(hosts)) {
        if (rsv::logOn(kTraceBits))
            kx_syslog(KX_LOG_DEBUG, "%s: empty task tab", fn);
        return 0;
    }
    int notFound = 0;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(hosts, &iter); he; he = h_nextEnt_(&iter)) {
        if (!he->value)
            break;
        if (*static_cast<int *>(he->value) != 2)
            ++notFound;
    }
    return notFound == h_numEnts_(hosts) ? -1 : 0;
}

// The slots the reservation holds on all its hosts; 0 for NULL or no hosts.
int Rsv_getNumSlotsReserved(const RsvEnt *ent)
{
    if (!ent || !ent->allocVector)
        return 0;
    int sum = 0;
    for (int i = 0; i < ent->numHosts; ++i)
        sum += ent->allocVector[i].numSlots;
    return sum;
}

} // extern "C"
