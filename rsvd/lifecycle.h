// lifecycle.h: the reservation lifecycle engine of rsvd. It activates each
// reservation instance when it starts, and when it ends writes the finish
// record, tells the reservation's jobs, deactivates it, moves a recurring
// reservation to its next instance and expires a one-off one; once a week it
// trims the planners of past weeks. It owns no timer and no socket: the
// daemon calls step() when the time it returned comes, and changed() after
// every change of the table. All calls on the daemon's one module thread.
//
// `now` is always the module's clock (what RsvMod_setClock installs, or the
// system clock): activation stamps and finish records read that clock too.
#ifndef RSVD_LIFECYCLE_H
#define RSVD_LIFECYCLE_H

#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "qob.rsvimpl.h"

namespace rsvd {

// One event of the engine: a name ("activated", "deactivated", "finished",
// "expired", "skipped", "trimmed", "error") and its fields (id, owner,
// instanceStart, instanceEnd, ...).
using LogFn = std::function<void(std::string_view event, const nlohmann::json &fields)>;

class Lifecycle {
public:
    // `tbl` stays the caller's and must outlive the engine; it should be in
    // durable mode so that every activation, deactivation and expiry is on
    // disk when the engine reports it. `finishLogPath` is the finish log (JSON
    // lines, appended and synced; conventionally <state-dir>/rsv.finish.jsonl).
    // `log` may be empty.
    Lifecycle(RsvTimeTbl *tbl, std::string finishLogPath, LogFn log);
    ~Lifecycle();
    Lifecycle(const Lifecycle &) = delete;
    Lifecycle &operator=(const Lifecycle &) = delete;

    // Once, after the table is loaded: finishes what ended while the daemon
    // was down (each instance exactly once, checked against the finish log),
    // activates what is running now, then does what is due at `now` as step()
    // does. Returns step()'s next-due time.
    time_t start(time_t now);

    // Does everything due at or before `now`, including the weekly trim of
    // past weeks' planners (the first step trims at once, later ones at local
    // midnight starting each Sunday). Returns the next time anything is due,
    // always after `now`: the next instance start or end, or the next trim.
    time_t step(time_t now);

    // The table changed: recompute what is due for every reservation, seen
    // at the module's clock (about 13 ms of processor time at 10,000
    // reservations; prefer changed(rsvId) after a single change).
    void changed();

    // The reservation `rsvId` was added, changed or removed: recompute what is
    // due for it alone, seen at the module's clock (about 2 µs at 10,000
    // reservations).
    void changed(const char *rsvId);

    // Before the daemon removes `rsvId` while it may be active: when it is,
    // writes its finish record now (charged up to `now`) and tells its jobs,
    // so the removal loses nothing. Does not remove it. Returns false when
    // the finish record could not be written (the caller should not remove).
    bool finishEarly(const char *rsvId, time_t now);

    // The time the next step is due, changes since the last step included
    // (0 before start()); it may be at or before now, when a change made
    // something due at once.
    time_t nextDue() const;

    // Reservations with something scheduled (for tests and status replies).
    size_t scheduled() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace rsvd

#endif
