// Slot allocation: reservable slots per asked host, choosing and booking just
// enough hosts, releasing, availability of one host, and moving a reservation
// to a new window. Every test runs in UTC and in New York with a window over
// the spring-forward night.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "planner_test_util.h"
#include "rsv_test_support.h"

using namespace rsvtest;
using namespace plannertest;

namespace {

constexpr int kSat = 6, kSun = 0, kWed = 3;
constexpr int kUnlimited = 2147483647;

class AllocTest : public ::testing::TestWithParam<const char *> {
protected:
    void SetUp() override
    {
        tbl = RsvTimeTbl_new(nullptr);
        daemon.addHost("hostA", 8, 8, {"a1"});
        daemon.addHost("hostB", 8);
        daemon.addHost("hostC", 8);
        daemon.addHost("hostU", kUnlimited, 16);
        // Saturday 20:00 to Sunday 04:00 over the night the New York clocks
        // spring forward: two calendar weeks.
        start = localTime(2026, 3, 7, 20, 0);
        end = localTime(2026, 3, 8, 4, 0);
        window = oneOff(start, end);
    }
    void TearDown() override
    {
        RsvTimeTbl_free(tbl);
        logclass = 0;
    }

    // Book `slots` on `host` for a reservation kept in the table.
    RsvEnt *reserve(const std::string &id, int options, const std::string &w, const std::vector<Booking> &hosts)
    {
        RsvEnt *ent = makeEntry(id, options, w, hosts);
        addAndBook(tbl, ent);
        return ent;
    }
    int plannersOf(const char *host)
    {
        HashEnt *he = h_getEnt_(&tbl->plannerLists, host);
        return he ? listSize(static_cast<List *>(he->value)) : 0;
    }
    int totalPlanners()
    {
        int n = 0;
        HashIter it;
        for (HashEnt *he = h_firstEnt_(&tbl->plannerLists, &it); he; he = h_nextEnt_(&it))
            n += listSize(static_cast<List *>(he->value));
        return n;
    }
    ResPlanner *planner(const char *host, time_t t) { return findPlanner(tbl, host, weekOf(t)); }
    int maxOnHost(const char *host, const std::string &w, int recurring)
    {
        return daemon.host(host) ? (daemon.host(host)->maxSlots == kUnlimited ? daemon.host(host)->numCpus
                                                                              : daemon.host(host)->maxSlots) -
                                       Rsv_getMaxAvailonHost(tbl, host, w.c_str(), recurring, nullptr)
                                 : 0;
    }

    FakeDaemon daemon;
    ScopedTz tz{GetParam()};
    PinnedClock clock{localTime(2026, 3, 1, 12, 0)};
    RsvTimeTbl *tbl = nullptr;
    time_t start = 0, end = 0;
    std::string window;
};

std::string zoneName(const ::testing::TestParamInfo<const char *> &info)
{
    return std::strcmp(info.param, "UTC") == 0 ? "UTC" : "NewYork";
}

// A reservable allocation built by hand, owning its names.
struct OwnedAlloc {
    explicit OwnedAlloc(const std::vector<std::pair<const char *, int>> &hosts)
    {
        elems = ResAlloc_new(static_cast<int>(hosts.size()));
        for (size_t i = 0; i < hosts.size(); ++i) {
            elems[i].hostName = hosts[i].first ? strdup(hosts[i].first) : nullptr;
            elems[i].numSlots = hosts[i].second;
        }
        count = static_cast<int>(hosts.size());
    }
    ~OwnedAlloc()
    {
        for (int i = 0; i < count; ++i)
            free(elems[i].hostName);
        free(elems);
    }
    ResAlloc *elems;
    int count;
};

struct OwnedVector {
    ~OwnedVector() { RsvEnt_freeAllocVector(&vec, n); }
    AllocElem *vec = nullptr;
    int n = 0;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Zones, AllocTest, ::testing::Values("UTC", "America/New_York"), zoneName);

// --- ResAlloc_new ---

TEST_P(AllocTest, ResAllocNewIsZeroed)
{
    ResAlloc *a = ResAlloc_new(3);
    ASSERT_NE(a, nullptr);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(a[i].hostName, nullptr);
        EXPECT_EQ(a[i].numSlots, 0);
        EXPECT_EQ(a[i].extra1, 0);
        EXPECT_EQ(a[i].extra2, 0);
    }
    free(a);
    EXPECT_EQ(ResAlloc_new(-1), nullptr);
}

// --- RsvTimeTbl_getReservableAlloc ---

TEST_P(AllocTest, ReservableAllocWithNullArgumentsGives52AndLeavesTheOutAlone)
{
    OwnedReq r(0, "alice", 1, 4, {"hostA"}, window);
    ResAlloc sentinel{};
    ResAlloc *out = &sentinel;
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(nullptr, &r.req, &out, nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(out, &sentinel);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, nullptr, &out, nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(out, &sentinel);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, nullptr, nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_STREQ(r.req.askedHosts[0], "hostA");
    EXPECT_EQ(totalPlanners(), 0);
}

TEST_P(AllocTest, ReservableAllocWithoutMemoryGives55AndNoArray)
{
    OwnedReq r(0, "alice", 1, 4, {"a1"}, window);
    ResAlloc sentinel{};
    ResAlloc *out = &sentinel;
    daemon.failAfter(0);
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), -1);
    daemon.failAfter(-1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    EXPECT_EQ(out, nullptr);
    EXPECT_STREQ(r.req.askedHosts[0], "a1");
    EXPECT_EQ(totalPlanners(), 0);
}

TEST_P(AllocTest, ReservableAllocOfNoHostsIsZero)
{
    OwnedReq r(0, "alice", 1, 4, {}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 0);
    free(out);
}

TEST_P(AllocTest, OfficialNamesReplaceTheAskedNamesAndAreShared)
{
    OwnedReq r(0, "alice", 0, 100, {"a1", "hostB"}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 16);
    ASSERT_NE(out, nullptr);
    EXPECT_STREQ(out[0].hostName, "hostA");
    EXPECT_EQ(out[0].hostName, r.req.askedHosts[0]);
    EXPECT_EQ(out[1].hostName, r.req.askedHosts[1]);
    EXPECT_EQ(out[0].numSlots, 8);
    EXPECT_EQ(out[0].extra1, 0);
    EXPECT_EQ(out[0].extra2, 0);
    // The list is taken under the name as asked, before it is resolved.
    EXPECT_NE(h_getEnt_(&tbl->plannerLists, "a1"), nullptr);
    free(out); // the names belong to the request
}

TEST_P(AllocTest, UnknownHostIsOfferedNothingAndKeepsItsAskedName)
{
    OwnedReq r(0, "alice", 0, 100, {"nohost", "hostB"}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 8);
    EXPECT_EQ(out[0].hostName, nullptr);
    EXPECT_EQ(out[0].numSlots, 0);
    EXPECT_STREQ(r.req.askedHosts[0], "nohost");
    EXPECT_EQ(out[1].numSlots, 8);
    free(out);
}

TEST_P(AllocTest, UnlimitedHostOffersItsProcessors)
{
    OwnedReq r(0, "alice", 0, 100, {"hostU"}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 16);
    EXPECT_EQ(out[0].numSlots, 16);
    free(out);
}

TEST_P(AllocTest, SlotsTakenAnywhereInTheWindowAreSubtracted)
{
    // Three slots on Sunday 03:00-03:10 only, in the window's second week.
    const time_t t = localTime(2026, 3, 8, 3, 0);
    reserve("bob#1", 0, oneOff(t, t + 600), {{"hostA", 3}});
    OwnedReq r(0, "alice", 0, 100, {"hostA"}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 5);
    EXPECT_EQ(out[0].numSlots, 5);
    free(out);
}

TEST_P(AllocTest, OverReservedHostIsOfferedZero)
{
    reserve("bob#1", 0, window, {{"hostA", 10}});
    OwnedReq r(0, "alice", 0, 100, {"hostA"}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 0);
    EXPECT_EQ(out[0].numSlots, 0);
    free(out);
}

TEST_P(AllocTest, NoHostIsOfferedMoreThanTheLowerEndOfTheRange)
{
    OwnedReq r(0, "alice", 3, 100, {"hostA", "hostB", "hostU"}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 9);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(out[i].numSlots, 3) << i;
    free(out);
}

TEST_P(AllocTest, SystemReservationFailsWith190WhenAnyAskedHostHasASlotTaken)
{
    const time_t t = localTime(2026, 3, 7, 23, 50);
    reserve("bob#1", 0, oneOff(t, t + 600), {{"hostB", 1}});
    const int planners = totalPlanners();
    OwnedReq r(RSV_OPT_SYSTEM, "system", 1, 4, {"hostA", "hostB", "hostC"}, window);
    ResAlloc sentinel{};
    ResAlloc *out = &sentinel;
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(plannersOf("hostC"), 0); // the walk stopped at hostB
    EXPECT_EQ(totalPlanners(), planners + 1);
    EXPECT_EQ(cell(planner("hostB", t), kSat, 143), 1);
}

TEST_P(AllocTest, SystemReservationOnFreeHostsIsOffered)
{
    reserve("bob#1", 0, oneOff(end, end + 600), {{"hostB", 1}}); // just after the window
    OwnedReq r(RSV_OPT_SYSTEM, "system", 0, 100, {"hostA", "hostB"}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 16);
    free(out);
}

TEST_P(AllocTest, RecurringRequestSeesBookingsOfEveryDatedWeek)
{
    const time_t t = localTime(2026, 3, 4, 8, 0);
    reserve("bob#1", 0, oneOff(t, t + 600), {{"hostA", 5}});
    OwnedReq r(RSV_OPT_RECURRING, "alice", 0, 100, {"hostA"}, "8:0-9:0");
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 3);
    free(out);
}

TEST_P(AllocTest, ReservableAllocLeavesNoPlannerBehind)
{
    reserve("bob#1", RSV_OPT_RECURRING, "21:0-22:0", {{"hostA", 2}});
    ASSERT_EQ(plannersOf("hostA"), 1);
    OwnedReq r(0, "alice", 0, 100, {"hostA"}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 6);
    EXPECT_EQ(plannersOf("hostA"), 1);
    free(out);
}

TEST_P(AllocTest, ReservableAllocLogsUnderTheAddingOperationsName)
{
    OwnedReq r(0, "alice", 0, 100, {"hostA"}, window);
    ResAlloc *out = nullptr;
    LogCapture log;
    logclass = LC_TRACE;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 8);
    free(out);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text, "RsvTimeTbl_addEntry: Entering this routine...");
    log.clear();
    logclass = 0;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 8);
    free(out);
    EXPECT_TRUE(log.lines().empty());
}

TEST_P(AllocTest, ReservableAllocOverManyHostsMatchesOneQueryPerHost)
{
    // Recurring reservations on several hosts, one holding a host twice and one
    // with a disabled day, and a request over a week that has no planner yet.
    reserve("bob#1", RSV_OPT_RECURRING, "22:0-2:0", {{"hostA", 1}, {"hostB", 2}});
    reserve("bob#2", RSV_OPT_RECURRING, "6:21:0-7:3:0", {{"hostB", 1}, {"hostC", 3}, {"hostB", 1}});
    RsvEnt *off = makeEntry("bob#3", RSV_OPT_RECURRING, "0:0-23:59", {{"hostC", 2}});
    off->disabledDurations = listCreate("disabled durations");
    auto *rec = static_cast<RsvDisableDuration *>(calloc(1, sizeof(RsvDisableDuration)));
    rec->firstDay = tmDay{8, 0, 2, 2026};
    rec->lastDay = tmDay{8, 0, 2, 2026};
    listInsertEntryAtBack(off->disabledDurations, &rec->links);
    addAndBook(tbl, off);
    reserve("bob#4", 0, oneOff(start + 600, start + 1200), {{"hostU", 9}});

    const char *hosts[] = {"hostA", "hostB", "hostC", "hostU"};
    int expected[4];
    for (int i = 0; i < 4; ++i)
        expected[i] = Rsv_getMaxAvailonHost(tbl, hosts[i], window.c_str(), 0, nullptr);
    EXPECT_EQ(expected[0], 7);
    EXPECT_EQ(expected[1], 4);
    EXPECT_EQ(expected[2], 3); // Sunday 8 March disabled: Saturday's 2 still count
    EXPECT_EQ(expected[3], 7);
    const int planners = totalPlanners();
    OwnedReq r(0, "alice", 0, 100, {"hostA", "hostB", "hostC", "hostU"}, window);
    ResAlloc *out = nullptr;
    EXPECT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &out, nullptr), 7 + 4 + 3 + 7);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(out[i].numSlots, expected[i]) << hosts[i];
    EXPECT_EQ(totalPlanners(), planners);

    OwnedVector v;
    v.n = Rsv_alloc(tbl, 4, out, &r.req, &v.vec, "just_enough");
    free(out);
    ASSERT_EQ(v.n, 1);
    RsvEnt *ent = makeEntry("alice#1", 0, window, {});
    ent->allocVector = v.vec;
    ent->numHosts = v.n;
    v.vec = nullptr;
    v.n = 0;
    addOnly(tbl, ent);
    EXPECT_TRUE(plannersMatchRebooking(tbl));
}

// --- Rsv_alloc ---

TEST_P(AllocTest, AllocTakesJustEnoughHostsAndLeavesTheRestUnbooked)
{
    OwnedReq r(0, "alice", 4, 8, {"hostA", "hostB", "hostC"}, window);
    OwnedAlloc avail({{"hostA", 3}, {"hostB", 3}, {"hostC", 3}});
    OwnedVector v;
    v.n = Rsv_alloc(tbl, avail.count, avail.elems, &r.req, &v.vec, "just_enough");
    ASSERT_EQ(v.n, 2);
    EXPECT_STREQ(v.vec[0].hostName, "hostA");
    EXPECT_STREQ(v.vec[1].hostName, "hostB");
    EXPECT_NE(v.vec[0].hostName, avail.elems[0].hostName);
    EXPECT_EQ(v.vec[0].numSlots, 3);
    EXPECT_EQ(v.vec[1].numSlots, 3);
    EXPECT_EQ(v.vec[0].extra1, 0);
    EXPECT_EQ(runs(planner("hostA", start), kSat), (Runs{{120, 143, 3}}));
    EXPECT_EQ(runs(planner("hostB", end), kSun), (Runs{{0, 23, 3}}));
    // The booking loop stops once the target is booked: hostC is not reached.
    EXPECT_EQ(plannersOf("hostC"), 0);
}

TEST_P(AllocTest, AllocWithoutALowerEndStopsAtTheFirstHostWithSlots)
{
    OwnedReq r(0, "alice", 0, 100, {"hostA", "hostB", "hostC"}, window);
    OwnedAlloc avail({{"hostA", 0}, {"hostB", 5}, {"hostC", 6}});
    OwnedVector v;
    v.n = Rsv_alloc(tbl, avail.count, avail.elems, &r.req, &v.vec, "just_enough");
    ASSERT_EQ(v.n, 1);
    EXPECT_STREQ(v.vec[0].hostName, "hostB");
    EXPECT_EQ(v.vec[0].numSlots, 5);
    EXPECT_EQ(plannersOf("hostA"), 1); // listed, not booked
    EXPECT_EQ(plannersOf("hostC"), 0); // the loop stopped before it
}

TEST_P(AllocTest, AllocNeverHandsOutMoreThanTheUpperEnd)
{
    OwnedReq r(0, "alice", 6, 7, {"hostA", "hostB", "hostC"}, window);
    OwnedAlloc avail({{"hostA", 4}, {"hostB", 4}, {"hostC", 4}});
    OwnedVector v;
    v.n = Rsv_alloc(tbl, avail.count, avail.elems, &r.req, &v.vec, nullptr);
    ASSERT_EQ(v.n, 2);
    EXPECT_EQ(v.vec[0].numSlots, 4);
    EXPECT_EQ(v.vec[1].numSlots, 3);
    EXPECT_EQ(cell(planner("hostB", start), kSat, 130), 3);
}

TEST_P(AllocTest, AllocLeavesOutHostsThatOfferNothing)
{
    OwnedReq r(0, "alice", 2, 4, {"nohost", "hostA"}, window);
    OwnedAlloc avail({{nullptr, 0}, {"hostA", 4}});
    OwnedVector v;
    v.n = Rsv_alloc(tbl, avail.count, avail.elems, &r.req, &v.vec, "just_enough");
    ASSERT_EQ(v.n, 1);
    EXPECT_STREQ(v.vec[0].hostName, "hostA");
    EXPECT_EQ(v.vec[0].numSlots, 4);
}

TEST_P(AllocTest, RecurringAllocBooksTheZeroWeekAndEveryDatedWeek)
{
    const time_t t = localTime(2026, 3, 4, 12, 0);
    reserve("bob#1", 0, oneOff(t, t + 600), {{"hostA", 1}});
    OwnedReq r(RSV_OPT_RECURRING, "alice", 2, 2, {"hostA"}, "3:8:0-3:9:0");
    OwnedAlloc avail({{"hostA", 2}});
    OwnedVector v;
    v.n = Rsv_alloc(tbl, avail.count, avail.elems, &r.req, &v.vec, "just_enough");
    ASSERT_EQ(v.n, 1);
    EXPECT_EQ(runs(findPlanner(tbl, "hostA", rsvWeekRecur), kWed), (Runs{{48, 53, 2}}));
    EXPECT_EQ(runs(planner("hostA", t), kWed), (Runs{{48, 53, 2}, {72, 72, 1}}));
    EXPECT_EQ(plannersOf("hostA"), 2);
}

TEST_P(AllocTest, AllocWithNullArgumentsBooksNothing)
{
    OwnedReq r(0, "alice", 2, 4, {"hostA"}, window);
    OwnedAlloc avail({{"hostA", 4}});
    AllocElem sentinel{};
    AllocElem *out = &sentinel;
    EXPECT_EQ(Rsv_alloc(nullptr, avail.count, avail.elems, &r.req, &out, "just_enough"), 0);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(Rsv_alloc(tbl, avail.count, avail.elems, nullptr, &out, "just_enough"), 0);
    EXPECT_EQ(Rsv_alloc(tbl, avail.count, avail.elems, &r.req, nullptr, "just_enough"), 0);
    EXPECT_EQ(totalPlanners(), 0);
}

TEST_P(AllocTest, ReservableAllocThenAllocBooksWhatTheTableRebooks)
{
    reserve("bob#1", RSV_OPT_RECURRING, "23:0-1:0", {{"hostB", 2}});
    OwnedReq r(0, "alice", 10, 12, {"a1", "hostB", "hostC"}, window);
    ResAlloc *avail = nullptr;
    ASSERT_EQ(RsvTimeTbl_getReservableAlloc(tbl, &r.req, &avail, nullptr), 8 + 6 + 8);
    EXPECT_EQ(avail[0].numSlots, 8);
    EXPECT_EQ(avail[1].numSlots, 6);
    OwnedVector v;
    v.n = Rsv_alloc(tbl, r.req.numAskedHosts, avail, &r.req, &v.vec, "just_enough");
    free(avail);
    ASSERT_EQ(v.n, 2);
    EXPECT_EQ(v.vec[0].numSlots, 8);
    EXPECT_EQ(v.vec[1].numSlots, 4);
    // Hand the booking to an entry in the table and compare with a rebooking.
    RsvEnt *ent = makeEntry("alice#1", 0, window, {});
    ent->allocVector = v.vec;
    ent->numHosts = v.n;
    v.vec = nullptr;
    v.n = 0;
    addOnly(tbl, ent);
    EXPECT_TRUE(plannersMatchRebooking(tbl));
    EXPECT_EQ(cell(planner("hostB", end), kSun, 5), 6); // 4 + the recurring 2
}

// --- Rsv_dealloc ---

TEST_P(AllocTest, DeallocReleasesEverySlotAndKeepsThePlanners)
{
    RsvEnt *ent = reserve("alice#1", 0, window, {{"hostA", 3}, {"hostB", 2}});
    const int planners = totalPlanners();
    Rsv_dealloc(tbl, ent);
    EXPECT_EQ(totalPlanners(), planners);
    EXPECT_EQ(bookedCells(planner("hostA", start)), 0);
    EXPECT_EQ(bookedCells(planner("hostA", end)), 0);
    EXPECT_EQ(bookedCells(planner("hostB", end)), 0);
}

TEST_P(AllocTest, DeallocOfARecurringEntryReleasesEveryWeek)
{
    reserve("bob#1", 0, window, {{"hostA", 1}});
    RsvEnt *ent = reserve("alice#1", RSV_OPT_RECURRING, "22:0-2:0", {{"hostA", 3}});
    EXPECT_EQ(cell(planner("hostA", start), kSat, 140), 4);
    Rsv_dealloc(tbl, ent);
    EXPECT_EQ(bookedCells(findPlanner(tbl, "hostA", rsvWeekRecur)), 0);
    EXPECT_EQ(cell(planner("hostA", start), kSat, 140), 1);
    EXPECT_EQ(cell(planner("hostA", end), kSun, 1), 1);
    Rsv_dealloc(nullptr, ent);
    Rsv_dealloc(tbl, nullptr);
}

// --- Rsv_getMaxAvailonHost ---

TEST_P(AllocTest, AvailabilityIsCapacityMinusTheLargestCount)
{
    const time_t t = localTime(2026, 3, 8, 1, 0);
    reserve("bob#1", 0, oneOff(t, t + 1200), {{"hostA", 3}});
    reserve("bob#2", 0, oneOff(t + 600, t + 1800), {{"hostA", 2}});
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "hostA", window.c_str(), 0, nullptr), 3);
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "hostA", oneOff(t + 1200, t + 1800).c_str(), 0, nullptr), 6);
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "hostB", window.c_str(), 0, nullptr), 8);
}

TEST_P(AllocTest, AvailabilityOfUnknownHostOrNullArgumentsIsZero)
{
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "nohost", window.c_str(), 0, nullptr), 0);
    EXPECT_EQ(Rsv_getMaxAvailonHost(nullptr, "hostA", window.c_str(), 0, nullptr), 0);
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, nullptr, window.c_str(), 0, nullptr), 0);
    EXPECT_EQ(totalPlanners(), 0);
}

TEST_P(AllocTest, AvailabilityOfAnOverReservedHostIsNegative)
{
    reserve("bob#1", 0, window, {{"hostA", 10}});
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "hostA", window.c_str(), 0, nullptr), -2);
}

TEST_P(AllocTest, AvailabilityOfAnUnlimitedHostCountsItsProcessors)
{
    reserve("bob#1", 0, window, {{"hostU", 5}});
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "hostU", window.c_str(), 0, nullptr), 11);
}

TEST_P(AllocTest, AvailabilityByAliasReadsTheOfficialHostsPlanners)
{
    reserve("bob#1", 0, window, {{"hostA", 5}});
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "a1", window.c_str(), 0, nullptr), 3);
    EXPECT_EQ(h_getEnt_(&tbl->plannerLists, "a1"), nullptr);
}

TEST_P(AllocTest, AvailabilityOnAWeekWithoutAPlannerSeesRecurringBookingsAndLeavesNoPlanner)
{
    reserve("bob#1", RSV_OPT_RECURRING, "6:23:0-7:1:0", {{"hostA", 6}});
    ASSERT_EQ(plannersOf("hostA"), 1);
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "hostA", window.c_str(), 0, nullptr), 2);
    EXPECT_EQ(plannersOf("hostA"), 1);
}

TEST_P(AllocTest, RecurringAvailabilitySkipsTheEntrysDisabledDaysOnDatedWeeks)
{
    const time_t wed = localTime(2026, 3, 4, 8, 0);
    reserve("bob#1", 0, oneOff(wed, wed + 600), {{"hostA", 5}});
    RsvEnt *ent = makeEntry("alice#1", RSV_OPT_RECURRING, "8:0-9:0", {});
    ent->disabledDurations = listCreate("disabled durations");
    auto *rec = static_cast<RsvDisableDuration *>(calloc(1, sizeof(RsvDisableDuration)));
    rec->firstDay = tmDay{4, 3, 2, 2026};
    rec->lastDay = tmDay{4, 3, 2, 2026};
    listInsertEntryAtBack(ent->disabledDurations, &rec->links);
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "hostA", "8:0-9:0", 1, nullptr), 3);
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "hostA", "8:0-9:0", 1, ent), 8);
    freeEntry(ent);
}

TEST_P(AllocTest, AvailabilityLogsItsEntry)
{
    LogCapture log;
    logclass = LC_RSV;
    Rsv_getMaxAvailonHost(tbl, "hostA", window.c_str(), 0, nullptr);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text, "Rsv_getMaxAvailonHost: Entering...");
}

// --- Rsv_chkupdRsv4NewTimeWindow ---

TEST_P(AllocTest, MovingWithNullArgumentsGives52)
{
    RsvEnt *ent = reserve("alice#1", 0, window, {{"hostA", 3}});
    qob_errno = 0;
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(nullptr, ent, window.c_str(), 1), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    qob_errno = 0;
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, nullptr, window.c_str(), 1), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    qob_errno = 0;
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, ent, nullptr, 1), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_TRUE(plannersMatchRebooking(tbl));
}

TEST_P(AllocTest, MovingWithUpdateBooksTheNewWindowOnly)
{
    RsvEnt *ent = reserve("alice#1", 0, window, {{"hostA", 3}, {"hostB", 2}});
    const time_t t = localTime(2026, 3, 18, 9, 0); // a week the old window does not touch
    const std::string moved = oneOff(t, t + 3600);
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, ent, moved.c_str(), 1), 0);
    EXPECT_EQ(bookedCells(planner("hostA", start)), 0);
    EXPECT_EQ(runs(planner("hostA", t), kWed), (Runs{{54, 59, 3}}));
    EXPECT_EQ(runs(planner("hostB", t), kWed), (Runs{{54, 59, 2}}));
    free(ent->timeWindow);
    ent->timeWindow = strdup(moved.c_str());
    EXPECT_TRUE(plannersMatchRebooking(tbl));
}

TEST_P(AllocTest, MovingWithoutUpdateReleasesTheOldBookingAndBooksNothing)
{
    RsvEnt *ent = reserve("alice#1", 0, window, {{"hostA", 3}});
    const time_t t = localTime(2026, 3, 18, 9, 0); // a week the old window does not touch
    const std::string moved = oneOff(t, t + 3600);
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, ent, moved.c_str(), 0), 0);
    EXPECT_EQ(bookedCells(planner("hostA", start)), 0);
    EXPECT_EQ(bookedCells(planner("hostA", end)), 0);
    EXPECT_EQ(planner("hostA", t), nullptr);
    // The daemon's second call, with update, books the new window only.
    free(ent->timeWindow);
    ent->timeWindow = strdup(moved.c_str());
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, ent, moved.c_str(), 1), 0);
    EXPECT_EQ(runs(planner("hostA", t), kWed), (Runs{{54, 59, 3}}));
    EXPECT_EQ(bookedCells(planner("hostA", start)), 0);
}

TEST_P(AllocTest, MovingOntoTooFewFreeSlotsGives190AndKeepsTheReleases)
{
    const time_t t = localTime(2026, 3, 18, 9, 0); // a week the old window does not touch
    const std::string moved = oneOff(t, t + 3600);
    reserve("bob#1", 0, moved, {{"hostB", 7}});
    RsvEnt *ent = reserve("alice#1", 0, window, {{"hostA", 3}, {"hostB", 2}, {"hostC", 1}});
    qob_errno = 0;
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, ent, moved.c_str(), 1), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(bookedCells(planner("hostA", start)), 0);
    EXPECT_EQ(bookedCells(planner("hostB", start)), 0);
    EXPECT_EQ(cell(planner("hostC", start), kSat, 130), 1); // never reached
    EXPECT_EQ(runs(planner("hostB", t), kWed), (Runs{{54, 59, 7}}));
    EXPECT_EQ(planner("hostA", t), nullptr);
}

TEST_P(AllocTest, MovingASystemReservationOntoAnyTakenSlotGives190)
{
    const time_t t = localTime(2026, 3, 18, 9, 0); // a week the old window does not touch
    const std::string moved = oneOff(t, t + 3600);
    reserve("bob#1", 0, oneOff(t + 3000, t + 3600), {{"hostA", 1}});
    RsvEnt *ent = reserve("system#1", RSV_OPT_SYSTEM, window, {{"hostA", 1}});
    qob_errno = 0;
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, ent, moved.c_str(), 1), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
}

TEST_P(AllocTest, MovingWithAHostTheDaemonNoLongerKnowsGives23)
{
    RsvEnt *ent = reserve("alice#1", 0, window, {{"hostA", 3}, {"hostC", 2}});
    daemon.removeHost("hostC");
    const time_t t = localTime(2026, 3, 18, 9, 0); // a week the old window does not touch
    qob_errno = 0;
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, ent, oneOff(t, t + 3600).c_str(), 1), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_HOST);
    EXPECT_EQ(bookedCells(planner("hostA", start)), 0);
    EXPECT_EQ(bookedCells(planner("hostC", start)), 0); // released before the look-up
    EXPECT_EQ(planner("hostA", t), nullptr);
}

TEST_P(AllocTest, MovingComparesAgainstTheConfiguredLimitWithoutTheProcessorFallback)
{
    RsvEnt *ent = reserve("alice#1", 0, window, {{"hostU", 20}});
    EXPECT_EQ(Rsv_getMaxAvailonHost(tbl, "hostU", window.c_str(), 0, nullptr), -4);
    const time_t t = localTime(2026, 3, 18, 9, 0); // a week the old window does not touch
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, ent, oneOff(t, t + 3600).c_str(), 1), 0);
    EXPECT_EQ(cell(planner("hostU", t), kWed, 54), 20);
}

TEST_P(AllocTest, MovingARecurringReservationChecksEveryWeekAndSkipsItsDisabledDays)
{
    const time_t wed = localTime(2026, 3, 4, 8, 0);
    reserve("bob#1", 0, oneOff(wed, wed + 600), {{"hostA", 7}});

    // Without disabled days the dated week's Wednesday is in the way.
    RsvEnt *plain = reserve("alice#1", RSV_OPT_RECURRING, "20:0-21:0", {{"hostA", 2}});
    qob_errno = 0;
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, plain, "8:0-9:0", 0), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(cell(findPlanner(tbl, "hostA", rsvWeekRecur), kWed, 120), 0);
    EXPECT_EQ(cell(planner("hostA", wed), kWed, 120), 0);
    // Its booking is gone: the daemon drops it.
    h_delEnt_(&tbl->entries, h_getEnt_(&tbl->entries, "alice#1"));
    freeEntry(plain);

    // With Wednesday 4 March disabled, that occurrence does not count.
    RsvEnt *off = makeEntry("alice#2", RSV_OPT_RECURRING, "20:0-21:0", {{"hostA", 2}});
    off->disabledDurations = listCreate("disabled durations");
    auto *rec = static_cast<RsvDisableDuration *>(calloc(1, sizeof(RsvDisableDuration)));
    rec->firstDay = tmDay{4, 3, 2, 2026};
    rec->lastDay = tmDay{4, 3, 2, 2026};
    listInsertEntryAtBack(off->disabledDurations, &rec->links);
    addAndBook(tbl, off);
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, off, "8:0-9:0", 1), 0);
    ResPlanner *dated = planner("hostA", wed);
    EXPECT_EQ(runs(dated, kWed), (Runs{{48, 48, 7}}));
    EXPECT_EQ(runs(dated, 4), (Runs{{48, 53, 2}}));
    EXPECT_EQ(runs(findPlanner(tbl, "hostA", rsvWeekRecur), kWed), (Runs{{48, 53, 2}}));
    free(off->timeWindow);
    off->timeWindow = strdup("8:0-9:0");
    EXPECT_TRUE(plannersMatchRebooking(tbl));
}

TEST_P(AllocTest, MovingLogsItsEntry)
{
    RsvEnt *ent = reserve("alice#1", 0, window, {{"hostA", 1}});
    LogCapture log;
    logclass = LC_TRACE;
    EXPECT_EQ(Rsv_chkupdRsv4NewTimeWindow(tbl, ent, window.c_str(), 1), 0);
    ASSERT_GE(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text, "Rsv_chkupdRsv4NewTimeWindow: Entering...");
    EXPECT_TRUE(plannersMatchRebooking(tbl));
}
