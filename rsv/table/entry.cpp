// The reservation entry: creation, release, the allocation vector and the
// active/inactive switch.
#include <cstring>

#include "rsv_internal.h"

namespace {

// Frees *text and clears it; already-NULL fields are skipped.
void freeText(char **text)
{
    if (*text) {
        free(*text);
        *text = nullptr;
    }
}

// List elements of an entry (jobs, disabled durations) are single heap
// blocks owned by the entry's list.
void freeListElement(void *element)
{
    free(element);
}

} // namespace

extern "C" {

// A new entry owned by the caller (release with RsvEnt_destroy, then free):
// version "9.11", created now, inactive (state 0), no hosts, no identifier.
// A NULL name or window is taken as "". NULL with qob_errno 55 when any of
// its allocations fails; nothing is left allocated then.
RsvEnt *RsvEnt_new(int options, const char *name, const char *timeWindow)
{
    static constexpr const char *kFunc = "RsvEnt_new";
    auto *ent = static_cast<RsvEnt *>(rsv::allocRecord(1, sizeof(RsvEnt), kFunc));
    if (!ent) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    const char *window = timeWindow ? timeWindow : "";
    ent->version = rsv::dupText(RSV_FORMAT_VERSION);
    ent->createTime = rsv::now();
    ent->activeTime = 0;
    ent->options = options;
    ent->name = rsv::dupText(name ? name : "");
    ent->timeWindow = rsv::dupText(window);
    ent->timeDuration = rsv::dupText("");
    if (!ent->version || !ent->name || !ent->timeWindow || !ent->timeDuration) {
        RsvEnt_destroy(ent);
        free(ent);
        qob_errno = RSV_ERR_NO_MEMORY;
        return nullptr;
    }
    ent->duration = RsvTimeWindow_toDuration(window);
    // jobList, state, the reserved fields, execCmd, disabledDurations,
    // description, rsvId, numHosts, allocVector, auxValue, creator and
    // numJobs stay zero from allocZeroed: the caller fills what it needs.
    return ent;
}

// Releases what the entry owns (texts, allocation vector, job list and
// disabled-duration list with their elements, command record) and clears
// each field; the record itself stays for the caller to free. numHosts is
// left as it was. NULL is ignored.
void RsvEnt_destroy(RsvEnt *ent)
{
    if (!ent)
        return;
    freeText(&ent->version);
    freeText(&ent->rsvId);
    freeText(&ent->name);
    freeText(&ent->timeWindow);
    RsvEnt_freeAllocVector(&ent->allocVector, ent->numHosts);
    if (ent->jobList) {
        listDestroy(ent->jobList, freeListElement);
        ent->jobList = nullptr;
    }
    // Always called: the batch library leaves the field NULL and safe to free
    // again, also when no command was ever attached.
    qob_freeRsvExecCmd(&ent->execCmd);
    if (ent->disabledDurations) {
        listDestroy(ent->disabledDurations, freeListElement);
        ent->disabledDurations = nullptr;
    }
    freeText(&ent->timeDuration);
    freeText(&ent->description);
}

// 1 when the entry exists and is active (state 4), else 0.
int isRsvActive(const RsvEnt *ent)
{
    return ent && ent->state == RSV_STATE_ACTIVE ? 1 : 0;
}

// Frees the host names of the first `count` elements and the vector, and
// clears the field. A NULL address or vector is ignored.
void RsvEnt_freeAllocVector(AllocElem **vector, int count)
{
    if (!vector || !*vector)
        return;
    AllocElem *elems = *vector;
    for (int i = 0; i < count; ++i)
        freeText(&elems[i].hostName);
    free(elems);
    *vector = nullptr;
}

// A deep copy of the entry's allocation vector (numHosts elements), owned by
// the caller (RsvEnt_freeAllocVector). NULL, without an error number, when
// the entry has no hosts or memory runs out; nothing is left allocated then.
AllocElem *RsvEnt_DupAllocVector(const RsvEnt *ent)
{
    if (!ent || ent->numHosts <= 0 || !ent->allocVector)
        return nullptr;
    auto *copy = static_cast<AllocElem *>(
        rsv::allocRecord(ent->numHosts, sizeof(AllocElem), "RsvEnt_DupAllocVector"));
    if (!copy)
        return nullptr;
    for (int i = 0; i < ent->numHosts; ++i) {
        const AllocElem &src = ent->allocVector[i];
        if (src.hostName) {
            copy[i].hostName = rsv::dupText(src.hostName);
            if (!copy[i].hostName) {
                RsvEnt_freeAllocVector(&copy, i);
                return nullptr;
            }
        }
        copy[i].numSlots = src.numSlots;
        copy[i].extra1 = src.extra1;
        copy[i].extra2 = src.extra2;
    }
    return copy;
}

} // extern "C"
