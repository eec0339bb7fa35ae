// persist_internal.h: what the persistence units share with the rest of the
// module: the id counters kept across a change, and the texts and durable
// writing of the two files.
#ifndef RSV_PERSIST_INTERNAL_H
#define RSV_PERSIST_INTERNAL_H

#include <string>
#include <vector>

#include "qob.rsvimpl.h"

namespace rsv {

// The owner counters as they were before a change, to put back when it is
// undone. restore() allocates nothing beyond the base library's hash table.
class IdCounters {
public:
    // Keep one owner's counter (or that it had none). False: out of memory.
    bool keep(const char *owner) noexcept;
    // Keep every counter and their order (start-up). False: out of memory.
    bool keepAll() noexcept;
    void restore() noexcept;
    // Move every kept owner's counter that is now behind its kept value back
    // up to it. "Behind" allows for wrap-around: a counter more than half of
    // `limit` below the kept value has wrapped and is ahead.
    void raiseToKept(int limit) noexcept;

private:
    struct Owner {
        std::string owner;
        bool existed;
        int value;
    };
    std::vector<Owner> owners_;
    bool whole_ = false;
    bool hadTable_ = false;
};

// The counter of `owner`: true with *value set when the owner has one.
// Reads only; allocates nothing.
bool RsvId_counter(const char *owner, int *value) noexcept;

// Whether the numbers of `owner` have gone round the per-owner limit (a
// number handed out or restored below the counter) since the counters were
// last cleared.
bool RsvId_hasWrapped(const char *owner) noexcept;

// The per-owner limit of identifiers: the daemon's maxRsvPerOwner when it
// lies in 1..10000, else 100. Counters run from 0 to one below it and then
// start again at 0.
int RsvId_perOwnerLimit() noexcept;

// The reservations of `owner` in `tbl` as RsvId_new's walk counts them,
// from an index kept per table (ownerindex.cpp): the numbers of its own
// identifiers in the table's order in used[0..own) (at most `max`), and how
// many other owners' identifiers carry a word of its name in `other` (not
// counted when own reaches `max`). False when the index cannot serve the
// call (the table's first search, or memory ran out): the caller walks.
bool OwnerIndex_count(RsvTimeTbl *tbl, const char *owner, int max, int *used, int &own, int &other) noexcept;

// h_delEnt_ of an entry of the table's `entries`, the owner index following.
void OwnerIndex_delEnt(RsvTimeTbl *tbl, HashEnt *he) noexcept;

// Forget the owner index of `tbl` (the table is being freed). NULL is ignored.
void OwnerIndex_drop(const RsvTimeTbl *tbl) noexcept;

// The id file's text, byte for byte what RsvTimeTbl_logId writes, appended
// to `out`. Throws std::bad_alloc.
void RsvId_appendFileText(std::string &out);

// Append the record texts of `count` entries (what RsvEnt_ToString returns
// for each), each followed by a line feed, to `out`. Throws std::bad_alloc.
void RsvEnt_appendRecords(const RsvEnt *const *ents, size_t count, std::string &out);

// The state file's text, byte for byte what RsvTimeTbl_logStat writes,
// leaving out the entries of `skip` (may be NULL), appended to `out`. Throws
// std::bad_alloc.
void RsvTimeTbl_appendStateText(RsvTimeTbl *tbl, std::string &out, const std::vector<const RsvEnt *> *skip);

// The default rewrite of a change's files with a state text built before
// the change was kept: the state file rewritten in place one flushed line at
// a time, then the id file, as RsvTimeTbl_logStat does. Allocates nothing.
void RsvTimeTbl_writeStateText(RsvTimeTbl *tbl, const std::string &text) noexcept;

// Write the id file and then the state file of `tbl` durably (temporary
// file, fsync, rename, directory fsync), leaving out the entries of `skip`.
// RSV_OK; RSV_ERR_NO_MEMORY (nothing written); RSV_ERR_BAD_ARGUMENT (no
// state file name); or RSV_ERR_NOT_SAVED with errno kept and the failure
// recorded in the table's settings. *replaced (when not NULL) tells whether
// a file was already replaced when the save failed.
int RsvTimeTbl_saveDurably(RsvTimeTbl *tbl, const std::vector<const RsvEnt *> *skip, bool *replaced);

// After a save that failed once a file was replaced: write the table (as it
// was before the change) back durably, and remove again each file that did
// not exist before that save. Best effort; the first failure stays the one
// reported.
void RsvTimeTbl_repairFiles(RsvTimeTbl *tbl) noexcept;

} // namespace rsv

#endif
