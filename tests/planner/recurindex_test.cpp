// The recurring index: a new dated planner gets exactly the recurring
// bookings a walk of every reservation gives, whatever was added, removed,
// replaced, restored, grown, shrunk or disabled before, and the index is made
// again only when an entry leaves the table or changes in place.
#include "rsv_test_support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "planner/planner_internal.h"
#include "planner_test_util.h"


using namespace rsvtest;
using plannertest::addAndBook;
using plannertest::Booking;
using plannertest::makeEntry;

namespace {

using HostSet = rsvtest::RequestedHosts;

constexpr int kCapacity = 64;
const std::vector<std::string> kHosts = {"hostA", "hostB", "hostC", "hostD", "hostE"};
// Nothing but system reservations ask for this host.
const std::string kSystemHost = "hostS";

// Every test leaves the index on and able to build, whatever it did.
struct IndexSwitches {
    ~IndexSwitches()
    {
        rsv::setRecurringIndexBuildFails(false);
        rsv::setRecurringIndexEnabled(true);
    }
};

std::vector<int> cellsOf(const ResPlanner *p)
{
    std::vector<int> out;
    out.reserve(RSV_PLANNER_DAYS * RSV_PLANNER_SLOTS_PER_DAY);
    for (int d = 0; d < RSV_PLANNER_DAYS; ++d)
        for (int s = 0; s < RSV_PLANNER_SLOTS_PER_DAY; ++s)
            out.push_back(p->slots[d][s].reserved);
    return out;
}

int bookedCells(const std::vector<int> &cells)
{
    int n = 0;
    for (int c : cells)
        n += c != 0;
    return n;
}

// The cells of a new planner of `host` for `week` after ResPlanner_addRecurs,
// with the index on or off.
std::vector<int> recurringCells(RsvTimeTbl *tbl, const std::string &host, const RsvWeek &week, bool useIndex)
{
    const bool was = rsv::recurringIndexEnabled();
    rsv::setRecurringIndexEnabled(useIndex);
    ResPlanner *p = ResPlanner_new(host.c_str(), &week);
    ResPlanner_addRecurs(p, tbl, host.c_str());
    std::vector<int> cells = cellsOf(p);
    ResPlanner_destroy(p);
    rsv::setRecurringIndexEnabled(was);
    return cells;
}

// The index gives what the walk gives for every host and each of `weeks`,
// the hosts taken from `firstHost` on (a share found out of date makes the
// index again, which would hide a missing share of a host asked later).
::testing::AssertionResult indexMatchesWalk(RsvTimeTbl *tbl, const std::vector<RsvWeek> &weeks, size_t firstHost = 0)
{
    std::vector<std::string> hosts = kHosts;
    hosts.push_back(kSystemHost);
    for (size_t h = 0; h < hosts.size(); ++h) {
        const std::string &host = hosts[(firstHost + h) % hosts.size()];
        for (const RsvWeek &week : weeks) {
            const std::vector<int> indexed = recurringCells(tbl, host, week, true);
            const std::vector<int> walked = recurringCells(tbl, host, week, false);
            if (indexed != walked)
                return ::testing::AssertionFailure()
                       << "host " << host << " week " << week.startYear << "-" << week.startMonth << "-"
                       << week.startDay << ": index books " << bookedCells(indexed) << " cells, walk "
                       << bookedCells(walked);
        }
    }
    return ::testing::AssertionSuccess();
}

RsvWeek weekAt(time_t t)
{
    RsvWeek w{};
    RsvTime_toWeek(t, &w);
    return w;
}

// The planners run in local time: every test runs in two zones.
class RecurIndexTest : public ::testing::TestWithParam<const char *> {
protected:
    RecurIndexTest() : tz_(GetParam()), clock_(0)
    {
        clock_.set(localTime(2026, 2, 2, 9, 0)); // a Monday
        for (const std::string &h : kHosts)
            daemon.addHost(h, kCapacity)->status = 0;
        daemon.addHost(kSystemHost, kCapacity)->status = 0;
        daemon.setMaxPerOwner(1000000);
        tbl.reset(RsvTimeTbl_new(dir.file("rsv.state").c_str()));
        // The week of Wednesday 11 February and one two years on, which no
        // reservation of these tests reaches.
        nearWeek = weekAt(localTime(2026, 2, 11, 12, 0));
        farWeek = weekAt(localTime(2028, 3, 8, 12, 0));
    }

    std::string farWindow() const
    {
        return oneOff(localTime(2028, 3, 5, 0, 0), localTime(2028, 3, 11, 23, 59));
    }

    // A reservation restored as at start-up.
    RsvEnt *restore(const std::string &id, int options, const std::string &window, const std::vector<Booking> &hosts)
    {
        RsvEnt *ent = makeEntry(id, options, window, hosts);
        RsvTimeTbl_restoreEntry(tbl.get(), ent);
        return ent;
    }

    // Free slots of `host` over the far week.
    int farAvail(const std::string &host)
    {
        return Rsv_getMaxAvailonHost(tbl.get(), host.c_str(), farWindow().c_str(), 0, nullptr);
    }

    IndexSwitches switches_;
    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    TempDir dir;
    rsv::Table tbl;
    RsvWeek nearWeek{};
    RsvWeek farWeek{};
};

INSTANTIATE_TEST_SUITE_P(Zones, RecurIndexTest, ::testing::Values("UTC", "America/New_York"));

// ------------------------------------------------------------ randomized

// Results of the queries a daemon makes, for comparing index on and off.
struct QueryResult {
    int total = 0;
    std::vector<int> slots;
    bool operator==(const QueryResult &o) const { return total == o.total && slots == o.slots; }
};

class RandomHistory {
public:
    RandomHistory(RsvTimeTbl *tbl, unsigned seed) : tbl_(tbl), rng_(seed) {}

    int pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }
    const std::string &someHost() { return kHosts[pick(static_cast<int>(kHosts.size()))]; }

    // A one-off window of 1 to 6 hours starting within the next eight weeks.
    std::string oneOffWindow()
    {
        const time_t start = localTime(2026, 2, 2, 10, 0) + static_cast<time_t>(pick(8 * 7 * 24)) * 3600 +
                             static_cast<time_t>(pick(6)) * 600;
        return oneOff(start, start + 3600 * (1 + pick(6)));
    }
    std::string dailyWindow()
    {
        const int from = pick(24);
        const int to = pick(24); // may wrap past midnight
        return std::to_string(from) + ":" + std::to_string(pick(6) * 10) + "-" + std::to_string(to) + ":" +
               std::to_string(pick(6) * 10);
    }
    std::string weeklyWindow()
    {
        const int d1 = pick(7) + 1;
        const int d2 = pick(7) + 1; // may run past Saturday
        return std::to_string(d1) + ":" + std::to_string(pick(24)) + ":0-" + std::to_string(d2) + ":" +
               std::to_string(pick(24)) + ":30";
    }
    std::vector<std::string> someHosts()
    {
        std::vector<std::string> hosts;
        const int n = 1 + pick(3);
        for (int i = 0; i < n; ++i)
            hosts.push_back(someHost());
        return hosts;
    }

    std::vector<RsvEnt *> entries()
    {
        std::vector<RsvEnt *> out;
        HashIter it;
        for (HashEnt *he = h_firstEnt_(&tbl_->entries, &it); he; he = h_nextEnt_(&it))
            out.push_back(static_cast<RsvEnt *>(he->value));
        return out;
    }
    RsvEnt *someEntry(bool recurringOnly = false)
    {
        std::vector<RsvEnt *> all = entries();
        std::vector<RsvEnt *> chosen;
        for (RsvEnt *e : all)
            if (!recurringOnly || (e->options & RSV_OPT_RECURRING))
                chosen.push_back(e);
        return chosen.empty() ? nullptr : chosen[pick(static_cast<int>(chosen.size()))];
    }

    void add(int options, const std::string &window, const std::vector<std::string> &hosts)
    {
        OwnedReq req(options, "user" + std::to_string(pick(4)), 1 + pick(4), 2 + pick(6), hosts, window);
        rsv::Text id(RsvTimeTbl_addEntry(tbl_, &req.req));
        // Refusals (no slots left) are part of the history too.
        if (id)
            ++done[(options & RSV_OPT_SYSTEM) ? "system added" : (options ? "recurring added" : "one-off added")]; // refusals (no slots left) are part of the history too
    }

    void restore()
    {
        // Now and then a second record of a reservation already in the table.
        RsvEnt *earlier = pick(4) == 0 ? someEntry() : nullptr;
        const std::string id = earlier ? earlier->rsvId : "rest#" + std::to_string(restored_++);
        const int options = pick(2) ? RSV_OPT_RECURRING : 0;
        const std::string window = options ? (pick(2) ? dailyWindow() : weeklyWindow()) : oneOffWindow();
        std::vector<Booking> hosts;
        for (const std::string &h : someHosts())
            hosts.push_back({h, 1 + pick(2)});
        RsvEnt *ent = makeEntry(id, options, window, hosts);
        // The owner of a record is the one whose counter made its number.
        std::free(ent->name);
        ent->name = strdup(earlier ? earlier->name : "rest");
        // A second record sets the counter of its identifier's word back to
        // its number (the last record restored wins); a start-up keeps the
        // first record instead, so the counter is put back as it was.
        const std::string word = id.substr(0, id.find('#'));
        const int counter = counterOf(word);
        RsvTimeTbl_restoreEntry(tbl_, ent);
        if (earlier && counter >= 0)
            RsvId_setCur((word + "#" + std::to_string(counter)).c_str());
        ++done[earlier ? "restored again" : "restored"];
    }

    // The identifier counter of `owner`, or -1 when it has none.
    static int counterOf(const std::string &owner)
    {
        HashEnt *he = rsvIdTbl ? h_getEnt_(rsvIdTbl, owner.c_str()) : nullptr;
        return he ? static_cast<int>(reinterpret_cast<intptr_t>(he->value)) : -1;
    }

    void replace()
    {
        RsvEnt *old = someEntry();
        if (!old)
            return;
        const std::string id = old->rsvId;
        const int options = pick(2) ? RSV_OPT_RECURRING : 0;
        const std::string window = options ? dailyWindow() : oneOffWindow();
        RsvEnt *ent = makeEntry(id, options, window, {{someHost(), 1 + pick(2)}});
        std::free(ent->name);
        ent->name = strdup(old->name);
        // The caller of RsvTimeTbl_replaceEntry keeps the bookings in step.
        Rsv_dealloc(tbl_, old);
        ASSERT_EQ(RsvTimeTbl_replaceEntry(tbl_, id.c_str(), ent), 0);
        const AllocElem &el = ent->allocVector[0];
        ResPlannerList_map(RsvTimeTbl_getPlannerList(tbl_, el.hostName), tbl_, el.hostName, ent->timeWindow,
                           ent->options & RSV_OPT_RECURRING, ResPlannerEnt_incr, el.numSlots, 1, ent);
        ++done["replaced"];
    }

    void addHosts()
    {
        RsvEnt *ent = someEntry(pick(2) == 0);
        if (!ent)
            return;
        OwnedModReq mod(ent->rsvId, ent->options & RSV_OPT_RECURRING, 1, 1 + pick(3), {someHost()}, ent->timeWindow);
        if (RsvTimeTbl_modEntrywithAddHosts(tbl_, &mod.mod) == 0)
            ++done[(ent->options & RSV_OPT_RECURRING) ? "recurring grown" : "one-off grown"];
    }

    void removeHosts()
    {
        RsvEnt *ent = someEntry();
        if (!ent || !ent->allocVector || ent->numHosts == 0)
            return;
        const std::string window = ent->timeWindow;
        if (pick(3) == 0) {
            OwnedModReq mod(ent->rsvId, 0, 1, 0, {}, window);
            if (RsvTimeTbl_modEntryWithRmHosts(tbl_, &mod.mod, nullptr, RSV_RM_NUMPROCS) > 0)
                ++done["processors removed"];
            return;
        }
        const bool recurring = (ent->options & RSV_OPT_RECURRING) != 0;
        HostSet hosts({ent->allocVector[pick(ent->numHosts)].hostName});
        OwnedModReq mod(ent->rsvId, 0, 0, 0, {}, window);
        if (RsvTimeTbl_modEntryWithRmHosts(tbl_, &mod.mod, hosts.get(), RSV_RM_HOSTS) > 0)
            ++done[recurring ? "recurring host removed" : "one-off host removed"];
    }

    void disableDays()
    {
        RsvEnt *ent = someEntry(true);
        if (!ent)
            return;
        const time_t day = localTime(2026, 2, 3 + pick(50), 12, 0);
        struct tm tm {};
        localtime_r(&day, &tm);
        char text[32];
        if (pick(3) == 0) {
            const time_t last = day + 86400 * (1 + pick(3));
            struct tm tmLast {};
            localtime_r(&last, &tmLast);
            std::snprintf(text, sizeof text, "%d:%d-%d:%d", tm.tm_mon + 1, tm.tm_mday, tmLast.tm_mon + 1,
                          tmLast.tm_mday);
        } else {
            std::snprintf(text, sizeof text, "%d:%d", tm.tm_mon + 1, tm.tm_mday);
        }
        if (RsvTimeTbl_disableDays(tbl_, ent->rsvId, text) == 0)
            ++done["days disabled"];
    }

    void remove()
    {
        RsvEnt *ent = someEntry();
        if (!ent)
            return;
        const std::string id = ent->rsvId;
        EXPECT_EQ(RsvTimeTbl_removeEntry(tbl_, id.c_str()), 0);
        ++done["removed"];
    }

    // A query on a week no planner covers, and a reservable-slot query of
    // several hosts, both with the index on and off.
    QueryResult query(bool useIndex)
    {
        rsv::setRecurringIndexEnabled(useIndex);
        QueryResult r;
        const time_t start = localTime(2027, 1, 3, 0, 0) + static_cast<time_t>(queryWeek_) * 7 * 86400;
        const std::string window = oneOff(start, start + 7 * 86400 - 60);
        for (const std::string &h : kHosts)
            r.slots.push_back(Rsv_getMaxAvailonHost(tbl_, h.c_str(), window.c_str(), 0, nullptr));
        OwnedReq req(0, "query", 0, 0, kHosts, window);
        ResAlloc *out = nullptr;
        r.total = RsvTimeTbl_getReservableAlloc(tbl_, &req.req, &out, nullptr);
        for (int i = 0; out && i < req.req.numAskedHosts; ++i)
            r.slots.push_back(out[i].numSlots);
        std::free(out);
        rsv::setRecurringIndexEnabled(true);
        return r;
    }

    void step()
    {
        const int op = pick(100);
        if (op < 18)
            add(0, oneOffWindow(), someHosts());
        else if (op < 27)
            add(RSV_OPT_RECURRING, dailyWindow(), someHosts());
        else if (op < 36)
            add(RSV_OPT_RECURRING, weeklyWindow(), someHosts());
        else if (op < 39)
            add(RSV_OPT_SYSTEM | (pick(2) ? RSV_OPT_RECURRING : 0), pick(2) ? dailyWindow() : oneOffWindow(),
                {kSystemHost});
        else if (op < 49)
            remove();
        else if (op < 59)
            restore();
        else if (op < 66)
            replace();
        else if (op < 74)
            addHosts();
        else if (op < 82)
            removeHosts();
        else if (op < 90)
            disableDays();
        else
            queryWeek_ = pick(200);
    }

    // How often each kind of change went through.
    std::map<std::string, int> done;

private:
    RsvTimeTbl *tbl_;
    std::mt19937 rng_;
    int restored_ = 0;
    int queryWeek_ = 0;
};

} // namespace

TEST_P(RecurIndexTest, RandomHistoryGivesWhatTheWalkGivesAfterEveryStep)
{
    RandomHistory history(tbl.get(), 20260202u);
    const unsigned long rebuildsBefore = rsv::recurringIndexRebuilds();
    const std::vector<RsvWeek> weeks = {nearWeek, weekAt(localTime(2026, 3, 4, 12, 0)), farWeek};
    constexpr int kSteps = 300;
    for (int i = 0; i < kSteps; ++i) {
        history.step();
        ASSERT_TRUE(tableVerifies(tbl.get())) << "after step " << i;
        ASSERT_TRUE(indexMatchesWalk(tbl.get(), weeks, static_cast<size_t>(i))) << "after step " << i;
        const QueryResult indexed = history.query(true);
        const QueryResult walked = history.query(false);
        ASSERT_TRUE(indexed == walked) << "after step " << i;
        ASSERT_TRUE(tableVerifies(tbl.get())) << "after the queries of step " << i;
    }
    // The history holds recurring reservations and the index served it.
    int recurring = 0;
    for (RsvEnt *e : history.entries())
        recurring += (e->options & RSV_OPT_RECURRING) != 0;
    EXPECT_GT(recurring, 5);
    EXPECT_GT(rsv::recurringIndexRebuilds(), rebuildsBefore);
    // Every kind of change happened.
    for (const char *kind : {"one-off added", "recurring added", "system added", "removed", "restored",
                             "restored again", "replaced", "recurring grown", "one-off grown", "recurring host removed",
                             "processors removed", "days disabled"})
        EXPECT_GE(history.done[kind], 1) << kind;
}

// ------------------------------------------------------------ additions

TEST_P(RecurIndexTest, AddedReservationsAreTakenInWithoutMakingTheIndexAgain)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    restore("r#1", RSV_OPT_RECURRING, "9:0-11:0", {{"hostA", 3}});
    restore("r#2", RSV_OPT_RECURRING, "2:9:0-3:11:0", {{"hostB", 1}, {"hostA", 4}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 9);
    EXPECT_EQ(farAvail("hostB"), kCapacity - 1);
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
}

TEST_P(RecurIndexTest, StartUpOfManyReservationsMakesTheIndexOnce)
{
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    for (int i = 0; i < 200; ++i) {
        const std::string host = kHosts[i % kHosts.size()];
        if (i % 4 == 0) {
            restore("r#" + std::to_string(i), RSV_OPT_RECURRING, std::to_string(i % 20) + ":0-" +
                    std::to_string(i % 20 + 1) + ":0", {{host, 1}});
        } else {
            // Each one-off in a week of its own: every restore makes a planner.
            const time_t start = localTime(2026, 2, 4, 10, 0) + static_cast<time_t>(i) * 7 * 86400;
            restore("o#" + std::to_string(i), 0, oneOff(start, start + 3600), {{host, 1}});
        }
    }
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds + 1);
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
}

TEST_P(RecurIndexTest, SharesKeepTheTableOrderThenTheElementOrder)
{
    // Two elements of one entry on one host, and an entry whose share is its
    // second element: each is booked, in the walk's order.
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}, {"hostA", 5}});
    restore("r#1", RSV_OPT_RECURRING, "9:0-11:0", {{"hostB", 1}, {"hostA", 3}});
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {farWeek}));
    const std::vector<int> cells = recurringCells(tbl.get(), "hostA", farWeek, true);
    EXPECT_EQ(cells[8 * 6], 7);       // Sunday 08:00: both elements of r#0
    EXPECT_EQ(cells[9 * 6], 10);      // Sunday 09:00: r#0 and r#1
    EXPECT_EQ(cells[10 * 6 + 1], 3);  // Sunday 10:10: r#1 alone
}

TEST_P(RecurIndexTest, OneOffReservationsAreNeverBookedIntoANewWeek)
{
    restore("o#0", 0, oneOff(localTime(2026, 2, 11, 8, 0), localTime(2026, 2, 11, 9, 0)), {{"hostA", 4}});
    EXPECT_EQ(bookedCells(recurringCells(tbl.get(), "hostA", farWeek, true)), 0);
    EXPECT_EQ(farAvail("hostA"), kCapacity);
}

TEST_P(RecurIndexTest, AnEntryWithoutARecordAtTheEndIsLeftToTheWalk)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    // A key made but not yet given its record, then a reservation after it.
    HashEnt *pending = h_addEnt_(&tbl->entries, "pending#0", nullptr);
    ASSERT_NE(pending, nullptr);
    RsvEnt *later = makeEntry("r#1", RSV_OPT_RECURRING, "9:0-11:0", {{"hostA", 3}});
    plannertest::addOnly(tbl.get(), later);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {farWeek}));
    EXPECT_EQ(farAvail("hostA"), kCapacity - 5);
    // Once the record is there, both are taken in.
    RsvEnt *ent = makeEntry("pending#0", RSV_OPT_RECURRING, "9:30-10:30", {{"hostA", 1}});
    pending->value = ent;
    EXPECT_EQ(farAvail("hostA"), kCapacity - 6);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {farWeek}));
}

// ------------------------------------------------------------ what makes it again

TEST_P(RecurIndexTest, RemovingAReservationMakesTheIndexAgain)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    restore("r#1", RSV_OPT_RECURRING, "9:0-11:0", {{"hostA", 3}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 5);
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    ASSERT_EQ(RsvTimeTbl_removeEntry(tbl.get(), "r#0"), 0);
    EXPECT_EQ(farAvail("hostA"), kCapacity - 3);
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds + 1);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {farWeek}));
}

TEST_P(RecurIndexTest, ReplacingAnEntryMakesTheIndexAgain)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    RsvEnt *old = RsvTimeTbl_getEntry(tbl.get(), "r#0");
    Rsv_dealloc(tbl.get(), old);
    RsvEnt *ent = makeEntry("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostB", 4}});
    ASSERT_EQ(RsvTimeTbl_replaceEntry(tbl.get(), "r#0", ent), 0);
    EXPECT_EQ(farAvail("hostA"), kCapacity);
    EXPECT_EQ(farAvail("hostB"), kCapacity - 4);
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds + 1);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {farWeek}));
}

TEST_P(RecurIndexTest, ASecondRecordOfARestoredReservationReplacesTheFirstInTheIndex)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    restore("r#1", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 1}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 3);
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostB", 5}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 1);
    EXPECT_EQ(farAvail("hostB"), kCapacity - 5);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(RecurIndexTest, AddingAHostToARecurringReservationReachesNewPlannersOfThatHost)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    EXPECT_EQ(farAvail("hostB"), kCapacity);
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    OwnedModReq mod("r#0", RSV_OPT_RECURRING, 3, 3, {"hostB"}, "8:0-10:0");
    ASSERT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_EQ(farAvail("hostB"), kCapacity - 3);
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    EXPECT_GT(rsv::recurringIndexRebuilds(), rebuilds);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(RecurIndexTest, AddingSlotsOnAHostAlreadyHeldCountsTheNewTotal)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    OwnedModReq mod("r#0", RSV_OPT_RECURRING, 3, 3, {"hostA"}, "8:0-10:0");
    ASSERT_EQ(RsvTimeTbl_modEntrywithAddHosts(tbl.get(), &mod.mod), 0) << qob_errno;
    EXPECT_EQ(farAvail("hostA"), kCapacity - 5);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
}

TEST_P(RecurIndexTest, RemovingAHostFromARecurringReservationLeavesNewPlannersOfThatHostFree)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}, {"hostB", 4}});
    EXPECT_EQ(farAvail("hostB"), kCapacity - 4);
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    HostSet hosts({"hostB"});
    OwnedModReq mod("r#0", 0, 0, 0, {}, "8:0-10:0");
    ASSERT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, hosts.get(), RSV_RM_HOSTS), 4);
    EXPECT_EQ(farAvail("hostB"), kCapacity);
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds + 1);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
}

TEST_P(RecurIndexTest, RemovingProcessorsIsSeenByNewPlanners)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}, {"hostB", 4}});
    EXPECT_EQ(farAvail("hostB"), kCapacity - 4);
    OwnedModReq mod("r#0", 0, 5, 0, {}, "8:0-10:0");
    ASSERT_EQ(RsvTimeTbl_modEntryWithRmHosts(tbl.get(), &mod.mod, nullptr, RSV_RM_NUMPROCS), 5);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
    EXPECT_TRUE(plannersMatchRebooking(tbl.get()));
    EXPECT_EQ(farAvail("hostA") + farAvail("hostB"), 2 * kCapacity - 1);
}

// ------------------------------------------------------------ read at booking time

TEST_P(RecurIndexTest, SlotCountsWindowsAndDisabledDaysAreReadWhenBooking)
{
    RsvEnt *ent = restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();

    ent->allocVector[0].numSlots = 6; // a count read from the entry itself
    EXPECT_EQ(bookedCells(recurringCells(tbl.get(), "hostA", farWeek, true)), 7 * 12);
    EXPECT_EQ(recurringCells(tbl.get(), "hostA", farWeek, true)[8 * 6], 6);

    // A window changed in the entry (as a modification applies it): the
    // new window is booked.
    ent->allocVector[0].numSlots = 2;
    OwnedModReq move("r#0", RSV_MOD_TIMEWINDOW, 0, 0, {}, "12:0-14:0");
    RsvEnt_updateWithMod(ent, &move.mod);
    ASSERT_STREQ(ent->timeWindow, "12:0-14:0");
    const std::vector<int> cells = recurringCells(tbl.get(), "hostA", farWeek, true);
    EXPECT_EQ(cells[8 * 6], 0);
    EXPECT_EQ(cells[12 * 6], 2);

    // A disabled day of the near week is left free in its new planners.
    ASSERT_EQ(RsvTimeTbl_disableDays(tbl.get(), "r#0", "2:11"), 0) << qob_errno;
    const std::vector<int> near = recurringCells(tbl.get(), "hostA", nearWeek, true);
    EXPECT_EQ(near[3 * RSV_PLANNER_SLOTS_PER_DAY + 12 * 6], 0);
    EXPECT_EQ(near[4 * RSV_PLANNER_SLOTS_PER_DAY + 12 * 6], 2);
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
}

TEST_P(RecurIndexTest, AShareNoLongerMatchingItsEntryIsNotUsed)
{
    RsvEnt *ent = restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    // Changed behind the module's back: the old host's share no longer
    // names it, so the walk answers.
    ent->allocVector[0].hostName[4] = 'Z';
    EXPECT_EQ(bookedCells(recurringCells(tbl.get(), "hostA", farWeek, true)), 0);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {farWeek}));
    // Changed back, as a module call would: announced.
    ent->allocVector[0].hostName[4] = 'A';
    rsv::noteRecurringChange();
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {farWeek}));
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
}

// ------------------------------------------------------------ no memory, switch, tables

TEST_P(RecurIndexTest, WithoutMemoryForTheIndexTheWalkGivesTheSameResult)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    rsv::setRecurringIndexBuildFails(true);
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    restore("r#1", RSV_OPT_RECURRING, "9:0-11:0", {{"hostA", 3}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 5);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds);
    rsv::setRecurringIndexBuildFails(false);
    EXPECT_EQ(farAvail("hostA"), kCapacity - 5);
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds + 1);
}

TEST_P(RecurIndexTest, RunningOutOfMemoryWhileTakingInAdditionsStartsAfresh)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    restore("r#1", RSV_OPT_RECURRING, "9:0-11:0", {{"hostA", 3}, {"hostB", 1}});
    rsv::setRecurringIndexBuildFails(true);
    EXPECT_EQ(farAvail("hostA"), kCapacity - 5);
    rsv::setRecurringIndexBuildFails(false);
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    EXPECT_EQ(farAvail("hostA"), kCapacity - 5);
    EXPECT_EQ(farAvail("hostB"), kCapacity - 1);
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds + 1);
}

TEST_P(RecurIndexTest, WithTheIndexSwitchedOffNothingIsIndexed)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    rsv::setRecurringIndexEnabled(false);
    const unsigned long rebuilds = rsv::recurringIndexRebuilds();
    EXPECT_EQ(farAvail("hostA"), kCapacity - 2);
    EXPECT_EQ(rsv::recurringIndexRebuilds(), rebuilds);
}

TEST_P(RecurIndexTest, ATemporaryCopyHasAnIndexOfItsOwn)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}, {"hostB", 1}});
    restore("r#1", RSV_OPT_RECURRING, "9:0-11:0", {{"hostA", 3}});
    EXPECT_EQ(farAvail("hostA"), kCapacity - 5);
    for (int round = 0; round < 3; ++round) {
        RsvTimeTbl *tmp = RsvTimeTbl_new(nullptr);
        ASSERT_EQ(Rsv_dupTimeTbl4CurrRsv(tbl.get(), RsvTimeTbl_getEntry(tbl.get(), "r#0"), tmp), 0);
        // Only the copied reservation is in the temporary table.
        EXPECT_EQ(Rsv_getMaxAvailonHost(tmp, "hostA", farWindow().c_str(), 0, nullptr), kCapacity - 2);
        EXPECT_EQ(Rsv_getMaxAvailonHost(tmp, "hostB", farWindow().c_str(), 0, nullptr), kCapacity - 1);
        EXPECT_TRUE(indexMatchesWalk(tmp, {nearWeek, farWeek}));
        RsvTimeTbl_freeTmpTable(tmp);
    }
    EXPECT_EQ(farAvail("hostA"), kCapacity - 5);
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
}

TEST_P(RecurIndexTest, ATableMadeAfterAnotherIsFreedStartsWithAnIndexOfItsOwn)
{
    for (int round = 0; round < 3; ++round) {
        rsv::Table other(RsvTimeTbl_new(nullptr));
        RsvEnt *ent = makeEntry("r#" + std::to_string(round), RSV_OPT_RECURRING, "8:0-10:0", {{"hostC", 1 + round}});
        RsvTimeTbl_restoreEntry(other.get(), ent);
        EXPECT_EQ(Rsv_getMaxAvailonHost(other.get(), "hostC", farWindow().c_str(), 0, nullptr),
                  kCapacity - 1 - round);
    }
}

TEST_P(RecurIndexTest, BookingsWhileTheIndexIsInUseKeepThePlannersInStep)
{
    restore("r#0", RSV_OPT_RECURRING, "8:0-10:0", {{"hostA", 2}});
    for (int i = 0; i < 5; ++i) {
        OwnedReq req(i % 2 ? RSV_OPT_RECURRING : 0, "alice", 1, 2, {"hostA", "hostB"},
                     i % 2 ? "9:0-9:30" : oneOff(localTime(2026, 3, 4 + 7 * i, 8, 0), localTime(2026, 3, 4 + 7 * i, 9, 0)));
        rsv::Text id(RsvTimeTbl_addEntry(tbl.get(), &req.req));
        ASSERT_NE(id, nullptr) << qob_errno;
        ASSERT_TRUE(plannersMatchRebooking(tbl.get()));
    }
    EXPECT_TRUE(indexMatchesWalk(tbl.get(), {nearWeek, farWeek}));
}
