/* qob.rsvimpl.h: the advance-reservation module of the master daemon.
 *
 * This is the one header a daemon includes. It declares the module's records
 * and operations and the base-library interfaces they use (hash table, list,
 * dates, text, logging, the clock and the batch library's qob_errno, each
 * documented in its own header). It compiles as C11 and as C++; every
 * function has C linkage.
 *
 * The module is not reentrant: call it from one thread at a time. It keeps
 * module-level state (the daemon's services, the per-owner id counters and
 * a few static buffers named below).
 *
 * Memory: records made by the module come from the daemon's allocZeroed and
 * dupString services (calloc and strdup before RsvMod_init) and are released
 * with free(). Every text or array a call hands out is either a heap block
 * the caller frees with free(), or a module-static buffer that the next call
 * overwrites; each contract below says which. A <Record>_destroy call
 * releases what a record owns, never the record itself.
 *
 * Errors: a call either returns an error number (RSV_OK is 0) or returns -1
 * or NULL and stores the number in qob_errno; each contract says which.
 * qob_errno is never cleared on success.
 *
 * Files: the table's state file holds one record line per reservation and
 * the id file the per-owner counters. By default every change that the
 * contracts call "writes the files" rewrites the state file in place and
 * then the id file, with no error detected; durable mode (bottom of this
 * header) writes both atomically instead.
 *
 * Times are local calendar time in seconds since the epoch, read through the
 * replaceable clock of kx_clock.h.
 *
 * Change reservations only through the module's calls: the planners keep an
 * index of recurring bookings that those calls keep up to date, so an entry's
 * hosts, options or table slot changed by hand would not be seen by it. */
#ifndef QOB_RSVIMPL_H
#define QOB_RSVIMPL_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include "kx_clock.h"
#include "kx_dates.h"
#include "kx_hash.h"
#include "kx_list.h"
#include "kx_log.h"
#include "kx_text.h"
#include "qob_batch.h"

#ifdef __cplusplus
extern "C" {
#endif
#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility push(default) /* the library's public surface */
#endif

/* ------------------------------------------------------------------------ */
/* Constants                                                                */
/* ------------------------------------------------------------------------ */

/* The record-format version written into every record and the id file. */
#define RSV_FORMAT_VERSION "9.11"

/* Option bits of RsvReq.options and RsvEnt.options; other bits are carried
 * through unchanged. */
enum {
    RSV_OPT_SYSTEM = 0x4,      /* takes every free slot; identifier "system#n" */
    RSV_OPT_RECURRING = 0x8,   /* the window is daily or weekly */
    RSV_OPT_NAME_ONLY = 0x80000 /* an entry of the daemon's name table */
};

/* Option bits of a modification request read by RsvEnt_updateWithMod. */
enum {
    RSV_MOD_DESCRIPTION = 0x8000,
    RSV_MOD_TIMEWINDOW = 0x10000,
    RSV_MOD_RUNFLAG = 0x20000,
    RSV_MOD_NAME = 0x40000
};

/* Removal flags of RsvTimeTbl_modEntryWithRmHosts and RsvTimeTbl_removeHosts. */
enum {
    RSV_RM_HOSTS = 1,     /* whole hosts (see RsvTimeTbl_modEntryWithRmHosts) */
    RSV_RM_NUMPROCS = 2,  /* a number of processors (the request's range) */
    RSV_RM_UNFLAGGED = 4, /* with RSV_RM_HOSTS: also hosts without RSV_HOST_STATUS_FLAGGED */
    RSV_RM_MARKED = 8     /* with RSV_RM_HOSTS: also hosts with RSV_HOST_ATTR_MARKED */
};

/* Occurrence modes of Rsv_time2occur and Rsv_timeToOccurFromGivenTime. */
enum {
    RSV_OCCUR_ASIS = 0,
    RSV_OCCUR_NEXT = 1,
    RSV_OCCUR_AFTER_TODAY = 2,
    RSV_OCCUR_TODAY = 3
};

/* RsvEnt.state: 0 for a new entry, then one of these. */
enum {
    RSV_STATE_INACTIVE = 1,
    RSV_STATE_ACTIVE = 4
};

/* Planner geometry: 7 days (0 = Sunday) of 144 ten-minute cells. */
enum {
    RSV_PLANNER_DAYS = 7,
    RSV_PLANNER_SLOTS_PER_DAY = 144
};

/* Error numbers, returned or stored in qob_errno. */
enum {
    RSV_OK = 0,
    RSV_ERR_BAD_HOST = 23,          /* a host name resolves to no host */
    RSV_ERR_NO_TEXT = 35,           /* no date text given */
    RSV_ERR_BAD_TIME_WINDOW = 36,   /* malformed time window */
    RSV_ERR_BAD_ARGUMENT = 52,      /* NULL argument, or a recurring-only call on a one-off entry */
    RSV_ERR_NO_MEMORY = 55,         /* an allocation or copy failed */
    RSV_ERR_NOT_ENOUGH_SLOTS = 190, /* fewer reservable slots than asked */
    RSV_ERR_NO_RSV = 191,           /* identifier not in the table (returned only) */
    RSV_ERR_NO_RSV_ID = 192,        /* no identifier could be made */
    RSV_ERR_START_IN_PAST = 247,    /* the start of a window is not acceptable */
    RSV_ERR_END_INVALID = 248,      /* the end of a window is not acceptable */
    RSV_ERR_NO_SUCH_RSV = 311,      /* reservation to change not found, or without hosts */
    RSV_ERR_NOTHING_LEFT = 317,     /* a removal would leave nothing, or contradictory flags */
    RSV_ERR_BAD_DATE = 320,         /* malformed or impossible disabled date */
    RSV_ERR_START_OF_ACTIVE = 323,  /* the start of an active reservation cannot change */
    RSV_ERR_DURATION_EXISTS = 325,  /* the days are already disabled */
    RSV_ERR_HOST_NOT_IN_RSV = 327,  /* the named hosts are not in the reservation */
    RSV_ERR_HOST_IN_USE = 330,      /* a host to remove is in use by jobs */
    RSV_ERR_DATE_IN_PAST = 334,     /* a disabled date before today */
    RSV_ERR_DAY_MISMATCH = 337,     /* one point of a recurring window names a day, the other not */
    RSV_ERR_END_BEFORE_START = 385, /* the end lies before the start */
    /* Added by this module beyond the daemon's numbers (durable mode). */
    RSV_ERR_NOT_SAVED = 600,    /* a file could not be written; errno says why */
    RSV_ERR_INCONSISTENT = 601, /* RsvTimeTbl_verify found a broken invariant */
    RSV_ERR_NOT_DISABLED = 602  /* none of the days to enable is disabled */
};

/* Host record bits tested when hosts are removed by flag. */
#define RSV_HOST_STATUS_FLAGGED 0x80000000u
#define RSV_HOST_ATTR_MARKED 0x20u

/* ------------------------------------------------------------------------ */
/* Records the daemon hands in                                              */
/* ------------------------------------------------------------------------ */

/* The daemon's view of one host. Capacity is maxSlots, or numCpus when
 * maxSlots is 2147483647. */
typedef struct RsvHost {
    int maxSlots;        /* 2147483647 means no configured limit */
    int numCpus;
    unsigned int status; /* bit 0x80000000 tested when hosts are removed */
    unsigned int attr;   /* bit 0x20 tested likewise */
} RsvHost;

/* The daemon's view of one job. */
typedef struct RsvJob {
    int64_t jobId;
    int status;          /* bits 0x2, 0x4, 0x8, 0x10: running-like */
    int rsvFlags;        /* reservation-state flags word (setJobRsvInActive) */
    int numExecHosts;
    RsvHost **execHosts; /* compared by identity with findHost's records */
} RsvJob;

/* The table of nine services the daemon installs with RsvMod_init. The two
 * reserved slots are never called. findHost and officialHostName must be set;
 * a NULL allocZeroed or dupString falls back to calloc or strdup, a NULL
 * findJob means no job look-ups, rsvNameTable no name table, maxRsvPerOwner
 * a limit of 100. Blocks and texts they return are released with free. */
typedef struct RsvMiscFuncs {
    void (*reservedService0)(void);
    /* calloc-like; caller is the calling operation's name, for reports */
    void *(*allocZeroed)(int count, size_t size, const char *caller);
    void (*reservedService2)(void);
    char *(*dupString)(const char *text);          /* strdup-like */
    RsvJob *(*findJob)(int64_t jobId);             /* NULL: unknown job */
    RsvHost *(*findHost)(const char *hostName);    /* NULL: unknown host */
    char *(*officialHostName)(const char *hostName); /* new text, or NULL: unknown */
    HashTab *(*rsvNameTable)(void);                /* the daemon's name table */
    int (*maxRsvPerOwner)(void);                   /* used when in 1..10000 */
} RsvMiscFuncs;

/* A reservation request. */
typedef struct RsvReq {
    int options;        /* RSV_OPT_* bits; RSV_MOD_* bits in a modification */
    char *name;         /* owner: user or user group */
    int minNumProcs;    /* the range of slots asked for */
    int maxNumProcs;
    int numAskedHosts;
    char **askedHosts;  /* official names (see RsvTimeTbl_getReservableAlloc);
                           heap texts: resolved names replace them in place */
    char *timeWindow;   /* "start-end"; in a modification "start&end" */
    char *description;  /* may be NULL */
    char *rsvId;        /* the identifier asked for by a name-only entry */
} RsvReq;

/* A modification request: the reservation and the change. */
typedef struct RsvModReq {
    char *rsvId;
    RsvReq req;
} RsvModReq;

/* ------------------------------------------------------------------------ */
/* Records the module owns                                                  */
/* ------------------------------------------------------------------------ */

/* One calendar week, Sunday to Saturday (months 0..11, full years); all zero
 * in the recurring week rsvWeekRecur. Weeks compare by their start half. */
typedef struct RsvWeek {
    int startDay;
    int startWeekday;
    int startMonth;
    int startYear;
    int endDay;
    int endWeekday;
    int endMonth;
    int endYear;
} RsvWeek;

/* One calendar day. */
typedef struct tmDay {
    int mday;  /* 1..31 */
    int wday;  /* 0 = Sunday; carried, never compared */
    int mon;   /* 0..11 */
    int year;  /* full year */
} tmDay;

/* One disabled duration of a recurring reservation, both days inclusive.
 * A single heap block (a list element), released with free. */
typedef struct RsvDisableDuration {
    ListEntry links;
    tmDay firstDay;
    tmDay lastDay;
} RsvDisableDuration;

/* One element of a reservation's allocation vector. */
typedef struct AllocElem {
    char *hostName;   /* owned; official host name */
    int numSlots;
    int extra1;       /* slots held by jobs, kept by the daemon */
    int extra2;
} AllocElem;

/* One element of a reservable allocation: laid out exactly like AllocElem.
 * The host names are shared with the request's askedHosts. */
typedef struct ResAlloc {
    char *hostName;
    int numSlots;
    int extra1;
    int extra2;
} ResAlloc;

/* One element of a reservation's job list: a single heap block. */
typedef struct RsvJobEnt {
    ListEntry links;
    int64_t jobId;
} RsvJobEnt;

/* One advance reservation. Every pointer member is owned by the entry. */
typedef struct RsvEnt {
    time_t createTime;
    time_t activeTime;        /* set by the first activation, 0 while inactive */
    char *version;            /* record-format version, "9.11" */
    int options;              /* RSV_OPT_* and the modification marks */
    int auxValue;             /* carried in the record, not interpreted */
    char *rsvId;
    char *name;               /* owner */
    int numHosts;             /* elements of allocVector */
    AllocElem *allocVector;
    char *timeWindow;
    int64_t duration;         /* seconds of one occurrence */
    char creator[40];
    int numJobs;              /* elements of jobList */
    List *jobList;            /* of RsvJobEnt */
    int state;                /* 0, RSV_STATE_INACTIVE or RSV_STATE_ACTIVE */
    int reserved15;
    void *reserved16;
    void *reserved17;
    RsvExecCmd *execCmd;
    char *description;        /* NULL when absent */
    char *timeDuration;       /* readable current instance */
    List *disabledDurations;  /* of RsvDisableDuration, sorted; NULL until needed */
} RsvEnt;

/* The reservation table. Pass &tbl->entries where a hash table is asked for. */
typedef struct RsvTimeTbl {
    HashTab entries;       /* rsvId -> RsvEnt */
    HashTab plannerLists;  /* host name -> List of ResPlanner */
    char *stateFile;       /* "" when none */
    char *idFile;          /* "" when the state file name has no '.' */
} RsvTimeTbl;

/* One 10-minute cell of a planner: the slots booked on the host then. */
typedef struct ResPlannerEnt {
    int reserved;
} ResPlannerEnt;

/* One host's capacity book for one week (the list element itself). */
typedef struct ResPlanner {
    ListEntry links;
    char *plannerName;
    RsvWeek week;
    ResPlannerEnt slots[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
} ResPlanner;

/* A planner cell operation; getMaxRsv's accumulator travels as
 * (int64_t)(intptr_t)&acc for an int acc. */
typedef int64_t (*ResPlannerOp)(ResPlannerEnt *cell, int64_t arg);

/* Information reply: deep copies, owned by the reply. */
typedef struct RsvHostInfo {
    char *hostName;      /* "lost_and_found" for a host the daemon lost */
    int numCpus;
    int maxSlots;
    int numSlots;        /* slots the reservation holds on the host */
    int numUsedSlots;    /* extra1 + extra2 */
    int numJobsOnHost;   /* running jobs of the reservation on the host */
} RsvHostInfo;

typedef struct RsvInfoEnt {
    int options;
    char *rsvId;
    char *name;
    int numHosts;
    RsvHostInfo *hostInfo;
    char *timeWindow;
    int numJobs;              /* 0 for an identifier holding '@' */
    int64_t *jobIds;          /* the entry's numJobs elements, or NULL */
    int *jobStatus;           /* likewise; 0 for a job findJob does not know */
    char *description;
    char **disabledDurations; /* NULL-terminated, or NULL */
    int state;
    char *timeDuration;
    char *creator;
} RsvInfoEnt;

typedef struct RsvInfoReply {
    int numReservations;
    RsvInfoEnt *rsvInfo;      /* NULL when there are none */
} RsvInfoReply;

/* Finish record for the daemon's event log. */
typedef struct RsvFinishHost {
    char *hostName;
    int numSlots;
} RsvFinishHost;

typedef struct RsvFinishLog {
    time_t createTime;
    int options;
    int auxValue;
    char *rsvId;
    char *name;
    int numHosts;
    RsvFinishHost *hosts;
    char *timeWindow;
    int64_t activeDuration;
    char *creator;
} RsvFinishLog;

/* The recurring (any-week) planner's week: all zero. */
extern const RsvWeek rsvWeekRecur;

/* The daemon's services as RsvMod_init copied them; every allocation, string
 * copy and host or job look-up of the module goes through this table. */
extern RsvMiscFuncs miscFuncs;

/* The owner counters of the identifiers: owner name -> the last number
 * handed out, kept as an int in the entry's value slot. Made on first use
 * (NULL until then), shared by every table of the process, released only by
 * RsvId_clearTbl. */
extern HashTab *rsvIdTbl;

/* ======================================================================== */
/* Start-up                                                                 */
/* ======================================================================== */
/* A daemon installs its services, makes the table for its state file and
 * loads both files:
 *     RsvMod_init(&services);
 *     tbl = RsvTimeTbl_new("/var/spool/rsv.state");   (id file rsv.ids)
 *     RsvTimeTbl_load(tbl, &rejected);
 * RsvTimeTbl_load gives the table that initRsvIdTbl followed by
 * RsvEnt_newByString and RsvTimeTbl_restoreEntry for each line gives (into
 * an empty table it restores every line first and then books host by host).
 * The table is the daemon's until RsvTimeTbl_free. */

/* Install the daemon's services, copied by value; a second call replaces
 * them, NULL is ignored. Must run before any other call of the module
 * (qob_getdisableddates alone also works without it). */
void RsvMod_init(const RsvMiscFuncs *services);

/* A new empty table whose state file is `stateFile` (copied; NULL: none) and
 * whose id file is the same name with everything after its last '.' made
 * "ids" (/a/rsv.state -> /a/rsv.ids; "" without a '.'). Owned by the caller
 * (RsvTimeTbl_free). NULL, nothing allocated, when the name is longer than
 * 1024 characters (logged) or memory runs out (qob_errno RSV_ERR_NO_MEMORY).
 * Writes no file; without a state file every later write logs message 6105. */
RsvTimeTbl *RsvTimeTbl_new(const char *stateFile);

/* Release a table made by RsvTimeTbl_new with everything it owns: entries
 * (members and records), planner lists and planners, file names, the record.
 * NULL is ignored. Writes no file; the module-wide id counters stay. Not for
 * temporary tables (RsvTimeTbl_freeTmpTable). */
void RsvTimeTbl_free(RsvTimeTbl *tbl);

/* ======================================================================== */
/* Reservation table                                                        */
/* ======================================================================== */
/* The table holds the reservations by identifier and each host's planner
 * list. Adding and removing write the files; restoring, replacing and the
 * host checks write nothing. Changes of one reservation that write the files
 * are the combined changes of the capacity group; RsvTimeTbl_removeEntries,
 * RsvTimeTbl_activate and RsvTimeTbl_deactivate are with durable mode. */

/* Check the request against the asked hosts' free slots over its window,
 * make an identifier, book the slots (hosts in request order, each offering
 * at most minNumProcs when that is > 0, just enough hosts to reach
 * minNumProcs, at most maxNumProcs in all; a system request takes every free
 * slot), record the entry and write the files. Returns the identifier, a heap
 * text the caller frees. NULL with qob_errno RSV_ERR_BAD_ARGUMENT (NULL or
 * malformed argument), RSV_ERR_NOT_ENOUGH_SLOTS (fewer free than
 * minNumProcs, none, or a system request meeting a taken slot),
 * RSV_ERR_NO_RSV_ID (owner at its limit, or identifier already in the table),
 * RSV_ERR_NO_MEMORY or RSV_ERR_NOT_SAVED: nothing booked, table, counter and
 * files unchanged; but askedHosts now hold official names (old texts freed)
 * and a system request's min/maxNumProcs the reservable count. A description
 * of "" is not stored. Ask by official host names (an alias is checked
 * against an empty planner list, see RsvTimeTbl_getReservableAlloc). */
char *RsvTimeTbl_addEntry(RsvTimeTbl *tbl, RsvReq *req);

/* The entry of `rsvId`, still owned by the table; NULL when it is absent or
 * an argument is NULL. */
RsvEnt *RsvTimeTbl_getEntry(RsvTimeTbl *tbl, const char *rsvId);

/* Put `newEntry` (then owned by the table) in place of the entry of `rsvId`,
 * which is destroyed and freed. Bookings and files are not touched: the
 * caller keeps the planners in step and saves. 0 (also when newEntry is the
 * stored entry); -1, no error number, when the identifier is absent or an
 * argument NULL (newEntry stays the caller's). */
int RsvTimeTbl_replaceEntry(RsvTimeTbl *tbl, const char *rsvId, RsvEnt *newEntry);

/* Start-up, for an entry read by RsvEnt_newByString: book its hosts' slots,
 * record it under its rsvId and set its owner's counter (RsvId_setCur). The
 * table takes the entry only when it has at least one host; otherwise it
 * stays the caller's to destroy and free (RsvTimeTbl_getEntry tells which),
 * though the counter still moves. An identifier restored earlier as another
 * record is replaced (its bookings released, record freed, warning logged).
 * Writes no file; NULL arguments do nothing. */
void RsvTimeTbl_restoreEntry(RsvTimeTbl *tbl, RsvEnt *ent);

/* Release the reservation's bookings, drop its name-table entry (kept while
 * jobs use it), remove it from the table, destroy and free it (pointers to it
 * become invalid) and write the files. 0; RSV_ERR_NO_RSV when absent or an
 * argument is NULL (returned only, nothing written); RSV_ERR_NO_MEMORY or
 * RSV_ERR_NOT_SAVED, returned and stored in qob_errno, nothing changed. */
int RsvTimeTbl_removeEntry(RsvTimeTbl *tbl, const char *rsvId);

/* Record `rsvId` in the daemon's name table (rsvNameTable()) as a name-only
 * entry (RSV_OPT_NAME_ONLY, owner rsvId) owned by that table. An entry
 * already under that key is overwritten, not freed (jobs may hold it). NULL
 * arguments or no memory: nothing happens, no error number. */
void RsvTimeTbl_addNameEntry(HashTab *nameTable, const char *rsvId);

/* Drop the name-only entry of `rsvId` from the name table and destroy and
 * free it, unless its numJobs is non-zero (then it stays). 0, also for a NULL
 * or empty table or a NULL identifier; RSV_ERR_NO_RSV (returned only) when
 * the identifier is absent. */
int RsvTimeTbl_removeNameEntry(HashTab *nameTable, const char *rsvId);

/* Log a warning (message 6100) when the most slots booked in any 10-minute
 * cell of the host's week exceed its maxSlots. An unknown host or a NULL
 * argument is silent. Writes nothing; a host without a planner list gets a
 * new one with no bookings. */
void RsvTimeTbl_checkHost(RsvTimeTbl *tbl, const char *hostName);

/* After the daemon reloads its hosts: log an error (message 6101) for every
 * reserved host that findHost no longer knows, keeping the reservation as it
 * is, then RsvTimeTbl_checkHost for every planned host. Changes nothing and
 * writes nothing. */
void RsvTimeTbl_checkEntries(RsvTimeTbl *tbl);

/* Fill the caller's temporary table `tmpTbl` (e.g. RsvTimeTbl_new(NULL)) with
 * a shallow copy of `ent` (members shared with the real entry) and a byte
 * copy of each of its hosts' planner lists (planner names shared), so that a
 * change can be tried without touching the real planners. 0, or -1 (no error
 * number) for a NULL argument, an identifier or host already in tmpTbl, or no
 * memory; what was copied so far stays. Release with RsvTimeTbl_freeTmpTable. */
int Rsv_dupTimeTbl4CurrRsv(RsvTimeTbl *tbl, RsvEnt *ent, RsvTimeTbl *tmpTbl);

/* Release a temporary table: its copied planner lists (not the shared planner
 * names), its shallow entry records (not their shared members), its file
 * names and the record. NULL is ignored. */
void RsvTimeTbl_freeTmpTable(RsvTimeTbl *tmpTbl);

/* Add the official name of `hostName` to the caller's host set *hostSet
 * (value: an int 1 from allocZeroed, released with free). 0, also when it is
 * already there; -1 for a NULL argument (no error number), or -1 with
 * qob_errno RSV_ERR_BAD_HOST (unknown host) or RSV_ERR_NO_MEMORY. A failure
 * leaves the set unchanged. */
int RsvMod_aHostInTab(HashTab **hostSet, const char *hostName);

/* ======================================================================== */
/* Reservation entry                                                        */
/* ======================================================================== */
/* An entry belongs to whoever made it until a table takes it (addEntry makes
 * its own; restoreEntry and replaceEntry take one). activeTime is non-zero
 * exactly between a setRsvActive and the next setRsvInactive; the finish
 * record measures from it. */

/* A new entry owned by the caller (RsvEnt_destroy, then free): version
 * "9.11", created now, state 0, the window's duration, no identifier, hosts,
 * jobs or description. A NULL name or window is "". NULL with qob_errno
 * RSV_ERR_NO_MEMORY when an allocation fails (nothing left allocated). */
RsvEnt *RsvEnt_new(int options, const char *name, const char *timeWindow);

/* Release what the entry owns (texts, allocation vector, job and
 * disabled-duration lists with their elements, the command record through
 * qob_freeRsvExecCmd) and set each field to NULL; the record stays for the
 * caller to free and numHosts is left as it was. NULL is ignored. Not for an
 * entry still in a table. */
void RsvEnt_destroy(RsvEnt *ent);

/* 1 when `ent` is not NULL and its state is RSV_STATE_ACTIVE, else 0. */
int isRsvActive(const RsvEnt *ent);

/* Mark the entry active (state 4). An activeTime of 0 is stamped with the
 * current time and the files are written; an entry already stamped keeps its
 * activeTime and nothing is written. NULL entry: nothing but qob_errno
 * RSV_ERR_BAD_ARGUMENT; NULL table: no file written. RsvTimeTbl_activate
 * tells the outcome. */
void setRsvActive(RsvTimeTbl *tbl, RsvEnt *ent);

/* Mark the entry inactive (state 1). When activeTime was set it goes back to
 * 0 and the files are written; a change of state alone writes nothing. NULL
 * arguments as for setRsvActive; RsvTimeTbl_deactivate tells the outcome. */
void setRsvInactive(RsvTimeTbl *tbl, RsvEnt *ent);

/* Free the host names of the first `count` elements of *vector, then the
 * vector, and set *vector to NULL (pass &ent->allocVector, ent->numHosts;
 * numHosts is the caller's to reset). A NULL address or vector is ignored. */
void RsvEnt_freeAllocVector(AllocElem **vector, int count);

/* A deep copy of the entry's numHosts allocation elements, owned by the
 * caller (RsvEnt_freeAllocVector). NULL, no error number, for a NULL entry,
 * no hosts, or no memory (nothing left allocated). */
AllocElem *RsvEnt_DupAllocVector(const RsvEnt *ent);

/* ======================================================================== */
/* Capacity planning                                                        */
/* ======================================================================== */
/* Each host has a planner list (tbl->plannerLists, keyed by the host name as
 * given): first the zero-week planner (rsvWeekRecur), which holds recurring
 * reservations for any week, then one dated planner per calendar week in
 * which a one-off reservation was booked; planners live as long as the
 * table. A planner counts booked slots in 7 x 144 ten-minute cells. A host's
 * capacity is maxSlots, or numCpus when maxSlots is 2147483647; its free
 * slots over a window are the capacity minus the most booked in any covered
 * cell of any week the window touches. Planner windows are "D:H:M-D:H:M"
 * (D 1..7, 7 and 0 both Sunday; "0:0:0" an open end of the week), daily
 * "H:M-H:M", or "0:0:0-0:0:0" for the whole week. */

/* --- weekly planner --- */

/* A new planner of `hostName` for `week` (copied; NULL means the zero week),
 * every cell 0, named "Resource Weekly Planner for host <host>". Owned by
 * the caller (ResPlanner_destroy). NULL when memory runs out. */
ResPlanner *ResPlanner_new(const char *hostName, const RsvWeek *week);

/* Free the planner's name and the planner; unlink it from its list first.
 * NULL is ignored. */
void ResPlanner_destroy(ResPlanner *planner);

/* Apply op(cell, arg) to every cell that the planner window `timeWindow`
 * covers in the planner's week; starts round down and ends up to the
 * 10-minute grid, and a daily window may wrap past midnight.
 * On a dated planner, the days on which an occurrence of the recurring
 * reservation `rsv` (may be NULL) is disabled are skipped. A text that is no
 * window changes nothing; nothing is reported. */
void ResPlanner_map(ResPlanner *planner, const char *timeWindow, ResPlannerOp op, int64_t arg, RsvEnt *rsv);

/* Book into `planner` the slots that every recurring reservation of `tbl`
 * holds on `hostName` (exact name), as a new dated planner needs. NULL
 * arguments do nothing. */
void ResPlanner_addRecurs(ResPlanner *planner, RsvTimeTbl *tbl, const char *hostName);

/* List-search predicate (ListEntryEqualFunc): non-zero when the ResPlanner
 * `planner` covers the RsvWeek `week`; the third argument is ignored. */
int ResPlanner_equal(void *planner, void *week, int ignored);

/* List-search predicate of the trim step: always 0, so no planner is ever
 * trimmed. */
int ResPlanner_isOutdated(void *planner, void *week, int ignored);

/* Cell operation: add n (a 32-bit count) to the cell; returns the new count
 * (0 for a NULL cell). */
int64_t ResPlannerEnt_incr(ResPlannerEnt *cell, int64_t n);

/* Cell operation: subtract n from the cell; returns n, not the new count
 * (kept on purpose: no caller reads it). */
int64_t ResPlannerEnt_decr(ResPlannerEnt *cell, int64_t n);

/* Cell operation: `accumulator` is (int64_t)(intptr_t)&acc for an int acc,
 * which becomes the larger of acc and the cell's count (a tie keeps acc).
 * Returns the new acc (0 when the pointer is NULL). */
int64_t ResPlannerEnt_getMaxRsv(ResPlannerEnt *cell, int64_t accumulator);

/* Destroy a planner list and its planners with freePlanner_t, which leaves
 * the planner names alone (for the lists of a temporary table, whose names
 * belong to the real table). Fits h_freeTab_'s value destructor. NULL is
 * ignored. */
void freePlanner(void *plannerList);

/* Free one planner record, not its plannerName. NULL is ignored. */
void freePlanner_t(void *planner);

/* --- planner lists and weeks --- */

/* The planner list of `hostName` (the name as given is the key), made on
 * first use holding only the zero-week planner; owned by the table. NULL when
 * an argument is NULL or memory runs out (the table unchanged). */
List *RsvTimeTbl_getPlannerList(RsvTimeTbl *tbl, const char *hostName);

/* Apply `op` with `arg` over `timeWindow` to the host's planners: every
 * planner of the list for a recurring window (`recurring` non-zero), else each
 * calendar week the one-off "start-end" window touches, with the part inside
 * it. A week without a planner gets a new one holding the host's recurring
 * bookings, appended when `keepNew` is non-zero and thrown away otherwise
 * (queries leave nothing behind). `rsv` (may be NULL) is the reservation
 * whose disabled days dated planners skip. NULL list, window or op: nothing. */
void ResPlannerList_map(List *plannerList, RsvTimeTbl *tbl, const char *hostName, const char *timeWindow,
                        int recurring, ResPlannerOp op, int64_t arg, int keepNew, RsvEnt *rsv);

/* Copies of every planner's week, in list order, in an array the caller
 * frees; *numWeeks gets the count. NULL with *numWeeks 0 for a NULL or empty
 * list or no memory. */
RsvWeek *ResPlannerList_getWeeks(List *plannerList, int *numWeeks);

/* The calendar weeks (Sunday to Saturday) that the one-off window
 * "start-end" (epoch seconds) spans, in an array the caller frees; *numWeeks
 * gets the count. NULL with 0 for a NULL text, an end before the start, or
 * no memory. */
RsvWeek *RsvTimeWindow_getWeeks(const char *timeWindow, int *numWeeks);

/* Remove the planners that ResPlanner_isOutdated reports: since it never
 * does, the list is left as it is. */
void ResPlannerList_trimOutdatedPlanners(List *plannerList);

/* The planner window of the part of the one-off window inside `week`: each
 * end that falls in the week as its "D:H:M", the other "0:0:0". A heap text
 * the caller frees; NULL for a NULL argument or no memory. */
char *RsvWeek_getOverlapTimeWindow(const RsvWeek *week, const char *timeWindow);

/* Non-zero when the two weeks start on the same day (the end half is not
 * compared). Two NULLs are equal; NULL and a week are not. */
int RsvWeek_equal(const RsvWeek *a, const RsvWeek *b);

/* Fill *week with the local week that contains t (the zero week when t has
 * no local date). A NULL week is ignored. */
void RsvTime_toWeek(time_t t, RsvWeek *week);

/* The week of the current time, in a module-static record that the next call
 * overwrites (do not free). */
RsvWeek *Rsv_thisWeek(void);

/* "D:H:M" of t in local time, Sunday written 7, seconds dropped, in a
 * module-static buffer that the next call overwrites (do not free); "" when
 * t has no local time. */
char *RsvTime_toVktTimexpr(time_t t);

/* Split `timeWindow` at its first '-' into the caller's buffers `start` and
 * `end`, each of strlen(timeWindow) + 1 bytes; returns `end`. No '-': all of
 * it is the start and the end is "". NULL text: both "". */
char *RsvTimeWindow_toTimeRange(const char *timeWindow, char *start, char *end);

/* The same into buffers of `bufSize` bytes each; a longer part is cut. */
char *RsvTimeWindow_toTimeRangeBounded(const char *timeWindow, char *start, char *end, size_t bufSize);

/* --- slot allocation --- */

/* A zeroed array of `numElems` ResAlloc from allocZeroed; the caller frees
 * the array with free, not the host names in it. NULL when memory runs out
 * or numElems is negative. */
ResAlloc *ResAlloc_new(int numElems);

/* The free slots of each asked host over the request's window (0 for an
 * unknown or full host), capped at minNumProcs when that is > 0. *out gets
 * one element per asked host in request order; each official name replaces
 * the request's asked name (old text freed) and is shared by the element, so
 * free the array alone. Returns the sum, or -1 with qob_errno
 * RSV_ERR_BAD_ARGUMENT (NULL or malformed argument; *out untouched),
 * RSV_ERR_NO_MEMORY, or RSV_ERR_NOT_ENOUGH_SLOTS (a system request meeting
 * a taken slot); *out is then NULL. `ent` as for ResPlannerList_map. Ask by
 * official names: bookings are looked up in the planner list of the name as
 * asked, so an alias sees none of those made under the official name. */
int RsvTimeTbl_getReservableAlloc(RsvTimeTbl *tbl, RsvReq *req, ResAlloc **out, RsvEnt *ent);

/* Choose hosts from the `numAvail` offers in order, each filled as far as it
 * offers, until minNumProcs is reached, at most maxNumProcs in all, and book
 * them over the request's window. *out gets the new allocation vector (names
 * copied), owned by the caller; returns its number of hosts. 0 with *out NULL
 * on a NULL argument; when the vector cannot be allocated *out is NULL and
 * nothing is booked, but the count is still returned. Whether minNumProcs is
 * met is the caller's check; `mode` is ignored. */
int Rsv_alloc(RsvTimeTbl *tbl, int numAvail, ResAlloc *avail, RsvReq *req, AllocElem **out, const char *mode);

/* Give back every slot of the entry's allocation over its window; the entry
 * is not changed. NULL arguments are ignored. */
void Rsv_dealloc(RsvTimeTbl *tbl, RsvEnt *ent);

/* Free slots of `hostName` over `timeWindow` (of the kind `recurring`
 * says), negative when the host is over-reserved; 0 when the table or host
 * is NULL or unknown. `ent` as for ResPlannerList_map. Books nothing. */
int Rsv_getMaxAvailonHost(RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring, RsvEnt *ent);

/* Check that each host of the entry can hold its slots over `newTimeWindow`
 * (against maxSlots as it stands, without the numCpus fallback) and, with
 * `update` non-zero, book them there. Each host's booking over the entry's
 * current window is released first and never put back, whatever the result:
 * the caller then sets the entry's window (RsvEnt_updateWithMod) or drops it
 * (a second call before that releases the old window again). The entry is not
 * changed. 0, or -1 with qob_errno RSV_ERR_BAD_ARGUMENT, RSV_ERR_BAD_HOST or
 * RSV_ERR_NOT_ENOUGH_SLOTS; hosts after the failing one keep their booking.
 * RsvTimeTbl_modifyTimeWindow does all of this safely. */
int Rsv_chkupdRsv4NewTimeWindow(RsvTimeTbl *tbl, RsvEnt *ent, const char *newTimeWindow, int update);

/* --- changing a reservation's hosts (no file written) --- */

/* Grow the reservation modReq->rsvId by modReq->req's askedHosts and
 * min/maxNumProcs, booked over modReq->req.timeWindow and its
 * RSV_OPT_RECURRING bit, which must be the reservation's own (addHosts sees
 * to that). 0, or -1 with qob_errno RSV_ERR_BAD_ARGUMENT,
 * RSV_ERR_NO_SUCH_RSV, RSV_ERR_NOT_ENOUGH_SLOTS (fewer free than
 * minNumProcs), RSV_ERR_NO_MEMORY or the query's error; entry and planners
 * are then unchanged, but asked names are replaced by official ones. */
int RsvTimeTbl_modEntrywithAddHosts(RsvTimeTbl *tbl, RsvModReq *modReq);

/* Rebuild the entry's vector with the offers of `avail` added: hosts in
 * order, just enough to reach minNumProcs, at most maxNumProcs; a host
 * already held is rebooked with old plus new slots; an old host the booking
 * does not reach keeps its slots unless it was offered (then it is dropped).
 * Installs the vector and returns its size, which the caller stores in
 * ent->numHosts (trailing elements may be empty). Rewrites avail's numSlots
 * and extra1. -1 with qob_errno RSV_ERR_BAD_ARGUMENT or RSV_ERR_NO_MEMORY,
 * nothing changed. `mode` is ignored. */
int Rsv_reallocwithAddHosts(RsvTimeTbl *tbl, int numAvail, ResAlloc *avail, RsvModReq *modReq, RsvEnt *ent,
                            const char *mode);

/* Give back hosts or processors of the reservation modReq->rsvId.
 * RSV_RM_HOSTS: whole hosts, chosen by their host records: one without
 * RSV_HOST_STATUS_FLAGGED, or with RSV_HOST_ATTR_MARKED, only when it is a key
 * of `hosts` (values: int marks, set to 2 when found) or RSV_RM_UNFLAGGED or
 * RSV_RM_MARKED asks for it; any other host even when not named.
 * RSV_RM_NUMPROCS: modReq->req.minNumProcs..maxNumProcs processors, from the
 * hosts in order. Slots held by jobs (extra1, extra2) are never taken. Returns
 * the slots removed, or -1 with qob_errno RSV_ERR_BAD_ARGUMENT,
 * RSV_ERR_NO_SUCH_RSV, RSV_ERR_NOT_ENOUGH_SLOTS, RSV_ERR_NOTHING_LEFT,
 * RSV_ERR_HOST_NOT_IN_RSV, RSV_ERR_HOST_IN_USE or RSV_ERR_NO_MEMORY (when
 * only the new vector cannot be made, qob_errno is left alone). A failure
 * leaves entry and planners as they were; only the marks stay set. */
int RsvTimeTbl_modEntryWithRmHosts(RsvTimeTbl *tbl, RsvModReq *modReq, HashTab *hosts, int rmFlags);

/* -1 when every entry of `hosts` carries a mark other than 2 (no named host
 * was found in the reservation), else 0, also for a NULL or empty table; an
 * entry without a mark ends the walk. */
int Rsv_rmHosts_checkHostsInRsv(HashTab *hosts);

/* The slots the reservation holds on all its hosts; 0 for NULL or no hosts. */
int Rsv_getNumSlotsReserved(const RsvEnt *ent);

/* --- combined changes --- */
/* Each checks a change, applies it to the entry and the planners and writes
 * the files, in one call; a failure leaves the entry, the planners, the id
 * counters and the files as they were. A daemon should prefer them to the
 * low-level calls above. */

/* Move the reservation modReq->rsvId to the window that the modification
 * text "start&end" in modReq->req.timeWindow makes of its current one (see
 * RsvMod_buildTimeWindow), and apply modReq->req.options to the entry as
 * RsvEnt_updateWithMod does, with RSV_MOD_TIMEWINDOW added. The window is
 * checked with the one-off rules, so a recurring reservation's window is
 * refused (RSV_ERR_BAD_TIME_WINDOW). 0, with
 * modReq->req.timeWindow replaced by the complete new window (old text
 * freed); or the error number, also in qob_errno: RSV_ERR_BAD_ARGUMENT,
 * RSV_ERR_NO_SUCH_RSV, the window check's (RSV_ERR_BAD_TIME_WINDOW,
 * RSV_ERR_START_IN_PAST, RSV_ERR_END_INVALID, RSV_ERR_END_BEFORE_START,
 * RSV_ERR_START_OF_ACTIVE), RSV_ERR_BAD_HOST, RSV_ERR_NOT_ENOUGH_SLOTS,
 * RSV_ERR_NO_MEMORY or RSV_ERR_NOT_SAVED; the request is then unchanged. */
int RsvTimeTbl_modifyTimeWindow(RsvTimeTbl *tbl, RsvModReq *modReq);

/* Add the request's hosts or processors (modReq->req: askedHosts,
 * min/maxNumProcs) to the reservation modReq->rsvId, booked over its own
 * window whatever the request says. 0, or -1 with qob_errno as
 * RsvTimeTbl_modEntrywithAddHosts, or RSV_ERR_NOT_SAVED; asked names are
 * replaced by official ones even on failure. */
int RsvTimeTbl_addHosts(RsvTimeTbl *tbl, RsvModReq *modReq);

/* Remove hosts or processors as RsvTimeTbl_modEntryWithRmHosts does. The
 * slots removed, or -1 with qob_errno as that call, or RSV_ERR_NO_MEMORY or
 * RSV_ERR_NOT_SAVED. */
int RsvTimeTbl_removeHosts(RsvTimeTbl *tbl, RsvModReq *modReq, HashTab *hosts, int rmFlags);

/* Disable the days of `dateText` (the date forms of qob_getdisableddates,
 * none before today) for the recurring reservation `rsvId`; dated planners
 * free those days. 0, or -1 with qob_errno RSV_ERR_BAD_ARGUMENT (NULL
 * argument, one-off reservation), RSV_ERR_NO_SUCH_RSV, RSV_ERR_NO_TEXT,
 * RSV_ERR_BAD_DATE, RSV_ERR_DATE_IN_PAST, RSV_ERR_DURATION_EXISTS (already
 * disabled), RSV_ERR_NO_MEMORY or RSV_ERR_NOT_SAVED. */
int RsvTimeTbl_disableDays(RsvTimeTbl *tbl, const char *rsvId, const char *dateText);

/* RsvTimeTbl_disableDays for the `count` date texts of `dateTexts` at once,
 * in order, as one change with one save: all are disabled or none. A text
 * whose days the ones before it already disabled is refused like an
 * existing duration. 0, or -1 with qob_errno as RsvTimeTbl_disableDays
 * (RSV_ERR_BAD_ARGUMENT also for a NULL array or count < 1); *failedIndex
 * (may be NULL) gets the index of the text refused, else -1. A failure
 * leaves entry, planners and files as they were. */
int RsvTimeTbl_disableDayList(RsvTimeTbl *tbl, const char *rsvId, const char *const *dateTexts, int count,
                              int *failedIndex);

/* Enable again the days of the `count` date texts of `dateTexts` (the forms
 * of qob_getdisableddates, none before today) for the recurring reservation
 * `rsvId`: they leave its disabled durations (a duration is cut in two when
 * they lie inside it) and its slots are booked on them again, which needs
 * every host of the reservation to have its slots free there, as for a new
 * booking. One change with one save: all are enabled or none. 0, or -1 with
 * qob_errno RSV_ERR_BAD_ARGUMENT (NULL argument, count < 1, one-off
 * reservation), RSV_ERR_NO_SUCH_RSV, RSV_ERR_NO_TEXT, RSV_ERR_BAD_DATE,
 * RSV_ERR_DATE_IN_PAST, RSV_ERR_NOT_DISABLED (none of a text's days is
 * disabled), RSV_ERR_NOT_ENOUGH_SLOTS, RSV_ERR_NO_MEMORY or
 * RSV_ERR_NOT_SAVED; *failedIndex (may be NULL) gets the index of the text
 * refused, else -1. A failure leaves entry, planners and files as they
 * were. */
int RsvTimeTbl_enableDayList(RsvTimeTbl *tbl, const char *rsvId, const char *const *dateTexts, int count,
                             int *failedIndex);

/* Replace the description of `rsvId` (NULL or "" removes it); no other field
 * or option bit changes. 0, or -1 with qob_errno RSV_ERR_BAD_ARGUMENT,
 * RSV_ERR_NO_SUCH_RSV, RSV_ERR_NO_MEMORY or RSV_ERR_NOT_SAVED. */
int RsvTimeTbl_setDescription(RsvTimeTbl *tbl, const char *rsvId, const char *description);

/* ======================================================================== */
/* Time windows and occurrences                                             */
/* ======================================================================== */
/* A time window is "start-end", split at its first '-'. A one-off window is
 * two epoch-second numbers; a recurring one is two daily points "H[:M]" or
 * two weekly points "D:H:M" (D 1..7, 0 and 7 both Sunday; H up to 24 with
 * M 0). The reservation's RSV_OPT_RECURRING bit, not the text, says which.
 * The validation checks return an error number and store nothing. */

/* --- occurrence arithmetic --- */

/* Rsv_timeToOccurFromGivenTime relative to the current time. */
time_t Rsv_time2occur(const char *timePoint, int mode);

/* The calendar time of the wanted occurrence of the recurring point
 * `timePoint` relative to `reference`, seconds 0. RSV_OCCUR_NEXT: today if
 * still ahead (a daily point at the very minute moves to tomorrow, a weekly
 * one stays today), AFTER_TODAY: never today, TODAY: today for a daily point
 * or today's weekday, ASIS: a daily point taken as Sunday; another weekday
 * always falls within the coming week. A text that is no recurring point is
 * an absolute time (atoi). -1 for a NULL text; no error number. */
time_t Rsv_timeToOccurFromGivenTime(const char *timePoint, time_t reference, int mode);

/* The entry's stored length of one occurrence in seconds; 0 for NULL. */
int64_t RsvEnt_getDuration(const RsvEnt *ent);

/* Seconds from now to the next occurrence of the end point of the entry's
 * window; negative for a one-off window that has ended. 0 for a NULL entry or
 * window, a window without '-', or no memory. */
time_t RsvEnt_getLeftTime(const RsvEnt *ent);

/* Length of one occurrence in seconds: end minus start for a one-off window;
 * for a recurring one the end is searched from the start on, so 22:0-6:0 is
 * 8 hours. 0 for a NULL text, no '-', or no memory. */
int64_t RsvTimeWindow_toDuration(const char *timeWindow);

/* --- validation and modification --- */

/* 0 when `timeWindow` is acceptable for a new reservation, else its error
 * number: isNonRecValidTimeWindow when `recurring` is 0, else
 * isRecValidTimeWindow. */
int isValidTimeWindow(const char *timeWindow, int recurring);

/* One-off rules: 0 when both points lie after now; RSV_ERR_START_IN_PAST,
 * RSV_ERR_END_INVALID (end not after now), RSV_ERR_BAD_TIME_WINDOW (NULL, or
 * a point not all digits), RSV_ERR_NO_MEMORY. Start and end are not
 * compared, and a text without '-' is accepted as it stands. */
int isNonRecValidTimeWindow(const char *timeWindow);

/* Recurring rules: 0 for a well-formed daily or weekly window (a daily one
 * may wrap past midnight); RSV_ERR_BAD_TIME_WINDOW (NULL, no '-', a point
 * that does not parse), RSV_ERR_DAY_MISMATCH, RSV_ERR_END_INVALID (a daily
 * window of no length, a weekly one ending on its start day at or before its
 * start), RSV_ERR_NO_MEMORY. */
int isRecValidTimeWindow(const char *timeWindow);

/* Whether `ent` may move to the complete window `newTimeWindow`: 0 or the
 * error number. One-off rules (`recurring` 0): an inactive reservation gets
 * RSV_ERR_START_IN_PAST (a changed start not after now), RSV_ERR_END_INVALID
 * (end not after now) or RSV_ERR_END_BEFORE_START; an active one
 * RSV_ERR_START_OF_ACTIVE (start changed) or RSV_ERR_END_INVALID. Recurring:
 * only RSV_ERR_START_OF_ACTIVE. Also RSV_ERR_BAD_TIME_WINDOW (NULL or
 * malformed text), RSV_ERR_BAD_ARGUMENT (NULL entry), RSV_ERR_NO_MEMORY. */
int isValidModTimeWindow(const char *newTimeWindow, RsvEnt *ent, int recurring);

/* The window that the modification text "newStart&newEnd" makes of
 * `currentWindow`: each side "null" keeps the current point, "+N" or "-N"
 * moves it by N minutes, anything else replaces it. A heap text from
 * allocZeroed the caller frees; NULL for a NULL text, no '-' or '&', or no
 * memory. */
char *RsvMod_buildTimeWindow(const char *currentWindow, const char *modText);

/* Replace the modification text of modReq->req.timeWindow by the complete
 * window it makes of the entry's, once isValidModTimeWindow accepts it under
 * the one-off rules (whatever the reservation's kind): 0 (old text freed), or
 * the error number with the request unchanged: RSV_ERR_BAD_ARGUMENT (NULL
 * argument), RSV_ERR_BAD_TIME_WINDOW (a text that builds no window),
 * RSV_ERR_NO_MEMORY or the check's. Entry and planners are not touched. */
int RsvMod_updateModReqTimeWindow(RsvModReq *modReq, RsvEnt *ent);

/* Copy an accepted modification into the entry by modReq->req.options:
 * RSV_MOD_NAME (owner, and bits 0x1/0x2 from the request), RSV_MOD_TIMEWINDOW
 * (window and duration), RSV_MOD_RUNFLAG (0x100 or else 0x40); each of these
 * three is then set in the entry when given and cleared otherwise;
 * RSV_MOD_DESCRIPTION (NULL removes it); bits 0x1000/0x2000/0x4000 copied.
 * Planners and files are not touched. No memory: entry unchanged, no error
 * number. NULL arguments are ignored. */
void RsvEnt_updateWithMod(RsvEnt *ent, RsvModReq *modReq);

/* --- recurring instances --- */
/* The current instance at time T is the one whose end is the next end
 * occurrence after T (one in progress counts); the next instance starts at
 * the next start occurrence after now. Both can be moved past the entry's
 * disabled days. The instance calls report errors in qob_errno only and leave
 * their outputs untouched then. */

/* Fill *day with the local calendar day of t. 0; -1 with qob_errno
 * RSV_ERR_BAD_ARGUMENT for a NULL day or a time without a local date. */
int tmDay_getDayFromTime(time_t t, tmDay *day);

/* 1 when `a` lies before `b` (year, month, day; weekday ignored); for equal
 * days 1 when `orEqual` is non-zero; else 0, also on a NULL argument. */
int tmDay_earlierThan(const tmDay *a, const tmDay *b, int orEqual);

/* 1 when `b` is the calendar day before `a`, else 0 (also on NULL). */
int tmDay_dayAfter(const tmDay *a, const tmDay *b);

/* The instance of the recurring window current at `reference`, moved past
 * the durations of `disabledDurations` (may be NULL) it falls into; to
 * *start and *end when not NULL. A NULL window or one without '-' is logged
 * (6118, 6119) with qob_errno RSV_ERR_BAD_ARGUMENT; no memory gives
 * RSV_ERR_NO_MEMORY. */
void RsvTimeWindow_getCurrentInstance(const char *timeWindow, List *disabledDurations, time_t reference,
                                      time_t *start, time_t *end);

/* The entry's instance current at `reference`, its disabled days skipped
 * only when `useDisabled` is set and the entry is recurring. qob_errno
 * RSV_ERR_BAD_ARGUMENT for a NULL entry; else as
 * RsvTimeWindow_getCurrentInstance. */
void RsvEnt_getCurrentInstanceAtTime(RsvEnt *ent, int useDisabled, time_t reference, time_t *start, time_t *end);

/* RsvEnt_getCurrentInstanceAtTime at the current time. */
void RsvEnt_getCurrentInstance(RsvEnt *ent, int useDisabled, time_t *start, time_t *end);

/* The entry's next instance: the next start after now, moved past disabled
 * days when `useDisabled` is set (the recurring bit is not consulted), and
 * start plus the stored duration; to *start and *end when not NULL.
 * qob_errno RSV_ERR_BAD_ARGUMENT (NULL entry or window, no '-') or
 * RSV_ERR_NO_MEMORY. */
void RsvEnt_getNextInstance(RsvEnt *ent, int useDisabled, time_t *start, time_t *end);

/* Record start..end as the recurring entry's readable timeDuration (see
 * setCalendarTimeDuration; NULL when it cannot be allocated). One-off
 * entries and NULL are left alone. Writes no file. */
void RsvEnt_setNextInstance(RsvEnt *ent, time_t start, time_t end);

/* Replace *text (freed first: NULL or a heap text) with "<ctime start> -
 * <ctime end>" without newlines, a heap text from allocZeroed the caller
 * owns; NULL when it cannot be allocated. A NULL `text` is ignored. */
void setCalendarTimeDuration(time_t start, time_t end, char **text);

/* --- disabled durations --- */
/* A recurring reservation can be switched off for whole days. Its
 * disabledDurations list is sorted, and no two durations overlap or touch;
 * the list and its records belong to the entry. A date text is "D", "M:D" or
 * "Y:M:D" (months 1..12, omitted parts today's), or "first-last" with both
 * sides in the same form. */

/* Read one date with `numColons` (0, 1 or 2) colons into *day; `text` is cut
 * in place at its colons. 0, or -1 with qob_errno RSV_ERR_BAD_DATE
 * (malformed or impossible, such as 31 April), RSV_ERR_DATE_IN_PAST (before
 * today, when checkPast is set), RSV_ERR_NO_TEXT (NULL text) or
 * RSV_ERR_BAD_ARGUMENT (NULL day). *day is written only on success. */
int fillInRsvDisableDurationDate(char *text, tmDay *day, int numColons, int checkPast);

/* A new duration from a date text, past dates refused when checkPast is set.
 * Owned by the caller (free it, or hand it to addDurationToDisabledList).
 * NULL with qob_errno RSV_ERR_NO_TEXT, RSV_ERR_NO_MEMORY, RSV_ERR_BAD_DATE
 * (also unequal forms, last before first) or RSV_ERR_DATE_IN_PAST. */
RsvDisableDuration *createRsvDisableDuration(const char *dateText, int checkPast);

/* A new duration covering the recurring entry's next instance (disabled days
 * skipped): its start day, and for a weekly window its end day. Owned by the
 * caller (free). NULL with qob_errno RSV_ERR_BAD_ARGUMENT (NULL, one-off or
 * window-less entry, no '-') or RSV_ERR_NO_MEMORY. */
RsvDisableDuration *createNextDisableDuration(RsvEnt *ent);

/* Add `rec` to the recurring entry's list, merging it with every duration it
 * overlaps or touches; the planners are not updated (see below). 0: the
 * list owns rec. -1 with qob_errno RSV_ERR_DURATION_EXISTS when rec lies
 * within one duration (rec freed, list unchanged), or RSV_ERR_BAD_ARGUMENT
 * (NULL or one-off entry, NULL rec) or RSV_ERR_NO_MEMORY (rec still the
 * caller's). */
int addDurationToDisabledList(RsvEnt *ent, RsvDisableDuration *rec);

/* addDurationToDisabledList with the entry's bookings taken out of its
 * hosts' planners before and booked again after (whatever the result), so
 * that dated planners leave the disabled days free. Same result and
 * ownership; RSV_ERR_BAD_ARGUMENT also for a NULL table. Writes no file. */
int RsvTimeTbl_addDurationToDisabledList(RsvTimeTbl *tbl, RsvEnt *ent, RsvDisableDuration *rec);

/* In every entry of `entries` (pass &tbl->entries) drop the durations that
 * ended before the Sunday that starts the previous week; an emptied list is
 * destroyed (field NULL). Planners and files are not touched. NULL is
 * logged and ignored. */
void RsvTimeTbl_cleanDisabledDurations(HashTab *entries);

/* days[i] = 1 when day i of `week` (0 = its Sunday) lies in one of the
 * entry's disabled durations, else 0. Nothing written on a NULL argument. */
void getDisabledDaysInWeek(const RsvWeek *week, RsvEnt *ent, int days[7]);

/* The same for the week before `week`. */
void getDisabledDaysInPreviousWeek(const RsvWeek *week, RsvEnt *ent, int days[7]);

/* Replace *text (freed first) with the readable range "Mon Jan 9 2006 - Wed
 * Jan 11 2006", or the one date when both days are the same; a heap text the
 * caller frees. No memory: *text NULL, qob_errno RSV_ERR_NO_MEMORY. NULL
 * arguments are ignored. */
void setCalendarDayDuration(const tmDay *first, const tmDay *last, char **text);

/* Check a user's date text (past dates allowed) and echo it: *first and
 * *last get the readable first and last day, *range "Y:M:D-Y:M:D" (months
 * 1..12), three heap texts the caller frees. 1 for one day, 2 for a range;
 * -1 with qob_errno RSV_ERR_BAD_ARGUMENT (NULL output pointer),
 * RSV_ERR_NO_TEXT (NULL text, or a copy failed), RSV_ERR_NO_MEMORY, or
 * createRsvDisableDuration's error, the three outputs then NULL. */
int qob_getdisableddates(const char *dateText, char **first, char **last, char **range);

/* Times past 2038. By default isValidTimeWindow, isValidModTimeWindow and
 * Rsv_time2occur read a one-off window's points with atoi and compare them
 * with the clock as 32-bit values, so a point after 2038-01-19 03:14:07 UTC
 * reads as long past; a daemon built for that keeps it. With wide times on,
 * the points are read whole as 64-bit seconds and compared with the clock
 * as they are, so such windows are checked, booked and reported like any
 * other. Every point that fits in 32 bits reads the same in both modes. The
 * setting is the module's (the checks take no table); set it once at
 * start-up. Returns the previous setting (0 or 1). */
int RsvMod_setWideTimes(int wide);

/* 1 when wide times are on, else 0. */
int RsvMod_wideTimes(void);

/* ======================================================================== */
/* Persistence and reporting                                                */
/* ======================================================================== */

/* --- record text --- */
/* One line per reservation: version, createTime, options, rsvId, owner,
 * window, host count, auxValue, "host slots" pairs, creator, the description
 * in double quotes, the disabled durations, activeTime. Owner, identifier,
 * window and host names must hold no blanks. */

/* The entry's record in the current format, without a line end; a heap text
 * the caller frees. Elements without a host name are left out. NULL for a
 * NULL entry or no memory (logged; a failed description scratch also sets
 * qob_errno RSV_ERR_NO_MEMORY). The entry is not changed. */
char *RsvEnt_ToString(const RsvEnt *ent);

/* A new entry rebuilt from the record `text` of any version (fields an older
 * one lacks get a new entry's values; the version becomes "9.11"; known host
 * names become official; state stays 0). Owned by the caller (destroy and
 * free, or RsvTimeTbl_restoreEntry). A current record that ends after the
 * creator gives what was read (warning 6117). NULL for a malformed record
 * (logged) or no memory (qob_errno RSV_ERR_NO_MEMORY for most allocations). */
RsvEnt *RsvEnt_newByString(const char *text);

/* --- identifiers and id file --- */
/* An identifier is "owner#n" ("system#n" for a system reservation). The
 * per-owner counters are module-wide, shared by every table; the id file
 * holds "9.11", the number of owners and one "owner n" line each. */

/* A new identifier for req->name: the next number after the owner's counter
 * (0 for a new owner) that none of the owner's reservations in `tbl` uses,
 * wrapping at the per-owner limit (maxRsvPerOwner(), 100 outside 1..10000);
 * "system#n" with RSV_OPT_SYSTEM, a copy of req->rsvId with
 * RSV_OPT_NAME_ONLY. Advances the counter; a heap text the caller frees. NULL,
 * no error number (addEntry reports RSV_ERR_NO_RSV_ID), when the owner holds
 * the limit (message 6104, counter unchanged), an argument is NULL, or a
 * name-only request has no rsvId or the copy fails (counter moved). */
char *RsvId_new(RsvTimeTbl *tbl, RsvReq *req);

/* Set the owner's counter to the number of the identifier "owner#n" (the
 * last one set wins; it is not a maximum). No '#', or NULL: nothing. */
void RsvId_setCur(const char *rsvId);

/* Load the owner counters from the id file (overwriting those of the same
 * owners). A missing file or NULL name leaves them as they are; a malformed
 * line is logged (6115) and skipped; the version line is not checked. */
void initRsvIdTbl(const char *idFile);

/* Rewrite the table's id file in place from the counters, errors not
 * detected. When it cannot be opened, message 6114 is logged and the file is
 * left as it was. RsvTimeTbl_logStat calls it. */
void RsvTimeTbl_logId(RsvTimeTbl *tbl);

/* Forget every owner counter (the next call that needs them starts empty),
 * for reloads and tests. Writes no file. */
void RsvId_clearTbl(void);

/* --- state file and load --- */
/* The state file holds one record line per reservation, in table order;
 * entries whose identifier holds '@' are left out. */

/* Rewrite the table's state file in place (truncated, one flushed line per
 * entry, errors not detected), then the id file. When the state file cannot
 * be opened, message 6105 is logged and neither file is touched; an entry
 * whose record cannot be built is logged and left out. Always this plain
 * rewrite, also in durable mode (RsvTimeTbl_save writes durably). */
void RsvTimeTbl_logStat(RsvTimeTbl *tbl);

/* Start-up in one call: initRsvIdTbl(tbl->idFile), then each line of the
 * state file through RsvEnt_newByString and RsvTimeTbl_restoreEntry. A
 * malformed line, or a second record of an identifier, is logged with its line
 * number and rejected; a record without hosts is dropped (its counter still
 * moves). Returns the reservations loaded (0 without a state file), or -1
 * when the file exists but cannot be opened or read (counters loaded; lines
 * read before a read error stay) or memory runs out (qob_errno
 * RSV_ERR_NO_MEMORY; nothing loaded). *numRejected (when not NULL) gets the
 * rejected lines. Writes no file. */
int RsvTimeTbl_load(RsvTimeTbl *tbl, int *numRejected);

/* --- information reply --- */

/* Fill the caller's `reply` with a deep copy of every reservation, in table
 * order: each host with its capacity ("lost_and_found" with 0 for a host
 * findHost no longer knows, unless the identifier holds '@'), the jobs with
 * their status words, the running ones counted on their hosts, readable
 * disabled-day ranges. 0; RSV_ERR_NO_MEMORY (returned only) with a partly
 * filled reply that must still go to RsvInfoReply_destroy;
 * RSV_ERR_BAD_ARGUMENT for a NULL argument (reply untouched). */
int RsvTimeTbl_ToRsvInfoReply(RsvTimeTbl *tbl, RsvInfoReply *reply);

/* Release what one element owns except jobIds and jobStatus (freed by
 * RsvInfoReply_destroy); each released field becomes NULL, so a second call
 * is harmless. The element itself is not freed. NULL is ignored. */
void RsvInfoEnt_destroy(RsvInfoEnt *ent);

/* Release every element with its job arrays, and the element array (rsvInfo
 * becomes NULL); the reply record stays the caller's and numReservations
 * keeps its value. NULL is ignored. */
void RsvInfoReply_destroy(RsvInfoReply *reply);

/* The request as one line "options(%d) name(%s) procRange(%d, %d),
 * askedHosts(%d) timeWindow(%s)" in a module-static buffer of 1024 bytes
 * (longer lines cut) that the next call overwrites; "" for NULL. */
char *RsvReq_ToString(const RsvReq *req);

/* --- job accounting and inactivation hooks --- */

/* Fill the daemon's `record` for the reservation `rsvId`: header values,
 * hosts with slots, window, creator, and activeDuration, how long the current
 * activation lasted (to now, or to the end of its instance when that has
 * passed; 0 when inactive). Every text and the hosts array are new heap
 * copies the daemon frees. 0; -1, no error number, for a NULL argument or an
 * unknown identifier (record untouched) or no memory (only numHosts and a
 * NULL hosts set). */
int fillRsvFinishLog(RsvFinishLog *record, RsvTimeTbl *tbl, const char *rsvId);

/* Mark the job `jobId` (from findJob) as having lost its reservation: bit
 * 0x2 of its rsvFlags when `flag` is non-zero, else bit 0x1; bits are only
 * ever set. Unknown job or no findJob service: nothing. */
void setJobRsvInActive(int64_t jobId, int flag);

/* List-search predicate over an entry's jobList (ListEntryEqualFunc): 1 when
 * the RsvJobEnt `element` has the job id *(int64_t *)key, else 0 (also for
 * NULL arguments); the third argument is ignored. */
int jobListRsvId_equal(void *element, void *key, int ignored);

/* ======================================================================== */
/* Packed information reply                                                 */
/* ======================================================================== */
/* The information reply of RsvTimeTbl_ToRsvInfoReply gives every text and
 * array its own heap block, so that a daemon may free fields one by one
 * (RsvInfoEnt_destroy). A caller that only ever releases the whole reply can
 * have it packed instead: the same contents in one block, made with one
 * allocation and freed with one call. */

/* Fill the caller's `reply` exactly as RsvTimeTbl_ToRsvInfoReply does (same
 * elements, fields and values, in table order), but with the element array
 * and every text and array of every element in one block from allocZeroed,
 * which RsvInfoReply_destroyPacked alone may release: RsvInfoEnt_destroy,
 * RsvInfoReply_destroy and free on a field must never see a packed reply.
 * 0; RSV_ERR_NO_MEMORY (returned only) with a reply that must still go to
 * RsvInfoReply_destroyPacked (rsvInfo may be NULL); RSV_ERR_BAD_ARGUMENT for
 * a NULL argument (reply untouched). Writes no file. */
int RsvTimeTbl_ToRsvInfoReplyPacked(RsvTimeTbl *tbl, RsvInfoReply *reply);

/* Fill the caller's `reply` as RsvTimeTbl_ToRsvInfoReplyPacked does, with
 * the one reservation `rsvId` alone (numReservations 1): the same element
 * the whole table's reply holds for it. Its cost does not grow with the
 * table. Released by RsvInfoReply_destroyPacked. 0; RSV_ERR_NO_RSV
 * (returned only) for an identifier not in the table (numReservations 0,
 * rsvInfo NULL); RSV_ERR_NO_MEMORY (returned only) with a reply that must
 * still go to RsvInfoReply_destroyPacked (rsvInfo may be NULL);
 * RSV_ERR_BAD_ARGUMENT for a NULL argument (reply untouched). Writes no
 * file. */
int RsvTimeTbl_ToRsvInfoReplyOf(RsvTimeTbl *tbl, const char *rsvId, RsvInfoReply *reply);

/* Release a reply filled by RsvTimeTbl_ToRsvInfoReplyPacked: its one block
 * (rsvInfo becomes NULL; numReservations keeps its value). A second call and
 * NULL are harmless. */
void RsvInfoReply_destroyPacked(RsvInfoReply *reply);

/* ======================================================================== */
/* Durable mode                                                             */
/* ======================================================================== */
/* By default every change rewrites the state file in place, one flushed line
 * at a time, and the id file after it; write errors are not detected, and a
 * daemon built for that keeps working unchanged. A table switched to durable
 * mode instead writes each file whole to a temporary file in its directory
 * ("<file>.tmp"), fsyncs it, and once both are complete renames them over
 * the old files, the id file first, and fsyncs the directories. The state
 * file thus never holds an identifier beyond the id file's counter, and a
 * crash at any moment leaves each file either old or new, never cut. A table
 * made durable before RsvTimeTbl_load also keeps the id file's counters where
 * they are ahead of the restored records, so no identifier comes back.
 *
 * In durable mode the changing calls RsvTimeTbl_addEntry,
 * RsvTimeTbl_removeEntry, RsvTimeTbl_removeEntries, RsvTimeTbl_modifyTimeWindow,
 * RsvTimeTbl_addHosts, RsvTimeTbl_removeHosts, RsvTimeTbl_disableDays,
 * RsvTimeTbl_disableDayList, RsvTimeTbl_enableDayList,
 * RsvTimeTbl_setDescription, RsvTimeTbl_activate and RsvTimeTbl_deactivate
 * (and setRsvActive/setRsvInactive through them) are all or nothing: the
 * change is made in memory and saved, or, when the save fails, memory (entry,
 * planner cells, recurring index, id counter) and both files are left exactly
 * as they were and the call reports RSV_ERR_NOT_SAVED with errno kept from
 * the failed step. In both modes a change that runs out of memory part-way
 * is undone and reports RSV_ERR_NO_MEMORY. The low-level calls that change a
 * table without writing it (RsvTimeTbl_modEntrywithAddHosts,
 * RsvTimeTbl_modEntryWithRmHosts, Rsv_chkupdRsv4NewTimeWindow,
 * RsvTimeTbl_replaceEntry, ...) keep their own behaviour; a daemon that uses
 * them in durable mode calls RsvTimeTbl_save afterwards. */

/* Switch `tbl` to durable saving (`durable` non-zero) or back to the default
 * rewrite; nothing is written now. Returns the previous mode (0 or 1), or -1
 * for a NULL table or when memory runs out. */
int RsvTimeTbl_setDurable(RsvTimeTbl *tbl, int durable);

/* 1 when `tbl` saves durably, else 0 (also for NULL). */
int RsvTimeTbl_isDurable(const RsvTimeTbl *tbl);

/* Write the id file, then the state file, of `tbl` durably, whatever the
 * table's mode (a table without an id file writes the state file alone).
 * 0 when both are on disk. RSV_ERR_NOT_SAVED (errno kept, details from
 * RsvTimeTbl_lastSaveError): a failed temporary file leaves both files as
 * they were, a failed rename the ones before it replaced, a failed directory
 * fsync both replaced. RSV_ERR_BAD_ARGUMENT for a NULL table or one without a
 * state file; RSV_ERR_NO_MEMORY when a text cannot be built (nothing
 * written). Every error is also stored in qob_errno. The table is not changed. */
int RsvTimeTbl_save(RsvTimeTbl *tbl);

/* The last failed durable save of `tbl`: returns its errno (0 when the last
 * save succeeded or none was made); *file (when not NULL) gets the file that
 * could not be written and *step the failed step ("open", "write", "fsync",
 * "close", "rename", "open directory", "fsync directory"), both "" when
 * there is no failure. Both texts belong to the table and stay valid until
 * its next save. */
int RsvTimeTbl_lastSaveError(const RsvTimeTbl *tbl, const char **file, const char **step);

/* Remove every reservation of `rsvIds` (count of them) in one change: all
 * are removed and the files written once, or none is. 0; RSV_ERR_NO_RSV
 * when an identifier is NULL, not in the table or named twice (nothing
 * removed; *failedIndex, when not NULL, gets its position, else -1);
 * RSV_ERR_BAD_ARGUMENT for a NULL table or list or a count below 1;
 * RSV_ERR_NOT_SAVED or RSV_ERR_NO_MEMORY as above (nothing removed). The
 * error is also stored in qob_errno. */
int RsvTimeTbl_removeEntries(RsvTimeTbl *tbl, const char *const *rsvIds, int count, int *failedIndex);

/* RsvTimeTbl_addEntry that also records who made the reservation: `creator`
 * (a word of 1 to 39 characters without blanks or double quotes) goes into
 * the entry's creator field before the files are written, so it is saved
 * with the reservation in the one change. A NULL creator records none, as
 * RsvTimeTbl_addEntry does. The identifier and the per-owner limit follow
 * req->name exactly as for RsvTimeTbl_addEntry. Returns the identifier (a
 * heap text the caller frees), or NULL with qob_errno: RSV_ERR_BAD_ARGUMENT
 * for a creator that is empty, too long or holds a blank or double quote
 * (nothing looked at, nothing written), else as RsvTimeTbl_addEntry, with
 * the same state left behind on failure. */
char *RsvTimeTbl_addEntryBy(RsvTimeTbl *tbl, RsvReq *req, const char *creator);

/* setRsvActive with its outcome: 0 (also when nothing had to be written),
 * RSV_ERR_BAD_ARGUMENT for a NULL entry, RSV_ERR_NO_MEMORY, or in durable
 * mode RSV_ERR_NOT_SAVED with the entry's state and activeTime left as they
 * were; errors are also stored in qob_errno. */
int RsvTimeTbl_activate(RsvTimeTbl *tbl, RsvEnt *ent);

/* setRsvInactive with its outcome, as RsvTimeTbl_activate. */
int RsvTimeTbl_deactivate(RsvTimeTbl *tbl, RsvEnt *ent);

/* RsvTimeTbl_activate for the `count` entries `ents` at once, in one change:
 * the files are written once, when any entry's activeTime is stamped, and
 * every entry is activated or, on failure, none is (states and activeTime
 * left as they were). For a daemon starting many instances at one moment.
 * 0; RSV_ERR_BAD_ARGUMENT (nothing changed) for a NULL `ents`, a negative
 * count or a NULL element; RSV_ERR_NO_MEMORY; in durable mode
 * RSV_ERR_NOT_SAVED; errors are also stored in qob_errno. A NULL table
 * changes the states and writes no file. */
int RsvTimeTbl_activateEntries(RsvTimeTbl *tbl, RsvEnt *const *ents, int count);

/* A problem found by RsvTimeTbl_verify: one line of text, valid during the
 * call only. */
typedef void (*RsvVerifyProblem)(void *context, const char *problem);

/* Check the table's invariants: every planner cell equals a rebooking of the
 * table's entries from scratch; the recurring index matches the entries;
 * every entry is stored under its own identifier and has a planner list for
 * each of its hosts; and for every entry "word#n" the counter of its owner
 * (the entry's name) exists and, until the owner's numbers have gone round
 * the per-owner limit, is at least n. A name-only entry keeps the identifier
 * the daemon gave it and has no such check.
 * Each problem is passed to `report` (may be NULL). Returns the number of
 * problems (0: consistent), or -1 for a NULL table or when memory runs out
 * (qob_errno RSV_ERR_NO_MEMORY). Changes nothing, writes nothing. */
int RsvTimeTbl_verify(RsvTimeTbl *tbl, RsvVerifyProblem report, void *context);

/* ======================================================================== */
/* Planners built when first needed                                         */
/* ======================================================================== */
/* By default every booking reaches its hosts' planners at once: start-up
 * books every reservation into every week it touches, which a daemon pays
 * once. A front end that loads the table for each command and then reads or
 * changes one reservation switches the table to lazy planners before
 * RsvTimeTbl_load: a host's planners are then built from the table's
 * reservations the first time any call needs them (all weeks of that host
 * at once, in the order and with the cells the bookings would have given
 * them), and every call returns what it returns on an eager table. The
 * front-end queries and the earliest-fit searches may then build the
 * planners of the hosts they read, which an eager table already holds;
 * RsvTimeTbl_checkEntries builds every host's. A change that is undone
 * takes the planners it built away again. RsvTimeTbl_verify checks the
 * built hosts' planners; an unbuilt host needs no planner list. The
 * table's planner lists (tbl->plannerLists) then hold only the built hosts,
 * in the order they were built: a caller that walks them switches the table
 * back to eager first. */

/* Switch `tbl` to planners built when first needed (`lazy` non-zero) or back
 * to planners booked at once; switching back builds every host's planners
 * now. Nothing is written. Returns the previous mode (0 or 1), or -1 for a
 * NULL table or, with qob_errno RSV_ERR_NO_MEMORY, when memory runs out (the
 * mode is then unchanged; planners built before the shortage stay built,
 * which changes no result). */
int RsvTimeTbl_setLazyPlanners(RsvTimeTbl *tbl, int lazy);

/* 1 when `tbl` builds its planners when first needed, else 0 (also for
 * NULL). */
int RsvTimeTbl_isLazyPlanners(const RsvTimeTbl *tbl);

/* ======================================================================== */
/* Earliest fit                                                             */
/* ======================================================================== */
/* Where a reservation would fit, found without booking it. Each call reads
 * the hosts' planners as RsvTimeTbl_addEntry reads them and answers with the
 * earliest window that RsvTimeTbl_addEntry would accept for the request at
 * this moment: the same hosts in the same order, each host offering its free
 * slots over the window (capacity less the most booked 10-minute cell,
 * capped at minNumProcs when that is positive; a system request's host with
 * any booking offers nothing and turns the whole request down), the sum at
 * least minNumProcs and above 0. A week without a dated planner counts as
 * the host's recurring bookings, disabled days skipped, exactly as a new
 * planner for that week would hold them. The calls book nothing, make no
 * planner or planner list, change no entry, write no file, and leave the
 * table bit for bit as it was; only qob_errno is set on failure. The request
 * is read, never changed (its host names are not replaced by official
 * names). When `changingRsvId` names a reservation of the table, the slots
 * that reservation holds are counted free, as if it had been removed first:
 * the answer is where a new reservation could take its place.
 *
 * Times are local calendar time, as everywhere in the module: windows start
 * on a 10-minute boundary of the local clock (at a daylight-saving change the
 * clock's own boundaries, both passes of a repeated hour included), and a
 * window covers the planner cells from its start's clock time to its end's.
 * So a window across the hour the clock skips covers that hour's cells too,
 * and one whose end the clock puts back before its start covers none: the
 * addition accepts it whatever is booked, and so does the search. */

/* Forms of a recurring window for RsvTimeTbl_findEarliestRecurring. */
enum {
    RSV_FIT_DAILY = 1,  /* "H:M-H:M": the same hours every day */
    RSV_FIT_WEEKLY = 2  /* "D:H:M-D:H:M": every week, D 1..7 with Sunday as 7 */
};

/* The answer of a search. All members belong to the record and are released
 * by RsvFit_destroy; a search fills the whole record (emptied first: every
 * member 0 or NULL, limitHostIndex -1), also when it fails.
 *
 * One-off searches give times as epoch seconds. Recurring searches give them
 * as seconds from the start of the day (daily form) or of the week, Sunday
 * 00:00 (weekly form); an end past the day's or week's end means the window
 * wraps into the next one. */
typedef struct RsvFit {
    int found;               /* 1: a window fits; 0: none within the range */
    char *timeWindow;        /* found: the window as RsvReq.timeWindow takes it */
    time_t start;            /* found: the window's start and end */
    time_t end;
    int numHosts;            /* found: the allocation RsvTimeTbl_addEntry */
    AllocElem *allocVector;  /* would make (hosts in request order, names
                                official; extra1 and extra2 are 0) */
    int bestTotal;           /* the most slots the request could gather at
                                any start tried (found: at `start`) */
    time_t bestStart;        /* the earliest start where bestTotal is reached
                                (bestTotal and bestStart are 0 when the range
                                holds no start at all) */
    int limitHostIndex;      /* not found: the first asked host that offered
                                less than it could at bestStart (a system
                                request: the first with a booking); -1 none */
    char *limitHost;         /* its official name; NULL when none */
    time_t limitCell;        /* start of its first most booked cell in the
                                window at bestStart (recurring: in the week
                                of limitWeek) */
    RsvWeek limitWeek;       /* the planner week of that cell; all zero for
                                the recurring planner */
} RsvFit;

/* The earliest one-off window [start, start + durationMinutes) with
 * notBefore <= start < notAfter (the window itself may run past notAfter)
 * that RsvTimeTbl_addEntry would accept for `req` now. The request must not
 * have RSV_OPT_RECURRING set; its timeWindow is not read. On success
 * result->timeWindow is "start-end" in epoch seconds and allocVector is what
 * the addition would book (Rsv_alloc's "just_enough": hosts in request
 * order, each as far as it can, up to maxNumProcs; a system request takes
 * every reservable slot). When nothing fits, found is 0 and bestTotal,
 * bestStart, limitHost and limitCell tell what came closest.
 * Returns 0 (found or not), or an error number, also stored in qob_errno:
 * RSV_ERR_BAD_ARGUMENT for a NULL table, request or result, a request
 * without hosts or with a NULL host name, with the recurring bit, a
 * duration below 1 minute, notAfter <= notBefore, a time outside the years
 * 1900 to 9999 or one without a local calendar date; RSV_ERR_BAD_HOST when
 * an asked host is unknown to the daemon; RSV_ERR_NO_RSV when changingRsvId
 * is not NULL and names no reservation of the table; RSV_ERR_NO_MEMORY. The caller owns *result and
 * releases its members with RsvFit_destroy. Writes nothing; the table is
 * left bit for bit unchanged. */
int RsvTimeTbl_findEarliest(RsvTimeTbl *tbl, const RsvReq *req, time_t notBefore, time_t notAfter,
                            int durationMinutes, const char *changingRsvId, RsvFit *result);

/* The earliest recurring window of `form` (RSV_FIT_DAILY: from 0:00 on;
 * RSV_FIT_WEEKLY: from Sunday 0:00 on) and of durationMinutes that
 * RsvTimeTbl_addEntry would accept for `req` now: it checks the recurring
 * planner and every dated planner of each asked host (past weeks included,
 * since the table keeps them); weeks without a planner hold only recurring
 * bookings, which the recurring planner already holds in full, so no horizon
 * changes the answer. Only windows that the module takes as valid are tried:
 * daily 1 to 1439 minutes, weekly 1 to 10079 minutes except those ending on
 * their start day at or before their start time. The request must have RSV_OPT_RECURRING set;
 * its timeWindow is not read. On success result->timeWindow is "H:M-H:M" or
 * "D:H:M-D:H:M" (Sunday written 7; a window may wrap over midnight or the
 * week's end), and allocVector is what the addition would book. Returns and
 * errors as RsvTimeTbl_findEarliest (RSV_ERR_BAD_ARGUMENT also for an
 * unknown form, a duration out of range or a request without the recurring
 * bit). Writes nothing; the table is left bit for bit unchanged. */
int RsvTimeTbl_findEarliestRecurring(RsvTimeTbl *tbl, const RsvReq *req, int form, int durationMinutes,
                                     const char *changingRsvId, RsvFit *result);

/* Release the members of a search's answer and empty the record as a search
 * does first (the record itself is the caller's). NULL is ignored; calling
 * it twice is safe. */
void RsvFit_destroy(RsvFit *fit);

/* ======================================================================== */
/* Trimming past weeks                                                      */
/* ======================================================================== */
/* A table keeps every dated planner it has made, so a daemon that runs for
 * months holds a planner per host for every week any reservation touched;
 * ResPlannerList_trimOutdatedPlanners, which the map calls, keeps them all on
 * purpose. A daemon that wants the memory back trims the weeks that are over.
 * Bookings of weeks after the cut are untouched, so every later query,
 * search and booking over a window after it answers as before; a recurring
 * request is then checked against the remaining weeks only, so past one-off
 * bookings no longer stand in its way (which is why trimming is a call and
 * not the default). The verification stays clean: it rebooks into the weeks
 * a table holds. In a table with planners built when first needed, only
 * built hosts are trimmed. */

/* Remove from every host's planner list the dated planners whose week (Sunday
 * to Saturday, local time) ended at or before `before`; the any-week planner
 * always stays, and so do the planner lists themselves. The table remembers
 * the latest cut, so that RsvTimeTbl_verify expects no planner for those
 * weeks. Returns the number of planners removed (0 when none is old
 * enough), or -1 with qob_errno RSV_ERR_BAD_ARGUMENT for a NULL table or
 * RSV_ERR_NO_MEMORY (nothing removed). Changes no entry and writes no file
 * (planners are not saved). */
int RsvTimeTbl_trimPastWeeks(RsvTimeTbl *tbl, time_t before);

/* ======================================================================== */
/* Queries for front ends                                                   */
/* ======================================================================== */
/* Read-only questions about a host's planners, answered the way the
 * module's own bookings and availability checks see them, so that a front
 * end never walks planner lists or makes planners of its own. Each query
 * books nothing, creates no planner and no planner list in the table (a
 * week or a host without one is read as a new one would start), and writes
 * nothing; planners it needs for a moment are its own and are freed before
 * it returns. `hostName` is the host's official name, the key of its planner
 * list. An error is returned as -1 with the number in qob_errno. */

/* One 10-minute cell of a host's planners. */
typedef struct RsvCell {
    RsvWeek week; /* the planner's week; rsvWeekRecur for the any-week one */
    int day;      /* 0 (Sunday) .. 6; -1 when no cell is meant */
    int slot;     /* 0 .. 143, ten minutes each from midnight; -1 likewise */
    int booked;   /* slots booked in the cell (see each query) */
} RsvCell;

/* `needed` of RsvTimeTbl_firstShortCell for a request that takes the whole
 * host, as a system reservation does: a cell is short when anything at all
 * is booked in it. */
#define RSV_NEED_WHOLE_HOST (-1)

/* The slots booked in every cell of `week` (not NULL; rsvWeekRecur for the
 * any-week planner) on `hostName`, into cells[day][slot]: the host's planner
 * of that week, or, for a week without one, what a new planner of it would
 * hold (a dated week: the host's recurring bookings; the any-week planner:
 * nothing). 0, or -1 with qob_errno RSV_ERR_BAD_ARGUMENT (a NULL argument)
 * or RSV_ERR_NO_MEMORY; `cells` is then unchanged. Books nothing, creates
 * no planner or planner list in the table, writes nothing. */
int RsvTimeTbl_hostWeekCells(RsvTimeTbl *tbl, const char *hostName, const RsvWeek *week,
                             int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY]);

/* The weeks of the planners that `hostName` has, in the order of its
 * planner list (the any-week planner first): *weeks (not NULL) gets a new
 * array of them that the caller frees with free(), NULL when there are
 * none. Returns their number, 0 for a host without a planner list, or -1
 * with qob_errno RSV_ERR_BAD_ARGUMENT or RSV_ERR_NO_MEMORY (*weeks NULL).
 * Books nothing, creates no planner or planner list in the table, writes
 * nothing. */
int RsvTimeTbl_plannerWeeks(RsvTimeTbl *tbl, const char *hostName, RsvWeek **weeks);

/* The most slots booked on `hostName` in any one cell: with `week` NULL,
 * over every cell of every planner the host has (what RsvTimeTbl_checkHost
 * compares with the host's limit; 0 for a host without planners); with a
 * week, over the cells of that week as RsvTimeTbl_hostWeekCells reads them.
 * `at` (may be NULL) gets the first cell holding the peak, planners in list
 * order, then days, then slots, with `booked` the peak; when the peak is 0,
 * the asked week (rsvWeekRecur for NULL), day and slot -1 and booked 0.
 * Returns the peak (never below 0), or -1 with qob_errno
 * RSV_ERR_BAD_ARGUMENT or RSV_ERR_NO_MEMORY (*at unchanged). Books nothing,
 * creates no planner or planner list in the table, writes nothing. */
int RsvTimeTbl_peakBooked(RsvTimeTbl *tbl, const char *hostName, const RsvWeek *week, RsvCell *at);

/* The free slots of `hostName` over `timeWindow` (recurring non-zero for a
 * daily or weekly window, else a one-off "start-end"): the host's capacity
 * minus the most booked in any cell the window covers, in the weeks a
 * booking over it would reach, and never below 0 -- what
 * RsvTimeTbl_getReservableAlloc offers for the host before the minNumProcs
 * cap. With `changingRsvId` (may be NULL) the slots that reservation itself
 * holds on the host are counted as free, as when it is being changed.
 * Returns the free slots, or -1 with qob_errno RSV_ERR_BAD_ARGUMENT (a NULL
 * table, host or window), RSV_ERR_BAD_HOST (no such host),
 * RSV_ERR_NO_SUCH_RSV (changingRsvId not in the table) or
 * RSV_ERR_NO_MEMORY. Books nothing, creates no planner or planner list in
 * the table, writes nothing. */
int RsvTimeTbl_freeSlots(RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring,
                         const char *changingRsvId);

/* The first cell over `timeWindow` (weeks as RsvTimeTbl_freeSlots reaches
 * them, then days, then slots) in which `hostName` has fewer than `needed`
 * free slots (capacity minus booked), or, with RSV_NEED_WHOLE_HOST, in
 * which anything is booked. `changingRsvId` (may be NULL) as for
 * RsvTimeTbl_freeSlots. 1 with *at (not NULL) set to the cell and `booked`
 * the slots booked there (the changing reservation's own not counted); 0
 * when no cell is short (*at unchanged); -1 with qob_errno as
 * RsvTimeTbl_freeSlots (RSV_ERR_BAD_ARGUMENT also for a NULL `at`). Books
 * nothing, creates no planner or planner list in the table, writes
 * nothing. */
int RsvTimeTbl_firstShortCell(RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring,
                              int needed, const char *changingRsvId, RsvCell *at);

#if defined(__GNUC__) || defined(__clang__)
#pragma GCC visibility pop
#endif
#ifdef __cplusplus
}
#endif
#endif
