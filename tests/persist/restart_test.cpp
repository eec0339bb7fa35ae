// A reservation survives a restart: everything added through the table is
// written, and a fresh table loading the files gets back the same entries,
// planners and identifier counters.
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "persist_test_util.h"
#include "rsv_test_support.h"


using namespace rsvtest;
using namespace persisttest;

namespace {

std::map<std::string, int> counters()
{
    std::map<std::string, int> out;
    if (!rsvIdTbl)
        return out;
    HashIter iter;
    for (HashEnt *he = h_firstEnt_(rsvIdTbl, &iter); he; he = h_nextEnt_(&iter))
        out[he->key] = static_cast<int>(reinterpret_cast<intptr_t>(he->value));
    return out;
}

std::string takeId(char *id)
{
    std::string out = id ? id : "<NULL>";
    std::free(id);
    return out;
}

void setCounters(const std::map<std::string, int> &values)
{
    RsvId_clearTbl();
    for (auto &[owner, n] : values)
        RsvId_setCur((owner + "#" + std::to_string(n)).c_str());
}

// Points TMPDIR at a memory file system while the object lives, when there is
// one: thousands of in-place rewrites of the state file would otherwise wait
// on the disk at every close.
class MemoryTmpDir {
public:
    MemoryTmpDir()
    {
        if (const char *old = std::getenv("TMPDIR")) {
            old_ = old;
            hadOld_ = true;
        }
        if (access("/dev/shm", W_OK) == 0)
            setenv("TMPDIR", "/dev/shm", 1);
    }
    ~MemoryTmpDir()
    {
        if (hadOld_)
            setenv("TMPDIR", old_.c_str(), 1);
        else
            unsetenv("TMPDIR");
    }

private:
    std::string old_;
    bool hadOld_ = false;
};

class RestartTest : public ::testing::TestWithParam<const char *> {
protected:
    RestartTest() : tz(GetParam()), clock(localTime(2023, 11, 14, 9, 0))
    {
        for (int i = 0; i < 6; ++i)
            daemon.addHost("h" + std::to_string(i), 16);
        tbl = RsvTimeTbl_new(dir.file("lsb.rsv.state").c_str());
    }
    ~RestartTest() override
    {
        RsvTimeTbl_free(fresh);
        RsvTimeTbl_free(tbl);
    }

    std::string add(int options, const std::string &owner, int procs, const std::vector<std::string> &hosts,
                    const std::string &window, const char *description = nullptr)
    {
        OwnedReq r(options, owner, procs, procs, hosts, window, description);
        char *id = RsvTimeTbl_addEntry(tbl, &r.req);
        std::string out = id ? id : "<NULL>";
        std::free(id);
        return out;
    }

    // Throw the counters away and load the files into a new table.
    int restart(int *rejected)
    {
        RsvId_clearTbl();
        fresh = RsvTimeTbl_new(tbl->stateFile);
        return RsvTimeTbl_load(fresh, rejected);
    }

    ::testing::AssertionResult sameEntries()
    {
        if (h_numEnts_(&tbl->entries) != h_numEnts_(&fresh->entries))
            return ::testing::AssertionFailure() << h_numEnts_(&tbl->entries) << " entries before, "
                                                 << h_numEnts_(&fresh->entries) << " after";
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter)) {
            RsvEnt *after = RsvTimeTbl_getEntry(fresh, he->key);
            if (!after)
                return ::testing::AssertionFailure() << he->key << " lost";
            auto same = entriesEqual(static_cast<RsvEnt *>(he->value), after);
            if (!same)
                return same;
        }
        return ::testing::AssertionSuccess();
    }

    std::string window(int day, int hour, int lastDay, int lastHour)
    {
        return oneOff(localTime(2023, 11, day, hour, 0), localTime(2023, 11, lastDay, lastHour, 0));
    }

    ScopedTz tz;
    PinnedClock clock;
    FakeDaemon daemon;
    MemoryTmpDir memoryTmp;
    TempDir dir;
    RsvTimeTbl *tbl = nullptr;
    RsvTimeTbl *fresh = nullptr;
};

} // namespace

TEST_P(RestartTest, MixOfReservationsComesBackWhole)
{
    ASSERT_EQ(add(0, "alice", 4, {"h0", "h1"}, window(15, 10, 15, 12), "review"), "alice#0");
    ASSERT_EQ(add(0, "alice", 3, {"h1", "h2"}, window(17, 20, 21, 6)), "alice#1"); // crosses a week
    ASSERT_EQ(add(RSV_OPT_RECURRING, "bob", 2, {"h0", "h2"}, "8:0-17:30", "daily \"stand-up\""), "bob#0");
    ASSERT_EQ(add(RSV_OPT_RECURRING, "bob", 5, {"h1"}, "5:18:0-1:8:0"), "bob#1"); // weekend, weekly
    ASSERT_EQ(add(RSV_OPT_RECURRING, "grp", 1, {"h3", "h0"}, "22:0-2:0"), "grp#0");   // past midnight
    ASSERT_EQ(add(RSV_OPT_SYSTEM, "root", 0, {"h4"}, window(20, 0, 27, 0)), "system#0");
    ASSERT_EQ(add(0, "carol", 2, {"h5", "h0"}, window(14, 9, 28, 9), "two weeks"), "carol#0");

    // A disabled duration of the daily one, booked around, and an activation.
    RsvEnt *daily = RsvTimeTbl_getEntry(tbl, "bob#0");
    ASSERT_NE(daily, nullptr);
    RsvDisableDuration *off = createRsvDisableDuration("2023:11:16-2023:11:17", 1);
    ASSERT_NE(off, nullptr);
    ASSERT_EQ(RsvTimeTbl_addDurationToDisabledList(tbl, daily, off), 0);
    setRsvActive(tbl, RsvTimeTbl_getEntry(tbl, "alice#1"));
    clock.advance(600);
    setRsvActive(tbl, daily);
    clock.advance(-600);
    RsvTimeTbl_logStat(tbl);

    // The add path leaves the creator empty: the description, the disabled
    // days and the activation must survive it.
    ASSERT_EQ(RsvTimeTbl_getEntry(tbl, "alice#1")->activeTime, clock.now());
    ASSERT_STREQ(RsvTimeTbl_getEntry(tbl, "bob#0")->creator, "");
    EXPECT_TRUE(plannersMatchRebooking(tbl));

    const auto before = counters();
    int rejected = -1;
    EXPECT_EQ(restart(&rejected), 7);
    EXPECT_EQ(rejected, 0);
    EXPECT_TRUE(sameEntries());
    EXPECT_STREQ(RsvTimeTbl_getEntry(fresh, "bob#0")->description, "daily \"stand-up\"");
    EXPECT_EQ(durationsText(RsvTimeTbl_getEntry(fresh, "bob#0")), "[16,4,10,2023;17,5,10,2023]");
    EXPECT_EQ(RsvTimeTbl_getEntry(fresh, "alice#1")->activeTime, clock.now());
    EXPECT_EQ(RsvTimeTbl_getEntry(fresh, "bob#0")->activeTime, clock.now() + 600);
    EXPECT_TRUE(plannersEqual(tbl, fresh));
    EXPECT_TRUE(plannersMatchRebooking(fresh));
    // Every owner keeps its counter. Restoring system#0 also records a
    // counter under the word "system" (the identifier's own owner word),
    // which only an owner of that name would ever use.
    auto afterCounters = counters();
    EXPECT_EQ(afterCounters.erase("system"), 1u);
    EXPECT_EQ(afterCounters, before);

    // The next identifier of every owner is the same in both processes.
    std::vector<std::string> after;
    for (auto &[owner, n] : before) {
        OwnedReq r(0, owner, 1, 1, {}, "1-2");
        after.push_back(takeId(RsvId_new(fresh, &r.req)));
    }
    setCounters(before);
    size_t i = 0;
    for (auto &[owner, n] : before) {
        OwnedReq r(0, owner, 1, 1, {}, "1-2");
        EXPECT_EQ(after[i++], takeId(RsvId_new(tbl, &r.req))) << owner;
    }

    // The loaded table writes the very same file again.
    const std::string written = readFile(tbl->stateFile);
    RsvTimeTbl_logStat(fresh);
    EXPECT_EQ(readFile(fresh->stateFile), written);
}

TEST_P(RestartTest, RandomAddsAndRemovesSurviveARestart)
{
    // A small limit, so that owners' numbers go round it in this history
    // while the table is checked after every step.
    daemon.setMaxPerOwner(12);
    std::mt19937 rng(20231114);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    std::vector<std::string> live;
    const time_t base = localTime(2023, 11, 14, 10, 0);
    int added = 0;
    for (int step = 0; step < 2000; ++step) {
        if (!live.empty() && pick(0, 99) < 40) {
            size_t k = static_cast<size_t>(pick(0, static_cast<int>(live.size()) - 1));
            ASSERT_EQ(RsvTimeTbl_removeEntry(tbl, live[k].c_str()), 0);
            live.erase(live.begin() + static_cast<long>(k));
            ASSERT_TRUE(tableVerifies(tbl)) << "after step " << step;
            continue;
        }
        std::vector<std::string> hosts;
        for (int h = 0; h < 6; ++h)
            if (pick(0, 2) == 0)
                hosts.push_back("h" + std::to_string(h));
        if (hosts.empty())
            hosts.push_back("h" + std::to_string(pick(0, 5)));
        std::string win;
        int options = 0;
        // Every pick in its own statement: the order in which the operands
        // of one expression are evaluated differs between compilers.
        switch (pick(0, 9)) {
        case 0: {
            options = RSV_OPT_RECURRING;
            const int fromHour = pick(0, 22);
            const int fromMinute = pick(0, 5) * 10;
            const int toHour = pick(0, 23);
            win = std::to_string(fromHour) + ":" + std::to_string(fromMinute) + "-" + std::to_string(toHour) + ":0";
            break;
        }
        case 1: {
            options = RSV_OPT_RECURRING;
            const int fromDay = pick(0, 6);
            const int fromHour = pick(0, 23);
            const int toDay = pick(0, 6);
            const int toHour = pick(0, 23);
            win = std::to_string(fromDay) + ":" + std::to_string(fromHour) + ":0-" + std::to_string(toDay) + ":" +
                  std::to_string(toHour) + ":30";
            break;
        }
        default: {
            const time_t start = base + static_cast<time_t>(pick(0, 28 * 24 * 6)) * 600;
            const time_t length = static_cast<time_t>(pick(1, 3 * 24 * 6)) * 600;
            win = oneOff(start, start + length);
        }
        }
        const std::string owner = "u" + std::to_string(pick(0, 9));
        const int procs = pick(1, 3);
        const char *description = pick(0, 1) ? "d" : nullptr;
        const std::string id = add(options, owner, procs, hosts, win, description);
        if (id != "<NULL>") {
            live.push_back(id);
            ++added;
        }
        ASSERT_TRUE(tableVerifies(tbl)) << "after step " << step;
    }
    ASSERT_GT(added, 200);
    ASSERT_GT(live.size(), 20u);
    EXPECT_TRUE(plannersMatchRebooking(tbl));

    int rejected = -1;
    EXPECT_EQ(restart(&rejected), static_cast<int>(live.size()));
    EXPECT_EQ(rejected, 0);
    EXPECT_TRUE(sameEntries());
    EXPECT_TRUE(tableVerifies(fresh));
    // Every planner of the loaded table equals the one before. The table
    // before may hold more weeks: a week planner made for a one-off
    // reservation stays after its removal, holding the recurring bookings,
    // and it still equals a rebooking of the surviving reservations.
    EXPECT_TRUE(plannersEqual(fresh, tbl));
    EXPECT_TRUE(plannersMatchRebooking(tbl));
}

INSTANTIATE_TEST_SUITE_P(Zones, RestartTest, ::testing::Values("UTC", "America/New_York"),
                         [](const auto &info) { return std::string(info.param[0] == 'U' ? "UTC" : "NewYork"); });
