#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "rsv_test_support.h"

using namespace rsvtest;

namespace {

struct Slot {
    const char *host;
    int slots;
    int extra1 = 0;
    int extra2 = 0;
};

std::string entryText(const RsvEnt *ent)
{
    char *text = RsvEnt_ToString(ent);
    std::string result = text ? text : "<none>";
    free(text);
    return result;
}

// Everything a change may touch: the entry (as its record text), the planners
// and both files.
struct Snapshot {
    std::string entry;
    std::vector<int> cells;
    std::string stateFile;
    std::string idFile;
    bool operator==(const Snapshot &o) const
    {
        return entry == o.entry && cells == o.cells && stateFile == o.stateFile && idFile == o.idFile;
    }
};

std::ostream &operator<<(std::ostream &out, const Snapshot &s)
{
    return out << "entry <" << s.entry << "> cells " << s.cells.size() << " state <" << s.stateFile << ">";
}

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

private:
    HashTab tab_{};
    std::vector<int> marks_;
};

// Counts, or makes fail, the daemon's copies of one given text.
struct CopyFailure {
    static inline std::string text;
    static inline int failAt = -1;  // 1-based; -1 counts only
    static inline int seen = 0;
    static char *dup(const char *t)
    {
        if (t && text == t && ++seen == failAt)
            return nullptr;
        return FakeDaemon::dupString(t);
    }
    static void install(FakeDaemon &daemon, const std::string &t, int at)
    {
        text = t;
        failAt = at;
        seen = 0;
        daemon.services.dupString = &CopyFailure::dup;
        RsvMod_init(&daemon.services);
    }
    static void remove(FakeDaemon &daemon)
    {
        daemon.services.dupString = &FakeDaemon::dupString;
        RsvMod_init(&daemon.services);
    }
};

// The planners run in local time: every test runs in two zones.
class ChangesTest : public ::testing::TestWithParam<const char *> {
protected:
    ChangesTest() : tz_(GetParam()), clock_(0)
    {
        now = localTime(2023, 11, 14, 9, 0);  // a Tuesday
        clock_.set(now);
        for (const char *h : {"hostA", "hostB", "hostC", "hostD"}) {
            RsvHost *rec = daemon.addHost(h, 8, 8, std::string(h) == "hostA" ? std::vector<std::string>{"a1"}
                                                                               : std::vector<std::string>{});
            rec->status = 0;  // ordinary hosts: removed only when named
        }
        tbl.reset(RsvTimeTbl_new(stateFile().c_str()));
        for (const char *h : {"hostA", "hostB", "hostC", "hostD"})
            RsvTimeTbl_getPlannerList(tbl.get(), h);
        wedStart = localTime(2023, 11, 15, 10, 0);
        wedEnd = localTime(2023, 11, 15, 12, 0);
        window = oneOff(wedStart, wedEnd);
        RsvTime_toWeek(wedStart, &week);
    }

    std::string stateFile() const { return dir.file("rsv.state"); }

    // A reservation with exactly these hosts, booked as at start-up, and both
    // files rewritten.
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
        RsvTimeTbl_logStat(tbl.get());
        return ent;
    }

    Snapshot snapshot(const char *id)
    {
        RsvEnt *ent = RsvTimeTbl_getEntry(tbl.get(), id);
        return Snapshot{ent ? entryText(ent) : "", plannerCells(tbl.get()), readFile(stateFile()),
                        readFile(tbl->idFile)};
    }

    // Slots booked on `host` at `t` (a time of the test week).
    int bookedAt(const char *host, time_t t)
    {
        RsvWeek w{};
        RsvTime_toWeek(t, &w);
        ResPlanner *p = findPlanner(tbl.get(), host, w);
        if (!p)
            return 0;
        struct tm tm {};
        localtime_r(&t, &tm);
        return cell(p, tm.tm_wday, tm.tm_hour * 6 + tm.tm_min / 10);
    }

    // A fresh table reading the state file holds the same reservations and
    // the same planners.
    ::testing::AssertionResult restartReadsTheSame()
    {
        rsv::Table fresh(RsvTimeTbl_new(stateFile().c_str()));
        int rejected = -1;
        const int restored = RsvTimeTbl_load(fresh.get(), &rejected);
        if (restored != h_numEnts_(&tbl->entries) || rejected != 0)
            return ::testing::AssertionFailure() << "restored " << restored << " rejected " << rejected;
        HashIter it;
        for (HashEnt *he = h_firstEnt_(&tbl->entries, &it); he; he = h_nextEnt_(&it)) {
            RsvEnt *again = RsvTimeTbl_getEntry(fresh.get(), he->key);
            if (!again)
                return ::testing::AssertionFailure() << he->key << " missing after the restart";
            const std::string before = entryText(static_cast<RsvEnt *>(he->value));
            if (entryText(again) != before)
                return ::testing::AssertionFailure() << he->key << ": " << entryText(again) << " vs " << before;
        }
        auto forward = plannersEqual(tbl.get(), fresh.get());
        if (!forward)
            return forward;
        return plannersEqual(fresh.get(), tbl.get());
    }

    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    TempDir dir;
    rsv::Table tbl;
    time_t now = 0;
    time_t wedStart = 0;
    time_t wedEnd = 0;
    std::string window;
    RsvWeek week{};
};

INSTANTIATE_TEST_SUITE_P(Zones, ChangesTest, ::testing::Values("UTC", "America/New_York"));

} // namespace

// ------------------------------------------------------------ window moves

TEST_P(ChangesTest, MovingTheEndOfAnInactiveReservationRebooksAndLogs)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 1}});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, "null&+60");
    ASSERT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod), 0);
    const std::string expected = oneOff(wedStart, wedEnd + 3600);
    EXPECT_STREQ(ent->timeWindow, expected.c_str());
    EXPECT_EQ(ent->duration, 3 * 3600);
    EXPECT_TRUE(ent->options & RSV_MOD_TIMEWINDOW);
    EXPECT_STREQ(mod.mod.req.timeWindow, expected.c_str());  // the complete new window
    EXPECT_EQ(bookedAt("hostA", wedEnd + 600), 2);
    EXPECT_EQ(bookedAt("hostB", wedEnd + 600), 1);
    EXPECT_NE(readFile(stateFile()).find(expected), std::string::npos);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, MovingAReservationIntoTheNextWeekEmptiesTheOldWeek)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, "+10080&+10080");
    ASSERT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod), 0);
    EXPECT_STREQ(ent->timeWindow, oneOff(wedStart + 604800, wedEnd + 604800).c_str());
    EXPECT_EQ(bookedAt("hostA", wedStart), 0);
    EXPECT_EQ(bookedAt("hostA", wedStart + 604800), 2);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, ActiveReservationMayMoveItsEndButNotItsStart)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    clock_.set(wedStart + 1800);
    setRsvActive(tbl.get(), ent);
    const Snapshot before = snapshot("alice#0");
    OwnedModReq move("alice#0", 0, 0, 0, {}, "+10&null");
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &move.mod), RSV_ERR_START_OF_ACTIVE);
    EXPECT_EQ(qob_errno, RSV_ERR_START_OF_ACTIVE);
    EXPECT_STREQ(move.mod.req.timeWindow, "+10&null");
    EXPECT_EQ(snapshot("alice#0"), before);
    OwnedModReq past("alice#0", 0, 0, 0, {}, "null&" + std::to_string(wedStart + 600));
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &past.mod), RSV_ERR_END_INVALID);
    EXPECT_EQ(snapshot("alice#0"), before);
    OwnedModReq later("alice#0", 0, 0, 0, {}, "null&+30");
    ASSERT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &later.mod), 0);
    EXPECT_STREQ(ent->timeWindow, oneOff(wedStart, wedEnd + 1800).c_str());
    EXPECT_TRUE(isRsvActive(ent));
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, InactiveWindowChecksRefuseWithoutChangingAnything)
{
    book("alice#0", {{"hostA", 2}});
    const Snapshot before = snapshot("alice#0");
    struct Case {
        std::string text;
        int error;
    };
    for (const Case &c : {Case{"-1600&null", RSV_ERR_START_IN_PAST}, Case{"null&" + std::to_string(now - 60),
                                                                             RSV_ERR_END_INVALID},
                          Case{"null&-120", RSV_ERR_END_BEFORE_START}, Case{"garbage", RSV_ERR_BAD_TIME_WINDOW},
                          Case{"x&null", RSV_ERR_BAD_TIME_WINDOW}}) {
        OwnedModReq mod("alice#0", 0, 0, 0, {}, c.text);
        EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod), c.error) << c.text;
        EXPECT_EQ(qob_errno, c.error);
        EXPECT_EQ(mod.mod.req.timeWindow, c.text);
        EXPECT_EQ(snapshot("alice#0"), before) << c.text;
    }
}

TEST_P(ChangesTest, RecurringReservationWindowsAreRefusedByTheOneOffRules)
{
    // A daemon relies on the one-off rules being applied whatever the kind.
    RsvEnt *ent = book("bob#0", {{"hostA", 2}}, RSV_OPT_RECURRING, "8:0-17:0");
    const Snapshot before = snapshot("bob#0");
    OwnedModReq mod("bob#0", 0, 0, 0, {}, "null&18:0");
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod), RSV_ERR_BAD_TIME_WINDOW);
    ent->state = RSV_STATE_ACTIVE;
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod), RSV_ERR_BAD_TIME_WINDOW);
    ent->state = 0;
    EXPECT_EQ(snapshot("bob#0"), before);
}

TEST_P(ChangesTest, HostThatCannotHoldTheNewWindowIs190AndTheOldBookingIsBack)
{
    book("alice#0", {{"hostA", 2}, {"hostB", 1}, {"hostC", 1}});
    // hostB is full from 12:00 to 13:00.
    book("bob#0", {{"hostB", 8}}, 0, oneOff(wedEnd, wedEnd + 3600));
    const Snapshot before = snapshot("alice#0");
    OwnedModReq mod("alice#0", 0, 0, 0, {}, "null&+30");
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod), RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(snapshot("alice#0"), before);
    EXPECT_EQ(bookedAt("hostA", wedStart), 2);
    EXPECT_EQ(bookedAt("hostC", wedStart), 1);  // never released, not booked twice
    EXPECT_STREQ(mod.mod.req.timeWindow, "null&+30");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(ChangesTest, FailureOnTheFirstOrLastHostAlsoRestoresTheBooking)
{
    book("alice#0", {{"hostA", 2}, {"hostB", 1}, {"hostC", 1}});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, "null&+30");
    for (const char *full : {"hostA", "hostC"}) {
        std::string id = std::string("full#") + full;
        book(id.c_str(), {{full, 8}}, 0, oneOff(wedEnd, wedEnd + 3600));
        const Snapshot before = snapshot("alice#0");
        EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod), RSV_ERR_NOT_ENOUGH_SLOTS) << full;
        EXPECT_EQ(snapshot("alice#0"), before) << full;
        EXPECT_TRUE(plannersMatchRebooking(tbl.get())) << full;
        ASSERT_EQ(RsvTimeTbl_removeEntry(tbl.get(), id.c_str()), 0);
    }
}

TEST_P(ChangesTest, HostUnknownToTheDaemonIs23AndTheOldBookingIsBack)
{
    book("alice#0", {{"hostA", 2}, {"hostB", 1}});
    daemon.removeHost("hostB");
    const Snapshot before = snapshot("alice#0");
    OwnedModReq mod("alice#0", 0, 0, 0, {}, "null&+30");
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod), RSV_ERR_BAD_HOST);
    EXPECT_EQ(snapshot("alice#0"), before);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(ChangesTest, WindowOfAnUnknownReservationIs311AndNullIs52)
{
    OwnedModReq mod("nobody#0", 0, 0, 0, {}, "null&+30");
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod), RSV_ERR_NO_SUCH_RSV);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_SUCH_RSV);
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(nullptr, &mod.mod), RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), nullptr), RSV_ERR_BAD_ARGUMENT);
}

TEST_P(ChangesTest, NoMemoryForTheNewWindowIs55AndTheBookingMovesBack)
{
    book("alice#0", {{"hostA", 2}});
    book("alice#1", {{"hostB", 2}});
    const std::string newWindow = oneOff(wedStart, wedEnd + 1800);
    // Count the copies of the new window text that a successful move makes;
    // the last one is the entry's own.
    OwnedModReq twin("alice#1", 0, 0, 0, {}, "null&+30");
    CopyFailure::install(daemon, newWindow, -1);
    ASSERT_EQ(RsvTimeTbl_modifyTimeWindow(tbl.get(), &twin.mod), 0);
    CopyFailure::remove(daemon);
    const int copies = CopyFailure::seen;
    ASSERT_GE(copies, 2);

    // Each copy fails once, each time on a reservation of its own. Those
    // that the change depends on (the request's, the entry's) give 55 and
    // leave everything as it was; the first is the request's.
    int refused = 0;
    for (int at = 1; at <= copies; ++at) {
        const std::string id = "carol#" + std::to_string(at);
        book(id.c_str(), {{"hostC", 1}});
        const Snapshot before = snapshot(id.c_str());
        OwnedModReq mod(id, 0, 0, 0, {}, "null&+30");
        CopyFailure::install(daemon, newWindow, at);
        const int result = RsvTimeTbl_modifyTimeWindow(tbl.get(), &mod.mod);
        CopyFailure::remove(daemon);
        if (at == 1) {
            EXPECT_EQ(result, RSV_ERR_NO_MEMORY);
        }
        if (result == 0)
            continue;
        ++refused;
        EXPECT_EQ(result, RSV_ERR_NO_MEMORY) << at;
        EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY) << at;
        EXPECT_EQ(snapshot(id.c_str()), before) << at;
        EXPECT_STREQ(mod.mod.req.timeWindow, "null&+30") << at;
    }
    EXPECT_GE(refused, 2);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

// ------------------------------------------------------------ adding hosts

TEST_P(ChangesTest, AddingHostsBooksThemAndRewritesTheFiles)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    OwnedModReq mod("alice#0", 0, 3, 3, {"hostB"}, window);
    ASSERT_EQ(RsvTimeTbl_addHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_EQ(ent->numHosts, 2);
    EXPECT_EQ(bookedAt("hostB", wedStart), 3);
    EXPECT_NE(readFile(stateFile()).find("hostB"), std::string::npos);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, AddingSlotsOnAHostOfTheReservationSumsThem)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    OwnedModReq mod("alice#0", 0, 3, 3, {"a1"}, window);
    ASSERT_EQ(RsvTimeTbl_addHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_STREQ(mod.mod.req.askedHosts[0], "hostA");  // official name
    ASSERT_EQ(ent->numHosts, 1);
    EXPECT_EQ(ent->allocVector[0].numSlots, 5);
    EXPECT_EQ(bookedAt("hostA", wedStart), 5);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, AddingBooksOverTheReservationsWindowWhateverTheRequestSays)
{
    RsvEnt *ent = book("bob#0", {{"hostA", 2}}, RSV_OPT_RECURRING, "8:0-17:0");
    OwnedModReq mod("bob#0", 0, 1, 1, {"hostB"}, "");
    free(mod.mod.req.timeWindow);
    mod.mod.req.timeWindow = nullptr;
    ASSERT_EQ(RsvTimeTbl_addHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_EQ(ent->numHosts, 2);
    EXPECT_EQ(mod.mod.req.timeWindow, nullptr);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, AddingFailuresChangeNothing)
{
    book("alice#0", {{"hostA", 2}});
    const Snapshot before = snapshot("alice#0");
    OwnedModReq tooMany("alice#0", 0, 30, 30, {"hostB", "hostC"}, window);
    EXPECT_EQ(RsvTimeTbl_addHosts(tbl.get(), &tooMany.mod), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(snapshot("alice#0"), before);
    OwnedModReq unknown("nobody#0", 0, 1, 1, {"hostB"}, window);
    EXPECT_EQ(RsvTimeTbl_addHosts(tbl.get(), &unknown.mod), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_SUCH_RSV);
    EXPECT_EQ(RsvTimeTbl_addHosts(nullptr, &unknown.mod), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    daemon.failAfter(0);
    OwnedModReq noMemory("alice#0", 0, 1, 1, {"hostB"}, window);
    EXPECT_EQ(RsvTimeTbl_addHosts(tbl.get(), &noMemory.mod), -1);
    daemon.failAfter(-1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    EXPECT_EQ(snapshot("alice#0"), before);
}

// ------------------------------------------------------------ removing hosts

TEST_P(ChangesTest, RemovingProcessorsRewritesTheFiles)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}});
    OwnedModReq mod("alice#0", 0, 3, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_removeHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), 3);
    ASSERT_EQ(ent->numHosts, 1);
    EXPECT_EQ(readFile(stateFile()).find("hostA"), std::string::npos);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, RemovingANamedHostRewritesTheFiles)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}, {"hostB", 4}});
    HostSet hosts({"hostA"});
    OwnedModReq mod("alice#0", 0, 0, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_removeHosts(tbl.get(), &mod.mod, hosts.get(), RSV_RM_HOSTS), 2);
    ASSERT_EQ(ent->numHosts, 1);
    EXPECT_STREQ(ent->allocVector[0].hostName, "hostB");
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, RemovalFailuresChangeNothing)
{
    book("alice#0", {{"hostA", 2, 1, 0}, {"hostB", 4}});
    daemon.host("hostB")->attr = RSV_HOST_ATTR_MARKED;
    const Snapshot before = snapshot("alice#0");
    struct Case {
        std::vector<std::string> named;
        int flags;
        int min;
        int error;
    };
    for (const Case &c : {Case{{"hostA"}, RSV_RM_HOSTS, 0, RSV_ERR_HOST_IN_USE},
                          Case{{"hostC"}, RSV_RM_HOSTS, 0, RSV_ERR_HOST_NOT_IN_RSV},
                          Case{{}, RSV_RM_NUMPROCS, 9, RSV_ERR_NOT_ENOUGH_SLOTS},
                          Case{{"hostB"}, RSV_RM_HOSTS | RSV_RM_UNFLAGGED | RSV_RM_MARKED, 0,
                               RSV_ERR_NOTHING_LEFT},
                          Case{{}, RSV_RM_NUMPROCS, 6, RSV_ERR_HOST_IN_USE}}) {
        HostSet hosts(c.named);
        OwnedModReq mod("alice#0", 0, c.min, 0, {}, window);
        EXPECT_EQ(RsvTimeTbl_removeHosts(tbl.get(), &mod.mod, hosts.get(), c.flags), -1);
        EXPECT_EQ(qob_errno, c.error) << c.flags << " " << c.min;
        EXPECT_EQ(snapshot("alice#0"), before);
    }
    OwnedModReq unknown("nobody#0", 0, 1, 0, {}, window);
    EXPECT_EQ(RsvTimeTbl_removeHosts(tbl.get(), &unknown.mod, nullptr, RSV_RM_NUMPROCS), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_SUCH_RSV);
    EXPECT_EQ(snapshot("alice#0"), before);
}

// ------------------------------------------------------------ disabling days

TEST_P(ChangesTest, DisablingADayFreesItInDatedWeeksAndRewritesTheFiles)
{
    // A one-off in the week of Monday 20 November makes a dated planner.
    const time_t monday = localTime(2023, 11, 20, 10, 0);
    book("alice#0", {{"hostA", 1}}, 0, oneOff(monday, monday + 3600));
    RsvEnt *ent = book("bob#0", {{"hostA", 2}}, RSV_OPT_RECURRING, "8:0-17:0");
    EXPECT_EQ(bookedAt("hostA", monday), 3);
    ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "bob#0", "11:20"), 0) << qob_errno;
    ASSERT_NE(ent->disabledDurations, nullptr);
    EXPECT_EQ(ent->disabledDurations->numEnts, 1);
    EXPECT_EQ(bookedAt("hostA", monday), 1);
    EXPECT_EQ(bookedAt("hostA", monday + 86400), 2);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, DisablingFailuresChangeNothing)
{
    book("alice#0", {{"hostA", 1}});
    book("bob#0", {{"hostA", 2}}, RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "bob#0", "11:20-11:22"), 0);
    const Snapshot before = snapshot("bob#0");
    const Snapshot oneOffBefore = snapshot("alice#0");
    struct Case {
        const char *id;
        const char *text;
        int error;
    };
    for (const Case &c : {Case{"nobody#0", "11:20", RSV_ERR_NO_SUCH_RSV}, Case{"alice#0", "11:20", RSV_ERR_BAD_ARGUMENT},
                          Case{"bob#0", "2023:2:30", RSV_ERR_BAD_DATE}, Case{"bob#0", "11:13", RSV_ERR_DATE_IN_PAST},
                          Case{"bob#0", "11:21", RSV_ERR_DURATION_EXISTS}, Case{"bob#0", nullptr, RSV_ERR_NO_TEXT}}) {
        EXPECT_EQ(RsvTimeTbl_disableDays(tbl.get(), c.id, c.text), -1) << c.id << " " << (c.text ? c.text : "NULL");
        EXPECT_EQ(qob_errno, c.error) << (c.text ? c.text : "NULL");
        EXPECT_EQ(snapshot("bob#0"), before);
        EXPECT_EQ(snapshot("alice#0"), oneOffBefore);
    }
    EXPECT_EQ(RsvTimeTbl_disableDays(nullptr, "bob#0", "11:20"), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
}

TEST_P(ChangesTest, DisablingAListIsOneChange)
{
    book("bob#0", {{"hostA", 2}}, RSV_OPT_RECURRING, "8:0-17:0");
    const char *good[] = {"11:20", "11:22-11:23"};
    int failed = 7;
    ASSERT_EQ(RsvTimeTbl_disableDayList(tbl.get(), "bob#0", good, 2, &failed), 0) << qob_errno;
    EXPECT_EQ(failed, -1);
    EXPECT_EQ(RsvTimeTbl_getEntry(tbl.get(), "bob#0")->disabledDurations->numEnts, 2);
    const Snapshot before = snapshot("bob#0");
    // The second text is off already: the first is not disabled either.
    const char *bad[] = {"11:27", "11:22"};
    EXPECT_EQ(RsvTimeTbl_disableDayList(tbl.get(), "bob#0", bad, 2, &failed), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_DURATION_EXISTS);
    EXPECT_EQ(failed, 1);
    EXPECT_EQ(snapshot("bob#0"), before);
    EXPECT_EQ(RsvTimeTbl_disableDayList(tbl.get(), "bob#0", bad, 0, &failed), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
}

// ------------------------------------------------------------ enabling days

TEST_P(ChangesTest, EnablingADayBooksItAgain)
{
    const time_t monday = localTime(2023, 11, 20, 10, 0);
    book("alice#0", {{"hostA", 1}}, 0, oneOff(monday, monday + 3600));
    RsvEnt *ent = book("bob#0", {{"hostA", 2}}, RSV_OPT_RECURRING, "8:0-17:0");
    const char *off[] = {"11:20", "11:22-11:24"};
    ASSERT_EQ(RsvTimeTbl_disableDayList(tbl.get(), "bob#0", off, 2, nullptr), 0) << qob_errno;
    EXPECT_EQ(bookedAt("hostA", monday), 1);
    const char *on[] = {"11:20"};
    int failed = 7;
    ASSERT_EQ(RsvTimeTbl_enableDayList(tbl.get(), "bob#0", on, 1, &failed), 0) << qob_errno;
    EXPECT_EQ(failed, -1);
    EXPECT_EQ(bookedAt("hostA", monday), 3);
    ASSERT_NE(ent->disabledDurations, nullptr);
    EXPECT_EQ(ent->disabledDurations->numEnts, 1);
    // A day inside a duration cuts it in two.
    const char *middle[] = {"11:23"};
    ASSERT_EQ(RsvTimeTbl_enableDayList(tbl.get(), "bob#0", middle, 1, nullptr), 0) << qob_errno;
    ASSERT_EQ(ent->disabledDurations->numEnts, 2);
    const auto *first = reinterpret_cast<const RsvDisableDuration *>(ent->disabledDurations->forw);
    const auto *second = reinterpret_cast<const RsvDisableDuration *>(first->links.forw);
    EXPECT_EQ(first->firstDay.mday, 22);
    EXPECT_EQ(first->lastDay.mday, 22);
    EXPECT_EQ(second->firstDay.mday, 24);
    EXPECT_EQ(second->lastDay.mday, 24);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
    // A range over every day left enables them all: no durations remain.
    const char *all[] = {"11:21-11:25"};
    ASSERT_EQ(RsvTimeTbl_enableDayList(tbl.get(), "bob#0", all, 1, nullptr), 0) << qob_errno;
    EXPECT_EQ(ent->disabledDurations, nullptr);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, EnablingNeedsTheSlotsFree)
{
    const time_t monday = localTime(2023, 11, 20, 10, 0);
    book("bob#0", {{"hostA", 2}}, RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "bob#0", "11:20"), 0) << qob_errno;
    // While bob#0 is off, a one-off takes 7 of hostA's 8 slots on that day.
    book("carol#0", {{"hostA", 7}}, 0, oneOff(monday, monday + 3600));
    EXPECT_EQ(bookedAt("hostA", monday), 7);
    const Snapshot before = snapshot("bob#0");
    const char *on[] = {"11:20"};
    int failed = 7;
    EXPECT_EQ(RsvTimeTbl_enableDayList(tbl.get(), "bob#0", on, 1, &failed), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NOT_ENOUGH_SLOTS);
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(snapshot("bob#0"), before);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(ChangesTest, EnablingFailuresChangeNothing)
{
    book("alice#0", {{"hostA", 1}});
    book("bob#0", {{"hostA", 2}}, RSV_OPT_RECURRING, "8:0-17:0");
    ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "bob#0", "11:20"), 0);
    const Snapshot before = snapshot("bob#0");
    struct Case {
        const char *id;
        std::vector<const char *> texts;
        int error;
        int failedIndex;
    };
    for (const Case &c : {Case{"nobody#0", {"11:20"}, RSV_ERR_NO_SUCH_RSV, -1},
                          Case{"alice#0", {"11:20"}, RSV_ERR_BAD_ARGUMENT, -1},
                          Case{"bob#0", {"11:21"}, RSV_ERR_NOT_DISABLED, 0},
                          Case{"bob#0", {"2023:2:30"}, RSV_ERR_BAD_DATE, 0},
                          Case{"bob#0", {"11:13"}, RSV_ERR_DATE_IN_PAST, 0},
                          Case{"bob#0", {"11:20", "11:21"}, RSV_ERR_NOT_DISABLED, 1},
                          Case{"bob#0", {"11:20", nullptr}, RSV_ERR_NO_TEXT, 1}}) {
        int failed = 7;
        EXPECT_EQ(RsvTimeTbl_enableDayList(tbl.get(), c.id, c.texts.data(), static_cast<int>(c.texts.size()), &failed),
                  -1);
        EXPECT_EQ(qob_errno, c.error) << c.id << " " << c.texts.size();
        EXPECT_EQ(failed, c.failedIndex) << c.id << " " << c.texts.size();
        EXPECT_EQ(snapshot("bob#0"), before);
    }
    EXPECT_EQ(RsvTimeTbl_enableDayList(tbl.get(), "bob#0", nullptr, 1, nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    EXPECT_EQ(RsvTimeTbl_enableDayList(nullptr, "bob#0", nullptr, 1, nullptr), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
}

// ------------------------------------------------------------ description

TEST_P(ChangesTest, SettingTheDescriptionChangesOnlyItAndRewritesTheFiles)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}}, 0x1000 | RSV_MOD_TIMEWINDOW | RSV_MOD_NAME);
    ASSERT_EQ(RsvTimeTbl_setDescription(tbl.get(), "alice#0", "weekly sync"), 0);
    EXPECT_STREQ(ent->description, "weekly sync");
    EXPECT_EQ(ent->options, 0x1000 | RSV_MOD_TIMEWINDOW | RSV_MOD_NAME);
    EXPECT_NE(readFile(stateFile()).find("weekly sync"), std::string::npos);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(restartReadsTheSame());
    ASSERT_EQ(RsvTimeTbl_setDescription(tbl.get(), "alice#0", ""), 0);
    EXPECT_EQ(ent->description, nullptr);
    EXPECT_EQ(readFile(stateFile()).find("weekly sync"), std::string::npos);
    ASSERT_EQ(RsvTimeTbl_setDescription(tbl.get(), "alice#0", "again"), 0);
    ASSERT_EQ(RsvTimeTbl_setDescription(tbl.get(), "alice#0", nullptr), 0);
    EXPECT_EQ(ent->description, nullptr);
    EXPECT_TRUE(restartReadsTheSame());
}

TEST_P(ChangesTest, DescriptionFailuresChangeNothing)
{
    RsvEnt *ent = book("alice#0", {{"hostA", 2}});
    ent->description = strdup("old");
    RsvTimeTbl_logStat(tbl.get());
    const Snapshot before = snapshot("alice#0");
    EXPECT_EQ(RsvTimeTbl_setDescription(tbl.get(), "nobody#0", "x"), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_SUCH_RSV);
    EXPECT_EQ(RsvTimeTbl_setDescription(tbl.get(), nullptr, "x"), -1);
    EXPECT_EQ(qob_errno, RSV_ERR_BAD_ARGUMENT);
    daemon.failAfter(0);
    EXPECT_EQ(RsvTimeTbl_setDescription(tbl.get(), "alice#0", "new"), -1);
    daemon.failAfter(-1);
    EXPECT_EQ(qob_errno, RSV_ERR_NO_MEMORY);
    EXPECT_STREQ(ent->description, "old");
    EXPECT_EQ(snapshot("alice#0"), before);
}
