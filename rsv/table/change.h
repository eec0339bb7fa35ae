// change.h: one change of a table, all or nothing. A changing call opens a
// Change, tells it what it is about to touch (an entry's fields, an owner's
// counter), makes the change in memory, and calls finish(): the change is
// kept and saved, or, when memory ran short on the way or (in durable mode)
// the save failed, every entry, planner cell, counter and file is put back as
// it was. A Change that is not finished is undone when it goes out of scope.
#ifndef RSV_TABLE_CHANGE_H
#define RSV_TABLE_CHANGE_H

#include <string>
#include <vector>

#include "persist/persist_internal.h"
#include "qob.rsvimpl.h"

namespace rsv {

class Change {
public:
    explicit Change(RsvTimeTbl *tbl) noexcept;
    ~Change();
    Change(const Change &) = delete;
    Change &operator=(const Change &) = delete;

    // False when the change could not begin (out of memory, or another
    // change open): the caller fails with RSV_ERR_NO_MEMORY, nothing done.
    bool started() const noexcept { return started_; }

    // Keep the fields of `ent` (an entry already in the table) that a change
    // can alter, before altering them. False: out of memory.
    bool keepEntry(RsvEnt *ent) noexcept;
    // Keep one owner's id counter, or all of them. False: out of memory.
    bool keepCounter(const char *owner) noexcept;
    bool keepAllCounters() noexcept;
    // `ent` was put into the table by this change. False: out of memory
    // (the entry is still the caller's to take out).
    bool added(RsvEnt *ent) noexcept;
    // `ent` leaves the table when the change is kept; its bookings are
    // already released. It stays in the table until then. False: out of
    // memory.
    bool removing(RsvEnt *ent) noexcept;
    // `ent`, told to added(), is no longer this change's to undo (the
    // caller has taken it out and freed it).
    void forget(const RsvEnt *ent) noexcept;

    // Whether an allocation failed since the change began.
    bool ranShort() const noexcept;

    // Keep the change and write the files (`save`: through the table's mode;
    // without it nothing is written). RSV_OK; or RSV_ERR_NO_MEMORY or
    // RSV_ERR_NOT_SAVED (errno kept) with everything undone. The error is
    // also stored in qob_errno.
    int finish(bool save = true) noexcept;

    // Put everything back now.
    void undo() noexcept;

private:
    struct KeptEntry {
        RsvEnt *ent;
        RsvEnt before;  // scalar fields, and deep copies of the owned ones
    };
    void dropKept(bool restore) noexcept;
    // The state file's text once the change is kept. False: out of memory.
    bool buildStateText(std::string &text) noexcept;
    void finishRemovals() noexcept;

    RsvTimeTbl *tbl_;
    bool started_ = false;
    bool open_ = false;
    unsigned long failuresAtStart_ = 0;
    IdCounters counters_;
    std::vector<KeptEntry> kept_;
    std::vector<RsvEnt *> added_;
    std::vector<const RsvEnt *> removing_;
};

} // namespace rsv

#endif
