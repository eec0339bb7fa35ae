#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

constexpr time_t kNow = 1700000000;  // a Tuesday in November 2023

std::vector<std::string> g_callers;

void *recordingAlloc(int count, size_t size, const char *caller)
{
    g_callers.emplace_back(caller ? caller : "");
    return FakeDaemon::allocZeroed(count, size, caller);
}

AllocElem *makeVector(const std::vector<std::pair<const char *, int>> &hosts)
{
    auto *v = static_cast<AllocElem *>(calloc(hosts.size(), sizeof(AllocElem)));
    for (size_t i = 0; i < hosts.size(); ++i) {
        v[i].hostName = hosts[i].first ? strdup(hosts[i].first) : nullptr;
        v[i].numSlots = hosts[i].second;
        v[i].extra1 = static_cast<int>(i) + 10;
        v[i].extra2 = static_cast<int>(i) + 20;
    }
    return v;
}

RsvExecCmd *makeCommand()
{
    auto *cmd = static_cast<RsvExecCmd *>(calloc(1, sizeof(RsvExecCmd)));
    cmd->when = 1;
    cmd->command = strdup("/bin/true");
    return cmd;
}

} // namespace

// ---------------------------------------------------------------- RsvEnt_new

TEST(RsvEntNew, FillsTheDocumentedDefaults)
{
    ScopedTz tz("UTC");
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    std::string window = oneOff(kNow + 3600, kNow + 7200);
    rsv::Entry ent(RsvEnt_new(RSV_OPT_RECURRING | 0x100, "alice", window.c_str()));
    ASSERT_NE(ent, nullptr);
    EXPECT_EQ(ent->createTime, kNow);
    EXPECT_EQ(ent->activeTime, 0);
    EXPECT_STREQ(ent->version, "9.11");
    EXPECT_EQ(ent->options, RSV_OPT_RECURRING | 0x100);  // other bits carried
    EXPECT_EQ(ent->auxValue, 0);
    EXPECT_EQ(ent->rsvId, nullptr);
    EXPECT_STREQ(ent->name, "alice");
    EXPECT_EQ(ent->numHosts, 0);
    EXPECT_EQ(ent->allocVector, nullptr);
    EXPECT_STREQ(ent->timeWindow, window.c_str());
    EXPECT_EQ(ent->duration, RsvTimeWindow_toDuration(window.c_str()));
    EXPECT_STREQ(ent->creator, "");
    EXPECT_EQ(ent->numJobs, 0);
    EXPECT_EQ(ent->jobList, nullptr);
    EXPECT_EQ(ent->state, 0);
    EXPECT_EQ(ent->reserved15, 0);
    EXPECT_EQ(ent->reserved16, nullptr);
    EXPECT_EQ(ent->reserved17, nullptr);
    EXPECT_EQ(ent->execCmd, nullptr);
    EXPECT_EQ(ent->description, nullptr);
    EXPECT_STREQ(ent->timeDuration, "");
    EXPECT_EQ(ent->disabledDurations, nullptr);
}

TEST(RsvEntNew, CopiesItsTexts)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    char name[] = "bob";
    char window[] = "8:0-17:0";
    rsv::Entry ent(RsvEnt_new(0, name, window));
    ASSERT_NE(ent, nullptr);
    EXPECT_NE(ent->name, name);
    EXPECT_NE(ent->timeWindow, window);
    name[0] = 'X';
    window[0] = '9';
    EXPECT_STREQ(ent->name, "bob");
    EXPECT_STREQ(ent->timeWindow, "8:0-17:0");
}

TEST(RsvEntNew, NullNameAndWindowAreTakenAsEmpty)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    rsv::Entry ent(RsvEnt_new(RSV_OPT_NAME_ONLY, nullptr, nullptr));
    ASSERT_NE(ent, nullptr);
    EXPECT_STREQ(ent->name, "");
    EXPECT_STREQ(ent->timeWindow, "");
    EXPECT_EQ(ent->options, RSV_OPT_NAME_ONLY);
}

TEST(RsvEntNew, AllocatesTheRecordUnderItsOwnName)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    RsvMiscFuncs local = daemon.services;
    local.allocZeroed = recordingAlloc;
    RsvMod_init(&local);
    g_callers.clear();
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    RsvMod_init(&daemon.services);
    ASSERT_NE(ent, nullptr);
    ASSERT_FALSE(g_callers.empty());
    EXPECT_EQ(g_callers[0], "RsvEnt_new");
}

TEST(RsvEntNew, AllocationFailureGivesNullWithError55AndNoLeak)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    int failures = 0;
    bool made = false;
    for (int n = 0; n < 30 && !made; ++n) {
        daemon.failAfter(n);
        qob_errno = 0;
        RsvEnt *ent = RsvEnt_new(0, "alice", "8:0-17:0");
        daemon.failAfter(-1);
        if (!ent) {
            ++failures;
            EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY) << "failing after " << n;
            continue;
        }
        made = true;
        EXPECT_STREQ(ent->version, "9.11");
        EXPECT_STREQ(ent->name, "alice");
        EXPECT_STREQ(ent->timeWindow, "8:0-17:0");
        EXPECT_STREQ(ent->timeDuration, "");
        RsvEnt_destroy(ent);
        free(ent);
    }
    EXPECT_TRUE(made);
    // The record and its four texts: every one of them can fail.
    EXPECT_EQ(failures, 5);
}

// ------------------------------------------------------------ RsvEnt_destroy

TEST(RsvEntDestroy, ReleasesAndClearsEveryOwnedMemberButKeepsNumHosts)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    RsvEnt *ent = RsvEnt_new(RSV_OPT_RECURRING, "alice", "8:0-17:0");
    ASSERT_NE(ent, nullptr);
    ent->rsvId = strdup("alice#0");
    ent->numHosts = 2;
    ent->allocVector = makeVector({{"hostA", 2}, {"hostB", 3}});
    ent->description = strdup("nightly build");
    ent->execCmd = makeCommand();
    ent->jobList = listCreate("jobs");
    auto *job = static_cast<RsvJobEnt *>(calloc(1, sizeof(RsvJobEnt)));
    job->jobId = 42;
    listInsertEntryAtBack(ent->jobList, &job->links);
    ent->numJobs = 1;
    ent->disabledDurations = listCreate("disabledDurations");
    auto *dd = static_cast<RsvDisableDuration *>(calloc(1, sizeof(RsvDisableDuration)));
    listInsertEntryAtBack(ent->disabledDurations, &dd->links);

    RsvEnt_destroy(ent);
    EXPECT_EQ(ent->version, nullptr);
    EXPECT_EQ(ent->rsvId, nullptr);
    EXPECT_EQ(ent->name, nullptr);
    EXPECT_EQ(ent->timeWindow, nullptr);
    EXPECT_EQ(ent->allocVector, nullptr);
    EXPECT_EQ(ent->jobList, nullptr);
    EXPECT_EQ(ent->execCmd, nullptr);
    EXPECT_EQ(ent->disabledDurations, nullptr);
    EXPECT_EQ(ent->timeDuration, nullptr);
    EXPECT_EQ(ent->description, nullptr);
    EXPECT_EQ(ent->numHosts, 2);
    // Released members are cleared, so a second call is harmless.
    RsvEnt_destroy(ent);
    free(ent);
}

TEST(RsvEntDestroy, NullAllocVectorAndListsStillReleaseTheCommand)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    RsvEnt *ent = RsvEnt_new(0, "alice", "");
    ASSERT_NE(ent, nullptr);
    ent->numHosts = 3;  // but no vector
    ent->execCmd = makeCommand();
    RsvEnt_destroy(ent);
    // The sanitizer build reports the command record if it were left behind.
    EXPECT_EQ(ent->execCmd, nullptr);
    EXPECT_EQ(ent->allocVector, nullptr);
    free(ent);
}

TEST(RsvEntDestroy, NullEntryIsIgnored)
{
    FakeDaemon daemon;
    LogCapture log;
    qob_errno = 4242;
    RsvEnt_destroy(nullptr);
    EXPECT_EQ(qob_errno, 4242);
    EXPECT_TRUE(log.lines().empty());
}

// ------------------------------------------------ isRsvActive and switching

TEST(IsRsvActive, FollowsTheActiveAndInactiveSwitches)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    EXPECT_EQ(isRsvActive(nullptr), 0);
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    EXPECT_EQ(isRsvActive(ent.get()), 0);
    setRsvActive(nullptr, ent.get());
    EXPECT_EQ(ent->state, RSV_STATE_ACTIVE);
    EXPECT_EQ(isRsvActive(ent.get()), 1);
    setRsvInactive(nullptr, ent.get());
    EXPECT_EQ(ent->state, RSV_STATE_INACTIVE);
    EXPECT_EQ(isRsvActive(ent.get()), 0);
}

TEST(SetRsvActive, StampsTheFirstActivationAndKeepsItOnRepeat)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    setRsvActive(nullptr, ent.get());
    EXPECT_EQ(ent->activeTime, kNow);
    clock.advance(600);
    setRsvActive(nullptr, ent.get());
    EXPECT_EQ(ent->activeTime, kNow);
    EXPECT_EQ(ent->state, RSV_STATE_ACTIVE);
}

TEST(SetRsvActive, WritesTheStateFileOnlyOnTheFirstActivation)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    TempDir dir;
    rsv::Table tbl(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
    ASSERT_NE(tbl, nullptr);
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    setRsvActive(tbl.get(), ent.get());
    EXPECT_TRUE(fileExists(dir.file("rsv.state")));
    std::remove(dir.file("rsv.state").c_str());
    clock.advance(600);
    setRsvActive(tbl.get(), ent.get());
    EXPECT_FALSE(fileExists(dir.file("rsv.state")));
    EXPECT_EQ(ent->activeTime, kNow);
}

TEST(SetRsvActive, NullEntryChangesNothingAndWritesNothing)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    TempDir dir;
    rsv::Table tbl(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
    qob_errno = 0;
    setRsvActive(tbl.get(), nullptr);
    setRsvInactive(tbl.get(), nullptr);
    EXPECT_FALSE(fileExists(dir.file("rsv.state")));
    EXPECT_EQ(qob_errno, 0);
    EXPECT_EQ(RsvTimeTbl_activate(tbl.get(), nullptr), RSV_ERR_BAD_ARGUMENT);
}

TEST(SetRsvInactive, NeverActivatedEntryBecomesInactiveWithoutAWrite)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    TempDir dir;
    rsv::Table tbl(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    setRsvInactive(tbl.get(), ent.get());
    EXPECT_EQ(ent->state, RSV_STATE_INACTIVE);
    EXPECT_EQ(ent->activeTime, 0);
    EXPECT_FALSE(fileExists(dir.file("rsv.state")));
}

TEST(SetRsvInactive, ClearsTheActivationTimeAndWritesTheStateFile)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    TempDir dir;
    rsv::Table tbl(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    setRsvActive(tbl.get(), ent.get());
    std::remove(dir.file("rsv.state").c_str());
    setRsvInactive(tbl.get(), ent.get());
    EXPECT_EQ(ent->activeTime, 0);
    EXPECT_EQ(ent->state, RSV_STATE_INACTIVE);
    EXPECT_TRUE(fileExists(dir.file("rsv.state")));
    // A second deactivation changes no time and writes nothing.
    std::remove(dir.file("rsv.state").c_str());
    setRsvInactive(tbl.get(), ent.get());
    EXPECT_FALSE(fileExists(dir.file("rsv.state")));
}

TEST(SetRsvActive, ReactivationAfterDeactivationStampsANewTime)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    setRsvActive(nullptr, ent.get());
    setRsvInactive(nullptr, ent.get());
    clock.advance(3600);
    setRsvActive(nullptr, ent.get());
    EXPECT_EQ(ent->activeTime, kNow + 3600);
}

// ----------------------------------------------------- allocation vectors

TEST(RsvEntFreeAllocVector, FreesNamesAndVectorAndClearsTheField)
{
    FakeDaemon daemon;
    AllocElem *v = makeVector({{"hostA", 1}, {nullptr, 2}, {"hostC", 3}});
    RsvEnt_freeAllocVector(&v, 3);
    EXPECT_EQ(v, nullptr);
}

TEST(RsvEntFreeAllocVector, NullAddressOrVectorIsIgnored)
{
    FakeDaemon daemon;
    RsvEnt_freeAllocVector(nullptr, 3);
    AllocElem *v = nullptr;
    RsvEnt_freeAllocVector(&v, 3);
    EXPECT_EQ(v, nullptr);
}

TEST(RsvEntDupAllocVector, EntryWithNoHostsGivesNull)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    EXPECT_EQ(RsvEnt_DupAllocVector(ent.get()), nullptr);
    ent->numHosts = -1;
    EXPECT_EQ(RsvEnt_DupAllocVector(ent.get()), nullptr);
    EXPECT_EQ(RsvEnt_DupAllocVector(nullptr), nullptr);
}

TEST(RsvEntDupAllocVector, CopiesEveryElementDeeply)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    ent->numHosts = 2;
    ent->allocVector = makeVector({{"hostA", 4}, {"hostB", 5}});
    AllocElem *copy = RsvEnt_DupAllocVector(ent.get());
    ASSERT_NE(copy, nullptr);
    for (int i = 0; i < 2; ++i) {
        EXPECT_NE(copy[i].hostName, ent->allocVector[i].hostName);
        EXPECT_STREQ(copy[i].hostName, ent->allocVector[i].hostName);
        EXPECT_EQ(copy[i].numSlots, ent->allocVector[i].numSlots);
        EXPECT_EQ(copy[i].extra1, ent->allocVector[i].extra1);
        EXPECT_EQ(copy[i].extra2, ent->allocVector[i].extra2);
    }
    RsvEnt_freeAllocVector(&copy, 2);
    EXPECT_STREQ(ent->allocVector[1].hostName, "hostB");
}

TEST(RsvEntDupAllocVector, AllocatesUnderItsOwnName)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    ent->numHosts = 1;
    ent->allocVector = makeVector({{"hostA", 4}});
    RsvMiscFuncs local = daemon.services;
    local.allocZeroed = recordingAlloc;
    RsvMod_init(&local);
    g_callers.clear();
    AllocElem *copy = RsvEnt_DupAllocVector(ent.get());
    RsvMod_init(&daemon.services);
    ASSERT_EQ(g_callers.size(), 1u);
    EXPECT_EQ(g_callers[0], "RsvEnt_DupAllocVector");
    RsvEnt_freeAllocVector(&copy, 1);
}

TEST(RsvEntDupAllocVector, AllocationFailureGivesNullWithoutLeakOrError)
{
    PinnedClock clock(kNow);
    FakeDaemon daemon;
    rsv::Entry ent(RsvEnt_new(0, "alice", ""));
    ASSERT_NE(ent, nullptr);
    ent->numHosts = 3;
    ent->allocVector = makeVector({{"hostA", 1}, {"hostB", 2}, {"hostC", 3}});
    for (int n = 0; n < 4; ++n) {
        daemon.failAfter(n);
        qob_errno = 0;
        AllocElem *copy = RsvEnt_DupAllocVector(ent.get());
        daemon.failAfter(-1);
        EXPECT_EQ(copy, nullptr) << "failing after " << n;
        EXPECT_EQ(qob_errno, 0);
    }
    daemon.failAfter(4);
    AllocElem *copy = RsvEnt_DupAllocVector(ent.get());
    daemon.failAfter(-1);
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy[2].hostName, "hostC");
    RsvEnt_freeAllocVector(&copy, 3);
}
