// Test support: a fake daemon behind the module's nine services, a pinned
// clock, a pinned time zone, log capture, temporary directories and the
// planner checker. Every test that depends on the clock or the zone pins both.
#ifndef RSV_TEST_SUPPORT_H
#define RSV_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "qob.rsvimpl.h"
#include "rsv.hpp"

namespace rsvtest {

// The daemon side of the module: hosts (with aliases), jobs, the name table
// and the per-owner limit, installed with RsvMod_init on construction. Only
// one FakeDaemon exists at a time. Allocation failures can be injected: after
// failAfter(n), the n+1-th allocZeroed/dupString call (counting from the
// call to failAfter) and every later one returns NULL until failAfter(-1).
class FakeDaemon {
public:
    FakeDaemon();
    ~FakeDaemon();
    FakeDaemon(const FakeDaemon &) = delete;
    FakeDaemon &operator=(const FakeDaemon &) = delete;

    // Add a host; `numCpus` defaults to maxSlots. Returns the daemon's record.
    RsvHost *addHost(const std::string &name, int maxSlots, int numCpus = -1,
                     const std::vector<std::string> &aliases = {});
    void removeHost(const std::string &name);
    RsvHost *host(const std::string &name);

    RsvJob *addJob(int64_t jobId, int status, const std::vector<RsvHost *> &execHosts = {});

    void setMaxPerOwner(int n) { maxPerOwner_ = n; }
    void failAfter(int n);
    int allocCount() const { return allocCount_; }
    void clearFindJob();   // the daemon supplies no findJob service
    HashTab *nameTable() { return &nameTable_; }

    static FakeDaemon *current() { return current_; }

    // The services themselves (public so a test can wrap them).
    static void *allocZeroed(int count, size_t size, const char *caller);
    static char *dupString(const char *text);
    static RsvJob *findJob(int64_t jobId);
    static RsvHost *findHost(const char *name);
    static char *officialHostName(const char *name);
    static HashTab *rsvNameTable();
    static int maxRsvPerOwner();

    RsvMiscFuncs services{};

private:
    bool allocAllowed();

    struct Host {
        RsvHost rec{};
        std::vector<std::string> aliases;
    };
    std::map<std::string, Host *> hosts_;
    std::map<int64_t, RsvJob *> jobs_;
    std::vector<std::vector<RsvHost *> *> execHostLists_;
    HashTab nameTable_{};
    int maxPerOwner_ = 100;
    int failAfter_ = -1;
    int allocCount_ = 0;
    static FakeDaemon *current_;
};

// Pins the module's clock to a settable time for the life of the object.
class PinnedClock {
public:
    explicit PinnedClock(time_t t);
    ~PinnedClock();
    void set(time_t t) { now_ = t; }
    void advance(time_t seconds) { now_ += seconds; }
    static time_t now() { return now_; }

private:
    static time_t now_;
};

// Pins TZ (and tzset) for the life of the object; restores the old zone.
class ScopedTz {
public:
    explicit ScopedTz(const char *zone);
    ~ScopedTz();

private:
    std::string old_;
    bool hadOld_ = false;
};

// Local calendar time of a date and clock time (month 1..12), DST decided by
// the zone (tm_isdst = -1).
time_t localTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

// Collects every line the module logs for the life of the object.
class LogCapture {
public:
    struct Line {
        int level;
        std::string text;
    };
    LogCapture();
    ~LogCapture();
    const std::vector<Line> &lines() const { return lines_; }
    bool contains(const std::string &fragment) const;
    bool contains(int level, const std::string &fragment) const;
    void clear() { lines_.clear(); }

private:
    static void sink(int level, const char *line);
    std::vector<Line> lines_;
    KxLogSink previous_;
    static LogCapture *current_;
};

// A fresh directory under $TMPDIR, removed with its contents afterwards.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string readFile(const std::string &path);
// Empty `dir` of its files and remove it (state directories hold no others).
void removeDirectory(const std::string &dir);
// The owner counters of an id file's text.
std::map<std::string, int> idFileCounters(const std::string &text);
bool fileExists(const std::string &path);
void writeFile(const std::string &path, const std::string &contents);

// A request that owns its texts the way the daemon's request does: the module
// may replace askedHosts entries with official names, and the destructor
// frees whatever is there.
struct OwnedReq {
    OwnedReq(int options, const std::string &owner, int minProcs, int maxProcs,
             const std::vector<std::string> &hosts, const std::string &timeWindow,
             const char *description = nullptr);
    ~OwnedReq();
    OwnedReq(const OwnedReq &) = delete;
    OwnedReq &operator=(const OwnedReq &) = delete;
    RsvReq req{};
};

// The same for a modification request.
struct OwnedModReq {
    OwnedModReq(const std::string &rsvId, int options, int minProcs, int maxProcs,
                const std::vector<std::string> &hosts, const std::string &timeWindow,
                const char *description = nullptr);
    ~OwnedModReq();
    OwnedModReq(const OwnedModReq &) = delete;
    OwnedModReq &operator=(const OwnedModReq &) = delete;
    RsvModReq mod{};
};

// A requested-hosts table, as RsvTimeTbl_removeHosts takes one, whose marks
// the test owns.
class RequestedHosts {
public:
    explicit RequestedHosts(const std::vector<std::string> &names);
    ~RequestedHosts();
    RequestedHosts(const RequestedHosts &) = delete;
    RequestedHosts &operator=(const RequestedHosts &) = delete;
    HashTab *get() { return &tab_; }

private:
    HashTab tab_{};
    std::vector<int> marks_;
};

// Add a reservation of `procs` slots (minimum and maximum); its identifier,
// or "" with a test failure naming qob_errno when it is refused.
std::string addReservation(RsvTimeTbl *tbl, int options, const std::string &owner, int procs,
                           const std::vector<std::string> &hosts, const std::string &window);

// One-off window text "start-end" in epoch seconds.
std::string oneOff(time_t start, time_t end);

// The planner of `host` for `week` in the table, or nullptr.
ResPlanner *findPlanner(RsvTimeTbl *tbl, const std::string &host, const RsvWeek &week);

// The invariant: every planner cell of every host equals a from-scratch
// rebooking of the table's reservations into the same weeks (the module's
// own checker, the planner part of RsvTimeTbl_verify).
::testing::AssertionResult plannersMatchRebooking(RsvTimeTbl *tbl);

// RsvTimeTbl_verify with its problem lines: success when it finds none.
::testing::AssertionResult tableVerifies(RsvTimeTbl *tbl);
// The problem lines of RsvTimeTbl_verify, and its result in *result.
std::vector<std::string> verifyProblems(RsvTimeTbl *tbl, int *result = nullptr);

// Two tables hold the same planner weeks and cells for every host.
::testing::AssertionResult plannersEqual(RsvTimeTbl *a, RsvTimeTbl *b);

// Every cell of every planner, host by host, in list order, each planner led
// by its week: equal results mean the planners did not change.
std::vector<int> plannerCells(RsvTimeTbl *tbl);

// Everything a failed change must leave as it was: the record of every
// entry as the state file holds it (table order, keys included), the entry
// fields the record leaves out, every owner's identifier counter in order,
// and every planner cell. Take it with no allocation failure pending: the
// records are built through the module's allocator.
struct TableFingerprint {
    std::string records;
    std::string counters;
    std::vector<int> cells;
    int numEntries = 0;
};
TableFingerprint fingerprint(RsvTimeTbl *tbl);
// The state file the table would write now (every entry whose key has no
// '@', in table order, one record a line) and the id file of the counters.
std::string stateFileText(RsvTimeTbl *tbl);
std::string idFileText();
// Equal fingerprints; a failure names the part that differs.
::testing::AssertionResult sameFingerprint(const TableFingerprint &before, const TableFingerprint &after);

// Booked count of one cell (day 0..6, slot 0..143).
inline int cell(const ResPlanner *p, int day, int slot) { return p->slots[day][slot].reserved; }

} // namespace rsvtest

#endif
