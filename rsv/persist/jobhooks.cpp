// Hooks the daemon calls around the end of a reservation's instance: the
// finish record for its event log, marking a job whose reservation stopped,
// and the job-list match predicate.
#include <cstring>

#include "rsv_internal.h"

namespace {

constexpr int kJobRsvInactiveFlag = 0x1;
constexpr int kJobRsvInactiveByFlag = 0x2;

char *copyText(const char *text)
{
    return text ? rsv::dupText(text) : nullptr;
}

} // namespace

extern "C" {

// Fills `record` for the reservation `rsvId` of `tbl`: header values, the
// hosts with their slots, the window, the creator and how long the current
// activation has lasted (up to now, or up to the end of the instance it
// started in when that has passed). 0; -1 for a NULL argument or an unknown
// identifier (record untouched) or when the host array cannot be allocated
// (only numHosts is filled). The daemon owns the record and every copy in it.
int fillRsvFinishLog(RsvFinishLog *record, RsvTimeTbl *tbl, const char *rsvId)
{
    static const char *const fn = "fillRsvFinishLog";
    if (!record || !tbl || !rsvId)
        return -1;
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl, rsvId);
    if (!ent)
        return -1;

    record->numHosts = ent->numHosts;
    record->hosts = nullptr;
    if (ent->numHosts > 0 && ent->allocVector) {
        auto *hosts = static_cast<RsvFinishHost *>(rsv::allocRecord(ent->numHosts, sizeof(RsvFinishHost), fn));
        if (!hosts)
            return -1;
        for (int i = 0; i < ent->numHosts; ++i) {
            hosts[i].hostName = copyText(ent->allocVector[i].hostName);
            hosts[i].numSlots = ent->allocVector[i].numSlots;
        }
        record->hosts = hosts;
    }

    record->createTime = ent->createTime;
    record->options = ent->options;
    record->auxValue = ent->auxValue;
    record->rsvId = copyText(rsvId);
    record->name = copyText(ent->name);
    record->timeWindow = copyText(ent->timeWindow);

    record->activeDuration = 0;
    if (ent->activeTime != 0) {
        time_t now = rsv::now();
        time_t end = 0;
        RsvEnt_getCurrentInstanceAtTime(ent, 0, ent->activeTime, nullptr, &end);
        // Finished early: charged up to now; otherwise up to the instance's end.
        record->activeDuration = now < end ? now - ent->activeTime : end - ent->activeTime;
    }

    char creator[sizeof ent->creator + 1];
    std::memcpy(creator, ent->creator, sizeof ent->creator);
    creator[sizeof ent->creator] = '\0';
    record->creator = copyText(creator);
    return 0;
}

// Marks the job `jobId` as having lost its reservation: bit 0x2 of its
// reservation-state flags when `flag` is non-zero, else bit 0x1. Bits are
// only ever set. An unknown job, or a daemon without a job service, changes
// nothing.
void setJobRsvInActive(int64_t jobId, int flag)
{
    if (!miscFuncs.findJob)
        return;
    RsvJob *job = miscFuncs.findJob(jobId);
    if (!job)
        return;
    job->rsvFlags |= flag != 0 ? kJobRsvInactiveByFlag : kJobRsvInactiveFlag;
}

// List-search predicate over a reservation's jobList: 1 when the element's
// job identifier equals *key, else 0 (also for NULL arguments).
int jobListRsvId_equal(void *element, void *key, int ignored)
{
    (void)ignored;
    if (!element || !key)
        return 0;
    return static_cast<RsvJobEnt *>(element)->jobId == *static_cast<int64_t *>(key) ? 1 : 0;
}

} // extern "C"
