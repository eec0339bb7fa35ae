// Planners built when first needed: a lazy table and an eager one loaded from
// the same state file go through the same random changes and queries, and
// every result, every planner week and every cell must be the same.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <random>
#include <type_traits>
#include <string>
#include <vector>

#include "planner_test_util.h"
#include "rsv_test_support.h"

using namespace rsvtest;
using namespace plannertest;

namespace {

constexpr int kHosts = 8;
constexpr int kDays = RSV_PLANNER_DAYS;
constexpr int kSlots = RSV_PLANNER_SLOTS_PER_DAY;

std::string hostName(int h)
{
    return "node" + std::to_string(h);
}

struct TableDeleter {
    void operator()(RsvTimeTbl *tbl) const { RsvTimeTbl_free(tbl); }
};
using TablePtr = std::unique_ptr<RsvTimeTbl, TableDeleter>;

class LazyPlannersTest : public ::testing::Test {
protected:
    LazyPlannersTest() : tz_("Europe/Berlin"), clock_(localTime(2026, 3, 2, 9, 0)), rng_(20261124)
    {
        for (int h = 0; h < kHosts; ++h)
            daemon.addHost(hostName(h), 12)->status = 0; // removed only when named
        daemon.setMaxPerOwner(1000);
    }

    int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

    std::string owner() { return "user" + std::to_string(pick(0, 5)); }

    std::vector<std::string> someHosts()
    {
        std::vector<std::string> hosts;
        const int first = pick(0, kHosts - 1);
        const int n = pick(1, 3);
        for (int i = 0; i < n; ++i)
            hosts.push_back(hostName((first + i * 3) % kHosts));
        return hosts;
    }

    // A one-off window within the next six weeks (several cross a week end
    // and the clock change of 29 March), or a daily or weekly one.
    std::string window(bool recurring)
    {
        if (!recurring) {
            const time_t start = now() + static_cast<time_t>(pick(1, 6 * 7 * 24 * 6)) * 600;
            return oneOff(start, start + static_cast<time_t>(pick(1, 10 * 24 * 6)) * 600);
        }
        if (pick(0, 1) == 0) {
            const int from = pick(0, 23);
            return std::to_string(from) + ":0-" + std::to_string((from + pick(1, 6)) % 24) + ":30";
        }
        const int day = pick(1, 7);
        return std::to_string(day) + ":" + std::to_string(pick(0, 23)) + ":0-" + std::to_string(pick(1, 7)) + ":" +
               std::to_string(pick(0, 23)) + ":0";
    }

    time_t now() const { return localTime(2026, 3, 2, 9, 0); }

    // The identifiers of one of the tables, in table order.
    static std::vector<std::string> ids(RsvTimeTbl *tbl)
    {
        std::vector<std::string> out;
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter))
            out.push_back(he->key);
        return out;
    }

    std::string anyId(RsvTimeTbl *tbl)
    {
        const std::vector<std::string> all = ids(tbl);
        return all.empty() ? "nobody#0" : all[static_cast<size_t>(pick(0, static_cast<int>(all.size()) - 1))];
    }
    std::string anyId() { return anyId(eager.get()); }

    // Both tables get the same identifier: the counters of the owner and of
    // system reservations are set before each addition.
    std::string addTo(RsvTimeTbl *tbl, int options, const std::string &who, int minProcs, int maxProcs,
                      const std::vector<std::string> &hosts, const std::string &win)
    {
        for (const std::string &word : {who, std::string("system")})
            RsvId_setCur((word + "#" + std::to_string(counters[word])).c_str());
        OwnedReq req(options, who, minProcs, maxProcs, hosts, win);
        char *id = RsvTimeTbl_addEntry(tbl, &req.req);
        std::string out = id ? id : "refused " + std::to_string(qob_errno);
        std::free(id);
        return out;
    }

    void noteId(const std::string &id)
    {
        const size_t hash = id.find('#');
        if (hash != std::string::npos)
            counters[id.substr(0, hash)] = std::atoi(id.c_str() + hash + 1);
    }

    template <typename Op>
    void both(const char *what, Op op)
    {
        const auto a = op(eager.get());
        const auto b = op(lazy.get());
        ASSERT_EQ(a, b) << what << " at step " << step;
        // Changes return 0 when made; a removal of slots the slots removed.
        if constexpr (std::is_same_v<decltype(a), const int>)
            made[what] += std::string(what) == "remove slots" ? a > 0 : a == 0;
    }

    void randomStep()
    {
        switch (pick(0, 13)) {
        case 0:
        case 1: {
            const bool recurring = pick(0, 3) == 0;
            const int options = recurring ? RSV_OPT_RECURRING : (pick(0, 15) == 0 ? RSV_OPT_SYSTEM : 0);
            const std::string who = owner();
            const std::vector<std::string> hosts = someHosts();
            const std::string win = window(recurring);
            const int procs = pick(1, 20);
            const int most = procs + pick(0, 4);
            const std::string a = addTo(eager.get(), options, who, procs, most, hosts, win);
            const std::string b = addTo(lazy.get(), options, who, procs, most, hosts, win);
            ASSERT_EQ(a, b) << "add at step " << step;
            made["add"] += a.rfind("refused", 0) != 0;
            noteId(a);
            break;
        }
        case 2:
            both("remove", [&, id = anyId()](RsvTimeTbl *t) { return RsvTimeTbl_removeEntry(t, id.c_str()); });
            break;
        case 3: {
            const std::string id = anyId();
            const std::string change = "null&+" + std::to_string(pick(10, 600));
            both("move", [&](RsvTimeTbl *t) {
                OwnedModReq mod(id, 0, 0, 0, {}, change);
                return RsvTimeTbl_modifyTimeWindow(t, &mod.mod);
            });
            break;
        }
        case 4: {
            const std::string id = anyId();
            const std::vector<std::string> hosts = someHosts();
            const int procs = pick(1, 6);
            both("add hosts", [&](RsvTimeTbl *t) {
                OwnedModReq mod(id, 0, procs, procs, hosts, "");
                return RsvTimeTbl_addHosts(t, &mod.mod);
            });
            break;
        }
        case 5: {
            // Mostly one host of a reservation that holds several.
            std::vector<std::string> several;
            for (const std::string &held : ids(eager.get()))
                if (RsvTimeTbl_getEntry(eager.get(), held.c_str())->numHosts > 1)
                    several.push_back(held);
            std::string id = anyId();
            std::vector<std::string> hosts = someHosts();
            if (!several.empty() && pick(0, 3) != 0) {
                id = several[static_cast<size_t>(pick(0, static_cast<int>(several.size()) - 1))];
                const RsvEnt *ent = RsvTimeTbl_getEntry(eager.get(), id.c_str());
                hosts = {ent->allocVector[pick(0, ent->numHosts - 1)].hostName};
            }
            both("remove hosts", [&](RsvTimeTbl *t) {
                RequestedHosts named(hosts);
                OwnedModReq mod(id, 0, 0, 0, {}, "");
                return RsvTimeTbl_removeHosts(t, &mod.mod, named.get(), RSV_RM_HOSTS);
            });
            break;
        }
        case 6: {
            const std::string id = anyId();
            const int procs = pick(1, 4);
            both("remove slots", [&](RsvTimeTbl *t) {
                OwnedModReq mod(id, 0, procs, 0, {}, "");
                return RsvTimeTbl_removeHosts(t, &mod.mod, nullptr, RSV_RM_NUMPROCS);
            });
            break;
        }
        case 7: {
            const std::string id = anyId();
            const std::string days = std::to_string(pick(3, 4)) + ":" + std::to_string(pick(3, 28));
            both("disable days", [&](RsvTimeTbl *t) { return RsvTimeTbl_disableDays(t, id.c_str(), days.c_str()); });
            break;
        }
        case 8: {
            const std::string id = anyId();
            const bool on = pick(0, 1);
            both("activation", [&](RsvTimeTbl *t) {
                RsvEnt *ent = RsvTimeTbl_getEntry(t, id.c_str());
                return on ? RsvTimeTbl_activate(t, ent) : RsvTimeTbl_deactivate(t, ent);
            });
            break;
        }
        case 9: {
            const std::string host = hostName(pick(0, kHosts - 1));
            const bool recurring = pick(0, 2) == 0;
            const std::string win = window(recurring);
            both("availability", [&](RsvTimeTbl *t) {
                return Rsv_getMaxAvailonHost(t, host.c_str(), win.c_str(), recurring, nullptr);
            });
            both("free slots", [&](RsvTimeTbl *t) {
                return RsvTimeTbl_freeSlots(t, host.c_str(), win.c_str(), recurring, nullptr);
            });
            break;
        }
        case 10: {
            const std::vector<std::string> hosts = someHosts();
            const std::string win = window(false);
            both("reservable", [&](RsvTimeTbl *t) {
                OwnedReq req(0, "probe", 0, 100, hosts, win);
                ResAlloc *out = nullptr;
                const int total = RsvTimeTbl_getReservableAlloc(t, &req.req, &out, nullptr);
                std::vector<int> slots{total};
                for (int i = 0; out && i < req.req.numAskedHosts; ++i)
                    slots.push_back(out[i].numSlots);
                std::free(out);
                return slots;
            });
            break;
        }
        case 11: {
            const std::vector<std::string> hosts = someHosts();
            const bool recurring = pick(0, 1);
            const int procs = pick(1, 30);
            const int minutes = pick(1, 48) * 30;
            both("earliest", [&](RsvTimeTbl *t) {
                OwnedReq req(recurring ? RSV_OPT_RECURRING : 0, "probe", procs, procs, hosts, "");
                RsvFit fit{};
                const int rc = recurring ? RsvTimeTbl_findEarliestRecurring(t, &req.req, RSV_FIT_WEEKLY, minutes,
                                                                            nullptr, &fit)
                                         : RsvTimeTbl_findEarliest(t, &req.req, now(), now() + 21 * 86400, minutes,
                                                                   nullptr, &fit);
                std::string out = std::to_string(rc) + " " + std::to_string(fit.found) + " " +
                                  std::to_string(fit.start) + " " + std::to_string(fit.bestTotal) + " " +
                                  std::to_string(fit.bestStart);
                RsvFit_destroy(&fit);
                return out;
            });
            break;
        }
        case 12: {
            // The daemon reconfigured: a host's slot limit changed.
            daemon.host(hostName(pick(0, kHosts - 1)))->maxSlots = pick(8, 16);
            RsvTimeTbl_checkEntries(eager.get());
            RsvTimeTbl_checkEntries(lazy.get());
            break;
        }
        default: {
            const std::string host = hostName(pick(0, kHosts - 1));
            both("peak", [&](RsvTimeTbl *t) {
                RsvCell at{};
                const int peak = RsvTimeTbl_peakBooked(t, host.c_str(), nullptr, &at);
                return std::vector<int>{peak, at.day, at.slot, at.booked, at.week.startDay, at.week.startMonth};
            });
            break;
        }
        }
    }

    void writeStart();

    // Every host's weeks, and every cell of each of them and of a few weeks
    // without a planner, read through the public calls; the hosts from
    // `first` on, so that another host is built first.
    void expectSameCells(int first = 0)
    {
        for (int h = 0; h < kHosts; ++h) {
            const std::string host = hostName((first + h) % kHosts);
            RsvWeek *weeksA = nullptr;
            RsvWeek *weeksB = nullptr;
            const int numA = RsvTimeTbl_plannerWeeks(eager.get(), host.c_str(), &weeksA);
            const int numB = RsvTimeTbl_plannerWeeks(lazy.get(), host.c_str(), &weeksB);
            ASSERT_EQ(numA, numB) << host;
            std::vector<RsvWeek> weeks;
            for (int i = 0; i < numA; ++i) {
                EXPECT_TRUE(RsvWeek_equal(&weeksA[i], &weeksB[i])) << host << " week " << i;
                weeks.push_back(weeksA[i]);
            }
            std::free(weeksA);
            std::free(weeksB);
            for (int extra = 0; extra < 8; ++extra)
                weeks.push_back(weekOf(now() + static_cast<time_t>(extra) * 7 * 86400));
            for (const RsvWeek &week : weeks) {
                static int cellsA[kDays][kSlots];
                static int cellsB[kDays][kSlots];
                ASSERT_EQ(RsvTimeTbl_hostWeekCells(eager.get(), host.c_str(), &week, cellsA), 0);
                ASSERT_EQ(RsvTimeTbl_hostWeekCells(lazy.get(), host.c_str(), &week, cellsB), 0);
                for (int d = 0; d < kDays; ++d)
                    for (int s = 0; s < kSlots; ++s)
                        ASSERT_EQ(cellsA[d][s], cellsB[d][s])
                            << host << " week of " << week.startYear << "-" << week.startMonth + 1 << "-"
                            << week.startDay << " day " << d << " slot " << s << " at step " << step;
            }
        }
    }

    ScopedTz tz_;
    PinnedClock clock_;
    FakeDaemon daemon;
    LogCapture log_;
    TempDir dir;
    std::mt19937 rng_;
    std::map<std::string, int> counters;
    std::map<std::string, int> made;
    TablePtr eager;
    TablePtr lazy;
    int step = 0;
};

// The table written by random additions that both tables load.
void LazyPlannersTest::writeStart()
{
    // The start: a table written by additions, loaded into both tables.
    {
        TablePtr source(RsvTimeTbl_new(dir.file("source.state").c_str()));
        for (int i = 0; i < 100; ++i) {
            const bool recurring = pick(0, 3) == 0;
            const std::vector<std::string> hosts = someHosts();
            const int procs = pick(2, 18);
            OwnedReq req(recurring ? RSV_OPT_RECURRING : 0, owner(), procs, procs, hosts, window(recurring));
            std::free(RsvTimeTbl_addEntry(source.get(), &req.req));
        }
        ASSERT_GT(h_numEnts_(&source->entries), 40);
        // Disabled days on some recurring reservations (one-off ones refuse).
        int disabled = 0;
        for (const std::string &id : ids(source.get()))
            disabled += RsvTimeTbl_disableDays(source.get(), id.c_str(), pick(0, 1) ? "3:10" : "3:24") == 0;
        EXPECT_GT(disabled, 1);
        writeFile(dir.file("eager.state"), stateFileText(source.get()));
        writeFile(dir.file("lazy.state"), stateFileText(source.get()));
    }
}

TEST_F(LazyPlannersTest, RandomChangesAndQueriesGiveTheSameResultsAndCells)
{
    writeStart();
    if (HasFatalFailure())
        return;
    for (int i = 0; i < 6; ++i)
        counters["user" + std::to_string(i)] = 900;
    eager.reset(RsvTimeTbl_new(dir.file("eager.state").c_str()));
    lazy.reset(RsvTimeTbl_new(dir.file("lazy.state").c_str()));
    ASSERT_EQ(RsvTimeTbl_setLazyPlanners(lazy.get(), 1), 0);
    EXPECT_EQ(RsvTimeTbl_isLazyPlanners(lazy.get()), 1);
    EXPECT_EQ(RsvTimeTbl_isLazyPlanners(eager.get()), 0);
    const int loaded = RsvTimeTbl_load(eager.get(), nullptr);
    ASSERT_GT(loaded, 40);
    ASSERT_EQ(RsvTimeTbl_load(lazy.get(), nullptr), loaded);
    // Loading built nothing.
    EXPECT_EQ(h_numEnts_(&lazy->plannerLists), 0);
    EXPECT_TRUE(tableVerifies(lazy.get()));

    for (step = 0; step < 400; ++step) {
        randomStep();
        if (HasFatalFailure())
            return;
        ASSERT_EQ(stateFileText(eager.get()), stateFileText(lazy.get())) << "at step " << step;
        if (step % 50 == 49) {
            ASSERT_TRUE(tableVerifies(eager.get())) << "at step " << step;
            ASSERT_TRUE(tableVerifies(lazy.get())) << "at step " << step;
            expectSameCells();
        }
    }
    expectSameCells();
    EXPECT_TRUE(tableVerifies(lazy.get()));
    // The walk went through changes of every kind (removals of named hosts
    // are mostly refused here, identically in both tables).
    for (const char *what : {"add", "remove", "move", "add hosts", "remove slots", "disable days", "activation"})
        EXPECT_GE(made[what], 2) << what;
    // Back to eager: every host built, planners equal in both directions.
    EXPECT_EQ(RsvTimeTbl_setLazyPlanners(lazy.get(), 0), 1);
    EXPECT_EQ(RsvTimeTbl_isLazyPlanners(lazy.get()), 0);
    EXPECT_EQ(h_numEnts_(&lazy->plannerLists), h_numEnts_(&eager->plannerLists));
    EXPECT_TRUE(plannersEqual(eager.get(), lazy.get()));
    EXPECT_TRUE(plannersEqual(lazy.get(), eager.get()));
    EXPECT_TRUE(tableVerifies(lazy.get()));
}

// The first hosts a lazy table builds gather their own shares alone, the
// later ones all hosts' shares at once: each host built first, straight
// after the load and after changes, has the eager table's planners.
TEST_F(LazyPlannersTest, HostsBuiltFirstMatchTheEagerTable)
{
    writeStart();
    if (HasFatalFailure())
        return;
    for (int first = 0; first < kHosts; first += 3) {
        eager.reset(RsvTimeTbl_new(dir.file("eager.state").c_str()));
        lazy.reset(RsvTimeTbl_new(dir.file("lazy.state").c_str()));
        ASSERT_EQ(RsvTimeTbl_setLazyPlanners(lazy.get(), 1), 0);
        const int loaded = RsvTimeTbl_load(eager.get(), nullptr);
        ASSERT_GT(loaded, 40);
        ASSERT_EQ(RsvTimeTbl_load(lazy.get(), nullptr), loaded);
        expectSameCells(first);
        if (HasFatalFailure())
            return;
        EXPECT_TRUE(plannersEqual(eager.get(), lazy.get())) << "first host " << first;
    }
    for (int first = 1; first < kHosts; first += 3) {
        lazy.reset(RsvTimeTbl_new(dir.file("lazy.state").c_str()));
        eager.reset(RsvTimeTbl_new(dir.file("eager.state").c_str()));
        ASSERT_EQ(RsvTimeTbl_setLazyPlanners(lazy.get(), 1), 0);
        ASSERT_GT(RsvTimeTbl_load(eager.get(), nullptr), 40);
        ASSERT_GT(RsvTimeTbl_load(lazy.get(), nullptr), 40);
        for (int i = 0; i < 6; ++i)
            counters["user" + std::to_string(i)] = 900 + 100 * first;
        for (step = 0; step < 12; ++step) {
            randomStep();
            if (HasFatalFailure())
                return;
        }
        ASSERT_EQ(stateFileText(eager.get()), stateFileText(lazy.get())) << "first host " << first;
        expectSameCells(first);
        if (HasFatalFailure())
            return;
        EXPECT_TRUE(tableVerifies(lazy.get())) << "first host " << first;
    }
}

} // namespace
