/* qob.rsvimpl.h: the advance-reservation module of the master daemon.
 *
 * This is the one header a daemon includes. It declares the module's records
 * and operations and the base-library interfaces they use. It compiles as C11
 * and as C++; every function has C linkage.
 *
 * The module is not reentrant: call it from one thread at a time. Records
 * made by the module come from the daemon's allocZeroed/dupString services
 * and are released with free(). Times are local calendar time in seconds.
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

/* ------------------------------------------------------------------------ */
/* Constants                                                                */
/* ------------------------------------------------------------------------ */

/* The record-format version written into every record and the id file. */
#define RSV_FORMAT_VERSION "9.11"

/* Option bits of RsvReq.options and RsvEnt.options. */
enum {
    RSV_OPT_SYSTEM = 0x4,
    RSV_OPT_RECURRING = 0x8,
    RSV_OPT_NAME_ONLY = 0x80000
};

/* Option bits of a modification request read by RsvEnt_updateWithMod. */
enum {
    RSV_MOD_DESCRIPTION = 0x8000,
    RSV_MOD_TIMEWINDOW = 0x10000,
    RSV_MOD_RUNFLAG = 0x20000,
    RSV_MOD_NAME = 0x40000
};

/* Removal flags of RsvTimeTbl_modEntryWithRmHosts. */
enum {
    RSV_RM_HOSTS = 1,
    RSV_RM_NUMPROCS = 2,
    RSV_RM_UNFLAGGED = 4,
    RSV_RM_MARKED = 8
};

/* Occurrence modes of Rsv_time2occur and Rsv_timeToOccurFromGivenTime. */
enum {
    RSV_OCCUR_ASIS = 0,
    RSV_OCCUR_NEXT = 1,
    RSV_OCCUR_AFTER_TODAY = 2,
    RSV_OCCUR_TODAY = 3
};

/* RsvEnt.state. */
enum {
    RSV_STATE_INACTIVE = 1,
    RSV_STATE_ACTIVE = 4
};

/* Planner geometry: 7 days of 144 ten-minute cells. */
enum {
    RSV_PLANNER_DAYS = 7,
    RSV_PLANNER_SLOTS_PER_DAY = 144
};

/* Error numbers, returned or stored in qob_errno. */
enum {
    RSV_OK = 0,
    RSV_ERR_BAD_HOST = 23,
    RSV_ERR_NO_TEXT = 35,
    RSV_ERR_BAD_TIME_WINDOW = 36,
    RSV_ERR_BAD_ARGUMENT = 52,
    RSV_ERR_NO_MEMORY = 55,
    RSV_ERR_NOT_ENOUGH_SLOTS = 190,
    RSV_ERR_NO_RSV = 191,
    RSV_ERR_NO_RSV_ID = 192,
    RSV_ERR_START_IN_PAST = 247,
    RSV_ERR_END_INVALID = 248,
    RSV_ERR_NO_SUCH_RSV = 311,
    RSV_ERR_NOTHING_LEFT = 317,
    RSV_ERR_BAD_DATE = 320,
    RSV_ERR_START_OF_ACTIVE = 323,
    RSV_ERR_DURATION_EXISTS = 325,
    RSV_ERR_HOST_NOT_IN_RSV = 327,
    RSV_ERR_HOST_IN_USE = 330,
    RSV_ERR_DATE_IN_PAST = 334,
    RSV_ERR_DAY_MISMATCH = 337,
    RSV_ERR_END_BEFORE_START = 385,
    /* Added by this module beyond the daemon's numbers (durable mode). */
    RSV_ERR_NOT_SAVED = 600,    /* a file could not be written; errno says why */
    RSV_ERR_INCONSISTENT = 601  /* RsvTimeTbl_verify found a broken invariant */
};

/* Host record bits tested when hosts are removed by flag. */
#define RSV_HOST_STATUS_FLAGGED 0x80000000u
#define RSV_HOST_ATTR_MARKED 0x20u

/* ------------------------------------------------------------------------ */
/* Records the daemon hands in                                              */
/* ------------------------------------------------------------------------ */

/* The daemon's view of one host. */
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
    int rsvFlags;        /* reservation-state flags word */
    int numExecHosts;
    RsvHost **execHosts; /* compared by identity with findHost's records */
} RsvJob;

/* The table of nine services the daemon installs with RsvMod_init. */
typedef struct RsvMiscFuncs {
    void (*reservedService0)(void);
    void *(*allocZeroed)(int count, size_t size, const char *caller);
    void (*reservedService2)(void);
    char *(*dupString)(const char *text);
    RsvJob *(*findJob)(int64_t jobId);
    RsvHost *(*findHost)(const char *hostName);
    char *(*officialHostName)(const char *hostName);
    HashTab *(*rsvNameTable)(void);
    int (*maxRsvPerOwner)(void);
} RsvMiscFuncs;

/* A reservation request. */
typedef struct RsvReq {
    int options;
    char *name;         /* owner */
    int minNumProcs;
    int maxNumProcs;
    int numAskedHosts;
    char **askedHosts;  /* heap texts: resolved names replace them in place */
    char *timeWindow;
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

/* One calendar week, Sunday to Saturday; all zero in the recurring week. */
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

/* One disabled duration of a recurring reservation, both days inclusive. */
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

/* One element of a reservation's job list. */
typedef struct RsvJobEnt {
    ListEntry links;
    int64_t jobId;
} RsvJobEnt;

/* One advance reservation. */
typedef struct RsvEnt {
    time_t createTime;
    time_t activeTime;        /* 0 while inactive */
    char *version;            /* record-format version, "9.11" */
    int options;
    int auxValue;
    char *rsvId;
    char *name;               /* owner */
    int numHosts;
    AllocElem *allocVector;
    char *timeWindow;
    int64_t duration;
    char creator[40];
    int numJobs;
    List *jobList;            /* of RsvJobEnt */
    int state;                /* 0, RSV_STATE_INACTIVE or RSV_STATE_ACTIVE */
    int reserved15;
    void *reserved16;
    void *reserved17;
    RsvExecCmd *execCmd;
    char *description;        /* NULL when absent */
    char *timeDuration;       /* readable current instance */
    List *disabledDurations;  /* of RsvDisableDuration; NULL until needed */
} RsvEnt;

/* The reservation table. Pass &tbl->entries where a hash table is asked for. */
typedef struct RsvTimeTbl {
    HashTab entries;       /* rsvId -> RsvEnt */
    HashTab plannerLists;  /* host name -> List of ResPlanner */
    char *stateFile;
    char *idFile;
} RsvTimeTbl;

/* One 10-minute cell of a planner. */
typedef struct ResPlannerEnt {
    int reserved;
} ResPlannerEnt;

/* One host's capacity book for one week. */
typedef struct ResPlanner {
    ListEntry links;
    char *plannerName;
    RsvWeek week;
    ResPlannerEnt slots[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY];
} ResPlanner;

/* A planner cell operation; getMaxRsv's accumulator travels as
 * (int64_t)(intptr_t)&acc. */
typedef int64_t (*ResPlannerOp)(ResPlannerEnt *cell, int64_t arg);

/* Information reply. */
typedef struct RsvHostInfo {
    char *hostName;
    int numCpus;
    int maxSlots;
    int numSlots;
    int numUsedSlots;
    int numJobsOnHost;
} RsvHostInfo;

typedef struct RsvInfoEnt {
    int options;
    char *rsvId;
    char *name;
    int numHosts;
    RsvHostInfo *hostInfo;
    char *timeWindow;
    int numJobs;
    int64_t *jobIds;
    int *jobStatus;
    char *description;
    char **disabledDurations; /* NULL-terminated */
    int state;
    char *timeDuration;
    char *creator;
} RsvInfoEnt;

typedef struct RsvInfoReply {
    int numReservations;
    RsvInfoEnt *rsvInfo;
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

/* ======================================================================== */
/* Module frame and reservation table                                       */
/* ======================================================================== */

/* --- start-up and host services --- */

/* Install the daemon's services (copied by value). Must run first. */
void RsvMod_init(const RsvMiscFuncs *services);

/* A new empty table whose state file is `stateFile` (NULL: none) and whose id
 * file is derived from it. NULL when the name is longer than 1024 characters
 * (nothing allocated). The daemon owns the table; RsvTimeTbl_free releases it. */
RsvTimeTbl *RsvTimeTbl_new(const char *stateFile);

/* Release a table made by RsvTimeTbl_new with everything it owns: entries,
 * planner lists, file names and the record. NULL is ignored. */
void RsvTimeTbl_free(RsvTimeTbl *tbl);

/* --- reservation entry --- */

RsvEnt *RsvEnt_new(int options, const char *name, const char *timeWindow);
void RsvEnt_destroy(RsvEnt *ent);
int isRsvActive(const RsvEnt *ent);
void setRsvActive(RsvTimeTbl *tbl, RsvEnt *ent);
void setRsvInactive(RsvTimeTbl *tbl, RsvEnt *ent);
void RsvEnt_freeAllocVector(AllocElem **vector, int count);
AllocElem *RsvEnt_DupAllocVector(const RsvEnt *ent);

/* --- reservation table --- */

char *RsvTimeTbl_addEntry(RsvTimeTbl *tbl, RsvReq *req);
RsvEnt *RsvTimeTbl_getEntry(RsvTimeTbl *tbl, const char *rsvId);
int RsvTimeTbl_replaceEntry(RsvTimeTbl *tbl, const char *rsvId, RsvEnt *newEntry);
void RsvTimeTbl_restoreEntry(RsvTimeTbl *tbl, RsvEnt *ent);
int RsvTimeTbl_removeEntry(RsvTimeTbl *tbl, const char *rsvId);
void RsvTimeTbl_addNameEntry(HashTab *nameTable, const char *rsvId);
int RsvTimeTbl_removeNameEntry(HashTab *nameTable, const char *rsvId);
void RsvTimeTbl_checkHost(RsvTimeTbl *tbl, const char *hostName);
void RsvTimeTbl_checkEntries(RsvTimeTbl *tbl);
int Rsv_dupTimeTbl4CurrRsv(RsvTimeTbl *tbl, RsvEnt *ent, RsvTimeTbl *tmpTbl);
void RsvTimeTbl_freeTmpTable(RsvTimeTbl *tmpTbl);
int RsvMod_aHostInTab(HashTab **hostSet, const char *hostName);

/* ======================================================================== */
/* Capacity planning                                                        */
/* ======================================================================== */

/* --- weekly planner --- */

ResPlanner *ResPlanner_new(const char *hostName, const RsvWeek *week);
void ResPlanner_destroy(ResPlanner *planner);
void ResPlanner_map(ResPlanner *planner, const char *timeWindow, ResPlannerOp op, int64_t arg, RsvEnt *rsv);
void ResPlanner_addRecurs(ResPlanner *planner, RsvTimeTbl *tbl, const char *hostName);
int ResPlanner_equal(void *planner, void *week, int ignored);
int ResPlanner_isOutdated(void *planner, void *week, int ignored);
int64_t ResPlannerEnt_incr(ResPlannerEnt *cell, int64_t n);
int64_t ResPlannerEnt_decr(ResPlannerEnt *cell, int64_t n);
int64_t ResPlannerEnt_getMaxRsv(ResPlannerEnt *cell, int64_t accumulator);
void freePlanner(void *plannerList);
void freePlanner_t(void *planner);

/* --- planner lists and weeks --- */

List *RsvTimeTbl_getPlannerList(RsvTimeTbl *tbl, const char *hostName);
void ResPlannerList_map(List *plannerList, RsvTimeTbl *tbl, const char *hostName, const char *timeWindow,
                        int recurring, ResPlannerOp op, int64_t arg, int keepNew, RsvEnt *rsv);
RsvWeek *ResPlannerList_getWeeks(List *plannerList, int *numWeeks);
RsvWeek *RsvTimeWindow_getWeeks(const char *timeWindow, int *numWeeks);
void ResPlannerList_trimOutdatedPlanners(List *plannerList);
char *RsvWeek_getOverlapTimeWindow(const RsvWeek *week, const char *timeWindow);
int RsvWeek_equal(const RsvWeek *a, const RsvWeek *b);
void RsvTime_toWeek(time_t t, RsvWeek *week);
RsvWeek *Rsv_thisWeek(void);
char *RsvTime_toVktTimexpr(time_t t);
/* Split `timeWindow` at its first '-' into `start` and `end`; returns `end`.
 * Each buffer must hold the whole window text (strlen + 1). No '-': all of
 * it is the start and the end is "". NULL text: both "". */
char *RsvTimeWindow_toTimeRange(const char *timeWindow, char *start, char *end);
/* The same into buffers of `bufSize` bytes each; a longer part is cut. */
char *RsvTimeWindow_toTimeRangeBounded(const char *timeWindow, char *start, char *end, size_t bufSize);

/* --- slot allocation --- */

ResAlloc *ResAlloc_new(int numElems);
int RsvTimeTbl_getReservableAlloc(RsvTimeTbl *tbl, RsvReq *req, ResAlloc **out, RsvEnt *ent);
int Rsv_alloc(RsvTimeTbl *tbl, int numAvail, ResAlloc *avail, RsvReq *req, AllocElem **out, const char *mode);
void Rsv_dealloc(RsvTimeTbl *tbl, RsvEnt *ent);
int Rsv_getMaxAvailonHost(RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring, RsvEnt *ent);
int Rsv_chkupdRsv4NewTimeWindow(RsvTimeTbl *tbl, RsvEnt *ent, const char *newTimeWindow, int update);

/* --- changing a reservation's hosts --- */

int RsvTimeTbl_modEntrywithAddHosts(RsvTimeTbl *tbl, RsvModReq *modReq);
int Rsv_reallocwithAddHosts(RsvTimeTbl *tbl, int numAvail, ResAlloc *avail, RsvModReq *modReq, RsvEnt *ent,
                            const char *mode);
int RsvTimeTbl_modEntryWithRmHosts(RsvTimeTbl *tbl, RsvModReq *modReq, HashTab *hosts, int rmFlags);
int Rsv_rmHosts_checkHostsInRsv(HashTab *hosts);
int Rsv_getNumSlotsReserved(const RsvEnt *ent);

/* --- combined changes: check, apply and rewrite the files in one call; a
 * failure leaves the entry, the planners and the files as they were --- */

/* Move a reservation's window (modReq->req.timeWindow is a modification text
 * "start&end"). 0, or an error number. */
int RsvTimeTbl_modifyTimeWindow(RsvTimeTbl *tbl, RsvModReq *modReq);
/* Add hosts or slots. 0, or -1 with qob_errno. */
int RsvTimeTbl_addHosts(RsvTimeTbl *tbl, RsvModReq *modReq);
/* Remove hosts or slots. Slots removed, or -1 with qob_errno. */
int RsvTimeTbl_removeHosts(RsvTimeTbl *tbl, RsvModReq *modReq, HashTab *hosts, int rmFlags);
/* Disable the days of `dateText` (the forms of qob_getdisableddates) for a
 * recurring reservation. 0, or -1 with qob_errno. */
int RsvTimeTbl_disableDays(RsvTimeTbl *tbl, const char *rsvId, const char *dateText);
/* Replace a reservation's description (NULL or "" removes it). 0, or -1 with
 * qob_errno. */
int RsvTimeTbl_setDescription(RsvTimeTbl *tbl, const char *rsvId, const char *description);

/* ======================================================================== */
/* Time windows and occurrences                                             */
/* ======================================================================== */

/* --- occurrence arithmetic --- */

time_t Rsv_time2occur(const char *timePoint, int mode);
time_t Rsv_timeToOccurFromGivenTime(const char *timePoint, time_t reference, int mode);
int64_t RsvEnt_getDuration(const RsvEnt *ent);
time_t RsvEnt_getLeftTime(const RsvEnt *ent);
int64_t RsvTimeWindow_toDuration(const char *timeWindow);

/* --- validation and modification --- */

int isValidTimeWindow(const char *timeWindow, int recurring);
int isNonRecValidTimeWindow(const char *timeWindow);
int isRecValidTimeWindow(const char *timeWindow);
int isValidModTimeWindow(const char *newTimeWindow, RsvEnt *ent, int recurring);
char *RsvMod_buildTimeWindow(const char *currentWindow, const char *modText);
int RsvMod_updateModReqTimeWindow(RsvModReq *modReq, RsvEnt *ent);
void RsvEnt_updateWithMod(RsvEnt *ent, RsvModReq *modReq);

/* --- recurring instances --- */

int tmDay_getDayFromTime(time_t t, tmDay *day);
int tmDay_earlierThan(const tmDay *a, const tmDay *b, int orEqual);
int tmDay_dayAfter(const tmDay *a, const tmDay *b);
void RsvTimeWindow_getCurrentInstance(const char *timeWindow, List *disabledDurations, time_t reference,
                                      time_t *start, time_t *end);
void RsvEnt_getCurrentInstanceAtTime(RsvEnt *ent, int useDisabled, time_t reference, time_t *start, time_t *end);
void RsvEnt_getCurrentInstance(RsvEnt *ent, int useDisabled, time_t *start, time_t *end);
void RsvEnt_getNextInstance(RsvEnt *ent, int useDisabled, time_t *start, time_t *end);
void RsvEnt_setNextInstance(RsvEnt *ent, time_t start, time_t end);
void setCalendarTimeDuration(time_t start, time_t end, char **text);

/* --- disabled durations --- */

int fillInRsvDisableDurationDate(char *text, tmDay *day, int numColons, int checkPast);
RsvDisableDuration *createRsvDisableDuration(const char *dateText, int checkPast);
RsvDisableDuration *createNextDisableDuration(RsvEnt *ent);
int addDurationToDisabledList(RsvEnt *ent, RsvDisableDuration *rec);
int RsvTimeTbl_addDurationToDisabledList(RsvTimeTbl *tbl, RsvEnt *ent, RsvDisableDuration *rec);
void RsvTimeTbl_cleanDisabledDurations(HashTab *entries);
void getDisabledDaysInWeek(const RsvWeek *week, RsvEnt *ent, int days[7]);
void getDisabledDaysInPreviousWeek(const RsvWeek *week, RsvEnt *ent, int days[7]);
void setCalendarDayDuration(const tmDay *first, const tmDay *last, char **text);
int qob_getdisableddates(const char *dateText, char **first, char **last, char **range);

/* ======================================================================== */
/* Persistence and reporting                                                */
/* ======================================================================== */

/* --- record text --- */

char *RsvEnt_ToString(const RsvEnt *ent);
RsvEnt *RsvEnt_newByString(const char *text);

/* --- identifiers and id file --- */

char *RsvId_new(RsvTimeTbl *tbl, RsvReq *req);
void RsvId_setCur(const char *rsvId);
void initRsvIdTbl(const char *idFile);
void RsvTimeTbl_logId(RsvTimeTbl *tbl);
/* Forget every owner counter (the next call starts a new table). */
void RsvId_clearTbl(void);

/* --- state file --- */

void RsvTimeTbl_logStat(RsvTimeTbl *tbl);

/* Start-up in one call: initRsvIdTbl(tbl->idFile), then every line of the
 * state file through RsvEnt_newByString and RsvTimeTbl_restoreEntry. A
 * rejected line is logged with its line number and skipped. Returns the
 * number of lines restored (0 when there is no state file yet), or -1 when
 * the file exists but cannot be read; *numRejected (when not NULL) gets the
 * number of rejected lines. */
int RsvTimeTbl_load(RsvTimeTbl *tbl, int *numRejected);

/* --- information reply --- */

int RsvTimeTbl_ToRsvInfoReply(RsvTimeTbl *tbl, RsvInfoReply *reply);
void RsvInfoEnt_destroy(RsvInfoEnt *ent);
void RsvInfoReply_destroy(RsvInfoReply *reply);
char *RsvReq_ToString(const RsvReq *req);

/* --- job accounting and inactivation hooks --- */

int fillRsvFinishLog(RsvFinishLog *record, RsvTimeTbl *tbl, const char *rsvId);
void setJobRsvInActive(int64_t jobId, int flag);
int jobListRsvId_equal(void *element, void *key, int ignored);

/* ======================================================================== */
/* Durable mode                                                             */
/* ======================================================================== */
/* By default every change rewrites the state file in place, one flushed line
 * at a time, and the id file after it; write errors are not detected, and a
 * daemon built for that keeps working unchanged. A table switched to durable
 * mode instead writes each file as one text to a temporary file in the same
 * directory ("<file>.tmp"), fsyncs it, renames it over the old file and
 * fsyncs the directory; the id file is written before the state file, so the
 * state file never holds an identifier beyond the id file's counter, and a
 * crash at any moment leaves each file either old or new, never cut.
 *
 * In durable mode the changing calls RsvTimeTbl_addEntry,
 * RsvTimeTbl_removeEntry, RsvTimeTbl_removeEntries, RsvTimeTbl_modifyTimeWindow,
 * RsvTimeTbl_addHosts, RsvTimeTbl_removeHosts, RsvTimeTbl_disableDays,
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
 * rewrite. Returns the previous mode (0 or 1), or -1 for a NULL table. */
int RsvTimeTbl_setDurable(RsvTimeTbl *tbl, int durable);

/* 1 when `tbl` saves durably, else 0 (also for NULL). */
int RsvTimeTbl_isDurable(const RsvTimeTbl *tbl);

/* Write the id file, then the state file, of `tbl` durably (whatever the
 * table's mode). 0 when both are on disk; RSV_ERR_NOT_SAVED (also stored in
 * qob_errno, errno kept from the failed step, details from
 * RsvTimeTbl_lastSaveError) when one could not be written: that file and the
 * ones after it are left as they were; RSV_ERR_BAD_ARGUMENT for a NULL table
 * or one without file names; RSV_ERR_NO_MEMORY when the text cannot be built
 * (nothing written). The table itself is never changed. */
int RsvTimeTbl_save(RsvTimeTbl *tbl);

/* The last failed durable save of `tbl`: returns its errno (0 when the last
 * save succeeded or none was made); *file (when not NULL) gets the file that
 * could not be written and *step the failed step ("open", "write", "fsync",
 * "close", "rename", "fsync directory"). Both texts belong to the table and
 * stay valid until its next save. */
int RsvTimeTbl_lastSaveError(const RsvTimeTbl *tbl, const char **file, const char **step);

/* Remove every reservation of `rsvIds` (count of them) in one change: all
 * are removed and the files rewritten once, or none is. 0; RSV_ERR_NO_RSV
 * when an identifier is not in the table or named twice (nothing removed;
 * *failedIndex, when not NULL, gets its position); RSV_ERR_BAD_ARGUMENT for
 * NULL arguments or a count below 1; RSV_ERR_NOT_SAVED or RSV_ERR_NO_MEMORY
 * as above (nothing removed). The error is also stored in qob_errno. */
int RsvTimeTbl_removeEntries(RsvTimeTbl *tbl, const char *const *rsvIds, int count, int *failedIndex);

/* setRsvActive and setRsvInactive with their outcome: 0 (also when nothing
 * had to be written), RSV_ERR_BAD_ARGUMENT for a NULL entry, or in durable
 * mode RSV_ERR_NOT_SAVED with the entry's state and activeTime left as they
 * were. */
int RsvTimeTbl_activate(RsvTimeTbl *tbl, RsvEnt *ent);
int RsvTimeTbl_deactivate(RsvTimeTbl *tbl, RsvEnt *ent);

/* A problem found by RsvTimeTbl_verify: one line of text, valid during the
 * call only. */
typedef void (*RsvVerifyProblem)(void *context, const char *problem);

/* Check the table's invariants: every planner cell equals a rebooking of the
 * table's entries from scratch; the recurring index matches the entries;
 * every entry is stored under its own identifier and has a planner list for
 * each of its hosts; and for every entry "word#n" the counter of its owner
 * (the entry's name) exists and is at least n, unless it lies more than half
 * the per-owner limit below n (the numbers wrapped around).
 * Each problem is passed to `report` (may be NULL). Returns the number of
 * problems (0: consistent), or -1 for a NULL table or when memory runs out
 * (qob_errno RSV_ERR_NO_MEMORY). Changes nothing, writes nothing. */
int RsvTimeTbl_verify(RsvTimeTbl *tbl, RsvVerifyProblem report, void *context);

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

#ifdef __cplusplus
}
#endif
#endif
