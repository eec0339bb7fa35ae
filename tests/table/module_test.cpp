#include <cstring>
#include <string>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

// Records the caller tag of every allocZeroed call, then forwards to the
// fake daemon.
std::vector<std::string> g_callers;
int g_wrappedAllocs = 0;

void *recordingAlloc(int count, size_t size, const char *caller)
{
    ++g_wrappedAllocs;
    g_callers.emplace_back(caller ? caller : "");
    return FakeDaemon::allocZeroed(count, size, caller);
}

rsv::Table newTable(const char *name)
{
    return rsv::Table(RsvTimeTbl_new(name));
}

} // namespace

TEST(RsvModInit, CopiesTheServicesTableByValue)
{
    FakeDaemon daemon;
    RsvMiscFuncs local = daemon.services;
    local.allocZeroed = recordingAlloc;
    g_wrappedAllocs = 0;
    RsvMod_init(&local);
    // Changing the caller's table afterwards does not reach the module.
    local.allocZeroed = nullptr;
    rsv::Table tbl = newTable(nullptr);
    ASSERT_NE(tbl, nullptr);
    EXPECT_GT(g_wrappedAllocs, 0);
    RsvMod_init(&daemon.services);
}

TEST(RsvModInit, SecondCallReplacesTheServices)
{
    FakeDaemon daemon;
    RsvMiscFuncs local = daemon.services;
    local.allocZeroed = recordingAlloc;
    RsvMod_init(&local);
    RsvMod_init(&daemon.services);
    g_wrappedAllocs = 0;
    rsv::Table tbl = newTable(nullptr);
    ASSERT_NE(tbl, nullptr);
    EXPECT_EQ(g_wrappedAllocs, 0);
}

TEST(RsvModInit, NullTableKeepsTheInstalledServices)
{
    FakeDaemon daemon;
    RsvMod_init(nullptr);
    rsv::Table tbl = newTable("rsv.state");
    ASSERT_NE(tbl, nullptr);
    EXPECT_STREQ(tbl->idFile, "rsv.ids");
}

TEST(RsvTimeTblNew, NullNameGivesEmptyStateAndIdFileNames)
{
    FakeDaemon daemon;
    rsv::Table tbl = newTable(nullptr);
    ASSERT_NE(tbl, nullptr);
    EXPECT_STREQ(tbl->stateFile, "");
    EXPECT_STREQ(tbl->idFile, "");
}

TEST(RsvTimeTblNew, StartsWithEmptyEntriesAndPlannerLists)
{
    FakeDaemon daemon;
    rsv::Table tbl = newTable("/x/y/rsv.state");
    ASSERT_NE(tbl, nullptr);
    EXPECT_EQ(h_numEnts_(&tbl->entries), 0);
    EXPECT_EQ(h_numEnts_(&tbl->plannerLists), 0);
    EXPECT_GE(tbl->entries.numBuckets, 37);
    EXPECT_GE(tbl->plannerLists.numBuckets, 37);
}

TEST(RsvTimeTblNew, StateSuffixBecomesIds)
{
    FakeDaemon daemon;
    rsv::Table tbl = newTable("/x/y/rsv.state");
    ASSERT_NE(tbl, nullptr);
    EXPECT_STREQ(tbl->stateFile, "/x/y/rsv.state");
    EXPECT_STREQ(tbl->idFile, "/x/y/rsv.ids");
    rsv::Table plain = newTable("rsv.state");
    EXPECT_STREQ(plain->idFile, "rsv.ids");
}

TEST(RsvTimeTblNew, OnlyTheLastDotIsReplaced)
{
    FakeDaemon daemon;
    rsv::Table tbl = newTable("rsv.state.bak");
    ASSERT_NE(tbl, nullptr);
    EXPECT_STREQ(tbl->stateFile, "rsv.state.bak");
    EXPECT_STREQ(tbl->idFile, "rsv.state.ids");
}

TEST(RsvTimeTblNew, TrailingDotGetsIdsAppended)
{
    FakeDaemon daemon;
    rsv::Table tbl = newTable("rsv.");
    ASSERT_NE(tbl, nullptr);
    EXPECT_STREQ(tbl->idFile, "rsv.ids");
}

TEST(RsvTimeTblNew, NameWithoutDotGivesEmptyIdFileAndKeepsStateFile)
{
    FakeDaemon daemon;
    rsv::Table tbl = newTable("state");
    ASSERT_NE(tbl, nullptr);
    EXPECT_STREQ(tbl->stateFile, "state");
    EXPECT_STREQ(tbl->idFile, "");
}

TEST(RsvTimeTblNew, DotInDirectoryNameReplacesFromThatDot)
{
    FakeDaemon daemon;
    rsv::Table tbl = newTable("/d.x/state");
    ASSERT_NE(tbl, nullptr);
    EXPECT_STREQ(tbl->stateFile, "/d.x/state");
    EXPECT_STREQ(tbl->idFile, "/d.ids");
    rsv::Table other = newTable("/a.b/state");
    EXPECT_STREQ(other->idFile, "/a.ids");
}

TEST(RsvTimeTblNew, AllocatesTheTableAndIdBufferUnderItsOwnName)
{
    FakeDaemon daemon;
    RsvMiscFuncs local = daemon.services;
    local.allocZeroed = recordingAlloc;
    RsvMod_init(&local);
    g_callers.clear();
    rsv::Table tbl = newTable("rsv.state");
    RsvMod_init(&daemon.services);
    ASSERT_NE(tbl, nullptr);
    ASSERT_EQ(g_callers.size(), 2u);
    EXPECT_EQ(g_callers[0], "RsvTimeTbl_new");
    EXPECT_EQ(g_callers[1], "RsvTimeTbl_new");
}

TEST(RsvTimeTblNew, NameOf1024CharactersIsAccepted)
{
    FakeDaemon daemon;
    // The longest accepted name ending in '.', so the id file is 1027 long.
    std::string name = "/" + std::string(1022, 'a') + ".";
    ASSERT_EQ(name.size(), 1024u);
    rsv::Table tbl = newTable(name.c_str());
    ASSERT_NE(tbl, nullptr);
    EXPECT_EQ(std::string(tbl->stateFile), name);
    EXPECT_EQ(std::string(tbl->idFile), name + "ids");
}

TEST(RsvTimeTblNew, NameLongerThan1024CharactersIsRejectedWithNothingAllocated)
{
    FakeDaemon daemon;
    LogCapture log;
    std::string name = "/" + std::string(1020, 'a') + ".state";
    ASSERT_EQ(name.size(), 1027u);
    daemon.failAfter(-1);  // counts allocations without failing any
    RsvTimeTbl *tbl = RsvTimeTbl_new(name.c_str());
    EXPECT_EQ(tbl, nullptr);
    EXPECT_EQ(daemon.allocCount(), 0);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].level, KX_LOG_ERR);
    EXPECT_EQ(log.lines()[0].text,
              "RsvTimeTbl_new: state file name of 1027 characters is longer than 1024; no table created");
    RsvTimeTbl_free(tbl);
}

TEST(RsvTimeTblNew, NameOf1025CharactersIsRejected)
{
    FakeDaemon daemon;
    LogCapture log;
    std::string name(1025, 'b');
    EXPECT_EQ(RsvTimeTbl_new(name.c_str()), nullptr);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "state file name of 1025 characters is longer than 1024"));
}

TEST(RsvTimeTblNew, AllocationFailureGivesNullWithErrorAndNoLeak)
{
    FakeDaemon daemon;
    int failures = 0;
    for (int n = 0; n < 20; ++n) {
        daemon.failAfter(n);
        qob_errno = 0;
        RsvTimeTbl *tbl = RsvTimeTbl_new("/x/rsv.state");
        daemon.failAfter(-1);
        if (tbl) {
            EXPECT_STREQ(tbl->idFile, "/x/rsv.ids");
            RsvTimeTbl_free(tbl);
            break;
        }
        ++failures;
        EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY) << "failing after " << n;
    }
    EXPECT_EQ(failures, 3);  // the table, the state name, the id name
}

TEST(RsvTimeTblFree, NullIsIgnored)
{
    FakeDaemon daemon;
    LogCapture log;
    qob_errno = 4242;
    const int allocations = daemon.allocCount();
    RsvTimeTbl_free(nullptr);
    EXPECT_EQ(qob_errno, 4242);
    EXPECT_EQ(daemon.allocCount(), allocations);
    EXPECT_TRUE(log.lines().empty());
}

TEST(RsvTimeTblFree, ReleasesEntriesPlannerListsAndNames)
{
    // The sanitizer build fails this test on any leak.
    FakeDaemon daemon;
    RsvTimeTbl *tbl = RsvTimeTbl_new("rsv.state");
    ASSERT_NE(tbl, nullptr);

    for (const char *id : {"alice#0", "bob#1"}) {
        RsvEnt *ent = RsvEnt_new(0, "alice", "100-200");
        ASSERT_NE(ent, nullptr);
        ent->rsvId = strdup(id);
        ent->numHosts = 1;
        ent->allocVector = static_cast<AllocElem *>(calloc(1, sizeof(AllocElem)));
        ent->allocVector[0].hostName = strdup("hostA");
        ent->allocVector[0].numSlots = 2;
        ent->description = strdup("text");
        h_addEnt_(&tbl->entries, ent->rsvId, nullptr)->value = ent;
    }
    List *list = RsvTimeTbl_getPlannerList(tbl, "hostA");
    ASSERT_NE(list, nullptr);
    RsvWeek week{};
    RsvTime_toWeek(1700000000, &week);
    ResPlanner *dated = ResPlanner_new("hostA", &week);
    ASSERT_NE(dated, nullptr);
    listInsertEntryAtBack(list, &dated->links);
    ASSERT_NE(RsvTimeTbl_getPlannerList(tbl, "hostB"), nullptr);

    EXPECT_EQ(h_numEnts_(&tbl->entries), 2);
    EXPECT_EQ(h_numEnts_(&tbl->plannerLists), 2);
    EXPECT_EQ(list->numEnts, 2);
    RsvTimeTbl_free(tbl);
}
