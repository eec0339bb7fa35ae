// Queries for front ends: read-only questions about a host's planners. They
// walk the weeks and read the cells through the same planner steps as the
// bookings (planner_internal.h), so the answers are the module's own, and
// they never add a planner or a planner list to the table: a host or a week
// without one is read from a stand-in made as the booking path would make
// it, and freed before the call returns. (A table whose planners are built
// when first needed builds the hosts they read, which an eager table holds
// already.)
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "planner/planner_internal.h"
#include "rsv_internal.h"

namespace {

constexpr int kDays = RSV_PLANNER_DAYS;
constexpr int kSlots = RSV_PLANNER_SLOTS_PER_DAY;

struct PlannerDeleter {
    void operator()(ResPlanner *planner) const noexcept { ResPlanner_destroy(planner); }
};
using PlannerPtr = std::unique_ptr<ResPlanner, PlannerDeleter>;

int fail(int error) noexcept
{
    qob_errno = error;
    return -1;
}

// The host's planner list in the table (built now in a lazy table), or NULL;
// `failed` tells a shortage from a host without one.
List *listInTable(RsvTimeTbl *tbl, const char *hostName, bool &failed) noexcept
{
    return rsv::plannerListIfAny(tbl, hostName, failed);
}

// The host's planner list, or, for a host without one, a stand-in made as
// RsvTimeTbl_getPlannerList would make it and never put in the table.
class HostPlanners {
public:
    HostPlanners(RsvTimeTbl *tbl, const char *hostName) noexcept : list_(listInTable(tbl, hostName, failed_))
    {
        if (!list_ && !failed_) {
            list_ = rsv::newPlannerList(hostName);
            standIn_ = true;
        }
    }
    ~HostPlanners()
    {
        if (standIn_)
            rsv::destroyPlannerList(list_);
    }
    HostPlanners(const HostPlanners &) = delete;
    HostPlanners &operator=(const HostPlanners &) = delete;
    // NULL when memory ran out (for the stand-in, or building the host's
    // list in a lazy table).
    List *list() const noexcept { return list_; }

private:
    bool failed_ = false; // before list_, which is made with it
    List *list_;
    bool standIn_ = false;
};

// The cells of `week` as a booking finds them: the list's planner of that
// week, or a new one holding the host's recurring bookings, which `made`
// then owns. NULL when memory runs out.
const ResPlanner *weekCells(List *list, RsvTimeTbl *tbl, const char *hostName, const RsvWeek &week,
                            PlannerPtr &made) noexcept
{
    if (const ResPlanner *planner = rsv::plannerOfWeek(list, &week))
        return planner;
    made.reset(rsv::newWeekPlanner(tbl, hostName, &week));
    return made.get();
}

// The busiest cell of one planner, if busier than `peak` (a tie keeps the
// earlier cell).
void notePeak(const ResPlanner &planner, int &peak, RsvCell &at) noexcept
{
    for (int d = 0; d < kDays; ++d)
        for (int s = 0; s < kSlots; ++s)
            if (planner.slots[d][s].reserved > peak) {
                peak = planner.slots[d][s].reserved;
                at = RsvCell{planner.week, d, s, peak};
            }
}

// A window query: the host and its capacity, the window, and the
// reservation whose own slots count as free (may be NULL).
struct WindowQuery {
    RsvTimeTbl *tbl;
    const char *hostName;
    const char *timeWindow;
    int recurring;
    RsvEnt *own;
    int capacity;
};

// Checks the arguments of a window query and fills `q`. 0, or the error.
int startWindowQuery(WindowQuery &q, RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring,
                     const char *changingRsvId) noexcept
{
    if (!tbl || !hostName || !timeWindow)
        return RSV_ERR_BAD_ARGUMENT;
    const RsvHost *host = miscFuncs.findHost ? miscFuncs.findHost(hostName) : nullptr;
    if (!host)
        return RSV_ERR_BAD_HOST;
    RsvEnt *own = nullptr;
    if (changingRsvId) {
        own = RsvTimeTbl_getEntry(tbl, changingRsvId);
        if (!own)
            return RSV_ERR_NO_SUCH_RSV;
    }
    q = WindowQuery{tbl, hostName, timeWindow, recurring, own, rsv::hostCapacity(host)};
    return 0;
}

// A planner of `week` with 1 in every cell the window covers there.
PlannerPtr coverage(const WindowQuery &q, const RsvWeek &week) noexcept
{
    PlannerPtr planner(ResPlanner_new(q.hostName, &week));
    rsv::CPtr<char> text(rsv::weekWindow(&week, q.timeWindow, q.recurring));
    if (!planner || !text)
        return nullptr;
    ResPlanner_map(planner.get(), text.get(), ResPlannerEnt_incr, 1, nullptr);
    return planner;
}

// Whether the one-off window `timeWindow` reaches `week`, as its booking does.
bool windowReaches(const char *timeWindow, const RsvWeek &week) noexcept
{
    int numWeeks = 0;
    rsv::CPtr<RsvWeek> weeks(RsvTimeWindow_getWeeks(timeWindow, &numWeeks));
    for (int i = 0; i < numWeeks; ++i)
        if (RsvWeek_equal(&weeks.get()[i], &week))
            return true;
    return false;
}

// A planner of `week` holding what the reservation `own` itself has booked
// on the host there. NULL when memory runs out.
PlannerPtr ownShare(const WindowQuery &q, const RsvWeek &week) noexcept
{
    PlannerPtr planner(ResPlanner_new(q.hostName, &week));
    RsvEnt *own = q.own;
    const int recurring = own->options & RSV_OPT_RECURRING;
    if (!planner || !own->allocVector || !own->timeWindow || (!recurring && !windowReaches(own->timeWindow, week)))
        return planner;
    rsv::CPtr<char> text(rsv::weekWindow(&week, own->timeWindow, recurring));
    if (!text)
        return nullptr;
    for (int i = 0; i < own->numHosts; ++i) {
        const AllocElem &elem = own->allocVector[i];
        if (elem.hostName && std::strcmp(elem.hostName, q.hostName) == 0)
            ResPlanner_map(planner.get(), text.get(), ResPlannerEnt_incr, elem.numSlots, own);
    }
    return planner;
}

// Calls visit(week, day, slot, booked) for every cell the window covers, in
// the weeks a booking over it reaches, in their order, then days, then
// slots; `booked` leaves out the changing reservation's own slots. Stops
// when visit returns true. 0, or -1 with qob_errno 55.
template <typename Visit>
int forEachCoveredCell(const WindowQuery &q, Visit visit) noexcept
{
    const unsigned long failuresBefore = rsv::allocationFailures();
    HostPlanners planners(q.tbl, q.hostName);
    if (!planners.list())
        return fail(RSV_ERR_NO_MEMORY);
    int numWeeks = 0;
    rsv::CPtr<RsvWeek> weeks(rsv::mapWeeks(planners.list(), q.timeWindow, q.recurring, &numWeeks));
    for (int i = 0; i < numWeeks; ++i) {
        const RsvWeek &week = weeks.get()[i];
        PlannerPtr made;
        const ResPlanner *booked = weekCells(planners.list(), q.tbl, q.hostName, week, made);
        PlannerPtr covered = coverage(q, week);
        PlannerPtr own;
        if (q.own)
            own = ownShare(q, week);
        if (!booked || !covered || (q.own && !own))
            return fail(RSV_ERR_NO_MEMORY);
        for (int d = 0; d < kDays; ++d)
            for (int s = 0; s < kSlots; ++s)
                if (covered->slots[d][s].reserved != 0 &&
                    visit(week, d, s, booked->slots[d][s].reserved - (own ? own->slots[d][s].reserved : 0)))
                    return 0;
    }
    // A week list or a window text that could not be made reads as nothing
    // to visit: only the failure count tells.
    return rsv::allocationFailures() != failuresBefore ? fail(RSV_ERR_NO_MEMORY) : 0;
}

} // namespace

extern "C" {

int RsvTimeTbl_hostWeekCells(RsvTimeTbl *tbl, const char *hostName, const RsvWeek *week,
                             int cells[RSV_PLANNER_DAYS][RSV_PLANNER_SLOTS_PER_DAY])
{
    if (!tbl || !hostName || !week || !cells)
        return fail(RSV_ERR_BAD_ARGUMENT);
    HostPlanners planners(tbl, hostName);
    PlannerPtr made;
    const ResPlanner *planner = planners.list() ? weekCells(planners.list(), tbl, hostName, *week, made) : nullptr;
    if (!planner)
        return fail(RSV_ERR_NO_MEMORY);
    for (int d = 0; d < kDays; ++d)
        for (int s = 0; s < kSlots; ++s)
            cells[d][s] = planner->slots[d][s].reserved;
    return 0;
}

int RsvTimeTbl_plannerWeeks(RsvTimeTbl *tbl, const char *hostName, RsvWeek **weeks)
{
    if (weeks)
        *weeks = nullptr;
    if (!tbl || !hostName || !weeks)
        return fail(RSV_ERR_BAD_ARGUMENT);
    bool failed = false;
    List *list = listInTable(tbl, hostName, failed);
    if (!list)
        return failed ? fail(RSV_ERR_NO_MEMORY) : 0;
    int count = 0;
    for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw)
        ++count;
    if (count == 0)
        return 0;
    auto *out = static_cast<RsvWeek *>(rsv::allocRecord(count, sizeof(RsvWeek), "RsvTimeTbl_plannerWeeks"));
    if (!out)
        return fail(RSV_ERR_NO_MEMORY);
    int i = 0;
    for (ListEntry *e = list->forw; e != reinterpret_cast<ListEntry *>(list); e = e->forw)
        out[i++] = reinterpret_cast<const ResPlanner *>(e)->week;
    *weeks = out;
    return count;
}

int RsvTimeTbl_peakBooked(RsvTimeTbl *tbl, const char *hostName, const RsvWeek *week, RsvCell *at)
{
    if (!tbl || !hostName)
        return fail(RSV_ERR_BAD_ARGUMENT);
    int peak = 0;
    RsvCell cell{week ? *week : rsvWeekRecur, -1, -1, 0};
    if (week) {
        HostPlanners planners(tbl, hostName);
        PlannerPtr made;
        const ResPlanner *planner = planners.list() ? weekCells(planners.list(), tbl, hostName, *week, made) : nullptr;
        if (!planner)
            return fail(RSV_ERR_NO_MEMORY);
        notePeak(*planner, peak, cell);
    } else {
        bool failed = false;
        List *list = listInTable(tbl, hostName, failed);
        if (failed)
            return fail(RSV_ERR_NO_MEMORY);
        for (ListEntry *e = list ? list->forw : nullptr; e && e != reinterpret_cast<ListEntry *>(list); e = e->forw)
            notePeak(*reinterpret_cast<const ResPlanner *>(e), peak, cell);
    }
    if (at)
        *at = cell;
    return peak;
}

int RsvTimeTbl_freeSlots(RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring,
                         const char *changingRsvId)
{
    WindowQuery q{};
    if (int error = startWindowQuery(q, tbl, hostName, timeWindow, recurring, changingRsvId))
        return fail(error);
    int mostBooked = 0;
    int rc = forEachCoveredCell(q, [&](const RsvWeek &, int, int, int booked) {
        mostBooked = std::max(mostBooked, booked);
        return false;
    });
    if (rc < 0)
        return -1;
    return static_cast<int>(std::max<int64_t>(0, static_cast<int64_t>(q.capacity) - mostBooked));
}

int RsvTimeTbl_firstShortCell(RsvTimeTbl *tbl, const char *hostName, const char *timeWindow, int recurring,
                              int needed, const char *changingRsvId, RsvCell *at)
{
    if (!at)
        return fail(RSV_ERR_BAD_ARGUMENT);
    WindowQuery q{};
    if (int error = startWindowQuery(q, tbl, hostName, timeWindow, recurring, changingRsvId))
        return fail(error);
    bool found = false;
    RsvCell first{};
    int rc = forEachCoveredCell(q, [&](const RsvWeek &week, int day, int slot, int booked) {
        const bool isShort = needed == RSV_NEED_WHOLE_HOST ? booked > 0
                                                           : static_cast<int64_t>(q.capacity) - booked < needed;
        if (isShort) {
            found = true;
            first = RsvCell{week, day, slot, booked};
        }
        return isShort;
    });
    if (rc < 0)
        return -1;
    if (found)
        *at = first;
    return found ? 1 : 0;
}

} // extern "C"
