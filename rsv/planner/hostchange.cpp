// Changing a reservation's hosts: growing it by hosts or processors, and
// giving back named hosts or a number of processors. The entry's allocation
// vector and the planners change together, so that afterwards the planners
// hold exactly the entry's new slots. The entry is found by the table layer
// (table/hostchanges.cpp); the steps here take it as an argument.
#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

constexpr int kTraceBits = LC_RSV | LC_TRACE;

// The names under which the two changes log and allocate: the daemon's logs
// and the allocator's caller tags have always read so.
constexpr const char *kAddFn = "Rsv_reallocwithAddHosts";
constexpr const char *kRmFn = "RsvTimeTbl_modEntryWithRmHosts";

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

// Replaces the entry's vector by `vector` (the old one and its names freed).
void installVector(RsvEnt *ent, AllocElem *vector)
{
    RsvEnt_freeAllocVector(&ent->allocVector, ent->numHosts);
    ent->allocVector = vector;
}

// ---------------------------------------------------------------- adding

// Whether an earlier element of `avail` that offers slots names the same host.
bool offeredEarlier(const ResAlloc *avail, int i)
{
    for (int k = 0; k < i; ++k)
        if (avail[k].numSlots != 0 && avail[k].hostName && std::strcmp(avail[k].hostName, avail[i].hostName) == 0)
            return true;
    return false;
}

// The element of the entry's first `oldCount` that holds `host`, or -1.
int heldAt(const RsvEnt *ent, int oldCount, const char *host)
{
    for (int j = 0; j < oldCount; ++j) {
        const char *old = ent->allocVector[j].hostName;
        if (old && std::strcmp(old, host) == 0)
            return j;
    }
    return -1;
}

// What growing a reservation works out before any planner is touched.
struct AddPlan {
    std::vector<int> slotsOffered; // per offer: what it brings (0: nothing, or its host offered earlier)
    std::vector<int> existingAt;   // per offer: the element already holding its host, or -1
    std::vector<int> bookedOn;     // per offer: the slots booked on it
    rsv::CPtr<int> match;          // per old element: the offer naming its host, or -1
    int visited = 0;               // offers looked at before minNumProcs was met
    int sum = 0;                   // slots those offers bring
    int newHosts = 0;              // hosts among them that the entry does not hold yet
};

// The work arrays, before anything else: when they cannot be had there is
// nothing to release. False with qob_errno 55.
bool startAddPlan(AddPlan &plan, int n, int oldCount)
{
    try {
        plan.slotsOffered.assign(static_cast<size_t>(n), 0);
        plan.existingAt.assign(static_cast<size_t>(n), -1);
        plan.bookedOn.assign(static_cast<size_t>(n), 0);
    } catch (const std::bad_alloc &) {
        rsv::noteAllocationFailure();
        qob_errno = RSV_ERR_NO_MEMORY;
        return false;
    }
    if (oldCount > 0) {
        plan.match.reset(static_cast<int *>(rsv::allocRecord(oldCount, sizeof(int), kAddFn)));
        if (!plan.match) {
            qob_errno = RSV_ERR_NO_MEMORY;
            return false;
        }
        std::fill(plan.match.get(), plan.match.get() + oldCount, -1);
    }
    return true;
}

// Counting pass: which offers are existing hosts, how many are new, and how
// many slots are offered up to the point where minNumProcs is met.
void countOffers(AddPlan &plan, const ResAlloc *avail, int n, const RsvEnt *ent, int oldCount, int minNumProcs)
{
    for (int i = 0; i < n; ++i) {
        plan.visited = i + 1;
        plan.slotsOffered[i] = avail[i].hostName ? avail[i].numSlots : 0;
        if (plan.slotsOffered[i] == 0)
            continue;
        if (offeredEarlier(avail, i)) {
            plan.slotsOffered[i] = 0;
            continue;
        }
        const int j = heldAt(ent, oldCount, avail[i].hostName);
        if (j >= 0) {
            plan.existingAt[i] = j;
            plan.match.get()[j] = i;
        } else {
            ++plan.newHosts;
        }
        plan.sum += plan.slotsOffered[i];
        if (plan.sum >= minNumProcs)
            break;
    }
}

// Booking plan: hosts in order, each as far as it can, until the target; a
// host the entry holds already keeps its old slots on top. Fills `vector`
// from its start and returns how many elements it filled, or -1 with
// qob_errno 55 (the vector is then freed).
int planBookings(AddPlan &plan, AllocElem *vector, int size, const ResAlloc *avail, const RsvEnt *ent, int n,
                 int target)
{
    int k = 0;
    int booked = 0;
    if (n < 1 || target < 1)
        return 0;
    for (int i = 0; i < plan.visited && booked < target && k < size; ++i) {
        if (plan.slotsOffered[i] == 0)
            continue;
        int amount = std::min(plan.slotsOffered[i], target - booked);
        booked += amount;
        plan.bookedOn[i] = amount;
        AllocElem &el = vector[k];
        el.hostName = rsv::dupText(avail[i].hostName);
        if (!el.hostName) {
            freeUnusedVector(vector, size);
            qob_errno = RSV_ERR_NO_MEMORY;
            return -1;
        }
        el.numSlots = amount;
        if (plan.existingAt[i] >= 0) {
            const AllocElem &old = ent->allocVector[plan.existingAt[i]];
            el.numSlots += old.numSlots;
            el.extra1 = old.extra1;
            el.extra2 = old.extra2;
        }
        ++k;
    }
    return k;
}

// The old elements no offer named, copied after the booked ones from
// element `k` on. False with qob_errno 55 (the vector is then freed).
bool copyUntouched(AllocElem *vector, int size, int k, const AddPlan &plan, const RsvEnt *ent, int oldCount)
{
    for (int j = 0; j < oldCount && k < size; ++j) {
        if (plan.match.get()[j] != -1)
            continue;
        const AllocElem &old = ent->allocVector[j];
        AllocElem &el = vector[k++];
        el.hostName = old.hostName ? rsv::dupText(old.hostName) : nullptr;
        if (old.hostName && !el.hostName) {
            freeUnusedVector(vector, size);
            qob_errno = RSV_ERR_NO_MEMORY;
            return false;
        }
        el.numSlots = old.numSlots;
        el.extra1 = old.extra1;
        el.extra2 = old.extra2;
    }
    return true;
}

// Commit: the offers as the booking left them, the existing hosts' old slots
// released, the first `numBooked` elements of the new vector booked.
void commitBookings(RsvTimeTbl *tbl, ResAlloc *avail, const AddPlan &plan, const AllocElem *vector, int numBooked,
                    RsvEnt *ent, const char *timeWindow, int recurring)
{
    for (int i = 0; i < plan.visited; ++i) {
        avail[i].extra1 = plan.existingAt[i];
        if (plan.slotsOffered[i] == 0 && avail[i].numSlots != 0)
            avail[i].numSlots = 0;
        else if (plan.bookedOn[i] > 0)
            avail[i].numSlots = plan.bookedOn[i];
        if (plan.existingAt[i] >= 0) {
            const AllocElem &old = ent->allocVector[plan.existingAt[i]];
            mapHost(tbl, old.hostName, timeWindow, recurring, ResPlannerEnt_decr, old.numSlots, 1, ent);
        }
    }
    for (int e = 0; e < numBooked; ++e)
        mapHost(tbl, vector[e].hostName, timeWindow, recurring, ResPlannerEnt_incr, vector[e].numSlots, 1, ent);
}

// ---------------------------------------------------------------- removing

// Removal work record, one per element of the entry's vector.
constexpr unsigned kGone = 0x1;
struct RmWork {
    unsigned flags;
    int remaining;
    int removed;
};

// What a removal asks for, from its flags and (by number) its range.
struct RmAsk {
    const char *rsvId = "";
    bool byHosts = false;
    bool byNumber = false;
    bool takeUnflagged = false;
    bool takeMarked = false;
    int minProcs = 0;
    int reserved = 0;
    int asked = 0;
};

// What the walk over the entry's elements found.
struct RmTally {
    int left = 0;          // by number: still to remove; by hosts: minus the slots removed
    int removedHosts = 0;  // elements left without slots
    int used = 0;          // by number: slots held by jobs on the elements looked at
    int slots = 0;         // by number: slots of the elements looked at
    bool busy = false;     // by hosts: a chosen host is held by jobs
    bool sawUnflagged = false;
    bool sawMarked = false;
};

// The reading of rmFlags.
RmAsk readRemovalFlags(const char *rsvId, int rmFlags)
{
    RmAsk ask;
    ask.rsvId = rsvId;
    ask.byHosts = (rmFlags & RSV_RM_HOSTS) != 0;
    ask.byNumber = (rmFlags & RSV_RM_NUMPROCS) != 0;
    ask.takeUnflagged = (rmFlags & RSV_RM_UNFLAGGED) != 0;
    ask.takeMarked = (rmFlags & RSV_RM_MARKED) != 0;
    return ask;
}

// By number: how many processors to take, from the request's range and the
// reservation's slots. False with qob_errno 190 when the reservation holds
// fewer than the minimum.
bool sizeRemovalByNumber(RmAsk &ask, const RsvReq &req, const RsvEnt *ent)
{
    ask.minProcs = req.minNumProcs;
    const int maxProcs = req.maxNumProcs;
    ask.reserved = Rsv_getNumSlotsReserved(ent);
    if (ask.minProcs > 0 && ask.reserved < ask.minProcs) {
        if (rsv::logOn(LC_RSV))
            kx_syslog(KX_LOG_DEBUG, "%s: rsvId <%s> has <%d> slots while requested to remove minNumProcs <%d>",
                      kRmFn, ask.rsvId, ask.reserved, ask.minProcs);
        qob_errno = RSV_ERR_NOT_ENOUGH_SLOTS;
        return false;
    }
    ask.asked = ask.minProcs;
    if (maxProcs > 0) {
        ask.asked = maxProcs;
        if (ask.reserved < maxProcs) {
            ask.asked = ask.reserved;
            if (rsv::logOn(LC_RSV))
                kx_syslog(KX_LOG_DEBUG, "%s: rsvId <%s> has <%d> slots while requested to remove maxNumProcs <%d>",
                          kRmFn, ask.rsvId, ask.reserved, maxProcs);
        }
    }
    if (rsv::logOn(LC_RSV))
        kx_syslog(KX_LOG_DEBUG, "%s: rsvId <%s> min <%d> max <%d> nRequested <%d> nReserved <%d>", kRmFn, ask.rsvId,
                  ask.minProcs, maxProcs, ask.asked, ask.reserved);
    return true;
}

// By hosts: whether the element's host is chosen. A host named in `hosts`
// gets its mark set to 2; an unflagged or marked host is taken only when
// named or when its selection asks for it; any other host always is.
bool chosenByHosts(const char *host, const RsvHost *rec, const RmAsk &ask, RmTally &tally, HashTab *hosts)
{
    HashEnt *named = hosts ? h_getEnt_(hosts, host) : nullptr;
    if (named && named->value)
        *static_cast<int *>(named->value) = 2;
    if (!(rec->status & RSV_HOST_STATUS_FLAGGED)) {
        tally.sawUnflagged = true;
        if (!named && !ask.takeUnflagged) {
            if (rsv::logOn(LC_RSV))
                kx_syslog(KX_LOG_DEBUG, "%s: skipping host <%s>, not requested", kRmFn, host);
            return false;
        }
    }
    if (rec->attr & RSV_HOST_ATTR_MARKED) {
        tally.sawMarked = true;
        if (!named && !ask.takeMarked) {
            if (rsv::logOn(LC_RSV))
                kx_syslog(KX_LOG_DEBUG, "%s: skipping host <%s>, not requested", kRmFn, host);
            return false;
        }
    }
    return true;
}

// Takes what the removal wants of one chosen element into its work record:
// by number, its free slots up to what is still to remove; by hosts alone,
// all of them unless jobs hold some. Whether the element was looked at.
bool takeSlots(const AllocElem &el, RmWork &w, const RmAsk &ask, RmTally &tally)
{
    if (!ask.byHosts || ask.byNumber) {
        if (tally.left <= 0)
            return false;
        const int freeSlots = el.numSlots - el.extra1 - el.extra2;
        tally.used += el.extra1 + el.extra2;
        tally.slots += el.numSlots;
        if (freeSlots > 0) {
            const int t = std::min(tally.left, freeSlots);
            w.remaining -= t;
            w.removed = t;
            tally.left -= t;
        }
        return true;
    }
    if (el.extra1 < 1 && el.extra2 < 1) {
        const int t = el.numSlots - el.extra1 - el.extra2;
        if (t > 0) {
            w.remaining -= t;
            w.removed = t;
            tally.left -= t; // goes negative: counts the slots removed
        }
    } else {
        tally.busy = true;
    }
    return true;
}

// One element of the walk: its work record, whether its host still exists
// and is chosen, and what is taken of it.
void planElementRemoval(const AllocElem &el, RmWork &w, const RmAsk &ask, RmTally &tally, HashTab *hosts)
{
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
                  kRmFn, host, ask.rsvId);
        return;
    }
    if (ask.byHosts && !chosenByHosts(host, rec, ask, tally, hosts))
        return;
    if (ask.byNumber && tally.left <= 0)
        return;
    if (takeSlots(el, w, ask, tally) && w.remaining < 1) {
        w.flags |= kGone;
        ++tally.removedHosts;
    }
}

// By hosts: the error of a selection that finds nothing to remove, or 0.
int hostsRemovalError(const RmAsk &ask, const RmTally &tally, HashTab *hosts)
{
    if (Rsv_rmHosts_checkHostsInRsv(hosts) < 0 || (ask.takeMarked && !tally.sawMarked) ||
        (ask.takeUnflagged && !tally.sawUnflagged))
        return RSV_ERR_HOST_NOT_IN_RSV;
    if (ask.byNumber)
        return 0;
    if (ask.takeUnflagged && ask.takeMarked)
        return RSV_ERR_NOTHING_LEFT;
    if (tally.busy)
        return RSV_ERR_HOST_IN_USE;
    if (tally.removedHosts == 0)
        return RSV_ERR_HOST_NOT_IN_RSV;
    return 0;
}

// By number: the error of a removal that cannot take what was asked, or 0;
// `done` is what it takes.
int numberRemovalError(const RmAsk &ask, const RmTally &tally, int done)
{
    if (tally.used > 0 && ask.asked <= tally.slots && (done == 0 || done < ask.asked))
        return RSV_ERR_HOST_IN_USE;
    if (done < 1 || (tally.left > 0 && ask.minProcs > 0 && done < ask.minProcs)) {
        if (rsv::logOn(LC_RSV))
            kx_syslog(KX_LOG_DEBUG, "%s: Not enough processors", kRmFn);
        return RSV_ERR_NOT_ENOUGH_SLOTS;
    }
    if (ask.reserved <= done)
        return RSV_ERR_NOTHING_LEFT;
    return 0;
}

// The error of the planned removal as a whole, or 0.
int removalError(const RmAsk &ask, const RmTally &tally, HashTab *hosts, int count)
{
    if (ask.byHosts) {
        if (int error = hostsRemovalError(ask, tally, hosts))
            return error;
    }
    if (ask.byNumber) {
        if (int error = numberRemovalError(ask, tally, ask.asked - tally.left))
            return error;
    }
    return count - tally.removedHosts < 1 ? RSV_ERR_NOTHING_LEFT : 0;
}

// The new vector, made before any slot is released so that running out of
// memory still leaves the planners untouched: every element not gone, with
// its remaining slots. NULL (logged, qob_errno left alone) when it cannot be
// made.
AllocElem *keptElements(const RsvEnt *ent, const RmWork *work, int newCount)
{
    auto *vector = static_cast<AllocElem *>(rsv::allocRecord(newCount, sizeof(AllocElem), kRmFn));
    if (!vector) {
        logCallocFailed(kRmFn);
        return nullptr;
    }
    int k = 0;
    for (int j = 0; j < ent->numHosts; ++j) {
        const AllocElem &el = ent->allocVector[j];
        if (work[j].flags & kGone)
            continue;
        AllocElem &out = vector[k++];
        out.hostName = el.hostName ? rsv::dupText(el.hostName) : nullptr;
        if (el.hostName && !out.hostName) {
            logCallocFailed(kRmFn);
            freeUnusedVector(vector, newCount);
            return nullptr;
        }
        out.numSlots = work[j].remaining;
        out.extra1 = el.extra1;
        out.extra2 = el.extra2;
    }
    return vector;
}

// Gives back on each host the slots the walk took of it.
void releaseRemovedSlots(RsvTimeTbl *tbl, RsvEnt *ent, const RmWork *work)
{
    const int recurring = ent->options & RSV_OPT_RECURRING;
    for (int j = 0; j < ent->numHosts; ++j) {
        const AllocElem &el = ent->allocVector[j];
        if (work[j].removed > 0)
            mapHost(tbl, el.hostName, ent->timeWindow, recurring, ResPlannerEnt_decr, work[j].removed, 0, ent);
    }
}

} // namespace

namespace rsv {

int addHostsToEntry(RsvTimeTbl *tbl, RsvModReq *modReq, RsvEnt *ent)
{
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

int removeHostsFromEntry(RsvTimeTbl *tbl, RsvModReq *modReq, RsvEnt *ent, HashTab *hosts, int rmFlags)
{
    RmAsk ask = readRemovalFlags(nameOrEmpty(modReq->rsvId), rmFlags);
    if (ent->numHosts < 1 || !ent->allocVector) {
        if (rsv::logOn(LC_RSV))
            kx_syslog(KX_LOG_DEBUG, "%s: rsvId <%s> has no allocation", kRmFn, ask.rsvId);
        qob_errno = RSV_ERR_NO_SUCH_RSV;
        return -1;
    }
    if (ask.byNumber && !sizeRemovalByNumber(ask, modReq->req, ent))
        return -1;
    const int count = ent->numHosts;
    rsv::CPtr<RmWork> work(static_cast<RmWork *>(rsv::allocRecord(count, sizeof(RmWork), kRmFn)));
    if (!work) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return -1;
    }
    RmTally tally;
    tally.left = ask.asked;
    for (int j = 0; j < count; ++j)
        planElementRemoval(ent->allocVector[j], work.get()[j], ask, tally, hosts);
    if (int error = removalError(ask, tally, hosts, count)) {
        qob_errno = error;
        return -1;
    }
    const int newCount = count - tally.removedHosts;
    AllocElem *vector = keptElements(ent, work.get(), newCount);
    if (!vector)
        return -1;
    releaseRemovedSlots(tbl, ent, work.get());
    installVector(ent, vector);
    ent->numHosts = newCount;
    rsv::noteRecurringChange();
    return ask.byNumber ? ask.asked - tally.left : -tally.left;
}

} // namespace rsv

extern "C" {

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
    (void)mode;
    if (rsv::logOn(kTraceBits))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", kAddFn);
    if (!tbl || !modReq || !ent || (numAvail > 0 && !avail)) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    const int oldCount = (ent->allocVector && ent->numHosts > 0) ? ent->numHosts : 0;
    const int n = std::max(numAvail, 0);

    // Everything is planned and allocated before a planner is touched, so
    // that running out of memory changes nothing.
    AddPlan plan;
    if (!startAddPlan(plan, n, oldCount))
        return -1;
    countOffers(plan, avail, n, ent, oldCount, modReq->req.minNumProcs);
    const int target = std::min(modReq->req.maxNumProcs, plan.sum);
    const int size = oldCount + plan.newHosts;

    AllocElem *vector = nullptr;
    if (size > 0) {
        vector = static_cast<AllocElem *>(rsv::allocRecord(size, sizeof(AllocElem), kAddFn));
        if (!vector) {
            qob_errno = RSV_ERR_NO_MEMORY;
            return -1;
        }
    }
    const int numBooked = planBookings(plan, vector, size, avail, ent, n, target);
    if (numBooked < 0 || !copyUntouched(vector, size, numBooked, plan, ent, oldCount))
        return -1;

    commitBookings(tbl, avail, plan, vector, numBooked, ent, modReq->req.timeWindow,
                   modReq->req.options & RSV_OPT_RECURRING);
    installVector(ent, vector);
    rsv::noteRecurringChange();
    return size;
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
