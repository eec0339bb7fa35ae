// planner_internal.h: what the planner units share with the rest of the
// module and nothing else sees.
#ifndef RSV_PLANNER_INTERNAL_H
#define RSV_PLANNER_INTERNAL_H

#include <ctime>

#include "qob.rsvimpl.h"

namespace rsv {

// The recurring index (recurindex.cpp) keeps, per table and per host name,
// the recurring reservations' shares of that host: (entry, element of its
// allocation vector), in the table's entry order and then element order, so
// that ResPlanner_addRecurs books exactly what a walk of every entry books,
// without the walk. It stays exact because:
//  - entries added to a table are taken in on next use, from the last entry
//    seen to the end of the table's insertion order (start-up, which only
//    adds, stays linear);
//  - an entry leaving the table, or the table being emptied or initialised,
//    changes the table's delStamp, and the index is made again;
//  - every module call that changes an entry already in a table in a way
//    the index depends on (its record replaced, its allocation vector or host
//    count replaced) calls noteRecurringChange(), and every index is made
//    again on its next use;
//  - slot counts, windows and disabled days are read from the entry when the
//    booking is made, and an entry that no longer recurs is skipped.
// A daemon must therefore change reservations through the module's calls,
// never by writing an entry's allocation vector, host count or recurring bit
// (or a table's entry values) itself. No module call sets the recurring bit
// of an entry already in a table.

// Books into `planner` the shares of `hostName` of every recurring
// reservation of `tbl`, as the full walk would. False when the index cannot
// serve the call (disabled, out of memory, an entry without a record at the
// end of the table, or a share that no longer matches its entry); nothing is
// booked then and the caller walks the table.
bool addRecursFromIndex(ResPlanner *planner, RsvTimeTbl *tbl, const char *hostName);

// Whether every recurring share of `hostName` books the same cells in every
// dated week: true when none of the host's recurring reservations has
// disabled days, so that a new planner of any week starts with the same
// counts. False also when the index cannot tell (the caller then makes each
// week's planner on its own).
bool recurringSharesSameEveryWeek(RsvTimeTbl *tbl, const char *hostName);

// An entry already in a table has had its record, allocation vector or host
// count replaced: every index is made again on its next use.
void noteRecurringChange();

// How many in-place changes noteRecurringChange() has counted: a record,
// allocation vector or host count of an entry in a table replaced.
unsigned long long recordChangeGeneration();

// Forget the index of `tbl` (the table is being freed). NULL is ignored.
void dropRecurringIndex(const RsvTimeTbl *tbl);

// The planner part of RsvTimeTbl_verify (verify.cpp): every cell of every
// planner of `tbl` against a rebooking of its reservations from scratch into
// the same weeks, and a planner list for every host a reservation holds.
// Each problem is passed to `report` (may be NULL) as one line. Reads only.
// Returns the number of problems, or -1 for a NULL table or when memory runs
// out.
int checkPlannerCells(RsvTimeTbl *tbl, RsvVerifyProblem report, void *context) noexcept;

// Compares the recurring index of `tbl` with a walk of its entries: for
// every host, the shares that the index would give the next dated planner
// must be the shares the walk gives. Each difference is passed to `report`
// (may be NULL) as one line. Reads only: an index that is missing or out of
// date is made again from the entries on its next use, so it is not looked
// at. Returns the number of differences, or -1 when memory runs out.
int checkRecurringIndex(RsvTimeTbl *tbl, RsvVerifyProblem report, void *context) noexcept;

// Tests only: with false, ResPlanner_addRecurs walks the table every time,
// which is the reference the index must match; indexes are kept meanwhile.
void setRecurringIndexEnabled(bool enabled);
bool recurringIndexEnabled();

// Tests only: with true, every use of an index fails as when memory runs
// out while making or extending it (the index is dropped).
void setRecurringIndexBuildFails(bool fails);

// Tests only: how many times an index has been made from the start of its
// table (not counting the entries taken in afterwards), over all tables.
unsigned long recurringIndexRebuilds();

// The planner journal of a change (journal.cpp). While one is open on a
// table, RsvTimeTbl_getPlannerList copies each host's list the first time it
// hands it out (or notes that the host had none), so that the change can be
// undone cell for cell. Only one journal is open at a time.
// False when one is already open or memory runs out.
bool PlannerJournal_begin(RsvTimeTbl *tbl) noexcept;
// Called by RsvTimeTbl_getPlannerList with the host's list before the call
// (NULL: none yet). False when the copy cannot be made: the list must then
// not be handed out.
bool PlannerJournal_record(RsvTimeTbl *tbl, const char *hostName, List *current) noexcept;
// Close the journal: with `restore`, every recorded host gets back the list
// it had (hosts that had none lose theirs) and the recurring index is made
// again on its next use; otherwise the copies are dropped. Allocates nothing.
void PlannerJournal_end(bool restore) noexcept;

// How a host's planner list is made and how ResPlannerList_map walks it
// (plannerlist.cpp), shared with the table's read-only queries so that they
// see the weeks and cells exactly as a booking would.

// A new planner list of `hostName` as RsvTimeTbl_getPlannerList makes one:
// the zero-week planner alone. In no table; the caller destroys it with
// destroyPlannerList. NULL when memory runs out.
List *newPlannerList(const char *hostName);

// Destroy a list with its planners and their names. NULL is ignored.
void destroyPlannerList(List *list);

// The weeks ResPlannerList_map visits for `timeWindow`, in its order: for a
// recurring window those of every planner of the list (the zero week
// first), for a one-off window each calendar week from its start's to its
// end's. A new array the caller frees; NULL with *numWeeks 0 when there is
// none or memory runs out.
RsvWeek *mapWeeks(List *plannerList, const char *timeWindow, int recurring, int *numWeeks);

// A one-off window "start-end" (epoch seconds) in local time: its two ends,
// and the calendar weeks from the start's to the end's (none when the end's
// date lies before the start's), the first holding the start and the last
// the end.
struct OneOffSpan {
    struct tm startTm;
    struct tm endTm;
    int numWeeks;
    int firstSunday; // date integer
};
// False when either end has no local time.
bool oneOffSpan(const char *timeWindow, OneOffSpan &span);
// The date integer of the Sunday of week `i` (0 .. numWeeks - 1) of the span.
int sundayOfSpanWeek(const OneOffSpan &span, int i);

// The planner window that a planner of `week` maps for `timeWindow`: the
// recurring window itself, or the part of the one-off window inside the
// week. A new text the caller frees; NULL when memory runs out.
char *weekWindow(const RsvWeek *week, const char *timeWindow, int recurring);

// The planner of `week` in the list, or NULL.
ResPlanner *plannerOfWeek(List *plannerList, const RsvWeek *week);

// A new planner of `week` holding the recurring bookings of `hostName`, as a
// week without a planner gets when a window first reaches it. Owned by the
// caller; NULL when memory runs out.
ResPlanner *newWeekPlanner(RsvTimeTbl *tbl, const char *hostName, const RsvWeek *week);

// One end of a planner window, parsed (planner.cpp).
struct WindowPoint {
    int day = 0;        // 0 = none (daily window), 1..6, 7 = Sunday
    float hour = 0.0f;  // whole hour
    float minute = 0.0f;
    int slot = 0;       // 0..144
};

// The two ends of the planner window `timeWindow` as ResPlanner_map reads
// them; false when the text is not one (NULL included).
bool parsePlannerWindow(const char *timeWindow, WindowPoint &start, WindowPoint &end);

// The end that ResPlanner_map reads from the time expression "day:hour:minute"
// (day 1..7, hour 0..23, minute 0..59), without writing or parsing the text.
WindowPoint pointOfClock(int day, int hour, int minute, bool isEnd);

// The end that ResPlanner_map reads from an open end "0:0:0": the week's
// beginning (start) or its end.
WindowPoint openWindowEnd(bool isEnd);

// ResPlanner_map after its parse: `op` with `arg` over the cells between the
// two ends, with the disabled days of `rsv` skipped on a dated planner.
void mapParsedWindow(ResPlanner *planner, const WindowPoint &start, const WindowPoint &end, ResPlannerOp op,
                     int64_t arg, RsvEnt *rsv);

// The first planner of `week` in `list`, as plannerOfWeek finds it, through
// an index of the list by week (weekindex.cpp) made on first use and made
// again after the list changed. Falls back to a walk when memory runs out.
// A daemon must therefore change planner lists only through the module's
// calls (lists only grow at their back).
ResPlanner *indexedPlannerOfWeek(List *list, const RsvWeek &week) noexcept;

// `list` is being destroyed: its week index goes with it. NULL is ignored.
void forgetWeekIndex(const List *list) noexcept;

// The largest of `init` and the counts of `count` consecutive cells (none
// when count <= 0), in a loop the compiler turns into vector code
// (cellscan.cpp).
int maxBookedInCells(const ResPlannerEnt *cells, int count, int init) noexcept;

// What ResPlannerList_map with ResPlannerEnt_getMaxRsv finds over
// `timeWindow` on the host's list, starting from 0: the same weeks, windows
// and cells, but without a week array, a window text or a new planner on the
// heap (a week without a planner is filled on the stack). `list` NULL gives
// 0, as the map gives. Allocates nothing unless the host's recurring
// bookings have to be read through the recurring index the first time.
int maxBookedOverWindow(List *list, RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring,
                        RsvEnt *rsv);

// Planners built when first needed (lazyplanners.cpp). In a lazy table a
// host without a planner list whose reservations are in the table is
// unbuilt: its bookings live only in the entries until a call asks for the
// list, which RsvTimeTbl_getPlannerList then builds from them.

// Whether `tbl` builds its hosts' planners when first needed.
bool plannersLazy(const RsvTimeTbl *tbl) noexcept;

// Forget the mode of `tbl` (the table is being freed). NULL is ignored.
void dropLazyPlanners(const RsvTimeTbl *tbl) noexcept;

// A new planner list of `hostName` holding the bookings of every share of
// the host in the table, weeks in the order the bookings of the table's
// entries would add them. In no table; NULL when memory runs out (counted as
// a failed allocation, nothing left behind).
List *buildPlannerList(RsvTimeTbl *tbl, const char *hostName) noexcept;

// The host's planner list in the table, or, in a lazy table, the one built
// now when a reservation of the table holds the host; NULL when the host has
// none (nor would have in an eager table), or with `failed` set when memory
// runs out.
List *plannerListIfAny(RsvTimeTbl *tbl, const char *hostName, bool &failed) noexcept;

// Builds the planner list of every host a reservation holds that has none
// yet. False when memory runs out (the lists built so far stay).
bool buildAllPlannerLists(RsvTimeTbl *tbl) noexcept;

// Whether RsvTimeTbl_trimPastWeeks has dropped the planners of `week` in
// `tbl` (trimweeks.cpp): the week was over when the table was last trimmed.
bool weekTrimmed(const RsvTimeTbl *tbl, const RsvWeek &week) noexcept;

// What a host can hold: its configured slot limit, or its processor count
// when no limit is configured (alloc.cpp).
int hostCapacity(const RsvHost *host);

// The planner steps of changing a reservation's hosts (hostchange.cpp). The
// table layer (table/hostchanges.cpp) finds the entry and checks the
// arguments; these take the entry, which must be in `tbl`, and every
// argument non-NULL except `hosts`.

// Grows `ent` by the request's asked hosts and processor range over the
// request's window (RsvTimeTbl_modEntrywithAddHosts after its look-up).
// 0, or -1 with qob_errno as that call; a failure leaves the entry and the
// planners as they were.
int addHostsToEntry(RsvTimeTbl *tbl, RsvModReq *modReq, RsvEnt *ent);

// Gives back hosts or processors of `ent` (RsvTimeTbl_modEntryWithRmHosts
// after its look-up): the slots removed, or -1 with qob_errno as that call.
int removeHostsFromEntry(RsvTimeTbl *tbl, RsvModReq *modReq, RsvEnt *ent, HashTab *hosts, int rmFlags);

} // namespace rsv

#endif
