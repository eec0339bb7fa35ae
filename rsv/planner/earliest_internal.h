// earliest_internal.h: what the earliest-fit units share: local time counted
// in the planners' 10-minute cells, the booked counts of one asked host week
// by week as RsvTimeTbl_addEntry would read them, the reservation whose slots
// are counted free, and the allocation rule.
#ifndef RSV_EARLIEST_INTERNAL_H
#define RSV_EARLIEST_INTERNAL_H

#include <cstdint>
#include <ctime>
#include <vector>

#include "qob.rsvimpl.h"
#include "rsv_internal.h"

namespace rsv::fit {

inline constexpr int kCellsPerDay = RSV_PLANNER_SLOTS_PER_DAY;
inline constexpr int kCellsPerWeek = RSV_PLANNER_DAYS * RSV_PLANNER_SLOTS_PER_DAY;
inline constexpr int kCellSeconds = 600;
inline constexpr int64_t kDaySeconds = 86400;
// Day 3 after 1 January 1970 (a Thursday) is the first Sunday: weeks are
// numbered from it, Sunday to Saturday like the planners' weeks.
inline constexpr int64_t kFirstSunday = 3;

inline int64_t floorDiv(int64_t a, int64_t b)
{
    const int64_t q = a / b;
    return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

inline int64_t ceilDiv(int64_t a, int64_t b)
{
    return -floorDiv(-a, b);
}

// Local clock cells: cell n is the local clock time [600 n, 600 n + 600)
// seconds counted from 1 January 1970 00:00 on the local calendar, so the
// cells of one calendar week are the 1,008 cells of its planner in order.
// A window starting at local time `wall` (seconds) starts in startCell; one
// ending there ends before endCell: the planners drop the seconds and round
// an end up to the next 10 minutes.
inline int64_t startCell(int64_t wall)
{
    return floorDiv(wall, kCellSeconds);
}

inline int64_t endCell(int64_t wall)
{
    return ceilDiv(floorDiv(wall, 60), 10);
}

inline int64_t weekOfCell(int64_t cell)
{
    return floorDiv(floorDiv(cell, kCellsPerDay) - kFirstSunday, 7);
}

inline int64_t firstCellOfWeek(int64_t week)
{
    return (kFirstSunday + 7 * week) * kCellsPerDay;
}

// The week record a dated planner of week number `week` carries.
void weekRecord(int64_t week, RsvWeek *out);

// The local clock's offset from UTC, read from the C library once a day
// along the times asked for; where it changes, the change is found to the
// second. (No time zone changes its offset twice within one day.) Times are
// asked for in rising order; an earlier one starts the record again.
class LocalClock {
public:
    // The offset (seconds east of UTC) at t, and the first time after t at
    // which it may differ. False when t has no local time.
    bool offsetAt(time_t t, long &offset, time_t &sameUntil);

private:
    struct Segment {
        time_t start;
        long offset;
    };
    bool extendTo(time_t t);
    std::vector<Segment> segments_; // each offset holds until the next start
    time_t probedUntil_ = 0;        // the last one holds up to here at least
};

// The offset of local time from UTC at t read directly; false when t has no
// local time.
bool localOffset(time_t t, long &offset);

// The reservation whose slots count as free: what Rsv_dealloc would take
// out of a host's planners, and what a new planner would no longer get from
// it once the reservation is gone.
class Changing {
public:
    // False when memory runs out.
    bool init(RsvEnt *ent);
    RsvEnt *entry() const { return ent_; }
    // Whether it holds slots of `hostName` in `planner` (a planner of the
    // list kept under that name).
    bool holds(const ResPlanner *planner, const char *hostName) const;
    // Take its slots of `hostName` out of `planner`, a copy of a planner of
    // the list kept under that name. False when memory runs out.
    bool release(ResPlanner *planner, const char *hostName) const;
    // Take out of a new planner (made with ResPlanner_addRecurs for the
    // official name `hostName`) the recurring slots it got from it.
    void releaseFromNew(ResPlanner *planner, const char *hostName) const;

private:
    bool inWeeks(const RsvWeek &week) const;
    RsvEnt *ent_ = nullptr;
    std::vector<RsvWeek> weeks_; // a one-off reservation's weeks
};

// One asked host of the request, resolved as RsvTimeTbl_getReservableAlloc
// resolves it.
struct AskedHost {
    const char *asked = nullptr;  // the request's name: the key of its list
    CPtr<char> official;          // the daemon's official name
    int capacity = 0;             // slot limit, or processors when none
    List *list = nullptr;         // its planner list in the table, if any
};

// Copies of one host's planners as RsvTimeTbl_addEntry reads them, week by
// week: a dated planner as it is, a week without one as a new planner would
// hold it, the changing reservation's slots taken out. The last four weeks
// asked for are kept.
class HostBook {
public:
    HostBook() = default;
    HostBook(const HostBook &) = delete;
    HostBook &operator=(const HostBook &) = delete;
    ~HostBook();

    void init(RsvTimeTbl *tbl, const AskedHost *host, const Changing *changing);
    // The 1,008 cells of week `week`, valid until four other weeks have been
    // asked for. NULL when memory runs out.
    const ResPlannerEnt *week(int64_t week);

private:
    static constexpr int kKept = 4;
    struct Kept {
        int64_t week = INT64_MIN;
        const ResPlannerEnt *cells = nullptr;
        ResPlanner *copy = nullptr; // owned scratch planner, made on demand
    };
    ResPlanner *scratch(ResPlanner *&slot);
    const ResPlannerEnt *newWeek(const RsvWeek &week, ResPlanner *&slot);

    RsvTimeTbl *tbl_ = nullptr;
    const AskedHost *host_ = nullptr;
    const Changing *changing_ = nullptr;
    bool sameEveryWeek_ = false;
    ResPlanner *uniform_ = nullptr; // the one new-week planner when all alike
    Kept kept_[kKept];
};

// Reads one host's cells in order through its book, a week at a time. Only
// one reader may use a book: a reader keeps the week it is in.
class CellReader {
public:
    explicit CellReader(HostBook &book) : book_(&book) {}
    int at(int64_t cell)
    {
        const int64_t offset = cell - weekBase_;
        if (week_ && offset >= 0 && offset < kCellsPerWeek)
            return week_[offset].reserved;
        return load(cell);
    }
    bool failed() const { return failed_; }
    HostBook &book() { return *book_; }

private:
    int load(int64_t cell);
    HostBook *book_;
    int64_t weekBase_ = 0;
    const ResPlannerEnt *week_ = nullptr;
    bool failed_ = false;
};

// The most booked count over a window of one host's cells (at least 0, as
// the addition sees it), kept in a monotonic queue of cells with falling
// counts as the window moves forward; a window that jumps back or ahead
// starts the queue again.
class WindowMax {
public:
    explicit WindowMax(HostBook &book) : reader_(book) { grow(); }
    int used(int64_t first, int64_t last);
    bool failed() const { return reader_.failed(); }

private:
    void push(int64_t cell);
    void grow();

    CellReader reader_;
    std::vector<int64_t> cells_; // ring of (cell, count), counts falling
    std::vector<int> counts_;
    size_t head_ = 0;
    size_t size_ = 0;
    size_t mask_ = 0;
    int64_t first_ = INT64_MIN; // cells [first_, last_) have been pushed
    int64_t last_ = INT64_MIN;
};

// The starts of a one-off search in time order: every 10-minute boundary of
// the local clock in [notBefore, notAfter), each with the cells its window
// covers.
class Starts {
public:
    Starts(LocalClock &clock, time_t notBefore, time_t notAfter, time_t length)
        : clock_(clock), from_(notBefore), notAfter_(notAfter), length_(length)
    {
    }
    // The next start and its window's cells [first, last); false at the end
    // of the range or when a time has no local time (failed()).
    bool next(time_t &start, int64_t &first, int64_t &last);
    // Pass over the starts after the current one whose windows still hold
    // `cell` (the current window holds it), as far as the clock's offset
    // stays the same for their starts and ends; the rest come from next().
    void passOver(int64_t cell, int64_t first);
    bool failed() const { return failed_; }

private:
    bool alignedFrom(time_t from, time_t &start);

    LocalClock &clock_;
    time_t from_;
    time_t notAfter_;
    time_t length_;
    bool started_ = false;
    bool failed_ = false;
    time_t current_ = 0;
    long startOffset_ = 0;
    time_t startUntil_ = 0;
    long endOffset_ = 0;
    time_t endUntil_ = 0;
    bool endKnown_ = false;
};

// Make a scratch planner (all cells 0) through the daemon's allocator.
ResPlanner *newScratchPlanner();

// The allocation rule of RsvTimeTbl_getReservableAlloc and
// RsvTimeTbl_addEntry.
struct Rule {
    int minNumProcs = 0;
    int maxNumProcs = 0;
    bool system = false;

    // What a host of `capacity` offers when `used` slots are booked in its
    // most booked cell (`used` is at least 0).
    int offered(int capacity, int used) const
    {
        int avail = used <= capacity ? capacity - used : 0;
        if (minNumProcs > 0 && avail > minNumProcs)
            avail = minNumProcs;
        return avail;
    }
    // The reservable count of a summed total, as the addition sees it.
    static int reservable(int64_t total) { return total > INT32_MAX ? INT32_MAX : static_cast<int>(total); }
    bool accepts(int64_t total) const
    {
        const int r = reservable(total);
        return r >= minNumProcs && r > 0;
    }
};

// One host's part at a start: its booked maximum and where it is.
struct HostUse {
    int used = 0;          // the most booked cell's count, at least 0
    int64_t cell = -1;     // the first cell holding it (-1: nothing booked)
    RsvWeek week{};        // that cell's planner week (recurring search)
};

// Fill result->numHosts and result->allocVector with what Rsv_alloc
// ("just_enough") books from the offered counts `avail` (one per asked host,
// request order). False when memory runs out.
bool fillAllocation(const std::vector<AskedHost> &hosts, const std::vector<int> &avail, const Rule &rule,
                    RsvFit *result);

// The host that held a request back at a start: the first one offering
// less than it could (for a system request: the first with any booking);
// result->limitHostIndex and limitHost are set, and its index returned (-1:
// none). False in *ok when memory runs out.
int fillLimitHost(const std::vector<AskedHost> &hosts, const std::vector<HostUse> &uses, const Rule &rule,
                  RsvFit *result, bool *ok);

// The searches behind the two public calls; each returns 0 or an error
// number. The hosts are resolved and the arguments checked.
int searchOneOff(RsvTimeTbl *tbl, const std::vector<AskedHost> &hosts, const Rule &rule, const Changing *changing,
                 time_t notBefore, time_t notAfter, int durationMinutes, RsvFit *result);
int searchRecurring(const std::vector<AskedHost> &hosts, const Rule &rule, const Changing *changing, int form,
                    int durationMinutes, RsvFit *result);

} // namespace rsv::fit

#endif
