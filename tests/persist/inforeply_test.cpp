#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace rsv {
extern void *(*infoReplyCalloc)(size_t count, size_t size);
}

namespace {

// Releases a reply at the end of a test, whatever happened.
struct ReplyGuard {
    RsvInfoReply reply{};
    ~ReplyGuard() { RsvInfoReply_destroy(&reply); }
};

class ScopedLogClass {
public:
    explicit ScopedLogClass(int bits) : old_(logclass) { logclass = bits; }
    ~ScopedLogClass() { logclass = old_; }

private:
    int old_;
};

struct Slot {
    const char *host;
    int slots;
    int extra1 = 0;
    int extra2 = 0;
};

// An entry put straight into the table (the reply reads only the table).
RsvEnt *addEntry(RsvTimeTbl *tbl, const std::string &id, const std::vector<Slot> &hosts,
                 const std::vector<int64_t> &jobs = {}, int options = 0, const char *window = "1000-2000")
{
    RsvEnt *ent = RsvEnt_new(options, "alice", window);
    ent->rsvId = strdup(id.c_str());
    ent->numHosts = static_cast<int>(hosts.size());
    if (!hosts.empty())
        ent->allocVector = static_cast<AllocElem *>(calloc(hosts.size(), sizeof(AllocElem)));
    for (size_t i = 0; i < hosts.size(); ++i) {
        ent->allocVector[i].hostName = strdup(hosts[i].host);
        ent->allocVector[i].numSlots = hosts[i].slots;
        ent->allocVector[i].extra1 = hosts[i].extra1;
        ent->allocVector[i].extra2 = hosts[i].extra2;
    }
    if (!jobs.empty()) {
        ent->jobList = listCreate("jobs");
        for (int64_t id : jobs) {
            auto *j = static_cast<RsvJobEnt *>(calloc(1, sizeof(RsvJobEnt)));
            j->jobId = id;
            listInsertEntryAtBack(ent->jobList, &j->links);
        }
        ent->numJobs = static_cast<int>(jobs.size());
    }
    h_addEnt_(&tbl->entries, ent->rsvId, nullptr)->value = ent;
    return ent;
}

void addDisabled(RsvEnt *ent, int firstDay, int lastDay)
{
    auto *rec = static_cast<RsvDisableDuration *>(calloc(1, sizeof(RsvDisableDuration)));
    rec->firstDay = tmDay{firstDay, 0, 11, 2030};
    rec->lastDay = tmDay{lastDay, 0, 11, 2030};
    ASSERT_EQ(addDurationToDisabledList(ent, rec), 0);
}

std::string dayText(int firstDay, int lastDay)
{
    tmDay first{firstDay, 0, 11, 2030};
    tmDay last{lastDay, 0, 11, 2030};
    char *text = nullptr;
    setCalendarDayDuration(&first, &last, &text);
    std::string result = text ? text : "";
    free(text);
    return result;
}

class InfoReplyTest : public ::testing::Test {
protected:
    InfoReplyTest() : tz_("UTC"), clock_(1900000000)
    {
        hostA = daemon.addHost("hostA", 8, 16);
        hostB = daemon.addHost("hostB", 4, 4);
        hostC = daemon.addHost("hostC", 2, 2);
        tbl.reset(RsvTimeTbl_new(nullptr));
    }

    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    rsv::Table tbl;
    RsvHost *hostA = nullptr;
    RsvHost *hostB = nullptr;
    RsvHost *hostC = nullptr;
};

} // namespace

TEST_F(InfoReplyTest, EmptyTableGivesNoReservations)
{
    ReplyGuard g;
    g.reply.numReservations = 7;
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    EXPECT_EQ(g.reply.numReservations, 0);
    EXPECT_EQ(g.reply.rsvInfo, nullptr);
}

TEST_F(InfoReplyTest, NullArgumentsAre52)
{
    ReplyGuard g;
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReply(nullptr, &g.reply), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), nullptr), RSV_ERR_BAD_ARGUMENT);
}

TEST_F(InfoReplyTest, CopiesEveryFieldOfTheEntry)
{
    RsvEnt *ent = addEntry(tbl.get(), "alice#3", {{"hostA", 3, 1, 1}, {"hostB", 2}}, {}, 0x1000 | 0x8);
    ent->description = strdup("weekly sync");
    free(ent->timeDuration);
    ent->timeDuration = strdup("Mon Jan  9 08:00:00 2006 - Mon Jan  9 17:00:00 2006");
    ent->state = RSV_STATE_ACTIVE;
    std::strcpy(ent->creator, "bob");

    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    ASSERT_EQ(g.reply.numReservations, 1);
    const RsvInfoEnt &info = g.reply.rsvInfo[0];
    EXPECT_EQ(info.options, 0x1000 | 0x8);
    EXPECT_STREQ(info.rsvId, "alice#3");
    EXPECT_NE(info.rsvId, ent->rsvId);
    EXPECT_STREQ(info.name, "alice");
    EXPECT_EQ(info.numHosts, 2);
    ASSERT_NE(info.hostInfo, nullptr);
    EXPECT_STREQ(info.hostInfo[0].hostName, "hostA");
    EXPECT_EQ(info.hostInfo[0].numCpus, 16);
    EXPECT_EQ(info.hostInfo[0].maxSlots, 8);
    EXPECT_EQ(info.hostInfo[0].numSlots, 3);
    EXPECT_EQ(info.hostInfo[0].numUsedSlots, 2);
    EXPECT_EQ(info.hostInfo[0].numJobsOnHost, 0);
    EXPECT_STREQ(info.hostInfo[1].hostName, "hostB");
    EXPECT_EQ(info.hostInfo[1].numCpus, 4);
    EXPECT_EQ(info.hostInfo[1].numUsedSlots, 0);
    EXPECT_STREQ(info.timeWindow, "1000-2000");
    EXPECT_EQ(info.numJobs, 0);
    EXPECT_EQ(info.jobIds, nullptr);
    EXPECT_EQ(info.jobStatus, nullptr);
    EXPECT_STREQ(info.description, "weekly sync");
    EXPECT_NE(info.description, ent->description);
    EXPECT_EQ(info.disabledDurations, nullptr);
    EXPECT_EQ(info.state, RSV_STATE_ACTIVE);
    EXPECT_STREQ(info.timeDuration, ent->timeDuration);
    EXPECT_STREQ(info.creator, "bob");
}

TEST_F(InfoReplyTest, EntryWithoutHostsOrDescriptionGivesNulls)
{
    addEntry(tbl.get(), "alice#0", {});
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    const RsvInfoEnt &info = g.reply.rsvInfo[0];
    EXPECT_EQ(info.numHosts, 0);
    EXPECT_EQ(info.hostInfo, nullptr);
    EXPECT_EQ(info.description, nullptr);
    EXPECT_STREQ(info.timeDuration, "");
    EXPECT_STREQ(info.creator, "");
}

TEST_F(InfoReplyTest, UnknownHostIsReportedAsLostAndFound)
{
    addEntry(tbl.get(), "alice#0", {{"gone", 2, 1, 0}, {"hostB", 1}});
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    const RsvHostInfo &hi = g.reply.rsvInfo[0].hostInfo[0];
    EXPECT_STREQ(hi.hostName, "lost_and_found");
    EXPECT_EQ(hi.numCpus, 0);
    EXPECT_EQ(hi.maxSlots, 0);
    EXPECT_EQ(hi.numSlots, 2);
    EXPECT_EQ(hi.numUsedSlots, 1);
}

TEST_F(InfoReplyTest, SharedIdentifierKeepsHostNamesAndReportsNoJobs)
{
    daemon.addJob(11, 0x4, {hostA});
    addEntry(tbl.get(), "alice#0@other", {{"gone", 2}, {"hostA", 1}}, {11, 12});
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    const RsvInfoEnt &info = g.reply.rsvInfo[0];
    EXPECT_STREQ(info.hostInfo[0].hostName, "gone");
    EXPECT_EQ(info.numJobs, 0);
    // The job arrays are still sized by the entry and filled.
    ASSERT_NE(info.jobIds, nullptr);
    ASSERT_NE(info.jobStatus, nullptr);
    EXPECT_EQ(info.jobIds[0], 11);
    EXPECT_EQ(info.jobIds[1], 12);
    EXPECT_EQ(info.jobStatus[0], 0x4);
    EXPECT_EQ(info.jobStatus[1], 0);
    EXPECT_EQ(info.hostInfo[1].numJobsOnHost, 1);
}

TEST_F(InfoReplyTest, JobsAreListedWithStatusAndCountedOnTheirHosts)
{
    daemon.addJob(1, 0x4, {hostA, hostB});  // running on two hosts of the reservation
    daemon.addJob(2, 0x1, {hostA});         // not running-like: listed, not counted
    daemon.addJob(3, 0x10, {hostC});        // running on a host outside the reservation
    daemon.addJob(4, 0x2 | 0x8, {hostB});
    addEntry(tbl.get(), "alice#0", {{"hostA", 2}, {"hostB", 2}}, {1, 2, 3, 4, 5});
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    const RsvInfoEnt &info = g.reply.rsvInfo[0];
    ASSERT_EQ(info.numJobs, 5);
    const std::vector<int64_t> ids(info.jobIds, info.jobIds + 5);
    const std::vector<int> status(info.jobStatus, info.jobStatus + 5);
    EXPECT_EQ(ids, (std::vector<int64_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(status, (std::vector<int>{0x4, 0x1, 0x10, 0xA, 0}));
    EXPECT_EQ(info.hostInfo[0].numJobsOnHost, 1);
    EXPECT_EQ(info.hostInfo[1].numJobsOnHost, 2);
}

TEST_F(InfoReplyTest, AJobOnAnUnknownHostOfTheReservationCountsNowhere)
{
    daemon.addJob(1, 0x4, {hostA});
    addEntry(tbl.get(), "alice#0", {{"gone", 2}, {"hostB", 2}}, {1});
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    EXPECT_EQ(g.reply.rsvInfo[0].hostInfo[0].numJobsOnHost, 0);
    EXPECT_EQ(g.reply.rsvInfo[0].hostInfo[1].numJobsOnHost, 0);
}

TEST_F(InfoReplyTest, WithoutAJobServiceJobsKeepStatus0)
{
    daemon.addJob(1, 0x4, {hostA});
    daemon.clearFindJob();
    addEntry(tbl.get(), "alice#0", {{"hostA", 2}}, {1});
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    EXPECT_EQ(g.reply.rsvInfo[0].jobIds[0], 1);
    EXPECT_EQ(g.reply.rsvInfo[0].jobStatus[0], 0);
    EXPECT_EQ(g.reply.rsvInfo[0].hostInfo[0].numJobsOnHost, 0);
}

TEST_F(InfoReplyTest, JobCountLargerThanTheListStopsAtTheListEnd)
{
    RsvEnt *ent = addEntry(tbl.get(), "alice#0", {{"hostA", 2}}, {7});
    ent->numJobs = 3;
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    EXPECT_EQ(g.reply.rsvInfo[0].numJobs, 3);
    EXPECT_EQ(g.reply.rsvInfo[0].jobIds[0], 7);
    EXPECT_EQ(g.reply.rsvInfo[0].jobIds[1], 0);
}

TEST_F(InfoReplyTest, DisabledDurationsBecomeANullTerminatedTextArray)
{
    RsvEnt *ent = addEntry(tbl.get(), "alice#0", {{"hostA", 2}}, {}, RSV_OPT_RECURRING, "8:0-17:0");
    addDisabled(ent, 1, 1);
    addDisabled(ent, 10, 12);
    addDisabled(ent, 20, 21);
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    char **texts = g.reply.rsvInfo[0].disabledDurations;
    ASSERT_NE(texts, nullptr);
    EXPECT_EQ(texts[0], dayText(1, 1));
    EXPECT_EQ(texts[1], dayText(10, 12));
    EXPECT_EQ(texts[2], dayText(20, 21));
    EXPECT_EQ(texts[3], nullptr);
    EXPECT_EQ(std::string(texts[0]), "Sun Dec 1 2030");
    EXPECT_EQ(std::string(texts[1]), "Tue Dec 10 2030 - Thu Dec 12 2030");
}

// Every allocation failing in turn: a reply that reports success holds every
// text its entry has, and a failed one is still released whole.
TEST_F(InfoReplyTest, EveryShortageIs55AndASuccessIsComplete)
{
    RsvEnt *ent = addEntry(tbl.get(), "alice#1", {{"hostB", 2}}, {}, RSV_OPT_RECURRING, "8:0-17:0");
    ent->description = strdup("text");
    addDisabled(ent, 1, 2);
    addDisabled(ent, 5, 6);
    for (int n = 0; n < 60; ++n) {
        daemon.failAfter(n);
        ReplyGuard g;
        const int result = RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply);
        daemon.failAfter(-1);
        if (result != RSV_OK) {
            EXPECT_EQ(result, RSV_ERR_NO_MEMORY) << "allocation " << n;
            continue;
        }
        const RsvInfoEnt &info = g.reply.rsvInfo[0];
        EXPECT_STREQ(info.rsvId, "alice#1");
        EXPECT_STREQ(info.timeWindow, "8:0-17:0");
        EXPECT_STREQ(info.description, "text");
        ASSERT_NE(info.disabledDurations, nullptr);
        EXPECT_NE(info.disabledDurations[0], nullptr);
        EXPECT_NE(info.disabledDurations[1], nullptr);
        EXPECT_EQ(info.disabledDurations[2], nullptr);
        return;
    }
    FAIL() << "never succeeded";
}

TEST_F(InfoReplyTest, FailedDisabledDurationArrayIs55AndThePartialReplyReleasesCleanly)
{
    addEntry(tbl.get(), "alice#0", {{"hostA", 2}});
    RsvEnt *ent = addEntry(tbl.get(), "alice#1", {{"hostB", 2}}, {}, RSV_OPT_RECURRING, "8:0-17:0");
    ent->description = strdup("text");
    addDisabled(ent, 1, 2);
    addEntry(tbl.get(), "alice#2", {{"hostC", 2}});
    LogCapture log;
    rsv::infoReplyCalloc = [](size_t, size_t) -> void * { return nullptr; };
    ReplyGuard g;
    const int result = RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply);
    rsv::infoReplyCalloc = std::calloc;
    EXPECT_EQ(result, RSV_ERR_NO_MEMORY);
    EXPECT_TRUE(log.contains(KX_LOG_ERR, "RsvTimeTbl_ToRsvInfoReply: calloc() failed."));
    ASSERT_EQ(g.reply.numReservations, 3);
    EXPECT_STREQ(g.reply.rsvInfo[0].creator, "");       // complete
    EXPECT_STREQ(g.reply.rsvInfo[1].timeWindow, "8:0-17:0");  // filled up to the array
    EXPECT_EQ(g.reply.rsvInfo[1].description, nullptr);
    EXPECT_EQ(g.reply.rsvInfo[1].creator, nullptr);
    EXPECT_EQ(g.reply.rsvInfo[2].rsvId, nullptr);  // untouched
}

TEST_F(InfoReplyTest, ReplyStaysValidAfterTheReservationsAreGone)
{
    daemon.addJob(1, 0x4, {hostA});
    RsvEnt *ent = addEntry(tbl.get(), "alice#0", {{"hostA", 2}}, {1}, RSV_OPT_RECURRING, "8:0-17:0");
    ent->description = strdup("text");
    addDisabled(ent, 1, 2);
    addEntry(tbl.get(), "alice#1", {{"hostB", 1}});
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    tbl.reset();  // every entry, text, vector and list released
    daemon.removeHost("hostA");
    ASSERT_EQ(g.reply.numReservations, 2);
    const RsvInfoEnt &info = g.reply.rsvInfo[0];
    EXPECT_STREQ(info.rsvId, "alice#0");
    EXPECT_STREQ(info.name, "alice");
    EXPECT_STREQ(info.hostInfo[0].hostName, "hostA");
    EXPECT_STREQ(info.timeWindow, "8:0-17:0");
    EXPECT_STREQ(info.description, "text");
    EXPECT_EQ(info.disabledDurations[0], dayText(1, 2));
    EXPECT_EQ(info.jobIds[0], 1);
    EXPECT_STREQ(g.reply.rsvInfo[1].hostInfo[0].hostName, "hostB");
}

TEST_F(InfoReplyTest, ThousandReservationsMatchTheTableFieldByField)
{
    for (int i = 0; i < 1000; ++i) {
        std::vector<int64_t> jobs;
        for (int j = 0; j < i % 4; ++j) {
            jobs.push_back(i * 10 + j);
            daemon.addJob(i * 10 + j, (j % 2) ? 0x4 : 0x1, {hostA});
        }
        RsvEnt *ent = addEntry(tbl.get(), "user" + std::to_string(i % 7) + "#" + std::to_string(i),
                               {{"hostA", 1 + i % 3, i % 2, 0}, {i % 5 ? "hostB" : "gone", 2}}, jobs, i & 0xFF);
        if (i % 3 == 0)
            ent->description = strdup(("d" + std::to_string(i)).c_str());
        ent->state = (i % 2) ? RSV_STATE_ACTIVE : RSV_STATE_INACTIVE;
    }
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    ASSERT_EQ(g.reply.numReservations, 1000);
    HashIter it;
    int k = 0;
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &it); he; he = h_nextEnt_(&it), ++k) {
        const RsvEnt *ent = static_cast<RsvEnt *>(he->value);
        const RsvInfoEnt &info = g.reply.rsvInfo[k];
        SCOPED_TRACE(he->key);
        EXPECT_STREQ(info.rsvId, he->key);
        EXPECT_EQ(info.options, ent->options);
        EXPECT_STREQ(info.name, ent->name);
        ASSERT_EQ(info.numHosts, ent->numHosts);
        for (int j = 0; j < info.numHosts; ++j) {
            const AllocElem &el = ent->allocVector[j];
            const bool known = std::strcmp(el.hostName, "gone") != 0;
            EXPECT_STREQ(info.hostInfo[j].hostName, known ? el.hostName : "lost_and_found");
            EXPECT_EQ(info.hostInfo[j].numSlots, el.numSlots);
            EXPECT_EQ(info.hostInfo[j].numUsedSlots, el.extra1 + el.extra2);
            EXPECT_EQ(info.hostInfo[j].numCpus, known ? daemon.host(el.hostName)->numCpus : 0);
        }
        int running = 0;
        ASSERT_EQ(info.numJobs, ent->numJobs);
        int i = 0;
        for (ListEntry *e = ent->jobList ? ent->jobList->forw : nullptr;
             e && e != reinterpret_cast<ListEntry *>(ent->jobList); e = e->forw, ++i) {
            const int64_t id = reinterpret_cast<RsvJobEnt *>(e)->jobId;
            EXPECT_EQ(info.jobIds[i], id);
            EXPECT_EQ(info.jobStatus[i], daemon.findJob(id)->status);
            running += (daemon.findJob(id)->status & 0x4) ? 1 : 0;
        }
        EXPECT_EQ(info.hostInfo[0].numJobsOnHost, running);
        EXPECT_STREQ(info.timeWindow, ent->timeWindow);
        if (ent->description)
            EXPECT_STREQ(info.description, ent->description);
        else
            EXPECT_EQ(info.description, nullptr);
        EXPECT_EQ(info.state, ent->state);
        EXPECT_STREQ(info.timeDuration, ent->timeDuration);
        EXPECT_STREQ(info.creator, ent->creator);
    }
    EXPECT_EQ(k, 1000);
}

TEST_F(InfoReplyTest, DestroyingTwiceIsHarmless)
{
    addEntry(tbl.get(), "alice#0", {{"hostA", 2}}, {1});
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    RsvInfoReply_destroy(&g.reply);
    EXPECT_EQ(g.reply.numReservations, 1);
    EXPECT_EQ(g.reply.rsvInfo, nullptr);
    RsvInfoReply_destroy(&g.reply);
    RsvInfoReply_destroy(nullptr);
    EXPECT_EQ(g.reply.rsvInfo, nullptr);
}

TEST_F(InfoReplyTest, EntDestroyClearsItsFieldsButLeavesTheJobArrays)
{
    addEntry(tbl.get(), "alice#0", {{"hostA", 2}}, {1});
    ReplyGuard g;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &g.reply), 0);
    RsvInfoEnt &info = g.reply.rsvInfo[0];
    RsvInfoEnt_destroy(&info);
    EXPECT_EQ(info.rsvId, nullptr);
    EXPECT_EQ(info.name, nullptr);
    EXPECT_EQ(info.hostInfo, nullptr);
    EXPECT_EQ(info.timeWindow, nullptr);
    EXPECT_EQ(info.timeDuration, nullptr);
    EXPECT_EQ(info.creator, nullptr);
    EXPECT_NE(info.jobIds, nullptr);
    EXPECT_NE(info.jobStatus, nullptr);
    RsvInfoEnt_destroy(&info);  // again: harmless
}

TEST_F(InfoReplyTest, EntDestroyOfNullIsLoggedUnderTheFileOrTraceClass)
{
    {
        ScopedLogClass lc(LC_FILE);
        LogCapture log;
        RsvInfoEnt_destroy(nullptr);
        EXPECT_TRUE(log.contains(KX_LOG_DEBUG, "RsvInfoEnt_destroy: input parameters are NULL"));
    }
    {
        ScopedLogClass lc(LC_RSV);
        LogCapture log;
        RsvInfoEnt_destroy(nullptr);
        EXPECT_TRUE(log.lines().empty());
    }
}

// ------------------------------------------------------------ RsvReq_ToString

namespace {

// Releases a packed reply at the end of a test, whatever happened.
struct PackedGuard {
    RsvInfoReply reply{};
    ~PackedGuard() { RsvInfoReply_destroyPacked(&reply); }
};

bool sameText(const char *a, const char *b)
{
    return (!a && !b) || (a && b && std::strcmp(a, b) == 0);
}

// Two replies of `tbl` hold the same values in every field.
::testing::AssertionResult sameReplies(RsvTimeTbl *tbl, const RsvInfoReply &a, const RsvInfoReply &b)
{
    if (a.numReservations != b.numReservations)
        return ::testing::AssertionFailure() << "reservation counts differ";
    for (int k = 0; k < a.numReservations; ++k) {
        const RsvInfoEnt &x = a.rsvInfo[k];
        const RsvInfoEnt &y = b.rsvInfo[k];
        auto fail = [&](const char *field) { return ::testing::AssertionFailure() << k << ": " << field; };
        if (x.options != y.options || !sameText(x.rsvId, y.rsvId) || !sameText(x.name, y.name))
            return fail("header");
        if (x.numHosts != y.numHosts || (x.hostInfo == nullptr) != (y.hostInfo == nullptr))
            return fail("hosts");
        for (int j = 0; j < x.numHosts && x.hostInfo; ++j) {
            const RsvHostInfo &p = x.hostInfo[j];
            const RsvHostInfo &q = y.hostInfo[j];
            if (!sameText(p.hostName, q.hostName) || p.numCpus != q.numCpus || p.maxSlots != q.maxSlots ||
                p.numSlots != q.numSlots || p.numUsedSlots != q.numUsedSlots || p.numJobsOnHost != q.numJobsOnHost)
                return fail("host");
        }
        if (!sameText(x.timeWindow, y.timeWindow) || !sameText(x.description, y.description) ||
            !sameText(x.timeDuration, y.timeDuration) || !sameText(x.creator, y.creator) || x.state != y.state)
            return fail("texts");
        if (x.numJobs != y.numJobs || (x.jobIds == nullptr) != (y.jobIds == nullptr) ||
            (x.jobStatus == nullptr) != (y.jobStatus == nullptr))
            return fail("jobs");
        // The job arrays hold the entry's jobs, also where numJobs reports 0.
        const int held = x.jobIds ? RsvTimeTbl_getEntry(tbl, x.rsvId)->numJobs : 0;
        for (int i = 0; i < held; ++i)
            if (x.jobIds[i] != y.jobIds[i] || x.jobStatus[i] != y.jobStatus[i])
                return fail("job");
        if ((x.disabledDurations == nullptr) != (y.disabledDurations == nullptr))
            return fail("disabled days");
        for (int i = 0; x.disabledDurations && (x.disabledDurations[i] || y.disabledDurations[i]); ++i)
            if (!sameText(x.disabledDurations[i], y.disabledDurations[i]))
                return fail("disabled day");
    }
    return ::testing::AssertionSuccess();
}

} // namespace

// The packed reply holds what the default reply holds, field by field: known
// and lost hosts, a shared identifier, jobs running or not, disabled days,
// missing and present texts.
TEST_F(InfoReplyTest, PackedReplyEqualsTheDefaultOne)
{
    daemon.addJob(1, 0x4, {hostA, hostB});
    daemon.addJob(2, 0x1, {hostA});
    daemon.addJob(11, 0x4, {hostA});
    RsvEnt *first = addEntry(tbl.get(), "alice#0", {{"hostA", 2, 1, 1}, {"hostB", 1}}, {1, 2, 3});
    first->description = strdup("first one");
    free(first->timeDuration);
    first->timeDuration = strdup("Mon 09:00 - Mon 10:00");
    std::strcpy(first->creator, "operator");
    addEntry(tbl.get(), "alice#0@other", {{"gone", 2}, {"hostA", 1}}, {11, 12});
    addEntry(tbl.get(), "bob#1", {{"gone", 3}});
    addEntry(tbl.get(), "bob#2", {});
    RsvEnt *recurring = addEntry(tbl.get(), "carol#0", {{"hostC", 1}}, {}, RSV_OPT_RECURRING, "8:0-17:0");
    addDisabled(recurring, 1, 1);
    addDisabled(recurring, 10, 12);
    ReplyGuard heap;
    PackedGuard packed;
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReply(tbl.get(), &heap.reply), 0);
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReplyPacked(tbl.get(), &packed.reply), 0);
    EXPECT_TRUE(sameReplies(tbl.get(), heap.reply, packed.reply));
    EXPECT_STREQ(packed.reply.rsvInfo[2].hostInfo[0].hostName, "lost_and_found");
    EXPECT_STREQ(packed.reply.rsvInfo[4].disabledDurations[1], "Tue Dec 10 2030 - Thu Dec 12 2030");
    EXPECT_EQ(packed.reply.rsvInfo[4].disabledDurations[2], nullptr);

    // Each reservation asked for alone gets the element the table's reply
    // holds for it.
    for (int k = 0; k < heap.reply.numReservations; ++k) {
        PackedGuard one;
        ASSERT_EQ(RsvTimeTbl_ToRsvInfoReplyOf(tbl.get(), heap.reply.rsvInfo[k].rsvId, &one.reply), 0);
        const RsvInfoReply single{1, &heap.reply.rsvInfo[k]};
        EXPECT_TRUE(sameReplies(tbl.get(), single, one.reply)) << heap.reply.rsvInfo[k].rsvId;
    }
}

TEST_F(InfoReplyTest, ReplyOfOneReservation)
{
    addEntry(tbl.get(), "alice#0", {{"hostA", 2}});
    addEntry(tbl.get(), "bob#0", {{"hostB", 1}});
    PackedGuard g;
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReplyOf(nullptr, "bob#0", &g.reply), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReplyOf(tbl.get(), nullptr, &g.reply), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReplyOf(tbl.get(), "bob#0", nullptr), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReplyOf(tbl.get(), "carol#0", &g.reply), RSV_ERR_NO_RSV);
    EXPECT_EQ(g.reply.numReservations, 0);
    EXPECT_EQ(g.reply.rsvInfo, nullptr);
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReplyOf(tbl.get(), "bob#0", &g.reply), 0);
    ASSERT_EQ(g.reply.numReservations, 1);
    EXPECT_STREQ(g.reply.rsvInfo[0].rsvId, "bob#0");
    EXPECT_STREQ(g.reply.rsvInfo[0].hostInfo[0].hostName, "hostB");

    // Out of memory: 55, and the reply is still released by one call.
    daemon.failAfter(0);
    PackedGuard starved;
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReplyOf(tbl.get(), "bob#0", &starved.reply), RSV_ERR_NO_MEMORY);
    daemon.failAfter(-1);
}

// The packed reply is one block: whatever allocation fails, the result is
// 55 or a complete reply, and either is released by one call.
TEST_F(InfoReplyTest, PackedReplyShortageIs55AndReleasesCleanly)
{
    RsvEnt *ent = addEntry(tbl.get(), "alice#1", {{"hostB", 2}}, {}, RSV_OPT_RECURRING, "8:0-17:0");
    ent->description = strdup("text");
    addDisabled(ent, 1, 2);
    int shortages = 0;
    for (int n = 0; n < 20; ++n) {
        daemon.failAfter(n);
        PackedGuard g;
        const int result = RsvTimeTbl_ToRsvInfoReplyPacked(tbl.get(), &g.reply);
        daemon.failAfter(-1);
        if (result != RSV_OK) {
            EXPECT_EQ(result, RSV_ERR_NO_MEMORY) << "allocation " << n;
            ++shortages;
            continue;
        }
        EXPECT_STREQ(g.reply.rsvInfo[0].description, "text");
        ASSERT_NE(g.reply.rsvInfo[0].disabledDurations, nullptr);
        EXPECT_EQ(g.reply.rsvInfo[0].disabledDurations[1], nullptr);
        EXPECT_GT(shortages, 0);
        return;
    }
    FAIL() << "never succeeded";
}

TEST_F(InfoReplyTest, PackedReplyOfAnEmptyTableAndReleasingTwice)
{
    RsvInfoReply reply{};
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReplyPacked(nullptr, &reply), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_ToRsvInfoReplyPacked(tbl.get(), &reply), 0);
    EXPECT_EQ(reply.numReservations, 0);
    EXPECT_EQ(reply.rsvInfo, nullptr);
    addEntry(tbl.get(), "alice#0", {{"hostA", 2}});
    ASSERT_EQ(RsvTimeTbl_ToRsvInfoReplyPacked(tbl.get(), &reply), 0);
    RsvInfoReply_destroyPacked(&reply);
    EXPECT_EQ(reply.rsvInfo, nullptr);
    EXPECT_EQ(reply.numReservations, 1);
    RsvInfoReply_destroyPacked(&reply);
    RsvInfoReply_destroyPacked(nullptr);
}

TEST(RsvReqToString, PrintsTheRequestOnOneLine)
{
    FakeDaemon daemon;
    OwnedReq r(0x8, "alice", 2, 4, {"hostA", "hostB"}, "8:0-17:0");
    EXPECT_STREQ(RsvReq_ToString(&r.req),
                 "options(8) name(alice) procRange(2, 4), askedHosts(2) timeWindow(8:0-17:0)");
}

TEST(RsvReqToString, TheBufferIsSharedAndOverwritten)
{
    FakeDaemon daemon;
    OwnedReq a(0, "a", 1, 1, {}, "1-2");
    OwnedReq b(0, "b", 1, 1, {}, "1-2");
    char *first = RsvReq_ToString(&a.req);
    char *second = RsvReq_ToString(&b.req);
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "options(0) name(b) procRange(1, 1), askedHosts(0) timeWindow(1-2)");
}

TEST(RsvReqToString, LongTextsAreCutAt1023Characters)
{
    FakeDaemon daemon;
    std::string name(3000, 'n');
    OwnedReq r(0, name, 1, 1, {}, "1-2");
    const char *text = RsvReq_ToString(&r.req);
    EXPECT_EQ(std::strlen(text), 1023U);
    EXPECT_EQ(std::string(text).rfind("options(0) name(nnn", 0), 0U);
}

TEST(RsvReqToString, NullTextsAreShownAsNull)
{
    FakeDaemon daemon;
    RsvReq req{};
    EXPECT_STREQ(RsvReq_ToString(&req), "options(0) name((null)) procRange(0, 0), askedHosts(0) timeWindow((null))");
    EXPECT_STREQ(RsvReq_ToString(nullptr), "");
}
