// The table check: a table built through the module's calls is consistent,
// and each kind of damage done by hand is found and named, without the check
// changing anything.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "planner/planner_internal.h"
#include "rsv_test_support.h"

using namespace rsvtest;


namespace {

bool anyLineHas(const std::vector<std::string> &lines, const std::string &a, const std::string &b = "")
{
    for (const std::string &line : lines)
        if (line.find(a) != std::string::npos && (b.empty() || line.find(b) != std::string::npos))
            return true;
    return false;
}

std::string joined(const std::vector<std::string> &lines)
{
    std::string out;
    for (const std::string &line : lines)
        out += "\n  " + line;
    return out;
}

void destroyPlanner(void *planner)
{
    ResPlanner_destroy(static_cast<ResPlanner *>(planner));
}

// The planners run in local time: every test runs in two zones.
class VerifyTest : public ::testing::TestWithParam<const char *> {
protected:
    VerifyTest() : tz_(GetParam()), clock_(0)
    {
        clock_.set(localTime(2026, 2, 2, 9, 0)); // a Monday
        for (const char *h : {"hostA", "hostB", "hostC", "hostD"})
            daemon.addHost(h, 8);
        tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
        RsvTime_toWeek(localTime(2026, 2, 4, 12, 0), &week);
    }

    std::string add(int options, const std::string &owner, int procs, const std::vector<std::string> &hosts,
                    const std::string &window)
    {
        return rsvtest::addReservation(tbl.get(), options, owner, procs, hosts, window);
    }

    // One-off, daily across midnight, weekly across the week end, a one-off
    // over two weeks, disabled days and system reservations.
    void buildTable()
    {
        add(0, "alice", 2, {"hostA", "hostB"}, oneOff(localTime(2026, 2, 4, 10, 0), localTime(2026, 2, 4, 12, 0)));
        add(0, "alice", 1, {"hostA"}, oneOff(localTime(2026, 2, 6, 18, 0), localTime(2026, 2, 9, 8, 0)));
        add(RSV_OPT_RECURRING, "bob", 2, {"hostA"}, "22:0-2:0");
        add(RSV_OPT_RECURRING, "carol", 3, {"hostB"}, "6:20:0-1:6:0");
        ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "bob#0", "2:11"), 0) << qob_errno;
        ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "carol#0", "2:14-2:16"), 0) << qob_errno;
        add(RSV_OPT_SYSTEM, "root", 1, {"hostC"}, oneOff(localTime(2026, 2, 5, 0, 0), localTime(2026, 2, 5, 6, 0)));
        add(RSV_OPT_SYSTEM | RSV_OPT_RECURRING, "root", 1, {"hostD"}, "3:1:0-3:3:0");
        // A query over a week no planner covers makes the recurring index.
        const std::string far = oneOff(localTime(2026, 6, 1, 0, 0), localTime(2026, 6, 6, 23, 0));
        EXPECT_GE(Rsv_getMaxAvailonHost(tbl.get(), "hostA", far.c_str(), 0, nullptr), 0);
    }

    RsvEnt *entry(const char *id) { return RsvTimeTbl_getEntry(tbl.get(), id); }

    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    TempDir dir;
    rsv::Table tbl;
    RsvWeek week{};
};

INSTANTIATE_TEST_SUITE_P(Zones, VerifyTest, ::testing::Values("UTC", "America/New_York"));

} // namespace

TEST_P(VerifyTest, TableBuiltThroughTheCallsIsConsistent)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    ASSERT_EQ(h_numEnts_(&tbl->entries), 6);
    EXPECT_TRUE(tableVerifies(tbl.get()));
    EXPECT_EQ(RsvTimeTbl_verify(tbl.get(), nullptr, nullptr), 0);
    EXPECT_TRUE(tableVerifies(tbl.get()));
}

TEST_P(VerifyTest, EmptyTableIsConsistent)
{
    EXPECT_EQ(RsvTimeTbl_verify(tbl.get(), nullptr, nullptr), 0);
}

TEST_P(VerifyTest, CheckChangesNothingAndWritesNothing)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    const TableFingerprint before = fingerprint(tbl.get());
    const std::string state = readFile(tbl->stateFile);
    const std::string ids = readFile(tbl->idFile);
    const int lists = h_numEnts_(&tbl->plannerLists);
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    EXPECT_EQ(RsvTimeTbl_verify(tbl.get(), nullptr, nullptr), 0);
    EXPECT_TRUE(sameFingerprint(before, fingerprint(tbl.get())));
    EXPECT_EQ(readFile(tbl->stateFile), state);
    EXPECT_EQ(readFile(tbl->idFile), ids);
    EXPECT_FALSE(fileExists(std::string(tbl->stateFile) + ".tmp"));
    EXPECT_EQ(h_numEnts_(&tbl->plannerLists), lists);
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds);
}

TEST_P(VerifyTest, NullTableIsMinusOne)
{
    EXPECT_EQ(RsvTimeTbl_verify(nullptr, nullptr, nullptr), -1);
}

TEST_P(VerifyTest, CellBumpedByHandIsFound)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    ResPlanner *p = findPlanner(tbl.get(), "hostA", week);
    ASSERT_NE(p, nullptr);
    p->slots[3][61].reserved += 1; // Wednesday 10:10
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    EXPECT_EQ(result, 1) << joined(lines);
    EXPECT_TRUE(anyLineHas(lines, "host <hostA>", "day 3 10:10")) << joined(lines);
    p->slots[3][61].reserved -= 1;
    EXPECT_TRUE(tableVerifies(tbl.get()));
}

TEST_P(VerifyTest, RecurringCellBumpedByHandIsFound)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    ResPlanner *p = findPlanner(tbl.get(), "hostB", rsvWeekRecur);
    ASSERT_NE(p, nullptr);
    p->slots[0][0].reserved = 0; // carol's Sunday morning
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    EXPECT_GT(result, 0);
    EXPECT_TRUE(anyLineHas(lines, "host <hostB>", "recurring week")) << joined(lines);
}

TEST_P(VerifyTest, SlotsChangedWithoutRebookingAreFound)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    RsvEnt *ent = entry("bob#0");
    ASSERT_NE(ent, nullptr);
    ent->allocVector[0].numSlots += 1;
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    EXPECT_GT(result, 0);
    EXPECT_TRUE(anyLineHas(lines, "planner of host <hostA>")) << joined(lines);
    ent->allocVector[0].numSlots -= 1;
    EXPECT_TRUE(tableVerifies(tbl.get()));
}

TEST_P(VerifyTest, EntryUnderAnotherKeyIsFound)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    HashEnt *he = h_getEnt_(&tbl->entries, "alice#1");
    ASSERT_NE(he, nullptr);
    RsvEnt *ent = static_cast<RsvEnt *>(he->value);
    h_delEnt_(&tbl->entries, he);
    h_addEnt_(&tbl->entries, "alice#7", nullptr)->value = ent;
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    EXPECT_EQ(result, 1) << joined(lines);
    EXPECT_TRUE(anyLineHas(lines, "reservation <alice#1>", "key <alice#7>")) << joined(lines);
}

TEST_P(VerifyTest, KeyWithoutRecordIsFound)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    h_addEnt_(&tbl->entries, "ghost#0", nullptr);
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    EXPECT_GT(result, 0);
    EXPECT_TRUE(anyLineHas(lines, "key <ghost#0>")) << joined(lines);
    h_delEnt_(&tbl->entries, h_getEnt_(&tbl->entries, "ghost#0"));
}

TEST_P(VerifyTest, MissingPlannerListIsFoundAndNotMade)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    HashEnt *he = h_getEnt_(&tbl->plannerLists, "hostB");
    ASSERT_NE(he, nullptr);
    listDestroy(static_cast<List *>(he->value), destroyPlanner);
    h_delEnt_(&tbl->plannerLists, he);
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    EXPECT_GT(result, 0);
    EXPECT_TRUE(anyLineHas(lines, "reservation <carol#0>", "host <hostB>, which has no planner list"))
        << joined(lines);
    EXPECT_EQ(h_getEnt_(&tbl->plannerLists, "hostB"), nullptr);
}

TEST_P(VerifyTest, DuplicatePlannerOfAWeekIsFound)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    HashEnt *he = h_getEnt_(&tbl->plannerLists, "hostC");
    ASSERT_NE(he, nullptr);
    ResPlanner *twin = ResPlanner_new("hostC", &week);
    listInsertEntryAtBack(static_cast<List *>(he->value), &twin->links);
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    EXPECT_GT(result, 0);
    EXPECT_TRUE(anyLineHas(lines, "host <hostC> has two planners")) << joined(lines);
}

TEST_P(VerifyTest, CounterBelowAnIdentifierIsFound)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    // Lowered behind the module's back: alice#1 is in the table.
    HashEnt *counter = h_getEnt_(rsvIdTbl, "alice");
    ASSERT_NE(counter, nullptr);
    counter->value = nullptr;
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    EXPECT_EQ(result, 1) << joined(lines);
    EXPECT_TRUE(anyLineHas(lines, "reservation <alice#1>", "owner <alice> is 0")) << joined(lines);
    RsvId_setCur("alice#1");
    EXPECT_TRUE(tableVerifies(tbl.get()));
}

TEST_P(VerifyTest, MissingCounterIsFound)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    RsvId_clearTbl();
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    // Every reservation: alice twice, bob, carol and the two system ones of
    // root.
    EXPECT_EQ(result, 6) << joined(lines);
    EXPECT_TRUE(anyLineHas(lines, "reservation <system#1>", "owner <root> has no identifier counter"))
        << joined(lines);
}

TEST_P(VerifyTest, CounterThatWentRoundTheLimitIsNoProblem)
{
    daemon.setMaxPerOwner(3);
    ASSERT_NO_FATAL_FAILURE(buildTable());
    const std::string window = oneOff(localTime(2026, 2, 10, 10, 0), localTime(2026, 2, 10, 11, 0));
    ASSERT_EQ(add(0, "alice", 1, {"hostA"}, window), "alice#2");
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl.get(), "alice#0"), 0);
    // The counter goes round to 0, below alice#1 and alice#2.
    ASSERT_EQ(add(0, "alice", 1, {"hostA"}, window), "alice#0");
    EXPECT_TRUE(tableVerifies(tbl.get()));

    // Restoring an older number after a newer one counts as going round.
    RsvId_clearTbl();
    RsvId_setCur("alice#2");
    RsvId_setCur("alice#0");
    RsvId_setCur("bob#0");
    RsvId_setCur("carol#0");
    RsvId_setCur("root#1");
    EXPECT_TRUE(tableVerifies(tbl.get()));
}

TEST_P(VerifyTest, NameOnlyEntryKeepsItsOwnIdentifier)
{
    OwnedReq req(RSV_OPT_NAME_ONLY, "dave", 1, 1, {"hostA"},
                 oneOff(localTime(2026, 2, 4, 10, 0), localTime(2026, 2, 4, 12, 0)));
    req.req.rsvId = strdup("project#42");
    char *id = RsvTimeTbl_addEntry(tbl.get(), &req.req);
    ASSERT_NE(id, nullptr) << qob_errno;
    EXPECT_STREQ(id, "project#42");
    std::free(id);
    EXPECT_TRUE(tableVerifies(tbl.get()));
}

TEST_P(VerifyTest, HostRenamedByHandIsMissedByTheRecurringIndex)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    // bob's recurring share moves from hostA to hostD behind the module's
    // back: the index, made before, has no share of hostD.
    RsvEnt *ent = entry("bob#0");
    ASSERT_NE(ent, nullptr);
    std::free(ent->allocVector[0].hostName);
    ent->allocVector[0].hostName = strdup("hostD");
    int result = 0;
    const std::vector<std::string> lines = verifyProblems(tbl.get(), &result);
    EXPECT_GT(result, 0);
    EXPECT_TRUE(anyLineHas(lines, "recurring index: host <hostD>", "bob#0")) << joined(lines);
}

TEST_P(VerifyTest, IndexOutOfDateIsNotLookedAt)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    // An index about to be made again gives what the walk gives.
    rsv::noteRecurringChange();
    EXPECT_TRUE(tableVerifies(tbl.get()));
}

TEST_P(VerifyTest, OutOfMemoryIsMinusOneWithNoProblemsMadeUp)
{
    ASSERT_NO_FATAL_FAILURE(buildTable());
    const TableFingerprint before = fingerprint(tbl.get());
    int n = 0;
    int result = -1;
    for (; n < 2000 && result != 0; ++n) {
        qob_errno = 0;
        daemon.failAfter(n);
        result = RsvTimeTbl_verify(tbl.get(), nullptr, nullptr);
        daemon.failAfter(-1);
        ASSERT_LE(result, 0) << "after " << n << " allocations";
        if (result < 0) {
            EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY) << n;
        }
    }
    EXPECT_EQ(result, 0);
    EXPECT_GT(n, 1);
    EXPECT_TRUE(sameFingerprint(before, fingerprint(tbl.get())));
}
