// rsvctl end to end: the times operators type (in a zone with clock changes
// and in zones far from UTC), days switched off and on again, deleting
// several reservations at once, and the exit statuses. The clock is pinned
// to Wed 2026-11-18 10:00 UTC; every refusal leaves every file as it was.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "rsv_test_support.h"
#include "rsvctl_runner.h"

using nlohmann::json;
using rsvctltest::kNow;
using rsvctltest::RunResult;
using rsvctltest::runRsvctl;
using rsvctltest::snapshot;

namespace {

constexpr const char *kCluster = "max-per-owner 10\nalpha 8 16 a1\nbeta 4\n";

class Times : public ::testing::Test {
protected:
    void SetUp() override
    {
        state = tmp.file("state");
        mkdir(state.c_str(), 0755);
        rsvtest::writeFile(state + "/hosts.conf", kCluster);
        rsvtest::writeFile(state + "/rsv.lock", "");  // as the first command leaves it
    }

    RunResult rsv(std::vector<std::string> args, const std::string &tz = "UTC", long long now = kNow)
    {
        args.insert(args.begin(), {"--state-dir", state});
        return runRsvctl(args, now, tz);
    }

    // The module's window text of a reservation.
    std::string windowOf(const std::string &id)
    {
        RunResult r = rsv({"list", "--json"});
        EXPECT_EQ(r.status, 0) << r.err;
        const json all = json::parse(r.out);
        for (const auto &res : all["reservations"])
            if (res["id"] == id)
                return res["window"];
        return "(none)";
    }

    // Runs a command that must be refused with `status` and `err`, and
    // checks that no file changed.
    void refused(const std::vector<std::string> &args, int status, const std::string &err,
                 const std::string &tz = "UTC")
    {
        const auto before = snapshot(state);
        RunResult r = rsv(args, tz);
        EXPECT_EQ(r.status, status) << r.err;
        EXPECT_EQ(r.err, err);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(snapshot(state), before);
    }

    rsvtest::TempDir tmp;
    std::string state;
};

std::string span(long long begin, long long end)
{
    return std::to_string(begin) + "-" + std::to_string(end);
}

} // namespace

// ---------------------------------------------------------------- times

TEST_F(Times, TheHelpExampleEndWorks)
{
    RunResult r = rsv({"add", "-u", "ops", "-n", "1", "-m", "alpha", "-b", "+1d", "-e", "+1d2h"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "ops#0\n1 slot on alpha:1\n");
    EXPECT_EQ(windowOf("ops#0"), span(kNow + 86400, kNow + 86400 + 7200));
}

TEST_F(Times, IsoWithSecondsAndOffsets)
{
    RunResult r = rsv({"add", "-u", "a", "-n", "1", "-m", "alpha", "-b", "2026-12-01T08:00:00+01:00", "-e", "2026-12-01T12:00Z"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(windowOf("a#0"), span(1796108400, 1796126400));
    r = rsv({"add", "-u", "b", "-n", "1", "-m", "alpha", "-b", "2026-12-01 08:00:30", "-e", "@1796126400"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(windowOf("b#0"), span(1796112030, 1796126400));
}

TEST_F(Times, NowAndADurationInsteadOfAnEnd)
{
    RunResult r = rsv({"add", "-u", "a", "-n", "1", "-m", "alpha", "-b", "now", "-D", "90m"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(windowOf("a#0"), span(kNow + 60, kNow + 60 + 5400));
    r = rsv({"add", "-u", "b", "-n", "1", "-m", "alpha", "-b", "tomorrow 08:00", "--duration", "1d2h30m"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(windowOf("b#0"), span(1795075200, 1795075200 + 86400 + 9000));
    refused({"add", "-u", "c", "-m", "alpha", "-b", "+1h", "-e", "+2h", "-D", "1h"}, 1,
            "rsvctl: give the end (-e) or the length (-D), not both\n");
    refused({"add", "-u", "c", "-m", "alpha", "-b", "+1h", "-D", "6"}, 1,
            "rsvctl: bad -D '6': use numbers with units d, h and m in that order, such as 6h, 90m, 1d2h or 2h30m\n");
}

TEST_F(Times, ASkippedWallTimeIsRefusedNamingItsNeighbours)
{
    refused({"add", "-u", "a", "-m", "alpha", "-b", "2027-03-28 02:30", "-D", "1h"}, 1,
            "rsvctl: -b '2027-03-28 02:30' does not exist in Europe/Berlin: the clocks jump from 01:59 to 03:00; "
            "use '2027-03-28 01:59' or '2027-03-28 03:00'\n",
            "Europe/Berlin");
    refused({"add", "-u", "a", "-m", "alpha", "-b", "2027-09-26 02:10", "-D", "1h"}, 1,
            "rsvctl: -b '2027-09-26 02:10' does not exist in Pacific/Auckland: the clocks jump from 01:59 to 03:00; "
            "use '2027-09-26 01:59' or '2027-09-26 03:00'\n",
            "Pacific/Auckland");
}

TEST_F(Times, AnAmbiguousWallTimeNeedsAnOffset)
{
    refused({"add", "-u", "a", "-m", "alpha", "-b", "2027-10-31 02:30", "-D", "1h"}, 1,
            "rsvctl: -b '2027-10-31 02:30' happens twice in Europe/Berlin (the clocks go back): give the offset, "
            "'2027-10-31T02:30+02:00' (first) or '2027-10-31T02:30+01:00' (second)\n",
            "Europe/Berlin");
    RunResult r = rsv({"add", "-u", "a", "-n", "1", "-m", "alpha", "-b", "2027-10-31T02:30+01:00", "-D", "1h"}, "Europe/Berlin");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(windowOf("a#0"), span(1824946200, 1824949800));
}

TEST_F(Times, ZonesFarFromUtc)
{
    // Auckland is 13 hours ahead: its "tomorrow" is Friday.
    RunResult r = rsv({"add", "-u", "a", "-n", "1", "-m", "alpha", "-b", "tomorrow 08:00", "-D", "4h"}, "Pacific/Auckland");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(windowOf("a#0"), span(1795028400, 1795028400 + 14400));
    RunResult shown = rsv({"list"}, "Pacific/Auckland");
    EXPECT_NE(shown.out.find("Thu 11-19 08:00 - Thu 11-19 12:00"), std::string::npos) << shown.out;
    r = rsv({"add", "-u", "b", "-n", "1", "-m", "alpha", "-b", "2026-12-01 08:00", "-e", "2026-12-01 09:30"}, "Asia/Kolkata");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(windowOf("b#0"), span(1796092200, 1796097600));
}

TEST_F(Times, PastTwentyThirtyEightAReservationIsBookedAndKept)
{
    // Wed 2040-07-01 10:00 in Berlin (summer time) is 08:00 UTC, beyond 32-bit seconds.
    RunResult r = rsv({"add", "-u", "a", "-n", "2", "-m", "alpha", "-b", "2040-07-01 10:00", "-D", "1h"},
                      "Europe/Berlin");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(windowOf("a#0"), span(2224742400, 2224742400 + 3600));
    // Booked: the same slots again at the same time are refused, a later hour is free.
    r = rsv({"add", "-u", "b", "-n", "7", "-m", "alpha", "-b", "2040-07-01T08:30Z", "-D", "1h"});
    EXPECT_EQ(r.status, 2) << r.err;
    r = rsv({"add", "-u", "b", "-n", "7", "-m", "alpha", "-b", "2040-07-01T10:00Z", "-D", "1h"});
    EXPECT_EQ(r.status, 0) << r.err;
    // Moved by the window change, read back by the next command.
    r = rsv({"mod", "a#0", "--end", "+30m"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(windowOf("a#0"), span(2224742400, 2224742400 + 5400));
}

// ---------------------------------------------------------------- days off and on

TEST_F(Times, DisableTakesIsoDatesRangesOverTheNewYearAndLists)
{
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "2", "-m", "alpha", "-t", "22:00-6:00"}).status, 0);
    RunResult r = rsv({"mod", "bob#0", "--disable", "2026-12-24..2026-12-26,12:30-1:2,2027-01-06"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "bob#0: off on Thu Dec 24 2026 - Sat Dec 26 2026, Wed Dec 30 2026 - Sat Jan 2 2027, Wed Jan 6 "
                     "2027\n");
    // A list with one day already off changes nothing.
    refused({"mod", "bob#0", "--disable", "2027-01-10,2026-12-25"}, 2,
            "rsvctl: the days '2026-12-25' are already disabled in reservation 'bob#0'\n");
    refused({"mod", "bob#0", "--disable", "2026-13-01"}, 1,
            "rsvctl: bad --disable day '2026-13-01': use YYYY-MM-DD, M:D, D or Y:M:D, a range such as "
            "2026-12-24..2027-01-02 or 12:30-1:2, or a list of them separated by commas\n");
}

TEST_F(Times, EnableSwitchesADayOnAgainWhenItsSlotsAreFree)
{
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "2", "-m", "alpha", "-t", "22:00-6:00"}).status, 0);
    ASSERT_EQ(rsv({"mod", "bob#0", "--disable", "2026-12-30..2027-01-02"}).status, 0);
    RunResult r = rsv({"mod", "bob#0", "--enable", "2026-12-31"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "bob#0: on again on Thu Dec 31 2026\n");
    // While bob#0 is off on 30 December, carol takes all of alpha then.
    ASSERT_EQ(rsv({"add", "-u", "carol", "-n", "8", "-m", "alpha", "-b", "2026-12-30 23:00", "-e",
                   "2026-12-31 01:00"})
                  .status,
              0);
    const auto before = snapshot(state);
    RunResult full = rsv({"mod", "bob#0", "--enable", "2026-12-30"});
    EXPECT_EQ(full.status, 2);
    EXPECT_EQ(full.out, "");
    EXPECT_EQ(full.err, "rsvctl: not enough free slots on 'alpha' to enable '2026-12-30' of reservation 'bob#0'\n"
                        "why: free slots over the window, per asked host\n"
                        "  HOST   CAPACITY  FREE  NEEDED  FIRST SHORT\n"
                        "  alpha         8     0       2  Wed 2026-12-30 23:00 (0 free)\n");
    EXPECT_EQ(snapshot(state), before);
    refused({"mod", "bob#0", "--enable", "2027-01-05"}, 2,
            "rsvctl: none of the days '2027-01-05' is disabled in reservation 'bob#0'\n");
    // All or nothing: the first day is off, the second not.
    refused({"mod", "bob#0", "--enable", "2027-01-01,2027-01-05"}, 2,
            "rsvctl: none of the days '2027-01-05' is disabled in reservation 'bob#0'\n");
}

// ---------------------------------------------------------------- del

TEST_F(Times, DelChecksEveryIdentifierFirstAndIsAllOrNothing)
{
    for (const char *owner : {"a", "b", "c"})
        ASSERT_EQ(rsv({"add", "-u", owner, "-n", "1", "-m", "alpha", "-b", "+1h", "-e", "+2h"}).status, 0);
    refused({"del", "a#0", "nosuch#0", "b#0"}, 2, "rsvctl: no reservation 'nosuch#0'\n");
    RunResult r = rsv({"del", "a#0", "c#0"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "deleted a#0\ndeleted c#0\n");
    RunResult list = rsv({"list", "--json"});
    ASSERT_EQ(json::parse(list.out)["reservations"].size(), 1u);
    EXPECT_EQ(json::parse(list.out)["reservations"][0]["id"], "b#0");
}

// The renames of rsv.state one command makes, as the fault layer sees them
// (armed to fail nothing: a delay of 1 ms makes it log every rename in the
// directory).
int stateSaves(const std::vector<std::string> &args, const std::string &dir, const std::string &log)
{
    unlink(log.c_str());
    std::vector<std::string> full = {"--state-dir", dir};
    full.insert(full.end(), args.begin(), args.end());
    RunResult r = runRsvctl(full, kNow, "UTC",
                            rsvctltest::withFault(RSV_IOFAULT_PATH, "op=rename,nth=1,errno=0,times=0,delay_ms=1", dir, log));
    EXPECT_EQ(r.status, 0) << r.err;
    int saves = 0;
    for (const std::string &line : rsvctltest::lines(rsvtest::fileExists(log) ? rsvtest::readFile(log) : ""))
        saves += line.find("/rsv.state") != std::string::npos;
    return saves;
}

TEST_F(Times, SeveralIdentifiersOrDaysAreOneSave)
{
    for (const char *owner : {"a", "b", "c"})
        ASSERT_EQ(rsv({"add", "-u", owner, "-n", "1", "-m", "alpha", "-b", "+1h", "-e", "+2h"}).status, 0);
    ASSERT_EQ(rsv({"add", "-u", "r", "-n", "1", "-m", "alpha", "-t", "8:00-9:00"}).status, 0);
    const std::string log = tmp.file("renames.log");
    EXPECT_EQ(stateSaves({"add", "-u", "d", "-n", "1", "-m", "alpha", "-b", "+1h", "-e", "+2h"}, state, log), 1);
    EXPECT_EQ(stateSaves({"del", "a#0", "b#0", "c#0"}, state, log), 1);
    EXPECT_EQ(stateSaves({"mod", "r#0", "--disable", "2026-12-01,2026-12-03..2026-12-05,12:24"}, state, log), 1);
    EXPECT_EQ(stateSaves({"mod", "r#0", "--enable", "2026-12-01,2026-12-04"}, state, log), 1);
}

// ---------------------------------------------------------------- exit statuses

TEST_F(Times, AMalformedWindowOrTimeIsUsage)
{
    refused({"add", "-u", "a", "-m", "alpha", "-t", "25:00-3:00"}, 1,
            "rsvctl: malformed time window '25:00-3:00': use H[:M]-H[:M] (daily) or D:H:M-D:H:M (weekly)\n");
    refused({"add", "-u", "a", "-m", "alpha", "-b", "+2h", "-e", "+1h"}, 1,
            "rsvctl: the end must come after the start ('+2h' to '+1h')\n");
    refused({"add", "-u", "a", "-m", "alpha", "-b", "next week", "-e", "+1h"}, 1,
            "rsvctl: bad -b 'next week': use 'YYYY-MM-DD HH:MM[:SS]', YYYY-MM-DDTHH:MM[:SS][Z|+HH:MM], now, +90m, "
            "+1d2h30m, 'tomorrow 08:00' or @EPOCH-SECONDS\n");
    // Refused by the module: 2.
    refused({"add", "-u", "a", "-n", "9", "-m", "beta", "-b", "+1h", "-e", "+2h"}, 2,
            "rsvctl: not enough free slots on 'beta' for '+1h' to '+2h'\n"
            "why: free slots over the window, per asked host\n"
            "  HOST  CAPACITY  FREE  NEEDED  FIRST SHORT\n"
            "  beta         4     4       9  Wed 2026-11-18 11:00 (4 free)\n");
}

TEST_F(Times, AMistypedCommandGetsTheNearestOne)
{
    refused({"lsit"}, 1, "rsvctl: unknown command 'lsit': did you mean 'list'?\n");
    refused({"-v", "dle", "a#0"}, 1, "rsvctl: unknown command 'dle': did you mean 'del'?\n");
    refused({"--color", "never", "plannr", "alpha"}, 1, "rsvctl: unknown command 'plannr': did you mean 'planner'?\n");
    refused({"frobnicate"}, 1, "rsvctl: unknown command 'frobnicate': see rsvctl --help for the commands\n");
}

TEST(TimesStateDir, AMissingClusterFileIsAConfigurationProblem)
{
    rsvtest::TempDir tmp;
    const std::string dir = tmp.file("site");
    mkdir(dir.c_str(), 0755);
    const std::string how = "create one with 'rsvctl --state-dir " + dir +
                            " init --host NAME:SLOTS ...', or run 'rsvctl --state-dir " + dir +
                            " demo' for the built-in demo cluster\n";
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"list"}, {"add", "-u", "a", "-m", "hpc01", "-b", "+1h", "-e", "+2h"}}) {
        std::vector<std::string> full = {"--state-dir", dir};
        full.insert(full.end(), args.begin(), args.end());
        RunResult r = runRsvctl(full, kNow);
        EXPECT_EQ(r.status, 3);
        EXPECT_EQ(r.err, "rsvctl: no cluster file '" + dir + "/hosts.conf': " + how);
        EXPECT_TRUE(snapshot(dir).empty());
    }
    RunResult missing = runRsvctl({"--state-dir", tmp.file("none"), "add", "-u", "a", "-m", "hpc01", "-b", "+1h",
                                   "-e", "+2h"},
                                  kNow);
    EXPECT_EQ(missing.status, 3);
    EXPECT_EQ(missing.err.rfind("rsvctl: no state directory '" + tmp.file("none") + "': create one with", 0), 0u)
        << missing.err;
    struct stat st {};
    EXPECT_NE(stat(tmp.file("none").c_str(), &st), 0);
}

TEST(TimesStateDir, InitWritesTheClusterFileOnce)
{
    rsvtest::TempDir tmp;
    const std::string dir = tmp.file("site");
    RunResult r = runRsvctl({"--state-dir", dir, "init", "--host", "hpc01:16", "--host", "gpu01:8:32",
                             "--max-per-owner", "5"},
                            kNow);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "created " + dir + "/hosts.conf with 2 hosts\n");
    const std::string conf = rsvtest::readFile(dir + "/hosts.conf");
    EXPECT_NE(conf.find("\nmax-per-owner 5\n\nhpc01 16\ngpu01 8 32\n"), std::string::npos) << conf;
    RunResult hosts = runRsvctl({"--state-dir", dir, "add", "-u", "a", "-n", "16", "-m", "hpc01", "-b", "+1h", "-e",
                                 "+2h"},
                                kNow);
    EXPECT_EQ(hosts.status, 0) << hosts.err;
    const auto before = snapshot(dir);
    RunResult again = runRsvctl({"--state-dir", dir, "init"}, kNow);
    EXPECT_EQ(again.status, 3);
    EXPECT_EQ(again.err, "rsvctl: '" + dir + "/hosts.conf' already exists: edit it, or init another directory\n");
    EXPECT_EQ(snapshot(dir), before);
    RunResult bad = runRsvctl({"--state-dir", tmp.file("other"), "init", "--host", "hpc01"}, kNow);
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err, "rsvctl: bad --host 'hpc01': use NAME:SLOTS or NAME:SLOTS:CPUS, such as hpc01:16\n");
    struct stat st {};
    EXPECT_NE(stat(tmp.file("other").c_str(), &st), 0);
    // Without hosts: a commented file to fill in.
    RunResult empty = runRsvctl({"--state-dir", tmp.file("blank"), "init"}, kNow);
    EXPECT_EQ(empty.status, 0) << empty.err;
    EXPECT_EQ(runRsvctl({"--state-dir", tmp.file("blank"), "list"}, kNow).out, "no reservations\n");
}

TEST(TimesHelp, TheExitStatusTableIsInTheHelpAndTheDocumentation)
{
    RunResult help = runRsvctl({"--help"}, kNow);
    ASSERT_EQ(help.status, 0);
    const std::string docs = rsvtest::readFile(RSV_SOURCE_DIR "/docs/rsvctl.md");
    const size_t start = help.out.find("Exit status:\n");
    ASSERT_NE(start, std::string::npos) << help.out;
    const size_t end = help.out.find("Start with:", start);
    ASSERT_NE(end, std::string::npos);
    const std::string table = help.out.substr(start, end - start);
    for (const char *status : {"  0  done\n", "  1  usage", "  2  refused by the module", "  3  file, lock or configuration"})
        EXPECT_NE(table.find(status), std::string::npos) << status;
    EXPECT_NE(docs.find("```\n" + table + "```\n"), std::string::npos) << table;
}
