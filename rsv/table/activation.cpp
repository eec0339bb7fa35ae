// activation.cpp: a reservation's instance starting and ending. The first
// activation stamps activeTime and the end clears it; both are changes of the
// table, written to its files (all or nothing in durable mode).
#include "rsv_internal.h"
#include "table/change.h"

namespace {

// Sets the entry's state; a change of activeTime (stamped on the first
// activation, cleared on deactivation) is written to the files, a change of
// state alone is not.
int switchActive(RsvTimeTbl *tbl, RsvEnt *ent, bool active)
{
    if (!ent) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return RSV_ERR_BAD_ARGUMENT;
    }
    const bool stamp = active ? ent->activeTime == 0 : ent->activeTime != 0;
    if (!stamp || !tbl) {
        ent->state = active ? RSV_STATE_ACTIVE : RSV_STATE_INACTIVE;
        if (stamp)
            ent->activeTime = active ? rsv::now() : 0;
        return RSV_OK;
    }
    rsv::Change change(tbl);
    if (!change.started() || !change.keepEntry(ent)) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return RSV_ERR_NO_MEMORY;
    }
    ent->state = active ? RSV_STATE_ACTIVE : RSV_STATE_INACTIVE;
    ent->activeTime = active ? rsv::now() : 0;
    return change.finish();
}

} // namespace

extern "C" {

// Marks the entry active. Only the first activation stamps activeTime and
// rewrites the state file: the finish record measures from that moment.
// NULL entry: nothing. NULL table: the state changes, no file is written.
// In durable mode a failed save leaves the entry as it was (see
// RsvTimeTbl_activate for the outcome).
void setRsvActive(RsvTimeTbl *tbl, RsvEnt *ent)
{
    if (ent)
        RsvTimeTbl_activate(tbl, ent);
}

// Marks the entry inactive. The state file is rewritten only when activeTime
// goes back to 0, never for a change of state alone.
// NULL entry: nothing. NULL table: the state changes, no file is written.
void setRsvInactive(RsvTimeTbl *tbl, RsvEnt *ent)
{
    if (ent)
        RsvTimeTbl_deactivate(tbl, ent);
}

int RsvTimeTbl_activate(RsvTimeTbl *tbl, RsvEnt *ent)
{
    return switchActive(tbl, ent, true);
}

int RsvTimeTbl_deactivate(RsvTimeTbl *tbl, RsvEnt *ent)
{
    return switchActive(tbl, ent, false);
}

// Activates every entry of `ents` in one change: one save for all of them.
int RsvTimeTbl_activateEntries(RsvTimeTbl *tbl, RsvEnt *const *ents, int count)
{
    if (!ents || count < 0) {
        qob_errno = RSV_ERR_BAD_ARGUMENT;
        return RSV_ERR_BAD_ARGUMENT;
    }
    bool stamping = false;
    for (int i = 0; i < count; ++i) {
        if (!ents[i]) {
            qob_errno = RSV_ERR_BAD_ARGUMENT;
            return RSV_ERR_BAD_ARGUMENT;
        }
        stamping = stamping || ents[i]->activeTime == 0;
    }
    if (!stamping || !tbl) {
        for (int i = 0; i < count; ++i)
            switchActive(nullptr, ents[i], true);
        return RSV_OK;
    }
    rsv::Change change(tbl);
    if (!change.started()) {
        qob_errno = RSV_ERR_NO_MEMORY;
        return RSV_ERR_NO_MEMORY;
    }
    // Every entry is kept, those only changing state too, so that a failed
    // save puts back each one as it was.
    for (int i = 0; i < count; ++i)
        if (!change.keepEntry(ents[i])) {
            qob_errno = RSV_ERR_NO_MEMORY;
            return RSV_ERR_NO_MEMORY;
        }
    const time_t now = rsv::now();
    for (int i = 0; i < count; ++i) {
        if (ents[i]->activeTime == 0)
            ents[i]->activeTime = now;
        ents[i]->state = RSV_STATE_ACTIVE;
    }
    return change.finish();
}

} // extern "C"
