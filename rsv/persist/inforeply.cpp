// The information reply: a self-contained copy of every reservation of the
// table, with each host's capacity and how many of the reservation's jobs run
// there, and the one-line text of a reservation request. The default reply
// gives every text and array a heap block of its own, since a daemon may
// free them one by one; the packed reply holds them all in one block, made
// and freed at once, for a caller that only releases the whole reply.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "rsv_internal.h"

namespace rsv {

// Allocator of the disabled-duration text arrays. The array comes from the
// C library's calloc; a test swaps this pointer to exhaust it.
void *(*infoReplyCalloc)(size_t count, size_t size) = std::calloc;

} // namespace rsv

namespace {

constexpr const char *kFn = "RsvTimeTbl_ToRsvInfoReply";

// Status bits of a job that holds slots on its execution hosts.
constexpr int kRunningLikeStatus = 0x2 | 0x4 | 0x8 | 0x10;

constexpr size_t kReqTextSize = 1024;

// The host name of a host the daemon no longer knows.
constexpr const char *kLostHost = "lost_and_found";

constexpr int kScratchOnStack = 16;

template <typename T>
T *allocArray(int count)
{
    return static_cast<T *>(rsv::allocRecord(count, sizeof(T), kFn));
}

void logCallocFailure()
{
    kx_syslog(KX_LOG_ERR, kx_catgets(kx_catd, rsv::kCatSetShared, 1, "%s: %s() failed."), kFn, "calloc");
}

// The readable text of one disabled duration, from the daemon's dupString;
// NULL when memory runs out.
char *durationText(RsvDisableDuration *dd)
{
    char *text = nullptr;
    setCalendarDayDuration(&dd->firstDay, &dd->lastDay, &text);
    return text;
}

// Where the default reply puts each text and array: a heap block of its own,
// which RsvInfoEnt_destroy and RsvInfoReply_destroy free one by one.
struct HeapStore {
    char *text(const char *s) { return s ? rsv::dupText(s) : nullptr; }
    template <typename T>
    T *array(int count)
    {
        return allocArray<T>(count);
    }
    char **textArray(size_t count)
    {
        auto *texts = static_cast<char **>(rsv::infoReplyCalloc(count, sizeof(char *)));
        if (!texts)
            logCallocFailure();
        return texts;
    }
    char *duration(RsvDisableDuration *dd) { return durationText(dd); }
};

// Every piece of a packed reply starts on an 8-byte boundary of its block.
constexpr size_t packedSize(size_t n)
{
    return (n + 7) & ~static_cast<size_t>(7);
}

size_t packedText(const char *s)
{
    return s ? packedSize(std::strlen(s) + 1) : 0;
}

// Where the packed reply puts each text and array: the next piece of one
// zero-filled block sized beforehand (entryBytes), freed in one sweep.
class PackedStore {
public:
    PackedStore(char *from, char *end) : next_(from), end_(end) {}
    char *text(const char *s)
    {
        if (!s)
            return nullptr;
        const size_t n = std::strlen(s) + 1;
        auto *p = static_cast<char *>(take(n));
        if (p)
            std::memcpy(p, s, n);
        return p;
    }
    template <typename T>
    T *array(int count)
    {
        return count > 0 ? static_cast<T *>(take(static_cast<size_t>(count) * sizeof(T))) : nullptr;
    }
    char **textArray(size_t count) { return static_cast<char **>(take(count * sizeof(char *))); }
    char *duration(RsvDisableDuration *dd)
    {
        rsv::CPtr<char> made(durationText(dd));
        return made ? text(made.get()) : nullptr;
    }

private:
    // NULL only when the sizing missed a piece: the reply reports 55 rather
    // than writing past its block.
    void *take(size_t n)
    {
        n = packedSize(n);
        if (n > static_cast<size_t>(end_ - next_))
            return nullptr;
        void *p = next_;
        next_ += n;
        return p;
    }
    char *next_;
    char *end_;
};

void freeAndClear(char **text)
{
    if (*text) {
        free(*text);
        *text = nullptr;
    }
}

// Fills the hosts of one element; `seen` gets each host's record (NULL for a
// host the daemon no longer knows) so that jobs can be placed on them.
template <typename Store>
void fillHosts(Store &store, RsvInfoEnt &info, const RsvEnt *ent, bool sharedId, RsvHost **seen)
{
    for (int j = 0; j < info.numHosts; ++j) {
        const AllocElem &el = ent->allocVector[j];
        RsvHostInfo &hi = info.hostInfo[j];
        RsvHost *host = el.hostName ? miscFuncs.findHost(el.hostName) : nullptr;
        seen[j] = host;
        if (!host) {
            hi.hostName = store.text(sharedId ? el.hostName : kLostHost);
            hi.numCpus = 0;
            hi.maxSlots = 0;
        } else {
            hi.hostName = store.text(el.hostName);
            hi.numCpus = host->numCpus;
            hi.maxSlots = host->maxSlots;
        }
        hi.numSlots = el.numSlots;
        hi.numUsedSlots = el.extra1 + el.extra2;
        hi.numJobsOnHost = 0;
    }
}

// Lists the entry's jobs with their status words and counts each running job
// once on every reservation host it executes on.
void fillJobs(RsvInfoEnt &info, RsvEnt *ent, RsvHost *const *seen)
{
    if (!ent->jobList)
        return;
    ListIterator iter;
    listIteratorAttach(&iter, ent->jobList);
    for (int i = 0; i < ent->numJobs; ++i) {
        auto *job = reinterpret_cast<RsvJobEnt *>(listIteratorGetCurEntry(&iter));
        if (!job)
            break;
        RsvJob *rec = miscFuncs.findJob ? miscFuncs.findJob(job->jobId) : nullptr;
        if (rec) {
            info.jobStatus[i] = rec->status;
            if ((rec->status & kRunningLikeStatus) && rec->execHosts) {
                for (int x = 0; x < rec->numExecHosts; ++x) {
                    for (int j = 0; j < info.numHosts; ++j) {
                        if (seen[j] && seen[j] == rec->execHosts[x]) {
                            ++info.hostInfo[j].numJobsOnHost;
                            break;
                        }
                    }
                }
            }
        }
        info.jobIds[i] = job->jobId;
        listIteratorNext(&iter);
    }
}

// Fills one element from one table entry; 55 when memory runs out, with the
// element partly filled (still releasable).
template <typename Store>
int fillInfoEnt(Store &store, RsvInfoEnt &info, const char *key, RsvEnt *ent)
{
    const bool sharedId = std::strchr(key, '@') != nullptr;
    info.options = ent->options;
    info.rsvId = store.text(key);
    info.name = store.text(ent->name);
    info.numHosts = ent->allocVector ? ent->numHosts : 0;
    if (info.numHosts >= 1) {
        info.hostInfo = store.template array<RsvHostInfo>(info.numHosts);
        if (!info.hostInfo)
            return RSV_ERR_NO_MEMORY;
    }

    // Jobs of an '@' reservation are listed but not reported in the count:
    // a daemon relies on this to keep them out of the job total.
    info.numJobs = sharedId ? 0 : ent->numJobs;
    if (ent->numJobs >= 1) {
        info.jobIds = store.template array<int64_t>(ent->numJobs);
        info.jobStatus = store.template array<int>(ent->numJobs);
        if (!info.jobIds || !info.jobStatus)
            return RSV_ERR_NO_MEMORY;
    }

    if (info.numHosts >= 1) {
        // The host records of this reservation; a reply for a large table
        // makes one per reservation, so the usual few hosts stay on the stack.
        RsvHost *onStack[kScratchOnStack] = {};
        rsv::CPtr<RsvHost *> onHeap;
        RsvHost **seen = onStack;
        if (info.numHosts > kScratchOnStack) {
            onHeap.reset(allocArray<RsvHost *>(info.numHosts));
            if (!onHeap)
                return RSV_ERR_NO_MEMORY;
            seen = onHeap.get();
        }
        fillHosts(store, info, ent, sharedId, seen);
        if (ent->numJobs >= 1)
            fillJobs(info, ent, seen);
    } else if (ent->numJobs >= 1) {
        fillJobs(info, ent, nullptr);
    }

    info.timeWindow = store.text(ent->timeWindow);

    if (ent->disabledDurations && ent->disabledDurations->numEnts >= 1) {
        const size_t count = static_cast<size_t>(ent->disabledDurations->numEnts);
        info.disabledDurations = store.textArray(count + 1);
        if (!info.disabledDurations)
            return RSV_ERR_NO_MEMORY;
        ListIterator iter;
        listIteratorAttach(&iter, ent->disabledDurations);
        size_t n = 0;
        for (ListEntry *e = listIteratorGetCurEntry(&iter); e && n < count; e = listIteratorNext(&iter)) {
            char *text = store.duration(reinterpret_cast<RsvDisableDuration *>(e));
            // A missing text would end the array early and hide the ones
            // after it from the release.
            if (!text)
                return RSV_ERR_NO_MEMORY;
            info.disabledDurations[n++] = text;
        }
        info.disabledDurations[n] = nullptr;
    }

    info.description = store.text(ent->description);
    info.timeDuration = store.text(ent->timeDuration);
    info.state = ent->state;
    char creator[sizeof ent->creator + 1];
    std::memcpy(creator, ent->creator, sizeof ent->creator);
    creator[sizeof ent->creator] = '\0';
    info.creator = store.text(creator);
    // Every text the entry has must be in the reply.
    const bool copied = (!key || info.rsvId) && (!ent->name || info.name) && (!ent->timeWindow || info.timeWindow) &&
                        (!ent->description || info.description) && (!ent->timeDuration || info.timeDuration) &&
                        info.creator;
    return copied ? RSV_OK : RSV_ERR_NO_MEMORY;
}

// What both replies begin with: false when the reply is already complete,
// with `result` its outcome (52 for a NULL argument, reply untouched; 0 for
// an empty table); true with numReservations set and no elements yet.
bool beginReply(RsvTimeTbl *tbl, RsvInfoReply *reply, int &result)
{
    if (!tbl || !reply) {
        result = RSV_ERR_BAD_ARGUMENT;
        return false;
    }
    reply->numReservations = h_numEnts_(&tbl->entries);
    reply->rsvInfo = nullptr;
    result = RSV_OK;
    return reply->numReservations >= 1;
}

// Fills every element of `reply` (its array made) from the table, in table
// order; 55 at the first element that runs out of memory.
template <typename Store>
int fillReply(Store &store, RsvTimeTbl *tbl, RsvInfoReply *reply)
{
    HashIter iter;
    int k = 0;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he && k < reply->numReservations;
         he = h_nextEnt_(&iter), ++k) {
        int status = fillInfoEnt(store, reply->rsvInfo[k], he->key, static_cast<RsvEnt *>(he->value));
        if (status != RSV_OK)
            return status;
    }
    return RSV_OK;
}

// The bytes of the packed pieces of one entry's element, as fillInfoEnt
// takes them; false when a disabled-duration text cannot be made.
bool entryBytes(const char *key, RsvEnt *ent, size_t &bytes)
{
    bytes += packedText(key) + packedText(ent->name) + packedText(ent->timeWindow) +
             packedText(ent->description) + packedText(ent->timeDuration) +
             packedSize(strnlen(ent->creator, sizeof ent->creator) + 1);
    const int numHosts = ent->allocVector ? ent->numHosts : 0;
    if (numHosts >= 1) {
        bytes += packedSize(static_cast<size_t>(numHosts) * sizeof(RsvHostInfo));
        // Known or not, the host gets its own name or the lost host's.
        for (int j = 0; j < numHosts; ++j)
            bytes += std::max(packedText(ent->allocVector[j].hostName), packedText(kLostHost));
    }
    if (ent->numJobs >= 1)
        bytes += packedSize(static_cast<size_t>(ent->numJobs) * sizeof(int64_t)) +
                 packedSize(static_cast<size_t>(ent->numJobs) * sizeof(int));
    if (ent->disabledDurations && ent->disabledDurations->numEnts >= 1) {
        const size_t count = static_cast<size_t>(ent->disabledDurations->numEnts);
        bytes += packedSize((count + 1) * sizeof(char *));
        ListIterator iter;
        listIteratorAttach(&iter, ent->disabledDurations);
        size_t n = 0;
        for (ListEntry *e = listIteratorGetCurEntry(&iter); e && n < count; e = listIteratorNext(&iter), ++n) {
            rsv::CPtr<char> text(durationText(reinterpret_cast<RsvDisableDuration *>(e)));
            if (!text)
                return false;
            bytes += packedText(text.get());
        }
    }
    return true;
}

} // namespace

extern "C" {

// Fills the caller's `reply` with a deep copy of every reservation of `tbl`,
// in the table's order; the reply shares nothing with the table. 0; 55 when
// memory runs out (the reply is then partly filled and must still be
// released with RsvInfoReply_destroy); 52 for a NULL argument (reply
// untouched).
int RsvTimeTbl_ToRsvInfoReply(RsvTimeTbl *tbl, RsvInfoReply *reply)
{
    int result = RSV_OK;
    if (!beginReply(tbl, reply, result))
        return result;
    reply->rsvInfo = allocArray<RsvInfoEnt>(reply->numReservations);
    if (!reply->rsvInfo)
        return RSV_ERR_NO_MEMORY;
    HeapStore store;
    return fillReply(store, tbl, reply);
}

// As RsvTimeTbl_ToRsvInfoReply, with the element array and every text and
// array of the reply in one block, released by RsvInfoReply_destroyPacked.
int RsvTimeTbl_ToRsvInfoReplyPacked(RsvTimeTbl *tbl, RsvInfoReply *reply)
{
    int result = RSV_OK;
    if (!beginReply(tbl, reply, result))
        return result;
    const size_t head = packedSize(static_cast<size_t>(reply->numReservations) * sizeof(RsvInfoEnt));
    size_t bytes = head;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter))
        if (!entryBytes(he->key, static_cast<RsvEnt *>(he->value), bytes))
            return RSV_ERR_NO_MEMORY;
    auto *block = static_cast<char *>(rsv::allocRecord(1, bytes, kFn));
    if (!block)
        return RSV_ERR_NO_MEMORY;
    reply->rsvInfo = reinterpret_cast<RsvInfoEnt *>(block);
    PackedStore store(block + head, block + bytes);
    return fillReply(store, tbl, reply);
}

// As RsvTimeTbl_ToRsvInfoReplyPacked for the one reservation `rsvId`: a
// front end showing one reservation pays for that one, not for the table.
int RsvTimeTbl_ToRsvInfoReplyOf(RsvTimeTbl *tbl, const char *rsvId, RsvInfoReply *reply)
{
    if (!tbl || !rsvId || !reply)
        return RSV_ERR_BAD_ARGUMENT;
    reply->numReservations = 0;
    reply->rsvInfo = nullptr;
    HashEnt *he = h_getEnt_(&tbl->entries, rsvId);
    if (!he || !he->value)
        return RSV_ERR_NO_RSV;
    auto *ent = static_cast<RsvEnt *>(he->value);
    const size_t head = packedSize(sizeof(RsvInfoEnt));
    size_t bytes = head;
    if (!entryBytes(he->key, ent, bytes))
        return RSV_ERR_NO_MEMORY;
    auto *block = static_cast<char *>(rsv::allocRecord(1, bytes, kFn));
    if (!block)
        return RSV_ERR_NO_MEMORY;
    reply->numReservations = 1;
    reply->rsvInfo = reinterpret_cast<RsvInfoEnt *>(block);
    PackedStore store(block + head, block + bytes);
    return fillInfoEnt(store, reply->rsvInfo[0], he->key, ent);
}

// Releases a reply built packed: its one block.
void RsvInfoReply_destroyPacked(RsvInfoReply *reply)
{
    if (!reply)
        return;
    free(reply->rsvInfo);
    reply->rsvInfo = nullptr;
}

// Releases what one element owns, except its two job arrays (see
// RsvInfoReply_destroy); every released field is set to NULL, so a second
// call is harmless.
void RsvInfoEnt_destroy(RsvInfoEnt *ent)
{
    if (!ent) {
        if (rsv::logOn(LC_FILE | LC_TRACE))
            kx_syslog(KX_LOG_DEBUG, "%s: input parameters are NULL", "RsvInfoEnt_destroy");
        return;
    }
    freeAndClear(&ent->rsvId);
    freeAndClear(&ent->name);
    if (ent->hostInfo) {
        for (int j = 0; j < ent->numHosts; ++j)
            freeAndClear(&ent->hostInfo[j].hostName);
        free(ent->hostInfo);
        ent->hostInfo = nullptr;
    }
    freeAndClear(&ent->timeWindow);
    if (ent->disabledDurations) {
        for (char **text = ent->disabledDurations; *text; ++text)
            free(*text);
        free(ent->disabledDurations);
        ent->disabledDurations = nullptr;
    }
    freeAndClear(&ent->description);
    freeAndClear(&ent->timeDuration);
    freeAndClear(&ent->creator);
}

// Releases every element of the reply and the element array; the reply
// record stays with the caller, and numReservations is left as it was.
void RsvInfoReply_destroy(RsvInfoReply *reply)
{
    if (!reply)
        return;
    if (reply->rsvInfo) {
        for (int k = 0; k < reply->numReservations; ++k) {
            RsvInfoEnt &info = reply->rsvInfo[k];
            RsvInfoEnt_destroy(&info);
            free(info.jobStatus);
            info.jobStatus = nullptr;
            free(info.jobIds);
            info.jobIds = nullptr;
        }
        free(reply->rsvInfo);
        reply->rsvInfo = nullptr;
    }
}

// The request as one line, in a module-static buffer of 1024 characters
// (longer lines are cut) that the next call overwrites.
char *RsvReq_ToString(const RsvReq *req)
{
    static char buffer[kReqTextSize];
    if (!req) {
        buffer[0] = '\0';
        return buffer;
    }
    std::snprintf(buffer, sizeof buffer, "options(%d) name(%s) procRange(%d, %d), askedHosts(%d) timeWindow(%s)",
                  req->options, req->name ? req->name : "(null)", req->minNumProcs, req->maxNumProcs,
                  req->numAskedHosts, req->timeWindow ? req->timeWindow : "(null)");
    return buffer;
}

} // extern "C"
