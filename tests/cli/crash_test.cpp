// Crash test of rsvctl add (ctest label "crash"): on a table of a few
// thousand reservations, rsvctl add is killed with SIGKILL again and again
// at seeded random moments spread over its whole run. After every kill the
// files, loaded with the module, hold exactly the old table or the old
// table plus the one new reservation, and an identifier rsvctl printed is
// always among them. Bounded by count (200 kills) and by time (about two
// minutes); RSV_CRASH_SEED repeats a run.
#include <gtest/gtest.h>
#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "rsv_test_support.h"
#include "rsvctl_runner.h"

using rsvctltest::finish;
using rsvctltest::RunResult;
using rsvctltest::Running;
using rsvctltest::runRsvctl;
using rsvctltest::startRsvctl;
using Clock = std::chrono::steady_clock;

namespace {

constexpr time_t kNow = 1794996000;  // Wed 2026-11-18 10:00 UTC
constexpr int kReservations = 2500;
constexpr int kWantedKills = 200;
constexpr int kLeastKills = 50;
constexpr double kBudgetSeconds = 110;

const char *kCluster = "max-per-owner 10000\nn1 100000\nn2 100000\nn3 100000\nn4 100000\n";

struct TableFree {
    void operator()(RsvTimeTbl *t) const { RsvTimeTbl_free(t); }
};
using Table = std::unique_ptr<RsvTimeTbl, TableFree>;

std::string recordOf(const RsvEnt *ent)
{
    char *text = RsvEnt_ToString(ent);
    std::string out = text ? text : "";
    std::free(text);
    return out;
}

// The state lines a table would write, as a set.
std::set<std::string> stateLines(RsvTimeTbl *tbl)
{
    std::set<std::string> lines;
    HashIter iter{};
    for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter))
        if (!std::strchr(he->key, '@'))
            lines.insert(recordOf(static_cast<const RsvEnt *>(he->value)));
    return lines;
}

void collect(void *context, const char *problem)
{
    static_cast<std::vector<std::string> *>(context)->emplace_back(problem);
}

double seconds(Clock::duration d)
{
    return std::chrono::duration<double>(d).count();
}

class CrashedAdd : public ::testing::Test {
protected:
    // A table of kReservations in `dir`, made in this process: booked in a
    // table without files (fast), then restored into one with files and
    // saved once.
    void buildTable()
    {
        Table scratch(RsvTimeTbl_new(nullptr));
        ASSERT_NE(scratch, nullptr);
        std::mt19937 rng(7);
        for (int i = 0; i < kReservations; ++i) {
            const std::string owner = "o" + std::to_string(i % 10);
            const std::string host = "n" + std::to_string(1 + i % 4);
            std::string window;
            int options = 0;
            if (i % 25 == 0) {
                const int hour = static_cast<int>(rng() % 23);
                window = std::to_string(hour) + ":0-" + std::to_string(hour + 1) + ":0";
                options = RSV_OPT_RECURRING;
            } else {
                const time_t begin = kNow + 600 * static_cast<time_t>(6 + rng() % (6 * 24 * 21));
                window = rsvtest::oneOff(begin, begin + 600 * static_cast<time_t>(1 + rng() % 24));
            }
            const int slots = 1 + static_cast<int>(rng() % 3);
            rsvtest::OwnedReq req(options, owner, slots, slots, {host}, window,
                                  i % 7 == 0 ? "made for the crash test" : nullptr);
            char *id = RsvTimeTbl_addEntry(scratch.get(), &req.req);
            ASSERT_NE(id, nullptr) << i << ": " << qob_errno;
            std::free(id);
        }
        Table saved(RsvTimeTbl_new((dir + "/rsv.state").c_str()));
        HashIter iter{};
        for (HashEnt *he = h_firstEnt_(&scratch->entries, &iter); he; he = h_nextEnt_(&iter)) {
            RsvEnt *copy = RsvEnt_newByString(recordOf(static_cast<const RsvEnt *>(he->value)).c_str());
            ASSERT_NE(copy, nullptr);
            RsvTimeTbl_restoreEntry(saved.get(), copy);
        }
        ASSERT_EQ(RsvTimeTbl_save(saved.get()), 0);
    }

    // The table the files hold, loaded as a restart would.
    Table load()
    {
        RsvId_clearTbl();
        Table tbl(RsvTimeTbl_new((dir + "/rsv.state").c_str()));
        int rejected = -1;
        const int restored = RsvTimeTbl_load(tbl.get(), &rejected);
        EXPECT_GE(restored, 0);
        EXPECT_EQ(rejected, 0) << "a cut or mixed line";
        return tbl;
    }

    std::vector<std::string> addArgs() const
    {
        return {"--state-dir", dir, "add", "-u", "crash", "-n", "2", "-m", "n1", "-b", "2026-11-20 10:00",
                "-e", "2026-11-20 12:00"};
    }

    rsvtest::ScopedTz tz{"UTC"};
    rsvtest::PinnedClock clock{kNow};
    rsvtest::LogCapture log;
    rsvtest::FakeDaemon daemon;
    rsvtest::TempDir tmp;
    std::string dir;
};

TEST_F(CrashedAdd, LeavesTheOldTableOrTheOldTablePlusTheNewReservation)
{
    const auto testStart = Clock::now();
    for (const char *host : {"n1", "n2", "n3", "n4"})
        daemon.addHost(host, 100000);
    daemon.setMaxPerOwner(10000);
    dir = tmp.file("state");
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    rsvtest::writeFile(dir + "/hosts.conf", kCluster);
    buildTable();
    if (HasFatalFailure())
        return;
    const std::map<std::string, std::string> oldFiles = rsvctltest::snapshot(dir);
    std::set<std::string> oldLines;
    {
        Table old = load();
        oldLines = stateLines(old.get());
    }
    ASSERT_EQ(oldLines.size(), static_cast<size_t>(kReservations));
    const double buildSeconds = seconds(Clock::now() - testStart);

    // How long one add runs, start to end, on fresh copies.
    std::vector<double> runs;
    for (int i = 0; i < 3; ++i) {
        rsvtest::removeDirectory(dir);
        rsvctltest::restore(dir, oldFiles);
        const auto t0 = Clock::now();
        RunResult r = runRsvctl(addArgs(), kNow);
        runs.push_back(seconds(Clock::now() - t0));
        ASSERT_EQ(r.status, 0) << r.err;
        ASSERT_EQ(r.out, "crash#0\n2 slots on n1:2\n");
        Table after = load();
        std::set<std::string> lines = stateLines(after.get());
        ASSERT_EQ(lines.size(), oldLines.size() + 1);
    }
    std::sort(runs.begin(), runs.end());
    const double runSeconds = runs[1];

    unsigned long seed = 20261118;
    if (const char *env = std::getenv("RSV_CRASH_SEED"); env && *env)
        seed = std::strtoul(env, nullptr, 10);
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> delayOf(0.0, runSeconds);

    int kills = 0, finishedFirst = 0, landedAnyway = 0, attempts = 0, verified = 0;
    bool reset = true;
    const auto loopStart = Clock::now();
    while (kills < kWantedKills && seconds(Clock::now() - loopStart) < kBudgetSeconds) {
        ++attempts;
        if (reset) {
            rsvtest::removeDirectory(dir);
            rsvctltest::restore(dir, oldFiles);
        }
        const double delay = delayOf(rng);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", attempt " + std::to_string(attempts) + ", kill after " +
                     std::to_string(delay) + " s");
        Running running = startRsvctl(addArgs(), kNow);
        ASSERT_GT(running.pid, 0);
        std::this_thread::sleep_for(std::chrono::duration<double>(delay));
        kill(running.pid, SIGKILL);
        RunResult r = finish(running);
        const bool killed = r.signal == SIGKILL;
        kills += killed;
        finishedFirst += !killed;
        if (!killed) {
            EXPECT_EQ(r.status, 0) << r.err;
        }

        Table now = load();
        std::set<std::string> lines = stateLines(now.get());
        std::vector<std::string> added, lost;
        std::set_difference(lines.begin(), lines.end(), oldLines.begin(), oldLines.end(), std::back_inserter(added));
        std::set_difference(oldLines.begin(), oldLines.end(), lines.begin(), lines.end(), std::back_inserter(lost));
        ASSERT_TRUE(lost.empty()) << lost.size() << " old reservation(s) lost, first: " << lost[0];
        ASSERT_LE(added.size(), 1u) << "more than the one new reservation";
        std::string newId;
        if (added.size() == 1) {
            // The new reservation, whole: the owner's next identifier, the
            // host and window asked for, and a counter in the id file at
            // least as far as its number.
            std::istringstream words(added[0]);
            std::string version, created, options;
            words >> version >> created >> options >> newId;
            ASSERT_EQ(newId.rfind("crash#", 0), 0u) << added[0];
            EXPECT_NE(added[0].find(" crash 1795168800-1795176000 "), std::string::npos) << added[0];
            EXPECT_NE(added[0].find(" n1 2 "), std::string::npos) << added[0];
            const std::map<std::string, int> counters = rsvtest::idFileCounters(rsvtest::fileExists(dir + "/rsv.ids") ? rsvtest::readFile(dir + "/rsv.ids") : "");
            ASSERT_TRUE(counters.count("crash")) << "the state file is ahead of the id file";
            EXPECT_GE(counters.at("crash"), std::atoi(newId.c_str() + 6));
            landedAnyway += killed;
        }
        // What rsvctl printed is on disk; exit 0 always printed it. The
        // identifier is the first line, where the slots landed the second.
        std::string printed = r.out.substr(0, r.out.find('\n'));
        if (r.status == 0) {
            EXPECT_FALSE(printed.empty());
        }
        if (!printed.empty()) {
            EXPECT_EQ(printed, newId) << "printed an identifier that is not on disk";
            EXPECT_NE(RsvTimeTbl_getEntry(now.get(), printed.c_str()), nullptr);
        }
        // The module's own invariants, now and then (they rebook every
        // reservation from scratch).
        if (attempts % 20 == 1) {
            std::vector<std::string> problems;
            EXPECT_EQ(RsvTimeTbl_verify(now.get(), &collect, &problems), 0) << ::testing::PrintToString(problems);
            ++verified;
        }
        // Back to the old table only when the add completed.
        reset = added.size() == 1;
        if (HasFatalFailure())
            return;
    }
    const double loopSeconds = seconds(Clock::now() - loopStart);
    std::cout << "[ timing ] " << kReservations << " reservations built in " << buildSeconds << " s; one add runs "
              << runSeconds << " s; " << attempts << " runs, " << kills << " killed (" << landedAnyway
              << " of them after the save), " << finishedFirst << " finished first, " << verified
              << " verified, in " << loopSeconds << " s (seed " << seed << ")\n";
    EXPECT_GE(kills, kLeastKills) << "too few kills in the time allowed";
    EXPECT_GT(kills - landedAnyway, 0) << "no kill came before the save";
}

} // namespace
