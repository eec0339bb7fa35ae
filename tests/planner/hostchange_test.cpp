#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "planner/planner_internal.h"
#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

struct TblDeleter {
    void operator()(RsvTimeTbl *t) const { RsvTimeTbl_free(t); }
};
using TblPtr = std::unique_ptr<RsvTimeTbl, TblDeleter>;

struct Slot {
    const char *host;
    int slots;
    int extra1 = 0;
    int extra2 = 0;
};

// Sets the log-class mask for one test and restores it afterwards.
class ScopedLogClass {
public:
    explicit ScopedLogClass(int bits) : old_(logclass) { logclass = bits; }
    ~ScopedLogClass() { logclass = old_; }

private:
    int old_;
};

// "host:slots/extra1/extra2" per element, in vector order; "-" for an element
// without a name.
std::string vectorText(const RsvEnt *ent)
{
    std::ostringstream out;
    out << ent->numHosts << "[";
    for (int i = 0; ent->allocVector && i < ent->numHosts; ++i) {
        const AllocElem &el = ent->allocVector[i];
        out << (i ? " " : "") << (el.hostName ? el.hostName : "-") << ":" << el.numSlots << "/" << el.extra1 << "/"
            << el.extra2;
    }
    out << "]";
    return out.str();
}

// A requested-hosts table whose marks the test owns.
class HostSet {
public:
    explicit HostSet(const std::vector<std::string> &names)
    {
        h_initTab_(&tab_, 8);
        marks_.reserve(names.size());
        for (auto &n : names) {
            marks_.push_back(1);
            h_addEnt_(&tab_, n.c_str(), nullptr)->value = &marks_.back();
        }
    }
    ~HostSet() { h_freeTab_(&tab_, nullptr); }
    HashTab *get() { return &tab_; }
    int mark(const std::string &name)
    {
        HashEnt *he = h_getEnt_(&tab_, name.c_str());
        return he && he->value ? *static_cast<int *>(he->value) : -99;
    }

private:
    HashTab tab_{};
    std::vector<int> marks_;
};

// Wraps the daemon's allocator so that chosen calls fail: the n-th
// allocation with a given tag, or the first string copy after the n-th
// allocation with that tag.
struct TagFailure {
    static inline std::string tag;
    static inline int failTagged = -1;   // which tagged allocation fails (1-based)
    static inline int dupAfterTag = -1;  // after this many tagged allocations, copies fail
    static inline int seen = 0;

    static void *alloc(int count, size_t size, const char *caller)
    {
        if (caller && tag == caller) {
            ++seen;
            if (seen == failTagged)
                return nullptr;
        }
        return FakeDaemon::allocZeroed(count, size, caller);
    }
    static char *dup(const char *text)
    {
        if (dupAfterTag >= 0 && seen >= dupAfterTag)
            return nullptr;
        return FakeDaemon::dupString(text);
    }
    static void install(FakeDaemon &daemon, const std::string &t, int failN, int dupAfter)
    {
        tag = t;
        failTagged = failN;
        dupAfterTag = dupAfter;
        seen = 0;
        daemon.services.allocZeroed = &TagFailure::alloc;
        daemon.services.dupString = &TagFailure::dup;
        RsvMod_init(&daemon.services);
    }
    static void remove(FakeDaemon &daemon)
    {
        daemon.services.allocZeroed = &FakeDaemon::allocZeroed;
        daemon.services.dupString = &FakeDaemon::dupString;
        RsvMod_init(&daemon.services);
        failTagged = -1;
        dupAfterTag = -1;
    }
};

// The planners run in local time: every test runs in two zones.
class HostChangeTest : public ::testing::TestWithParam<const char *> {
protected:
    HostChangeTest() : tz_(GetParam()), clock_(0)
    {
        clock_.set(localTime(2023, 11, 14, 9, 0));  // a Tuesday
        // Ordinary hosts: without the status bit and the attribute bit, so a
        // host removal takes them only when they are named.
        for (const char *h : {"hostA", "hostB", "hostC", "hostD"}) {
            RsvHost *rec = daemon.addHost(h, 8, 8, std::string(h) == "hostA" ? std::vector<std::string>{"a1"}
                                                                               : std::vector<std::string>{});
            rec->status = 0;
        }
        tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
        // Every host has its planner list from the start, so that comparing
        // planners before and after a change compares the same lists.
        for (const char *h : {"hostA", "hostB", "hostC", "hostD"})
            RsvTimeTbl_getPlannerList(tbl.get(), h);
        window = oneOff(localTime(2023, 11, 15, 10, 0), localTime(2023, 11, 15, 12, 0));
        RsvTime_toWeek(localTime(2023, 11, 15, 10, 0), &week);
    }

    // A reservation with exactly these hosts and slots, booked as at start-up.
    RsvEnt *book(const char *id, const std::vector<Slot> &hosts, int options = 0, const std::string &w = "")
    {
        RsvEnt *ent = RsvEnt_new(options, "alice", (w.empty() ? window : w).c_str());
        ent->rsvId = strdup(id);
        ent->numHosts = static_cast<int>(hosts.size());
        ent->allocVector = static_cast<AllocElem *>(calloc(hosts.size() + 1, sizeof(AllocElem)));
        for (size_t i = 0; i < hosts.size(); ++i) {
            ent->allocVector[i].hostName = strdup(hosts[i].host);
            ent->allocVector[i].numSlots = hosts[i].slots;
            ent->allocVector[i].extra1 = hosts[i].extra1;
            ent->allocVector[i].extra2 = hosts[i].extra2;
        }
        RsvTimeTbl_restoreEntry(tbl.get(), ent);
        return ent;
    }

    // Slots booked on `host` on Wednesday 10:00-10:10 of the test week.
    int booked(const char *host)
    {
        ResPlanner *p = findPlanner(tbl.get(), host, week);
        return p ? cell(p, 3, 60) : 0;
    }

    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    TempDir dir;
    TblPtr tbl;
    std::string window;
    RsvWeek week{};
};

INSTANTIATE_TEST_SUITE_P(Zones, HostChangeTest, ::testing::Values("UTC", "America/New_York"));

} // namespace

// ------------------------------------------------------------ adding hosts

TEST_P(HostChangeTest, AddingANewHostBooksItAndKeepsTheOldOnes)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    OwnedModReq mod("alice#0", 0, 3, 3, {"hostB"}, window);
    ASSERT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_EQ(vectorText(ent), "2[hostB:3/0/0 hostA:2/0/0]");
    EXPECT_EQ(booked("hostA"), 2);
    EXPECT_EQ(booked("hostB"), 3);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, AddingSlotsOnAHostAlreadyInTheReservationSumsThem)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2, 1, 1}});
    OwnedModReq mod("alice#0", 0, 3, 3, {"hostA"}, window);
    ASSERT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_EQ(vectorText(ent), "1[hostA:5/1/1]");
    EXPECT_EQ(booked("hostA"), 5);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, AddingReplacesAskedNamesByOfficialNames)
{
    RsvEnt *ent = book("alice#0", {{"hostB", 2}});
    OwnedModReq mod("alice#0", 0, 1, 1, {"a1"}, window);
    ASSERT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_STREQ(mod.mod.req.askedHosts[0], "hostA");
    EXPECT_EQ(vectorText(ent), "2[hostA:1/0/0 hostB:2/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, AddingBelowTheMinimumIs190AndChangesNothing)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    const std::string before = vectorText(ent);
    const std::vector<int> cells = plannerCells(tbl.get());
    OwnedModReq mod("alice#0", 0, 20, 20, {"hostB", "hostC"}, window);
    EXPECT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(vectorText(ent), before);
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

TEST_P(HostChangeTest, AddingToAnUnknownReservationIs311AndLogged)
{
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    OwnedModReq mod("nobody#9", 0, 1, 1, {"hostB"}, window);
    EXPECT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_SUCH_RSV);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntrywithAddHosts: Entering this routine..."));
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntrywithAddHosts: reservation <nobody#9> is not found"));
}

TEST_P(HostChangeTest, AddingWithNullArgumentsIs52)
{
    OwnedModReq mod("alice#0", 0, 1, 1, {"hostB"}, window);
    EXPECT_EQ(RsvTimeTbl_modEntrywithAddHosts(nullptr, &mod.mod), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    qob_errno = 0;
    EXPECT_EQ(Rsv_reallocwithAddHosts(nullptr, 0, nullptr, &mod.mod, nullptr, "just_enough"), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
}

TEST_P(HostChangeTest, BookingThatStopsEarlyLeavesEmptyTrailingElements)
{
    // Kept as it is: the count is the allocated size.
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    OwnedModReq mod("alice#0", 0, 10, 5, {"hostB", "hostC"}, window);
    ASSERT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_EQ(vectorText(ent), "3[hostB:5/0/0 hostA:2/0/0 -:0/0/0]");
    EXPECT_EQ(booked("hostB"), 5);
    EXPECT_EQ(booked("hostC"), 0);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, ExistingHostNotReachedByTheBookingIsDropped)
{
    // Kept as it is: hostA's old slots were released in the counting pass.
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 2}});
    OwnedModReq mod("alice#0", 0, 10, 3, {"hostC", "hostA"}, window);
    ASSERT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_EQ(vectorText(ent), "3[hostC:3/0/0 hostB:2/0/0 -:0/0/0]");
    EXPECT_EQ(booked("hostA"), 0);
    EXPECT_EQ(booked("hostB"), 2);
    EXPECT_EQ(booked("hostC"), 3);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, AHostAskedTwiceOffersItsSlotsOnce)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    OwnedModReq mod("alice#0", 0, 10, 10, {"hostB", "hostB"}, window);
    ASSERT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_EQ(vectorText(ent), "2[hostB:8/0/0 hostA:2/0/0]");
    EXPECT_EQ(booked("hostB"), 8);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, ReallocMarksOffersAndTrimsThemToTheBooking)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    OwnedModReq mod("alice#0", 0, 4, 4, {}, window);
    ResAlloc avail[3] = {{const_cast<char *>("hostB"), 3, 0, 0},
                         {const_cast<char *>("hostA"), 6, 0, 0},
                         {const_cast<char *>("hostC"), 6, 0, 0}};
    EXPECT_EQ(Rsv_reallocwithAddHosts(tbl.get(), 3, avail, &mod.mod, ent, "just_enough"), 2);
    ent->numHosts = 2;
    EXPECT_EQ(avail[0].extra1, -1);  // a new host
    EXPECT_EQ(avail[1].extra1, 0);   // element 0 of the reservation
    EXPECT_EQ(avail[0].numSlots, 3);
    EXPECT_EQ(avail[1].numSlots, 1);
    EXPECT_EQ(avail[2].numSlots, 6);  // never reached
    EXPECT_EQ(vectorText(ent), "2[hostB:3/0/0 hostA:3/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, ReallocWithoutAnythingToBookKeepsTheVector)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(Rsv_reallocwithAddHosts(tbl.get(), 0, nullptr, &mod.mod, ent, "just_enough"), 1);
    EXPECT_EQ(vectorText(ent), "1[hostA:2/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, AddingWithoutMemoryIs55AndChangesNothing)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 1}});
    const std::string before = vectorText(ent);
    struct Case {
        int failTagged;
        int dupAfter;
    };
    // The match array, the new vector, the name copies.
    for (Case c : {Case{1, -1}, Case{2, -1}, Case{-1, 2}}) {
        OwnedModReq mod("alice#0", 0, 3, 3, {"hostA", "hostC"}, window);
        const std::vector<int> cells = plannerCells(tbl.get());
        TagFailure::install(daemon, "Rsv_reallocwithAddHosts", c.failTagged, c.dupAfter);
        EXPECT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), -1);
        TagFailure::remove(daemon);
        EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
        EXPECT_EQ(vectorText(ent), before);
        EXPECT_EQ(plannerCells(tbl.get()), cells);
    }
    OwnedModReq mod("alice#0", 0, 3, 3, {"hostA", "hostC"}, window);
    ASSERT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), 0);
    EXPECT_EQ(vectorText(ent), "2[hostA:5/0/0 hostB:1/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

// ------------------------------------------------------------ removing by number

TEST_P(HostChangeTest, RemovingThreeProcessorsTakesTheFirstHostThenPartOfTheNext)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}});
    OwnedModReq mod("alice#0", 0, 3, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), 3);
    EXPECT_EQ(vectorText(ent), "1[hostB:3/0/0]");
    EXPECT_EQ(booked("hostA"), 0);
    EXPECT_EQ(booked("hostB"), 3);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, RemovingByNumberAcrossThreeHostsSkipsSlotsHeldByJobs)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 4, 1, 0}, {"hostB", 4, 0, 2}, {"hostC", 4}});
    OwnedModReq mod("alice#0", 0, 5, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), 5);
    EXPECT_EQ(vectorText(ent), "3[hostA:1/1/0 hostB:2/0/2 hostC:4/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, RemovingMoreThanTheFreeSlotsOfBusyHostsIs330)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 4, 1, 0}, {"hostB", 4, 0, 2}, {"hostC", 4}});
    const std::string before = vectorText(ent);
    const std::vector<int> cells = plannerCells(tbl.get());
    OwnedModReq mod("alice#0", 0, 10, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_HOST_IN_USE);
    EXPECT_EQ(vectorText(ent), before);
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

TEST_P(HostChangeTest, MinimumAboveTheReservationIs190WithItsMessage)
{
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    RsvEnt *ent = book("alice#0", {{"hostA", 4}, {"hostB", 4}});
    const std::vector<int> cells = plannerCells(tbl.get());
    OwnedModReq mod("alice#0", 0, 10, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntryWithRmHosts: Entering this routine..."));
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntryWithRmHosts: rsvId <alice#0> has <8> slots while "
                                           "requested to remove minNumProcs <10>"));
    EXPECT_EQ(vectorText(ent), "2[hostA:4/0/0 hostB:4/0/0]");
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

TEST_P(HostChangeTest, MaximumAboveTheReservationIsLoweredAndThenLeavesNothing)
{
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    RsvEnt *ent = book("alice#0", {{"hostA", 4}, {"hostB", 4}});
    const std::vector<int> cells = plannerCells(tbl.get());
    OwnedModReq mod("alice#0", 0, 0, 10, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOTHING_LEFT);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntryWithRmHosts: rsvId <alice#0> has <8> slots while "
                                           "requested to remove maxNumProcs <10>"));
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntryWithRmHosts: rsvId <alice#0> min <0> max <10> "
                                           "nRequested <8> nReserved <8>"));
    EXPECT_EQ(vectorText(ent), "2[hostA:4/0/0 hostB:4/0/0]");
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

TEST_P(HostChangeTest, MaximumWithinTheReservationIsTheNumberRemoved)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 4}, {"hostB", 4}});
    OwnedModReq mod("alice#0", 0, 2, 5, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), 5);
    EXPECT_EQ(vectorText(ent), "1[hostB:3/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, TooFewRemovableProcessorsIs190NotEnoughProcessors)
{
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 2}});
    daemon.removeHost("hostA");  // its slots cannot be given back
    const std::vector<int> cells = plannerCells(tbl.get());
    OwnedModReq mod("alice#0", 0, 3, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntryWithRmHosts: Not enough processors"));
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_modEntryWithRmHosts: host <hostA> reserved by reservation "
                                         "<alice#0> no longer exists. Configuration changed?"));
    EXPECT_EQ(vectorText(ent), "2[hostA:2/0/0 hostB:2/0/0]");
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

TEST_P(HostChangeTest, RemovingNothingByNumberIs190)
{
    book("alice#0", {{"hostA", 2}, {"hostB", 2}});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
}

// ------------------------------------------------------------ removing by host

TEST_P(HostChangeTest, RemovingANamedHostGivesBackItsSlotsAndMarksIt)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}, {"hostC", 1}});
    HostSet hosts({"hostB"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, hosts.get(), RSV_RM_HOSTS), 4);
    EXPECT_EQ(hosts.mark("hostB"), 2);
    EXPECT_EQ(vectorText(ent), "2[hostA:2/0/0 hostC:1/0/0]");
    EXPECT_EQ(booked("hostB"), 0);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, UnnamedHostsAreSkippedWithAMessage)
{
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    book("alice#0", {{"hostA", 2}, {"hostB", 4}});
    HostSet hosts({"hostB"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, hosts.get(), RSV_RM_HOSTS), 4);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntryWithRmHosts: skipping host <hostA>, not requested"));
    EXPECT_FALSE(log.contains("skipping host <hostB>"));
}

TEST_P(HostChangeTest, RemovingAHostHeldByJobsIs330)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2, 1, 0}, {"hostB", 4}});
    const std::string before = vectorText(ent);
    const std::vector<int> cells = plannerCells(tbl.get());
    HostSet hosts({"hostA"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, hosts.get(), RSV_RM_HOSTS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_HOST_IN_USE);
    EXPECT_EQ(hosts.mark("hostA"), 2);  // marks stay set on failure
    EXPECT_EQ(vectorText(ent), before);
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

TEST_P(HostChangeTest, NamedHostsNoneOfWhichIsInTheReservationAre327)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}});
    const std::string before = vectorText(ent);
    const std::vector<int> cells = plannerCells(tbl.get());
    HostSet hosts({"hostC", "hostD"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, hosts.get(), RSV_RM_HOSTS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_HOST_NOT_IN_RSV);
    EXPECT_EQ(hosts.mark("hostC"), 1);
    EXPECT_EQ(hosts.mark("hostD"), 1);
    EXPECT_EQ(vectorText(ent), before);
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

TEST_P(HostChangeTest, OneNamedHostInTheReservationIsEnough)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}});
    HostSet hosts({"hostC", "hostB"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, hosts.get(), RSV_RM_HOSTS), 4);
    EXPECT_EQ(hosts.mark("hostB"), 2);
    EXPECT_EQ(hosts.mark("hostC"), 1);
    EXPECT_EQ(vectorText(ent), "1[hostA:2/0/0]");
}

TEST_P(HostChangeTest, RemovingEveryHostIs317)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}});
    const std::string before = vectorText(ent);
    const std::vector<int> cells = plannerCells(tbl.get());
    HostSet hosts({"hostA", "hostB"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, hosts.get(), RSV_RM_HOSTS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOTHING_LEFT);
    EXPECT_EQ(vectorText(ent), before);
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

TEST_P(HostChangeTest, UnflaggedSelectionTakesHostsWithoutTheStatusBit)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}, {"hostC", 1}});
    // hostB and hostC carry the status bit and the attribute bit: only a
    // marked selection or a name takes them.
    for (const char *h : {"hostB", "hostC"}) {
        daemon.host(h)->status = RSV_HOST_STATUS_FLAGGED;
        daemon.host(h)->attr = RSV_HOST_ATTR_MARKED;
    }
    HostSet none(std::vector<std::string>{});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, none.get(), RSV_RM_HOSTS | RSV_RM_UNFLAGGED), 2);
    EXPECT_EQ(vectorText(ent), "2[hostB:4/0/0 hostC:1/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, MarkedSelectionTakesHostsWithTheAttributeBit)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}, {"hostC", 1}});
    daemon.host("hostB")->status = RSV_HOST_STATUS_FLAGGED;
    daemon.host("hostB")->attr = RSV_HOST_ATTR_MARKED;
    HostSet none(std::vector<std::string>{});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, none.get(), RSV_RM_HOSTS | RSV_RM_MARKED), 4);
    EXPECT_EQ(vectorText(ent), "2[hostA:2/0/0 hostC:1/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, SelectionsThatFindNoHostAre327)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}});
    const std::string before = vectorText(ent);
    HostSet named({"hostA"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    // No host has the attribute bit.
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, named.get(), RSV_RM_HOSTS | RSV_RM_MARKED), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_HOST_NOT_IN_RSV);
    // Every host has the status bit.
    for (const char *h : {"hostA", "hostB"})
        daemon.host(h)->status = RSV_HOST_STATUS_FLAGGED | 0x1;
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, named.get(), RSV_RM_HOSTS | RSV_RM_UNFLAGGED), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_HOST_NOT_IN_RSV);
    EXPECT_EQ(vectorText(ent), before);
}

TEST_P(HostChangeTest, BothSelectionsWithoutNumberAre317)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}, {"hostC", 1}});
    daemon.host("hostB")->status = RSV_HOST_STATUS_FLAGGED;
    daemon.host("hostB")->attr = RSV_HOST_ATTR_MARKED;
    const std::vector<int> cells = plannerCells(tbl.get());
    HostSet named({"hostC"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, named.get(),
                                             RSV_RM_HOSTS | RSV_RM_UNFLAGGED | RSV_RM_MARKED),
              -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOTHING_LEFT);
    EXPECT_EQ(vectorText(ent), "3[hostA:2/0/0 hostB:4/0/0 hostC:1/0/0]");
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

TEST_P(HostChangeTest, AFlaggedUnmarkedHostIsTakenEvenWhenNotNamed)
{
    // The status bit exempts a host from the "not requested" skip.
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}, {"hostC", 1}});
    daemon.host("hostC")->status = RSV_HOST_STATUS_FLAGGED;
    HostSet named({"hostB"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, named.get(), RSV_RM_HOSTS), 5);
    EXPECT_EQ(vectorText(ent), "1[hostA:2/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, HostsAndNumberTogetherRemoveByNumberAmongTheSelection)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}, {"hostC", 1}});
    HostSet named({"hostB"});
    OwnedModReq mod("alice#0", 0, 3, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, named.get(), RSV_RM_HOSTS | RSV_RM_NUMPROCS), 3);
    EXPECT_EQ(vectorText(ent), "3[hostA:2/0/0 hostB:1/0/0 hostC:1/0/0]");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, RecurringReservationLosesItsSlotsInEveryWeek)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}}, 0, "");
    (void)ent;
    RsvEnt *rec = book("bob#0", {{"hostA", 3}, {"hostB", 3}}, RSV_OPT_RECURRING, "8:0-17:0");
    HostSet named({"hostA"});
    OwnedModReq mod("bob#0", 0, 0, 0, {}, "");
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, named.get(), RSV_RM_HOSTS), 3);
    EXPECT_EQ(vectorText(rec), "1[hostB:3/0/0]");
    EXPECT_EQ(booked("hostA"), 2);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

// ------------------------------------------------------------ removal failures

TEST_P(HostChangeTest, RemovingFromAnUnknownReservationIs311)
{
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    OwnedModReq mod("nobody#1", 0, 1, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_SUCH_RSV);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntryWithRmHosts: rsvId <nobody#1>  not found"));
}

TEST_P(HostChangeTest, RemovingFromAReservationWithoutHostsIs311)
{
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    RsvEnt *ent = RsvEnt_new(0, "alice", window.c_str());
    ent->rsvId = strdup("alice#5");
    h_addEnt_(&tbl->entries, ent->rsvId, nullptr)->value = ent;
    OwnedModReq mod("alice#5", 0, 1, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_SUCH_RSV);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntryWithRmHosts: rsvId <alice#5> has no allocation"));
}

TEST_P(HostChangeTest, RemovingWithoutMemoryChangesNothing)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}, {"hostC", 1}});
    const std::string before = vectorText(ent);
    const std::vector<int> cells = plannerCells(tbl.get());
    struct Case {
        int failTagged;
        int dupAfter;
        int error;
    };
    // The work records (55), the new vector, a name copy (logged, no number).
    for (Case c : {Case{1, -1, RSV_ERR_NO_MEMORY}, Case{2, -1, 0}, Case{-1, 2, 0}}) {
        LogCapture log;
        qob_errno = 0;
        OwnedModReq mod("alice#0", 0, 3, 0, {}, window);
        TagFailure::install(daemon, "RsvTimeTbl_modEntryWithRmHosts", c.failTagged, c.dupAfter);
        EXPECT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), -1);
        TagFailure::remove(daemon);
        EXPECT_EQ(qob_errno, c.error);
        if (c.error == 0) {
            EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_modEntryWithRmHosts: calloc() failed."));
        }
        EXPECT_EQ(vectorText(ent), before);
        EXPECT_EQ(plannerCells(tbl.get()), cells);
    }
}

// ------------------------------------------------------------ the planner steps alone

// The planner steps change the entry they are given; finding it is the
// table's part, so the request's identifier plays no role here.
TEST_P(HostChangeTest, TheAddStepGrowsTheEntryItIsGiven)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    OwnedModReq mod("nobody#1", 0, 3, 3, {"hostB"}, window);
    ASSERT_EQ(rsv::addHostsToEntry(tbl.get(), &mod.mod, ent), 0) << qob_errno;
    EXPECT_EQ(vectorText(ent), "2[hostB:3/0/0 hostA:2/0/0]");
    EXPECT_EQ(booked("hostB"), 3);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, TheRemoveStepShrinksTheEntryItIsGivenAndLogsAsTheTableCall)
{
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}});
    OwnedModReq mod("alice#0", 0, 3, 0, {}, window);
    EXPECT_EQ(rsv::removeHostsFromEntry(tbl.get(), &mod.mod, ent, nullptr, RSV_RM_NUMPROCS), 3);
    EXPECT_EQ(vectorText(ent), "1[hostB:3/0/0]");
    EXPECT_EQ(booked("hostA"), 0);
    EXPECT_EQ(booked("hostB"), 3);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_modEntryWithRmHosts: rsvId <alice#0> min <3> max <0> "
                                           "nRequested <3> nReserved <6>"));
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(HostChangeTest, TheRemoveStepChecksEverythingBeforeItTouchesAPlanner)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2, 1, 0}, {"hostB", 4}});
    const std::string before = vectorText(ent);
    const std::vector<int> cells = plannerCells(tbl.get());
    HostSet named({"hostA"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(rsv::removeHostsFromEntry(tbl.get(), &mod.mod, ent, named.get(), RSV_RM_HOSTS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_HOST_IN_USE);
    EXPECT_EQ(named.mark("hostA"), 2);
    EXPECT_EQ(vectorText(ent), before);
    EXPECT_EQ(plannerCells(tbl.get()), cells);
}

// ------------------------------------------------------------ small helpers

TEST(RsvRmHostsCheckHostsInRsv, EmptyOrNullTableIs0WithAMessage)
{
    FakeDaemon daemon;
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    EXPECT_EQ(Rsv_rmHosts_checkHostsInRsv(nullptr), 0);
    HostSet none(std::vector<std::string>{});
    EXPECT_EQ(Rsv_rmHosts_checkHostsInRsv(none.get()), 0);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "Rsv_rmHosts_checkHostsInRsv: Entering this routine..."));
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "Rsv_rmHosts_checkHostsInRsv: empty task tab"));
}

TEST(RsvRmHostsCheckHostsInRsv, MinusOneOnlyWhenNoHostWasFound)
{
    FakeDaemon daemon;
    HostSet hosts({"a", "b"});
    EXPECT_EQ(Rsv_rmHosts_checkHostsInRsv(hosts.get()), -1);
    *static_cast<int *>(h_getEnt_(hosts.get(), "b")->value) = 2;
    EXPECT_EQ(Rsv_rmHosts_checkHostsInRsv(hosts.get()), 0);
}

TEST(RsvRmHostsCheckHostsInRsv, WalkStopsAtAnEntryWithoutAMark)
{
    FakeDaemon daemon;
    HostSet hosts({"a", "b"});
    h_getEnt_(hosts.get(), "b")->value = nullptr;
    EXPECT_EQ(Rsv_rmHosts_checkHostsInRsv(hosts.get()), 0);
}

TEST(RsvGetNumSlotsReserved, SumsTheVector)
{
    FakeDaemon daemon;
    RsvEnt *ent = RsvEnt_new(0, "alice", "1-2");
    EXPECT_EQ(Rsv_getNumSlotsReserved(ent), 0);
    EXPECT_EQ(Rsv_getNumSlotsReserved(nullptr), 0);
    ent->numHosts = 2;
    ent->allocVector = static_cast<AllocElem *>(calloc(2, sizeof(AllocElem)));
    ent->allocVector[0].numSlots = 3;
    ent->allocVector[1].numSlots = 4;
    EXPECT_EQ(Rsv_getNumSlotsReserved(ent), 7);
    RsvEnt_destroy(ent);
    free(ent);
}
