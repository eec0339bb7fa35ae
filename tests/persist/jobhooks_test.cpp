#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

// Frees what fillRsvFinishLog copied into a record, as the daemon's event-log
// writer does.
struct FinishLog {
    RsvFinishLog rec{};
    ~FinishLog()
    {
        free(rec.rsvId);
        free(rec.name);
        for (int i = 0; rec.hosts && i < rec.numHosts; ++i)
            free(rec.hosts[i].hostName);
        free(rec.hosts);
        free(rec.timeWindow);
        free(rec.creator);
    }
};

RsvEnt *addEntry(RsvTimeTbl *tbl, const std::string &id, const std::string &window,
                 const std::vector<std::pair<const char *, int>> &hosts, int options = 0)
{
    RsvEnt *ent = RsvEnt_new(options, "alice", window.c_str());
    ent->rsvId = strdup(id.c_str());
    ent->numHosts = static_cast<int>(hosts.size());
    if (!hosts.empty())
        ent->allocVector = static_cast<AllocElem *>(calloc(hosts.size(), sizeof(AllocElem)));
    for (size_t i = 0; i < hosts.size(); ++i) {
        ent->allocVector[i].hostName = strdup(hosts[i].first);
        ent->allocVector[i].numSlots = hosts[i].second;
    }
    h_addEnt_(&tbl->entries, ent->rsvId, nullptr)->value = ent;
    return ent;
}

class JobHooksTest : public ::testing::TestWithParam<const char *> {
protected:
    JobHooksTest() : tz_(GetParam()), clock_(0)
    {
        start = localTime(2023, 11, 15, 10, 0);
        clock_.set(start);
        tbl.reset(RsvTimeTbl_new(nullptr));
    }

    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    rsv::Table tbl;
    time_t start = 0;
};

INSTANTIATE_TEST_SUITE_P(Zones, JobHooksTest, ::testing::Values("UTC", "America/New_York"));

} // namespace

TEST_P(JobHooksTest, FinishLogCopiesTheReservation)
{
    RsvEnt *ent = addEntry(tbl.get(), "alice#4", oneOff(start, start + 3600), {{"hostA", 3}, {"hostB", 1}}, 0x1008);
    ent->createTime = 12345;
    ent->auxValue = 77;
    std::strcpy(ent->creator, "bob");
    FinishLog log;
    ASSERT_EQ(fillRsvFinishLog(&log.rec, tbl.get(), "alice#4"), 0);
    EXPECT_EQ(log.rec.createTime, 12345);
    EXPECT_EQ(log.rec.options, 0x1008);
    EXPECT_EQ(log.rec.auxValue, 77);
    EXPECT_STREQ(log.rec.rsvId, "alice#4");
    EXPECT_NE(log.rec.rsvId, ent->rsvId);
    EXPECT_STREQ(log.rec.name, "alice");
    ASSERT_EQ(log.rec.numHosts, 2);
    ASSERT_NE(log.rec.hosts, nullptr);
    EXPECT_STREQ(log.rec.hosts[0].hostName, "hostA");
    EXPECT_EQ(log.rec.hosts[0].numSlots, 3);
    EXPECT_STREQ(log.rec.hosts[1].hostName, "hostB");
    EXPECT_EQ(log.rec.hosts[1].numSlots, 1);
    EXPECT_NE(log.rec.hosts[0].hostName, ent->allocVector[0].hostName);
    EXPECT_STREQ(log.rec.timeWindow, ent->timeWindow);
    EXPECT_STREQ(log.rec.creator, "bob");
}

TEST_P(JobHooksTest, UnknownIdentifierOrNullArgumentLeavesTheRecordUntouched)
{
    addEntry(tbl.get(), "alice#0", oneOff(start, start + 3600), {{"hostA", 1}});
    RsvFinishLog rec;
    std::memset(&rec, 0x5A, sizeof rec);
    RsvFinishLog copy;
    std::memcpy(&copy, &rec, sizeof rec);
    EXPECT_EQ(fillRsvFinishLog(&rec, tbl.get(), "nobody#1"), -1);
    EXPECT_EQ(fillRsvFinishLog(&rec, nullptr, "alice#0"), -1);
    EXPECT_EQ(fillRsvFinishLog(&rec, tbl.get(), nullptr), -1);
    EXPECT_EQ(fillRsvFinishLog(nullptr, tbl.get(), "alice#0"), -1);
    EXPECT_EQ(std::memcmp(&rec, &copy, sizeof rec), 0);
}

TEST_P(JobHooksTest, ReservationWithoutHostsGivesNoHostArray)
{
    addEntry(tbl.get(), "alice#0", oneOff(start, start + 3600), {});
    FinishLog log;
    ASSERT_EQ(fillRsvFinishLog(&log.rec, tbl.get(), "alice#0"), 0);
    EXPECT_EQ(log.rec.numHosts, 0);
    EXPECT_EQ(log.rec.hosts, nullptr);
}

TEST_P(JobHooksTest, InactiveReservationWasActiveForNoTime)
{
    addEntry(tbl.get(), "alice#0", oneOff(start, start + 3600), {{"hostA", 1}});
    clock_.set(start + 600);
    FinishLog log;
    log.rec.activeDuration = 99;
    ASSERT_EQ(fillRsvFinishLog(&log.rec, tbl.get(), "alice#0"), 0);
    EXPECT_EQ(log.rec.activeDuration, 0);
}

TEST_P(JobHooksTest, ActiveDurationIsChargedUpToNowOrUpToTheInstanceEnd)
{
    RsvEnt *ent = addEntry(tbl.get(), "alice#0", oneOff(start, start + 3600), {{"hostA", 1}});
    ent->activeTime = start;
    ent->state = RSV_STATE_ACTIVE;
    clock_.set(start + 600);
    {
        FinishLog log;
        ASSERT_EQ(fillRsvFinishLog(&log.rec, tbl.get(), "alice#0"), 0);
        EXPECT_EQ(log.rec.activeDuration, 600);
    }
    clock_.set(start + 7200);
    {
        FinishLog log;
        ASSERT_EQ(fillRsvFinishLog(&log.rec, tbl.get(), "alice#0"), 0);
        EXPECT_EQ(log.rec.activeDuration, 3600);
    }
}

TEST_P(JobHooksTest, RecurringActiveDurationEndsWithTheInstanceItStartedIn)
{
    RsvEnt *ent = addEntry(tbl.get(), "alice#0", "10:0-11:0", {{"hostA", 1}}, RSV_OPT_RECURRING);
    ent->activeTime = start;  // 10:00 on a Wednesday
    clock_.set(start + 1800);
    {
        FinishLog log;
        ASSERT_EQ(fillRsvFinishLog(&log.rec, tbl.get(), "alice#0"), 0);
        EXPECT_EQ(log.rec.activeDuration, 1800);
    }
    clock_.set(start + 5 * 3600);
    {
        FinishLog log;
        ASSERT_EQ(fillRsvFinishLog(&log.rec, tbl.get(), "alice#0"), 0);
        EXPECT_EQ(log.rec.activeDuration, 3600);
    }
}

TEST_P(JobHooksTest, FailedHostArrayLeavesOnlyTheHostCount)
{
    addEntry(tbl.get(), "alice#0", oneOff(start, start + 3600), {{"hostA", 1}, {"hostB", 2}});
    RsvFinishLog rec{};
    daemon.failAfter(0);
    EXPECT_EQ(fillRsvFinishLog(&rec, tbl.get(), "alice#0"), -1);
    daemon.failAfter(-1);
    EXPECT_EQ(rec.numHosts, 2);
    EXPECT_EQ(rec.hosts, nullptr);
    EXPECT_EQ(rec.rsvId, nullptr);
    EXPECT_EQ(rec.name, nullptr);
    EXPECT_EQ(rec.timeWindow, nullptr);
}

// ------------------------------------------------------------ setJobRsvInActive

TEST(SetJobRsvInActive, NonZeroFlagSetsBit2AndZeroSetsBit1)
{
    FakeDaemon daemon;
    RsvJob *job = daemon.addJob(5, 0x4);
    job->rsvFlags = 0x8;
    setJobRsvInActive(5, 5);
    EXPECT_EQ(job->rsvFlags, 0x8 | 0x2);
    setJobRsvInActive(5, 0);
    EXPECT_EQ(job->rsvFlags, 0x8 | 0x2 | 0x1);
}

TEST(SetJobRsvInActive, UnknownJobOrNoJobServiceChangesNothing)
{
    FakeDaemon daemon;
    RsvJob *job = daemon.addJob(5, 0x4);
    setJobRsvInActive(6, 1);
    EXPECT_EQ(job->rsvFlags, 0);
    daemon.clearFindJob();
    setJobRsvInActive(5, 1);
    EXPECT_EQ(job->rsvFlags, 0);
}

// ------------------------------------------------------------ jobListRsvId_equal

TEST(JobListRsvIdEqual, FindsTheJobInAReservationsJobList)
{
    List *list = listCreate("jobs");
    std::vector<RsvJobEnt *> jobs;
    for (int64_t id : {int64_t{10}, int64_t{1} << 40, int64_t{30}}) {
        auto *j = static_cast<RsvJobEnt *>(calloc(1, sizeof(RsvJobEnt)));
        j->jobId = id;
        listInsertEntryAtBack(list, &j->links);
        jobs.push_back(j);
    }
    int64_t key = int64_t{1} << 40;
    EXPECT_EQ(listSearchEntry(list, &key, jobListRsvId_equal, 0), &jobs[1]->links);
    int64_t missing = 20;
    EXPECT_EQ(listSearchEntry(list, &missing, jobListRsvId_equal, 123), nullptr);
    EXPECT_EQ(jobListRsvId_equal(jobs[0], &missing, 0), 0);
    missing = 10;
    EXPECT_EQ(jobListRsvId_equal(jobs[0], &missing, 7), 1);
    EXPECT_EQ(jobListRsvId_equal(nullptr, &missing, 0), 0);
    listDestroy(list, [](void *e) { free(e); });
}
