// alloc.cpp: turning a request into processor slots on hosts, and keeping the
// planners in step when reservations are booked, released or moved in time.
#include <algorithm>
#include <cstdint>

#include "planner_internal.h"
#include "rsv_internal.h"

namespace {

// Debug bits under which the entry lines of this unit are written.
constexpr int kLogEntering = LC_RSV | LC_TRACE;

// The largest count booked on `hostName` in any cell that `timeWindow` covers,
// without leaving a planner behind: what ResPlannerList_map with
// ResPlannerEnt_getMaxRsv finds, read without heap traffic.
int maxReserved(List *list, RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring,
                RsvEnt *ent)
{
    return rsv::maxBookedOverWindow(list, tbl, hostName, timeWindow, recurring, ent);
}

} // namespace

namespace rsv {

int hostCapacity(const RsvHost *host)
{
    return host->maxSlots == kUnlimitedSlots ? host->numCpus : host->maxSlots;
}

} // namespace rsv

extern "C" {

// A zeroed reservable allocation of `numElems` elements from the host-services
// allocator; the caller frees it with free (not the names in it, which are
// shared with the request). NULL when memory runs out or numElems is negative.
ResAlloc *ResAlloc_new(int numElems)
{
    if (numElems < 0)
        return nullptr;
    return static_cast<ResAlloc *>(rsv::allocRecord(numElems, sizeof(ResAlloc), "ResAlloc_new"));
}

// How many slots each asked host can give over the request's window, capped per
// host at minNumProcs when that is positive; *out gets one element per asked
// host, in request order (0 slots for an unknown host). Each resolved official
// name replaces the request's asked name (which is freed) and is shared by the
// element, so free the array without its names. Returns the sum, or -1 with
// qob_errno: 52 on a NULL or malformed argument (*out untouched), 55 when the
// array cannot be had, 190 when a system reservation finds any slot taken on an
// asked host (*out NULL, array freed; names already replaced stay replaced).
// Queries leave no planner behind.
int RsvTimeTbl_getReservableAlloc(RsvTimeTbl *tbl, RsvReq *req, ResAlloc **out, RsvEnt *ent)
{
    // The adding operation's name is logged on purpose: this runs only as its
    // first step, and that is how the daemon's logs have always read.
    if (rsv::logOn(kLogEntering))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering this routine...", "RsvTimeTbl_addEntry");
    if (!tbl || !req || !out || req->numAskedHosts < 0 || (req->numAskedHosts > 0 && !req->askedHosts)) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    ResAlloc *avail = ResAlloc_new(req->numAskedHosts);
    *out = avail;
    if (!avail) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return -1;
    }

    const int recurring = req->options & RSV_OPT_RECURRING;
    int64_t total = 0;
    for (int i = 0; i < req->numAskedHosts; ++i) {
        // The list is taken under the name as asked, before it is resolved.
        List *list = RsvTimeTbl_getPlannerList(tbl, req->askedHosts[i]);
        ResAlloc &elem = avail[i];
        elem.hostName = req->askedHosts[i] ? miscFuncs.officialHostName(req->askedHosts[i]) : nullptr;
        if (elem.hostName) {
            std::free(req->askedHosts[i]);
            req->askedHosts[i] = elem.hostName;
        }
        const RsvHost *host = elem.hostName ? miscFuncs.findHost(elem.hostName) : nullptr;
        if (!host) {
            elem.numSlots = 0;
            continue;
        }
        elem.numSlots = rsv::hostCapacity(host);
        const int used = maxReserved(list, tbl, elem.hostName, req->timeWindow, recurring, ent);
        if (used != 0 && (req->options & RSV_OPT_SYSTEM)) {
            qob_errno = RSV_ERR_NOT_ENOUGH_SLOTS;
            std::free(avail);
            *out = nullptr;
            return -1;
        }
        elem.numSlots = used <= elem.numSlots ? elem.numSlots - used : 0;
        // No single host is offered more than the lower end of the range.
        if (req->minNumProcs > 0)
            elem.numSlots = std::min(elem.numSlots, req->minNumProcs);
        total += elem.numSlots;
    }
    // Many unlimited hosts could pass the int range; the sum saturates instead.
    return static_cast<int>(std::min<int64_t>(total, INT32_MAX));
}

// Choose hosts from `avail` in request order, just enough of them for their
// slots to reach minNumProcs, hand out at most maxNumProcs slots in all, and
// book each chosen host's slots (keeping new dated planners). *out gets the new
// allocation vector (names duplicated; the caller owns it). Returns its number
// of hosts. Whether minNumProcs is met is the caller's decision. `mode` is
// accepted and ignored. 0 with *out NULL on a NULL argument.
int Rsv_alloc(RsvTimeTbl *tbl, int numAvail, ResAlloc *avail, RsvReq *req, AllocElem **out, const char *mode)
{
    (void)mode;
    if (out)
        *out = nullptr;
    if (!tbl || !req || !out || (numAvail > 0 && !avail))
        return 0;

    int hosts = 0;
    int64_t sum = 0;
    for (int i = 0; i < numAvail; ++i) {
        if (avail[i].numSlots == 0)
            continue;
        ++hosts;
        sum += avail[i].numSlots;
        if (sum >= req->minNumProcs)
            break;
    }
    const int64_t target = std::min<int64_t>(req->maxNumProcs, sum);

    auto *vector = static_cast<AllocElem *>(rsv::allocRecord(hosts, sizeof(AllocElem), "Rsv_alloc"));
    *out = vector;
    if (!vector)
        return hosts;

    const int recurring = req->options & RSV_OPT_RECURRING;
    int64_t booked = 0;
    int k = 0;
    for (int i = 0; i < numAvail && k < hosts; ++i) {
        List *list = RsvTimeTbl_getPlannerList(tbl, avail[i].hostName);
        if (avail[i].numSlots == 0)
            continue;
        AllocElem &elem = vector[k];
        elem.hostName = rsv::dupText(avail[i].hostName);
        elem.numSlots = static_cast<int>(std::min<int64_t>(avail[i].numSlots, target - booked));
        elem.extra1 = 0;
        booked += elem.numSlots;
        ResPlannerList_map(list, tbl, avail[i].hostName, req->timeWindow, recurring, ResPlannerEnt_incr,
                           elem.numSlots, 1, nullptr);
        ++k;
        if (booked == target)
            break;
    }
    return hosts;
}

// Give back every slot of the entry's allocation over its window. Planners
// whose counts return to 0 stay in their lists. NULL arguments are ignored.
void Rsv_dealloc(RsvTimeTbl *tbl, RsvEnt *ent)
{
    if (!tbl || !ent || !ent->allocVector)
        return;
    const int recurring = ent->options & RSV_OPT_RECURRING;
    for (int i = 0; i < ent->numHosts; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        if (!elem.hostName)
            continue;
        List *list = RsvTimeTbl_getPlannerList(tbl, elem.hostName);
        ResPlannerList_map(list, tbl, elem.hostName, ent->timeWindow, recurring, ResPlannerEnt_decr, elem.numSlots,
                           0, ent);
    }
}

// Free slots of `hostName` over `timeWindow`: capacity minus the largest count
// booked in any covered cell (negative when the host is over-reserved). 0 when
// the table or name is NULL or the host is unknown. Leaves no planner behind.
int Rsv_getMaxAvailonHost(RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring, RsvEnt *ent)
{
    if (rsv::logOn(kLogEntering))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering...", "Rsv_getMaxAvailonHost");
    if (!tbl || !hostName)
        return 0;
    const RsvHost *host = miscFuncs.findHost(hostName);
    if (!host)
        return 0;
    rsv::CPtr<char> official(miscFuncs.officialHostName(hostName));
    List *list = RsvTimeTbl_getPlannerList(tbl, official.get());
    const int used = maxReserved(list, tbl, hostName, timeWindow, recurring, ent);
    return static_cast<int>(static_cast<int64_t>(rsv::hostCapacity(host)) - used);
}

// Check that every host of the entry can hold its slots over `newTimeWindow`,
// and with `update` non-zero book them there. Each host's booking over the
// entry's current window is released first and is not restored, whatever the
// outcome: the daemon either books the entry again (a second call with update
// 1 books only the new window) or drops it, and relies on exactly this. The
// host's configured maxSlots is compared as it stands, without the processor
// count that availability queries fall back to; that difference is kept on
// purpose. 0 on success; -1 with qob_errno 52 (NULL argument), 23 (a host
// unknown to the daemon) or 190 (not enough free slots, or any slot taken while
// the entry is a system reservation).
int Rsv_chkupdRsv4NewTimeWindow(RsvTimeTbl *tbl, RsvEnt *ent, const char *newTimeWindow, int update)
{
    if (rsv::logOn(kLogEntering))
        kx_syslog(KX_LOG_DEBUG, "%s: Entering...", "Rsv_chkupdRsv4NewTimeWindow");
    if (!tbl || !ent || !newTimeWindow) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return -1;
    }
    const int recurring = ent->options & RSV_OPT_RECURRING;
    const int numHosts = ent->allocVector ? ent->numHosts : 0;
    for (int i = 0; i < numHosts; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        List *list = RsvTimeTbl_getPlannerList(tbl, elem.hostName);
        ResPlannerList_map(list, tbl, elem.hostName, ent->timeWindow, recurring, ResPlannerEnt_decr, elem.numSlots,
                           0, ent);
        const RsvHost *host = elem.hostName ? miscFuncs.findHost(elem.hostName) : nullptr;
        if (!host) {
            qob_errno = RSV_ERR_BAD_HOST;
            return -1;
        }
        const int used = maxReserved(list, tbl, elem.hostName, newTimeWindow, recurring, ent);
        if (used != 0 && (ent->options & RSV_OPT_SYSTEM)) {
            qob_errno = RSV_ERR_NOT_ENOUGH_SLOTS;
            return -1;
        }
        if (static_cast<int64_t>(host->maxSlots) - used < elem.numSlots) {
            qob_errno = RSV_ERR_NOT_ENOUGH_SLOTS;
            return -1;
        }
    }
    if (!update)
        return 0;
    for (int i = 0; i < numHosts; ++i) {
        const AllocElem &elem = ent->allocVector[i];
        List *list = RsvTimeTbl_getPlannerList(tbl, elem.hostName);
        ResPlannerList_map(list, tbl, elem.hostName, newTimeWindow, recurring, ResPlannerEnt_incr, elem.numSlots, 1,
                           ent);
    }
    return 0;
}

} // extern "C"
