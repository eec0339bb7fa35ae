#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

// Sets the global log-class mask for the life of the object.
class ScopedLogClass {
public:
    explicit ScopedLogClass(int bits) : old_(logclass) { logclass = bits; }
    ~ScopedLogClass() { logclass = old_; }

private:
    int old_;
};

// A host set as the daemon keeps it: values are heap ints.
struct HostSet {
    HostSet() { h_initTab_(&tab, 11); }
    ~HostSet() { h_freeTab_(&tab, free); }
    HashTab tab{};
    HashTab *ptr = &tab;
};

// An entry as the state-file reader hands it over: id, owner, window, hosts.
RsvEnt *restoredEntry(const char *rsvId, const char *owner, const std::string &window,
                      const std::vector<std::pair<const char *, int>> &hosts, int options = 0)
{
    RsvEnt *ent = RsvEnt_new(options, owner, window.c_str());
    ent->rsvId = strdup(rsvId);
    ent->numHosts = static_cast<int>(hosts.size());
    if (!hosts.empty()) {
        ent->allocVector = static_cast<AllocElem *>(calloc(hosts.size(), sizeof(AllocElem)));
        for (size_t i = 0; i < hosts.size(); ++i) {
            ent->allocVector[i].hostName = strdup(hosts[i].first);
            ent->allocVector[i].numSlots = hosts[i].second;
        }
    }
    return ent;
}

// An allocator that fails every request made under one caller tag.
std::string g_failCaller;

void *failingFor(int count, size_t size, const char *caller)
{
    if (caller && g_failCaller == caller)
        return nullptr;
    return FakeDaemon::allocZeroed(count, size, caller);
}

int countLines(const std::string &text)
{
    int n = 0;
    for (char c : text)
        n += c == '\n';
    return n;
}

constexpr char kOverReservedA[] =
    "RsvTimeTbl_checkHost: host <hostA> has been over-reserved by advance reservations, some jobs may not be "
    "able to start.  Use arlist(1) command to check the reservations";

} // namespace

// The table's calendar work (weeks of the planners) runs in local time: every
// booking test runs in two zones.
class RsvTableTest : public ::testing::TestWithParam<const char *> {
protected:
    RsvTableTest() : tz_(GetParam()), clock_(0)
    {
        now_ = localTime(2023, 11, 14, 9, 0);  // a Tuesday
        clock_.set(now_);
        daemon.addHost("hostA", 4, 4, {"a1", "a2"});
        daemon.addHost("hostB", 6);
        daemon.addHost("hostC", 8);
        tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
        // Wednesday 10:00 to 12:00 of the same week.
        window = oneOff(localTime(2023, 11, 15, 10, 0), localTime(2023, 11, 15, 12, 0));
        RsvTime_toWeek(localTime(2023, 11, 15, 10, 0), &week);
    }

    // Slots booked on `host` on Wednesday 10:00-10:10 of the test week.
    int booked(const char *host)
    {
        ResPlanner *p = findPlanner(tbl.get(), host, week);
        return p ? cell(p, 3, 60) : 0;
    }

    std::string stateFile() const { return dir.file("rsv.state"); }

    ScopedTz tz_;
    PinnedClock clock_;
    time_t now_ = 0;
    FakeDaemon daemon;
    TempDir dir;
    rsv::Table tbl;
    std::string window;
    RsvWeek week{};
};

INSTANTIATE_TEST_SUITE_P(Zones, RsvTableTest, ::testing::Values("UTC", "America/New_York"));

// ------------------------------------------------------------ addEntry

TEST_P(RsvTableTest, AddEntryBooksRecordsAndWritesBothFiles)
{
    OwnedReq r(0, "alice", 3, 3, {"hostA", "hostB"}, window, "weekly sync");
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr) << "qob_errno " << qob_errno;
    EXPECT_STREQ(id.get(), "alice#0");

    RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), "alice#0");
    ASSERT_NE(ent, nullptr);
    EXPECT_NE(ent->rsvId, id.get());  // the caller's copy and the entry's are separate
    EXPECT_STREQ(ent->rsvId, "alice#0");
    EXPECT_STREQ(ent->name, "alice");
    EXPECT_STREQ(ent->timeWindow, window.c_str());
    EXPECT_STREQ(ent->description, "weekly sync");
    ASSERT_EQ(ent->numHosts, 1);
    EXPECT_STREQ(ent->allocVector[0].hostName, "hostA");
    EXPECT_EQ(ent->allocVector[0].numSlots, 3);
    EXPECT_EQ(booked("hostA"), 3);
    EXPECT_EQ(booked("hostB"), 0);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));

    std::string state = readFile(stateFile());
    EXPECT_EQ(countLines(state), 1);
    EXPECT_NE(state.find("alice#0"), std::string::npos);
    EXPECT_TRUE(fileExists(dir.file("rsv.ids")));
}

TEST_P(RsvTableTest, AddEntryReservableCountEqualToMinimumSucceeds)
{
    OwnedReq r(0, "alice", 4, 10, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(booked("hostA"), 4);
}

TEST_P(RsvTableTest, AddEntryBelowMinimumFailsWith190AndChangesNothing)
{
    OwnedReq r(0, "alice", 5, 10, {"hostA"}, window);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addEntry(tbl.get(), &r.req), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
    EXPECT_EQ(booked("hostA"), 0);
    EXPECT_FALSE(fileExists(stateFile()));
}

TEST_P(RsvTableTest, AddEntryWithNoReservableSlotFailsWith190EvenForMinimumZero)
{
    OwnedReq r(0, "alice", 0, 10, {"nosuchhost"}, window);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addEntry(tbl.get(), &r.req), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
    EXPECT_FALSE(fileExists(stateFile()));
}

TEST_P(RsvTableTest, AddEntryWithFullyBookedHostFailsWith190)
{
    OwnedReq first(0, "alice", 4, 4, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &first.req));
    ASSERT_NE(id, nullptr);
    OwnedReq second(0, "bob", 0, 4, {"hostA"}, window);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addEntry(tbl.get(), &second.req), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(booked("hostA"), 4);
}

TEST_P(RsvTableTest, AddEntryPassesOnTheReservableCountError)
{
    // A system request on a host that already holds a slot: the count itself
    // fails, and its error number stays.
    OwnedReq first(0, "alice", 1, 1, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &first.req));
    ASSERT_NE(id, nullptr);
    OwnedReq sys(RSV_OPT_SYSTEM, "root", 0, 0, {"hostA"}, window);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addEntry(tbl.get(), &sys.req), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 1);

    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addEntry(nullptr, &first.req), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addEntry(tbl.get(), nullptr), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
}

TEST_P(RsvTableTest, SystemRequestTakesEveryReservableSlot)
{
    OwnedReq r(RSV_OPT_SYSTEM, "bob", 0, 1, {"hostA", "hostB"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr) << "qob_errno " << qob_errno;
    EXPECT_STREQ(id.get(), "system#0");
    EXPECT_EQ(r.req.minNumProcs, 10);
    EXPECT_EQ(r.req.maxNumProcs, 10);
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), "system#0");
    ASSERT_NE(ent, nullptr);
    ASSERT_EQ(ent->numHosts, 2);
    EXPECT_EQ(ent->allocVector[0].numSlots, 4);
    EXPECT_EQ(ent->allocVector[1].numSlots, 6);
    EXPECT_EQ(booked("hostA"), 4);
    EXPECT_EQ(booked("hostB"), 6);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(RsvTableTest, OwnerAtTheLimitFailsWith192WithNothingBooked)
{
    daemon.setMaxPerOwner(1);
    OwnedReq first(0, "alice", 1, 1, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &first.req));
    ASSERT_NE(id, nullptr);
    std::remove(stateFile().c_str());

    OwnedReq sys(RSV_OPT_SYSTEM, "alice", 0, 0, {"hostB"}, window);
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addEntry(tbl.get(), &sys.req), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_RSV_ID);
    // The system request's range was already set to the reservable count.
    EXPECT_EQ(sys.req.minNumProcs, 6);
    EXPECT_EQ(sys.req.maxNumProcs, 6);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 1);
    EXPECT_EQ(booked("hostA"), 1);
    EXPECT_EQ(booked("hostB"), 0);
    EXPECT_FALSE(fileExists(stateFile()));
}

TEST_P(RsvTableTest, IdentifierAlreadyInTheTableFailsWith192)
{
    OwnedReq first(RSV_OPT_NAME_ONLY, "alice", 1, 1, {"hostA"}, window);
    first.req.rsvId = strdup("build");
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &first.req));
    ASSERT_NE(id, nullptr);
    EXPECT_STREQ(id.get(), "build");
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), "build");

    OwnedReq second(RSV_OPT_NAME_ONLY, "bob", 1, 1, {"hostB"}, window);
    second.req.rsvId = strdup("build");
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_addEntry(tbl.get(), &second.req), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_RSV_ID);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), "build"), ent);
    EXPECT_EQ(booked("hostB"), 0);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(RsvTableTest, EmptyDescriptionIsNotStored)
{
    OwnedReq r(0, "alice", 1, 1, {"hostA"}, window, "");
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), id.get())->description, nullptr);
    OwnedReq none(0, "alice", 1, 1, {"hostA"}, window, nullptr);
    rsv::Text id2(RsvTimeTbl_addEntry(tbl.get(), &none.req));
    ASSERT_NE(id2, nullptr);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), id2.get())->description, nullptr);
}

TEST_P(RsvTableTest, AskedAliasesBecomeOfficialNamesSharedWithTheRequest)
{
    // The reservable array shares its names with the request; the sanitizer
    // build catches a double release here.
    OwnedReq r(0, "alice", 2, 2, {"a1"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    EXPECT_STREQ(r.req.askedHosts[0], "hostA");
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), id.get());
    ASSERT_EQ(ent->numHosts, 1);
    EXPECT_STREQ(ent->allocVector[0].hostName, "hostA");
    EXPECT_NE(ent->allocVector[0].hostName, r.req.askedHosts[0]);
    EXPECT_EQ(booked("hostA"), 2);
}

TEST_P(RsvTableTest, AddEntryLogsEntryWhenDebugClassIsOn)
{
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    OwnedReq r(0, "alice", 1, 1, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvTimeTbl_addEntry: Entering this routine..."));
}

TEST_P(RsvTableTest, PlannersMatchRebookingAfterAddsAndRemoves)
{
    std::vector<std::string> ids;
    const char *owners[] = {"alice", "bob", "carol", "alice", "bob"};
    for (int i = 0; i < 5; ++i) {
        std::string w = oneOff(localTime(2023, 11, 15 + i, 8, 0), localTime(2023, 11, 16 + 2 * i, 17, 30));
        OwnedReq r(i == 3 ? RSV_OPT_RECURRING : 0, owners[i], 1, 3, {"hostA", "hostB", "hostC"},
                   i == 3 ? std::string("6:0-7:0") : w);
        rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
        ASSERT_NE(id, nullptr) << "request " << i << " qob_errno " << qob_errno;
        ids.emplace_back(id.get());
        EXPECT_TRUE(plannersMatchRebooking(tbl.get())) << "after adding " << ids.back();
    }
    for (size_t i : {1u, 3u, 0u}) {
        EXPECT_EQ(RsvTimeTbl_removeEntry(tbl.get(), ids[i].c_str()), 0);
        EXPECT_TRUE(plannersMatchRebooking(tbl.get())) << "after removing " << ids[i];
    }
    EXPECT_EQ(h_numEnts_(&tbl->entries), 2);
    EXPECT_EQ(countLines(readFile(stateFile())), 2);
}

// ------------------------------------------------------ getEntry / replace

TEST_P(RsvTableTest, GetEntryOfUnknownOrNullGivesNull)
{
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), "nobody#0"), nullptr);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), nullptr), nullptr);
    EXPECT_EQ(RsvTimeTbl_getEntry(nullptr, "alice#0"), nullptr);
}

TEST_P(RsvTableTest, ReplaceEntryOfUnknownIdentifierLeavesTheNewEntryToTheCaller)
{
    rsv::Entry fresh(RsvEnt_new(0, "alice", window.c_str()));
    EXPECT_EQ(RsvTimeTbl_replaceEntry(tbl.get(), "alice#7", fresh.get()), -1);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), "alice#7"), nullptr);
    EXPECT_EQ(RsvTimeTbl_replaceEntry(nullptr, "alice#7", fresh.get()), -1);
    EXPECT_EQ(RsvTimeTbl_replaceEntry(tbl.get(), nullptr, fresh.get()), -1);
}

TEST_P(RsvTableTest, ReplaceEntryFreesTheOldOneAndTouchesNeitherPlannersNorFiles)
{
    OwnedReq r(0, "alice", 2, 2, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    std::remove(stateFile().c_str());
    RsvEnt *old = RsvTimeTbl_getEntry(tbl.get(), id.get());
    RsvEnt *fresh = RsvEnt_new(0, "alice", window.c_str());
    fresh->rsvId = strdup(id.get());
    fresh->numHosts = 1;
    fresh->allocVector = RsvEnt_DupAllocVector(old);
    // Pass the old entry's own identifier text, as the daemon may.
    EXPECT_EQ(RsvTimeTbl_replaceEntry(tbl.get(), old->rsvId, fresh), 0);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), id.get()), fresh);
    EXPECT_EQ(booked("hostA"), 2);
    EXPECT_FALSE(fileExists(stateFile()));
    // Replacing an entry by itself keeps it.
    EXPECT_EQ(RsvTimeTbl_replaceEntry(tbl.get(), id.get(), fresh), 0);
    EXPECT_STREQ(RsvTimeTbl_getEntry(tbl.get(), id.get())->name, "alice");
}

// ----------------------------------------------------------- restoreEntry

TEST_P(RsvTableTest, RestoreEntryBooksEveryHostAndAdvancesTheCounterWithoutWriting)
{
    RsvEnt *ent = restoredEntry("alice#3", "alice", window, {{"hostA", 2}, {"hostB", 5}});
    RsvTimeTbl_restoreEntry(tbl.get(), ent);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), "alice#3"), ent);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 1);  // once, although added per host
    EXPECT_EQ(booked("hostA"), 2);
    EXPECT_EQ(booked("hostB"), 5);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_FALSE(fileExists(stateFile()));

    OwnedReq r(0, "alice", 1, 1, {"hostC"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    EXPECT_STREQ(id.get(), "alice#4");
}

TEST_P(RsvTableTest, RestoreRecurringEntryBooksTheRecurringPlanner)
{
    RsvEnt *ent = restoredEntry("bob#0", "bob", "8:0-9:0", {{"hostC", 3}}, RSV_OPT_RECURRING);
    RsvTimeTbl_restoreEntry(tbl.get(), ent);
    ResPlanner *recur = findPlanner(tbl.get(), "hostC", rsvWeekRecur);
    ASSERT_NE(recur, nullptr);
    EXPECT_EQ(cell(recur, 2, 48), 3);
    EXPECT_EQ(cell(recur, 2, 54), 0);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(RsvTableTest, RestoringAnEntryWithNoHostsLeavesItOutButAdvancesTheCounter)
{
    RsvEnt *ent = restoredEntry("alice#5", "alice", window, {});
    RsvTimeTbl_restoreEntry(tbl.get(), ent);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), "alice#5"), nullptr);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
    // Not taken by the table: the caller still owns it.
    RsvEnt_destroy(ent);
    free(ent);

    OwnedReq r(0, "alice", 1, 1, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    EXPECT_STREQ(id.get(), "alice#6");
}

TEST_P(RsvTableTest, RestoringAnIdentifierTwiceKeepsTheLaterRecord)
{
    LogCapture log;
    RsvEnt *first = restoredEntry("alice#1", "alice", window, {{"hostA", 2}});
    RsvTimeTbl_restoreEntry(tbl.get(), first);
    RsvEnt *second = restoredEntry("alice#1", "alice", window, {{"hostB", 3}});
    RsvTimeTbl_restoreEntry(tbl.get(), second);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), "alice#1"), second);
    EXPECT_EQ(booked("hostA"), 0);
    EXPECT_EQ(booked("hostB"), 3);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(log.contains(KX_LOG_WARNING,
                             "RsvTimeTbl_restoreEntry: reservation <alice#1> restored twice; the later record "
                             "replaces the earlier"));
}

TEST_P(RsvTableTest, RestoreWithNullArgumentsLogsOnlyUnderFileOrTraceClass)
{
    RsvEnt *ent = restoredEntry("alice#1", "alice", window, {{"hostA", 2}});
    {
        ScopedLogClass lc(0);
        LogCapture log;
        RsvTimeTbl_restoreEntry(nullptr, ent);
        RsvTimeTbl_restoreEntry(tbl.get(), nullptr);
        EXPECT_TRUE(log.lines().empty());
    }
    for (int bits : {LC_FILE, LC_TRACE}) {
        ScopedLogClass lc(bits);
        LogCapture log;
        RsvTimeTbl_restoreEntry(nullptr, ent);
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
        EXPECT_EQ(log.lines()[0].text, "RsvTimeTbl_restoreEntry: input parameters are NULL");
    }
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
    RsvEnt_destroy(ent);
    free(ent);
}

// ------------------------------------------------------------ removeEntry

TEST_P(RsvTableTest, RemovingAnUnknownIdentifierReturns191AndWritesNoFile)
{
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_removeEntry(tbl.get(), "alice#9"), RSV_ERR_NO_RSV);
    EXPECT_EQ(qob_errno, 0);
    EXPECT_FALSE(fileExists(stateFile()));
    EXPECT_FALSE(fileExists(dir.file("rsv.ids")));
}

TEST_P(RsvTableTest, RemoveEntryReleasesBookingsNameAndRewritesTheFiles)
{
    OwnedReq r(0, "alice", 2, 2, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    RsvTimeTbl_addNameEntry(daemon.nameTable(), id.get());
    std::remove(stateFile().c_str());
    EXPECT_EQ(RsvTimeTbl_removeEntry(tbl.get(), id.get()), 0);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), id.get()), nullptr);
    EXPECT_EQ(h_getEnt_(daemon.nameTable(), id.get()), nullptr);
    EXPECT_EQ(booked("hostA"), 0);
    EXPECT_TRUE(fileExists(stateFile()));
    EXPECT_EQ(readFile(stateFile()), "");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(RsvTableTest, RemoveEntryByItsOwnIdentifierText)
{
    OwnedReq r(0, "alice", 2, 2, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), id.get());
    EXPECT_EQ(RsvTimeTbl_removeEntry(tbl.get(), ent->rsvId), 0);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
}

TEST_P(RsvTableTest, AddEntryFailsWith55WhenTheAllocationVectorCannotBeMade)
{
    RsvMiscFuncs local = daemon.services;
    local.allocZeroed = failingFor;
    RsvMod_init(&local);
    g_failCaller = "Rsv_alloc";
    OwnedReq r(0, "alice", 2, 2, {"hostA"}, window);
    qob_errno = 0;
    char *id = RsvTimeTbl_addEntry(tbl.get(), &r.req);
    g_failCaller.clear();
    RsvMod_init(&daemon.services);
    EXPECT_EQ(id, nullptr);
    free(id);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
    EXPECT_EQ(booked("hostA"), 0);
    EXPECT_FALSE(fileExists(stateFile()));
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(RsvTableTest, AddEntryFailsWith55WhenTheEntryCannotBeMade)
{
    RsvMiscFuncs local = daemon.services;
    local.allocZeroed = failingFor;
    RsvMod_init(&local);
    g_failCaller = "RsvEnt_new";
    OwnedReq r(0, "alice", 2, 2, {"hostA"}, window);
    qob_errno = 0;
    char *id = RsvTimeTbl_addEntry(tbl.get(), &r.req);
    g_failCaller.clear();
    RsvMod_init(&daemon.services);
    EXPECT_EQ(id, nullptr);
    free(id);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
    EXPECT_EQ(booked("hostA"), 0);
    EXPECT_FALSE(fileExists(stateFile()));
}

// ---------------------------------------------------------------- name table

TEST(RsvNameTable, AddNameEntryMakesANameOnlyEntry)
{
    PinnedClock clock(1700000000);
    FakeDaemon daemon;
    RsvTimeTbl_addNameEntry(daemon.nameTable(), "build");
    HashEnt *he = h_getEnt_(daemon.nameTable(), "build");
    ASSERT_NE(he, nullptr);
    auto *ent = static_cast<RsvEnt *>(he->value);
    ASSERT_NE(ent, nullptr);
    EXPECT_EQ(ent->options, RSV_OPT_NAME_ONLY);
    EXPECT_STREQ(ent->rsvId, "build");
    EXPECT_STREQ(ent->name, "build");
    EXPECT_STREQ(ent->timeWindow, "");
}

TEST(RsvNameTable, AddNameEntryWithNullIdentifierOrTableDoesNothing)
{
    FakeDaemon daemon;
    RsvTimeTbl_addNameEntry(daemon.nameTable(), nullptr);
    RsvTimeTbl_addNameEntry(nullptr, "build");
    EXPECT_EQ(h_numEnts_(daemon.nameTable()), 0);
}

TEST(RsvNameTable, AddNameEntryLogsItsIdentifierUnderTheDebugClass)
{
    FakeDaemon daemon;
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    RsvTimeTbl_addNameEntry(daemon.nameTable(), "build");
    RsvTimeTbl_addNameEntry(daemon.nameTable(), nullptr);
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text, "RsvTimeTbl_addNameEntry: Entering this routine... ( rsvId: <build> )");
    EXPECT_EQ(log.lines()[1].text, "RsvTimeTbl_addNameEntry: Entering this routine... ( rsvId: <NULL> )");
}

TEST(RsvNameTable, AddNameEntryOverwritesAnExistingKeyWithoutReleasingTheEarlierEntry)
{
    FakeDaemon daemon;
    RsvTimeTbl_addNameEntry(daemon.nameTable(), "build");
    auto *earlier = static_cast<RsvEnt *>(h_getEnt_(daemon.nameTable(), "build")->value);
    earlier->numJobs = 2;
    RsvTimeTbl_addNameEntry(daemon.nameTable(), "build");
    auto *later = static_cast<RsvEnt *>(h_getEnt_(daemon.nameTable(), "build")->value);
    EXPECT_NE(later, earlier);
    EXPECT_EQ(h_numEnts_(daemon.nameTable()), 1);
    // The earlier entry is still intact (the daemon may hold it); this test
    // plays the daemon and releases it itself, so nothing leaks.
    EXPECT_EQ(earlier->numJobs, 2);
    EXPECT_STREQ(earlier->rsvId, "build");
    RsvEnt_destroy(earlier);
    free(earlier);
}

TEST(RsvNameTable, RemoveNameEntryOnNullOrEmptyTableOrNullIdentifierReturns0)
{
    FakeDaemon daemon;
    EXPECT_EQ(RsvTimeTbl_removeNameEntry(nullptr, "build"), 0);
    EXPECT_EQ(RsvTimeTbl_removeNameEntry(daemon.nameTable(), "build"), 0);  // empty
    RsvTimeTbl_addNameEntry(daemon.nameTable(), "build");
    EXPECT_EQ(RsvTimeTbl_removeNameEntry(daemon.nameTable(), nullptr), 0);
    EXPECT_EQ(h_numEnts_(daemon.nameTable()), 1);
}

TEST(RsvNameTable, RemoveNameEntryOfUnknownIdentifierReturns191)
{
    FakeDaemon daemon;
    RsvTimeTbl_addNameEntry(daemon.nameTable(), "build");
    qob_errno = 0;
    EXPECT_EQ(RsvTimeTbl_removeNameEntry(daemon.nameTable(), "test"), RSV_ERR_NO_RSV);
    EXPECT_EQ(qob_errno, 0);
    EXPECT_EQ(h_numEnts_(daemon.nameTable()), 1);
}

TEST(RsvNameTable, NameEntryWithAttachedJobsSurvivesRemoval)
{
    FakeDaemon daemon;
    RsvTimeTbl_addNameEntry(daemon.nameTable(), "build");
    static_cast<RsvEnt *>(h_getEnt_(daemon.nameTable(), "build")->value)->numJobs = 1;
    EXPECT_EQ(RsvTimeTbl_removeNameEntry(daemon.nameTable(), "build"), 0);
    EXPECT_NE(h_getEnt_(daemon.nameTable(), "build"), nullptr);
}

TEST(RsvNameTable, RemoveNameEntryWithoutJobsDropsIt)
{
    FakeDaemon daemon;
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    RsvTimeTbl_addNameEntry(daemon.nameTable(), "build");
    log.clear();
    EXPECT_EQ(RsvTimeTbl_removeNameEntry(daemon.nameTable(), "build"), 0);
    EXPECT_EQ(h_getEnt_(daemon.nameTable(), "build"), nullptr);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text, "RsvTimeTbl_removeNameEntry: remove rsvId <build> from rsvNameTbl");
}

// ------------------------------------------------------------- host checks

TEST_P(RsvTableTest, CheckHostOfAnUnknownHostIsSilent)
{
    LogCapture log;
    RsvTimeTbl_checkHost(tbl.get(), "nosuchhost");
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(h_getEnt_(&tbl->plannerLists, "nosuchhost"), nullptr);
}

TEST_P(RsvTableTest, CheckHostWithinItsLimitIsSilent)
{
    OwnedReq r(0, "alice", 4, 4, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    LogCapture log;
    RsvTimeTbl_checkHost(tbl.get(), "hostA");
    EXPECT_TRUE(log.lines().empty());
}

TEST_P(RsvTableTest, CheckHostWarnsWhenBookingsExceedTheSlotLimit)
{
    OwnedReq r(0, "alice", 4, 4, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    daemon.host("hostA")->maxSlots = 3;
    LogCapture log;
    RsvTimeTbl_checkHost(tbl.get(), "hostA");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_WARNING);
    EXPECT_EQ(log.lines()[0].text, kOverReservedA);
}

TEST_P(RsvTableTest, CheckHostSeesRecurringBookings)
{
    RsvEnt *ent = restoredEntry("bob#0", "bob", "22:0-2:0", {{"hostA", 4}}, RSV_OPT_RECURRING);
    RsvTimeTbl_restoreEntry(tbl.get(), ent);
    daemon.host("hostA")->maxSlots = 2;
    LogCapture log;
    RsvTimeTbl_checkHost(tbl.get(), "hostA");
    EXPECT_TRUE(log.contains(KX_LOG_WARNING, "host <hostA> has been over-reserved"));
}

TEST_P(RsvTableTest, CheckEntriesReportsVanishedHostsAndKeepsTheEntry)
{
    OwnedReq r(0, "alice", 6, 10, {"hostA", "hostB"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr) << "qob_errno " << qob_errno;
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), id.get());
    ASSERT_EQ(ent->numHosts, 2);
    std::remove(stateFile().c_str());
    daemon.removeHost("hostB");
    daemon.host("hostA")->maxSlots = 1;

    LogCapture log;
    RsvTimeTbl_checkEntries(tbl.get());
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_checkEntries: host <hostB> reserved by reservation <" +
                                             std::string(id.get()) +
                                             "> not longer exists. Configuration changed?"));
    EXPECT_TRUE(log.contains(KX_LOG_WARNING, kOverReservedA));
    int errors = 0;
    for (auto &l : log.lines())
        errors += l.level == KX_LOG_ERR;
    EXPECT_EQ(errors, 1);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), id.get()), ent);
    EXPECT_EQ(ent->numHosts, 2);
    EXPECT_FALSE(fileExists(stateFile()));
}

TEST_P(RsvTableTest, CheckEntriesOnAHealthyTableIsSilent)
{
    OwnedReq r(0, "alice", 2, 2, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    LogCapture log;
    RsvTimeTbl_checkEntries(tbl.get());
    EXPECT_TRUE(log.lines().empty());
}

// ---------------------------------------------------------- temporary table

TEST_P(RsvTableTest, DupTimeTblCopiesTheEntryShallowlyAndItsPlannersDeeply)
{
    OwnedReq r(0, "alice", 3, 3, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), id.get());
    RsvTimeTbl *tmp = RsvTimeTbl_new(nullptr);
    ASSERT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), ent, tmp), 0);

    RsvEnt *copy = RsvTimeTbl_getEntry(tmp, id.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, ent);
    EXPECT_EQ(copy->timeWindow, ent->timeWindow);
    EXPECT_EQ(copy->allocVector, ent->allocVector);
    EXPECT_EQ(copy->rsvId, ent->rsvId);

    ResPlanner *realPlanner = findPlanner(tbl.get(), "hostA", week);
    ResPlanner *tmpPlanner = findPlanner(tmp, "hostA", week);
    ASSERT_NE(realPlanner, nullptr);
    ASSERT_NE(tmpPlanner, nullptr);
    EXPECT_NE(realPlanner, tmpPlanner);
    EXPECT_TRUE(plannersEqual(tbl.get(), tmp));
    tmpPlanner->slots[3][60].reserved += 5;
    EXPECT_EQ(booked("hostA"), 3);

    RsvTimeTbl_freeTmpTable(tmp);
    // The real entry and planners are untouched by the release.
    EXPECT_STREQ(ent->timeWindow, window.c_str());
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(RsvTableTest, DupTimeTblRefusesNullArgumentsAndADuplicateIdentifier)
{
    OwnedReq r(0, "alice", 3, 3, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), id.get());
    RsvTimeTbl *tmp = RsvTimeTbl_new(nullptr);
    EXPECT_EQ(Rsv_dupTimeTbl4CurrRsv(nullptr, ent, tmp), -1);
    EXPECT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), nullptr, tmp), -1);
    EXPECT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), ent, nullptr), -1);
    ASSERT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), ent, tmp), 0);
    {
        ScopedLogClass lc(LC_RSV);
        LogCapture log;
        EXPECT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), ent, tmp), -1);
        EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "Rsv_dupTimeTbl4CurrRsv: The rsvID <" + std::string(id.get()) +
                                                   "> is already in duplicated TimeTable"));
    }
    RsvTimeTbl_freeTmpTable(tmp);
}

TEST_P(RsvTableTest, DupTimeTblFailsWhenAnotherReservationOnTheSameHostIsAlreadyCopied)
{
    OwnedReq r1(0, "alice", 1, 1, {"hostA"}, window);
    rsv::Text id1(RsvTimeTbl_addEntry(tbl.get(), &r1.req));
    OwnedReq r2(0, "bob", 1, 1, {"hostA"}, window);
    rsv::Text id2(RsvTimeTbl_addEntry(tbl.get(), &r2.req));
    ASSERT_NE(id1, nullptr);
    ASSERT_NE(id2, nullptr);
    RsvTimeTbl *tmp = RsvTimeTbl_new(nullptr);
    ASSERT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), RsvTimeTbl_getEntry(tbl.get(), id1.get()), tmp), 0);
    ScopedLogClass lc(LC_RSV);
    LogCapture log;
    EXPECT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), RsvTimeTbl_getEntry(tbl.get(), id2.get()), tmp), -1);
    // The message says "find" for a list that is already there; kept as is.
    EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "Rsv_dupTimeTbl4CurrRsv: cannot find the planner list of <hostA>"));
    // What was copied so far stays, and is released with the table.
    EXPECT_NE(RsvTimeTbl_getEntry(tmp, id2.get()), nullptr);
    RsvTimeTbl_freeTmpTable(tmp);
}

TEST_P(RsvTableTest, DupTimeTblLogsNothingWithoutTheDebugClass)
{
    OwnedReq r(0, "alice", 1, 1, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), id.get());
    RsvTimeTbl *tmp = RsvTimeTbl_new(nullptr);
    ScopedLogClass lc(0);
    LogCapture log;
    ASSERT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), ent, tmp), 0);
    EXPECT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), ent, tmp), -1);
    EXPECT_TRUE(log.lines().empty());
    RsvTimeTbl_freeTmpTable(tmp);
}

TEST_P(RsvTableTest, DupTimeTblLogsEntryUnderTheDebugOrTraceClass)
{
    OwnedReq r(0, "alice", 1, 1, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    RsvTimeTbl *tmp = RsvTimeTbl_new(nullptr);
    ScopedLogClass lc(LC_TRACE);
    LogCapture log;
    ASSERT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), RsvTimeTbl_getEntry(tbl.get(), id.get()), tmp), 0);
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines()[0].level, KX_LOG_DEBUG);
    EXPECT_EQ(log.lines()[0].text, "Rsv_dupTimeTbl4CurrRsv: Entering...");
    RsvTimeTbl_freeTmpTable(tmp);
}

TEST_P(RsvTableTest, DupTimeTblAllocationFailureGivesMinusOneAndCopiesNothing)
{
    OwnedReq r(0, "alice", 1, 1, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    RsvTimeTbl *tmp = RsvTimeTbl_new(nullptr);
    daemon.failAfter(0);
    EXPECT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), RsvTimeTbl_getEntry(tbl.get(), id.get()), tmp), -1);
    daemon.failAfter(-1);
    EXPECT_EQ(h_numEnts_(&tmp->entries), 0);
    EXPECT_EQ(h_numEnts_(&tmp->plannerLists), 0);
    RsvTimeTbl_freeTmpTable(tmp);
}

TEST_P(RsvTableTest, RemoveEntryKeepsANameEntryThatJobsStillUse)
{
    OwnedReq r(0, "alice", 1, 1, {"hostA"}, window);
    rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &r.req));
    ASSERT_NE(id, nullptr);
    RsvTimeTbl_addNameEntry(daemon.nameTable(), id.get());
    static_cast<RsvEnt *>(h_getEnt_(daemon.nameTable(), id.get())->value)->numJobs = 1;
    EXPECT_EQ(RsvTimeTbl_removeEntry(tbl.get(), id.get()), 0);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), id.get()), nullptr);
    EXPECT_NE(h_getEnt_(daemon.nameTable(), id.get()), nullptr);
}

TEST(RsvTimeTblFreeTmpTable, NullIsIgnored)
{
    FakeDaemon daemon;
    LogCapture log;
    qob_errno = 4242;
    RsvTimeTbl_freeTmpTable(nullptr);
    EXPECT_EQ(qob_errno, 4242);
    EXPECT_TRUE(log.lines().empty());
}

// ----------------------------------------------------------------- host set

TEST(RsvModAHostInTab, TwoAliasesOfOneHostLeaveOneKey)
{
    FakeDaemon daemon;
    daemon.addHost("hostA", 4, 4, {"a1", "a2"});
    HostSet set;
    EXPECT_EQ(RsvMod_aHostInTab(&set.ptr, "a1"), 0);
    EXPECT_EQ(RsvMod_aHostInTab(&set.ptr, "a2"), 0);
    EXPECT_EQ(h_numEnts_(&set.tab), 1);
    HashEnt *he = h_getEnt_(&set.tab, "hostA");
    ASSERT_NE(he, nullptr);
    ASSERT_NE(he->value, nullptr);
    EXPECT_EQ(*static_cast<int *>(he->value), 1);
}

TEST(RsvModAHostInTab, NullHostOrSetReturnsMinusOneWithoutError)
{
    FakeDaemon daemon;
    daemon.addHost("hostA", 4);
    HostSet set;
    HashTab *none = nullptr;
    qob_errno = 0;
    EXPECT_EQ(RsvMod_aHostInTab(&set.ptr, nullptr), -1);
    EXPECT_EQ(RsvMod_aHostInTab(nullptr, "hostA"), -1);
    EXPECT_EQ(RsvMod_aHostInTab(&none, "hostA"), -1);
    EXPECT_EQ(qob_errno, 0);
}

TEST(RsvModAHostInTab, UnknownHostFailsWith23AndLeavesTheSet)
{
    FakeDaemon daemon;
    HostSet set;
    qob_errno = 0;
    EXPECT_EQ(RsvMod_aHostInTab(&set.ptr, "nosuchhost"), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_HOST);
    EXPECT_EQ(h_numEnts_(&set.tab), 0);
}

TEST(RsvModAHostInTab, AllocationFailureGives55AndLeavesTheSetUnchanged)
{
    FakeDaemon daemon;
    daemon.addHost("hostA", 4);
    daemon.addHost("hostB", 4);
    HostSet set;
    ASSERT_EQ(RsvMod_aHostInTab(&set.ptr, "hostA"), 0);
    daemon.failAfter(0);
    qob_errno = 0;
    EXPECT_EQ(RsvMod_aHostInTab(&set.ptr, "hostB"), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    EXPECT_EQ(h_numEnts_(&set.tab), 1);
    EXPECT_EQ(h_getEnt_(&set.tab, "hostB"), nullptr);
    // A host already in the set needs no allocation.
    EXPECT_EQ(RsvMod_aHostInTab(&set.ptr, "hostA"), 0);
    daemon.failAfter(-1);
    EXPECT_EQ(RsvMod_aHostInTab(&set.ptr, "hostB"), 0);
    EXPECT_EQ(h_numEnts_(&set.tab), 2);
}

TEST(RsvEntNewInTable, AllocationFailureGivesNullAnd55)
{
    FakeDaemon daemon;
    daemon.failAfter(0);
    qob_errno = 0;
    EXPECT_EQ(RsvEnt_new(0, "alice", "8:0-9:0"), nullptr);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    daemon.failAfter(-1);
}
