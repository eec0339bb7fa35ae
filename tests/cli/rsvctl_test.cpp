// End-to-end tests of rsvctl: the built program, run in temporary state
// directories with the clock pinned to Wed 2026-11-18 10:00 (through
// RSVCTL_NOW) and the zone pinned (TZ).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "rsv_test_support.h"
#include "rsvctl_runner.h"

using rsvctltest::lines;
using rsvctltest::RunOptions;
using rsvctltest::RunResult;
using rsvctltest::runRsvctl;
using rsvctltest::snapshot;
using nlohmann::json;

namespace {

using rsvctltest::kNow;
using rsvctltest::kSmallCluster;

constexpr long long kThu0900 = 1795078800;       // Thu 2026-11-19 09:00 UTC
constexpr long long kThu1700 = 1795107600;       // Thu 2026-11-19 17:00 UTC

class Rsvctl : public ::testing::Test {
protected:
    void SetUp() override
    {
        state = tmp.file("state");
        mkdir(state.c_str(), 0755);
        rsvtest::writeFile(state + "/hosts.conf", kSmallCluster);
    }

    RunResult rsv(std::vector<std::string> args, const std::string &tz = "UTC", long long now = kNow)
    {
        args.insert(args.begin(), {"--state-dir", state});
        return runRsvctl(args, now, tz);
    }

    std::string stateFile() { return rsvtest::readFile(state + "/rsv.state"); }

    // Adds a one-off reservation and returns its identifier.
    std::string addOneOff(const std::string &owner, const std::string &slots, const std::string &hosts,
                          long long begin, long long end)
    {
        RunResult r = rsv({"add", "-u", owner, "-n", slots, "-m", hosts, "-b", std::to_string(begin), "-e",
                           std::to_string(end)});
        EXPECT_EQ(r.status, 0) << r.err;
        return r.out.substr(0, r.out.find('\n'));
    }

    json listJson()
    {
        RunResult r = rsv({"list", "--json"});
        EXPECT_EQ(r.status, 0) << r.err;
        return json::parse(r.out);
    }

    rsvtest::TempDir tmp;
    std::string state;
};

// ---------------------------------------------------------------- add

TEST_F(Rsvctl, AddOneOffPrintsTheIdentifierAndWritesBothFiles)
{
    RunResult r = rsv({"add", "-u", "alice", "-n", "4", "-m", "alpha", "-b", "2026-11-19 09:00", "-e",
                       "2026-11-19T17:00", "-d", "first test"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "alice#0\n4 slots on alpha:4\n");
    EXPECT_EQ(r.err, "");
    std::vector<std::string> records = lines(stateFile());
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find("alice#0 alice 1795078800-1795107600"), std::string::npos) << records[0];
    EXPECT_NE(records[0].find("alpha 4"), std::string::npos) << records[0];
    EXPECT_NE(records[0].find("\"first test\""), std::string::npos) << records[0];
    EXPECT_EQ(rsvtest::readFile(state + "/rsv.ids"), "9.11\n1\nalice 0 \n ");
}

TEST_F(Rsvctl, AddAcceptsEveryTimeForm)
{
    EXPECT_EQ(addOneOff("a", "1", "alpha", kThu0900, kThu1700), "a#0");
    RunResult rel = rsv({"add", "-u", "a", "-n", "1", "-m", "alpha", "-b", "+90m", "-e", "+2h"});
    EXPECT_EQ(rel.status, 0) << rel.err;
    RunResult days = rsv({"add", "-u", "a", "-n", "1", "-m", "alpha", "-b", "+1d", "-e", "2026-11-20"});
    EXPECT_EQ(days.status, 0) << days.err;
    json list = listJson();
    ASSERT_EQ(list["reservations"].size(), 3u);
    EXPECT_EQ(list["reservations"][1]["begin"], kNow + 5400);
    EXPECT_EQ(list["reservations"][1]["end"], kNow + 7200);
    EXPECT_EQ(list["reservations"][2]["begin"], kNow + 86400);
    EXPECT_EQ(list["reservations"][2]["end"], 1795132800);  // Fri 2026-11-20 00:00
}

TEST_F(Rsvctl, AddReadsLocalTimeInTheZone)
{
    RunResult r = rsv({"add", "-u", "ny", "-m", "alpha", "-b", "2026-11-19 09:00", "-e", "2026-11-19 10:00"},
                      "America/New_York");
    ASSERT_EQ(r.status, 0) << r.err;
    RunResult show = rsv({"show", "ny#0", "--json"}, "America/New_York");
    json j = json::parse(show.out);
    EXPECT_EQ(j["begin"], 1795096800);  // 09:00 EST is 14:00 UTC
    EXPECT_EQ(j["window_text"], "Thu 2026-11-19 09:00 to Thu 2026-11-19 10:00 (1h)");
}

TEST_F(Rsvctl, AddDailyAndWeeklyWindowsWithWeekdayNames)
{
    RunResult daily = rsv({"add", "-u", "bob", "-n", "2", "-m", "alpha", "-t", "22:00-6:00"});
    EXPECT_EQ(daily.status, 0) << daily.err;
    RunResult weekly = rsv({"add", "-u", "bob", "-n", "2", "-m", "beta", "-t", "fri:18:00-mon:6:00"});
    EXPECT_EQ(weekly.status, 0) << weekly.err;
    json list = listJson();
    ASSERT_EQ(list["reservations"].size(), 2u);
    EXPECT_EQ(list["reservations"][0]["type"], "daily");
    EXPECT_EQ(list["reservations"][0]["window"], "22:00-6:00");
    EXPECT_EQ(list["reservations"][0]["window_text"], "every day 22:00 to 06:00 (8h)");
    EXPECT_EQ(list["reservations"][1]["type"], "weekly");
    EXPECT_EQ(list["reservations"][1]["window"], "5:18:00-1:6:00");
    EXPECT_EQ(list["reservations"][1]["window_text"], "every Fri 18:00 to Mon 06:00 (2d 12h)");
}

TEST_F(Rsvctl, AddThroughAnAliasBooksUnderTheOfficialName)
{
    EXPECT_EQ(addOneOff("a", "6", "a1", kThu0900, kThu1700), "a#0");
    json list = listJson();
    EXPECT_EQ(list["reservations"][0]["hosts"][0]["name"], "alpha");
    // A second request through the official name sees the first booking.
    RunResult r = rsv({"add", "-u", "b", "-n", "4", "-m", "alpha", "-b", std::to_string(kThu0900), "-e",
                       std::to_string(kThu1700)});
    EXPECT_EQ(r.status, 2);
    // Naming one host twice, by name and alias, does not offer it twice.
    RunResult twice = rsv({"add", "-u", "b", "-n", "3", "-m", "alpha,a1", "-b", std::to_string(kThu0900), "-e",
                           std::to_string(kThu1700)});
    EXPECT_EQ(twice.status, 2) << twice.out;
}

TEST_F(Rsvctl, SystemReservationTakesEveryFreeSlot)
{
    RunResult r = rsv({"add", "-u", "ops", "--system", "-m", "alpha,beta", "-b", std::to_string(kThu0900), "-e",
                       std::to_string(kThu1700)});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "system#0\n12 slots on alpha:8,beta:4\n");
    json j = listJson()["reservations"][0];
    EXPECT_EQ(j["system"], true);
    EXPECT_EQ(j["slots"], 12);
}

TEST_F(Rsvctl, RefusalForLackOfSlotsSaysWhy)
{
    addOneOff("a", "6", "alpha", kThu0900 + 4 * 3600, kThu1700);  // 13:00-17:00
    auto before = snapshot(state);
    RunResult r = rsv({"add", "-u", "b", "-n", "7", "-m", "alpha,beta", "-b", "2026-11-19 09:00", "-e",
                       "2026-11-19 17:00"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err,
              "rsvctl: not enough free slots on 'alpha,beta' for '2026-11-19 09:00' to '2026-11-19 17:00'\n"
              "why: free slots over the window, per asked host\n"
              "  HOST   CAPACITY  FREE  NEEDED  FIRST SHORT\n"
              "  alpha         8     2       7  Thu 2026-11-19 13:00 (2 free)\n"
              "  beta          4     4       7  Thu 2026-11-19 09:00 (4 free)\n");
    EXPECT_EQ(snapshot(state), before);
}

TEST_F(Rsvctl, RefusedSystemRequestNamesTheFirstBookedCell)
{
    addOneOff("a", "1", "beta", kThu0900 + 3600, kThu0900 + 7200);
    RunResult r = rsv({"add", "-u", "ops", "--system", "-m", "beta", "-b", std::to_string(kThu0900), "-e",
                       std::to_string(kThu1700)});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err,
              "rsvctl: a system reservation needs hosts with nothing booked: 'beta' has bookings for '1795078800' "
              "to '1795107600'\n"
              "why: free slots over the window, per asked host\n"
              "  HOST  CAPACITY  FREE  NEEDED  FIRST SHORT\n"
              "  beta         4     3     all  Thu 2026-11-19 10:00 (already booked)\n");
}

TEST_F(Rsvctl, RefusalOverRecurringBookingsAcrossMidnightSaysWhy)
{
    RunResult daily = rsv({"add", "-u", "bob", "-n", "2", "-m", "beta", "-t", "22:00-6:00"});
    ASSERT_EQ(daily.status, 0) << daily.err;
    auto before = snapshot(state);
    // Weekly over the week end: the any-week planner's Sunday morning comes
    // first.
    RunResult weekly = rsv({"add", "-u", "erin", "-n", "3", "-m", "beta", "-t", "sat:20:00-sun:4:00"});
    EXPECT_EQ(weekly.status, 2);
    EXPECT_EQ(weekly.err,
              "rsvctl: not enough free slots on 'beta' for time window 'sat:20:00-sun:4:00'\n"
              "why: free slots over the window, per asked host\n"
              "  HOST  CAPACITY  FREE  NEEDED  FIRST SHORT\n"
              "  beta         4     2       3  any week, Sun 00:00 (2 free)\n");
    // A one-off night in a week without a planner of its own.
    RunResult once = rsv({"add", "-u", "erin", "-n", "3", "-m", "beta", "-b", "2026-11-21 21:00", "-e",
                          "2026-11-22 02:00"});
    EXPECT_EQ(once.status, 2);
    EXPECT_EQ(once.err,
              "rsvctl: not enough free slots on 'beta' for '2026-11-21 21:00' to '2026-11-22 02:00'\n"
              "why: free slots over the window, per asked host\n"
              "  HOST  CAPACITY  FREE  NEEDED  FIRST SHORT\n"
              "  beta         4     2       3  Sat 2026-11-21 22:00 (2 free)\n");
    EXPECT_EQ(snapshot(state), before);
    RunResult hosts = rsv({"hosts"});
    EXPECT_EQ(hosts.out,
              "HOST   SLOTS  CPUS  ALIASES  RSVS  PEAK THIS WEEK\n"
              "alpha      8    16  a1          0  -\n"
              "beta       4     4  -           1  2/4 from Sun 2026-11-15 00:00\n"
              "gamma      2     2  g1,g2       0  -\n"
              "max-per-owner 3\n");
}

struct Refusal {
    std::vector<std::string> args;
    int status;
    std::string message;
};

TEST_F(Rsvctl, EveryRefusalIsOneLineAndChangesNoFile)
{
    addOneOff("x", "1", "alpha", kThu0900, kThu1700);
    const std::string b = std::to_string(kThu0900), e = std::to_string(kThu1700);
    const std::vector<Refusal> cases = {
        {{"add", "-u", "z", "-m", "nohost", "-b", b, "-e", e}, 2,
         "rsvctl: unknown host 'nohost': not in the cluster file\n"},
        {{"add", "-u", "z", "-m", "alpha", "-t", "8:0-8:0"}, 2,
         "rsvctl: the end of the time window '8:0-8:0' is not acceptable: it must come after the start, in the "
         "future\n"},
        {{"add", "-u", "z", "-m", "alpha", "-t", "1:8:0-9:0"}, 1,
         "rsvctl: time window '1:8:0-9:0': both ends must name a weekday, or neither\n"},
        {{"add", "-u", "z", "-m", "alpha", "-t", "25:0-3:0"}, 1,
         "rsvctl: malformed time window '25:0-3:0': use H[:M]-H[:M] (daily) or D:H:M-D:H:M (weekly)\n"},
        {{"add", "-u", "z", "-m", "alpha", "-b", "1000", "-e", e}, 2, "rsvctl: the begin '1000' is not in the future\n"},
        {{"add", "-u", "z", "-m", "alpha", "-b", e, "-e", b}, 1,
         "rsvctl: the end must come after the start ('" + e + "' to '" + b + "')\n"},
        {{"add", "-u", "z", "-m", "alpha", "-b", b}, 1,
         "rsvctl: a one-off reservation needs -b BEGIN and either -e END or -D DURATION\n"},
        {{"add", "-u", "z", "-m", "alpha", "-b", b, "-e", e, "-t", "8-9"}, 1,
         "rsvctl: give either -b with -e or -D (one-off) or -t (recurring), not both\n"},
        {{"add", "-u", "z", "-m", "alpha"}, 1, "rsvctl: give a window: -b BEGIN with -e END or -D DURATION, or -t WINDOW\n"},
        {{"add", "-u", "z", "-m", "alpha", "-n", "4:2", "-b", b, "-e", e}, 1,
         "rsvctl: bad slot count '4:2': MAX is below MIN\n"},
        {{"add", "-u", "z", "-m", "alpha", "-n", "x", "-b", b, "-e", e}, 1,
         "rsvctl: bad slot count 'x': use MIN or MIN:MAX, such as 4 or 4:8\n"},
        {{"add", "-u", "z#1", "-m", "alpha", "-b", b, "-e", e}, 1,
         "rsvctl: bad owner 'z#1': use letters, digits, '_', '-' and '.'\n"},
        {{"add", "-u", "z", "-m", "alpha", "-b", "soon", "-e", e}, 1,
         "rsvctl: bad -b 'soon': use 'YYYY-MM-DD HH:MM[:SS]', YYYY-MM-DDTHH:MM[:SS][Z|+HH:MM], now, +90m, +1d2h30m, "
         "'tomorrow 08:00' or @EPOCH-SECONDS\n"},
        {{"add", "-u", "z", "-m", "alpha", "-b", "2026-02-30 10:00", "-e", e}, 1,
         "rsvctl: -b '2026-02-30 10:00' is not a date and time of the calendar\n"},
        {{"add", "-u", "z", "-m", "alpha", "-b", b, "-e", e, "-d", "say \"hi\""}, 1,
         "rsvctl: the description may not hold control characters or double quotes\n"},
        {{"del", "x#0", "nobody#4"}, 2, "rsvctl: no reservation 'nobody#4'\n"},
        {{"show", "nobody#4"}, 2, "rsvctl: no reservation 'nobody#4'\n"},
        {{"mod", "nobody#4", "--end", "+5"}, 2, "rsvctl: no reservation 'nobody#4'\n"},
        {{"mod", "x#0"}, 1,
         "rsvctl: name a change: --begin/--end, --add-hosts, --rm-hosts, --rm-slots, --disable, --enable or "
         "--description\n"},
        {{"mod", "x#0", "--end", "+5", "--rm-slots", "1"}, 1,
         "rsvctl: give one change per command (--begin and --end may go together)\n"},
        {{"mod", "x#0", "--end", "+5x"}, 1,
         "rsvctl: bad --end shift '+5x': use +N or -N minutes, or units such as +2h, -1d or +1d2h30m\n"},
        {{"mod", "x#0", "--end", "1000"}, 2,
         "rsvctl: the end '1000' is not acceptable: it must be in the future\n"},
        {{"mod", "x#0", "--begin", "+600"}, 1,
         "rsvctl: the end must come after the start ('+600' to (unchanged))\n"},
        {{"mod", "x#0", "--disable", "12:24"}, 2,
         "rsvctl: reservation 'x#0' is not recurring: only a daily or weekly reservation has days to disable or "
         "enable\n"},
        {{"mod", "x#0", "--rm-hosts", "beta"}, 2, "rsvctl: host 'beta' is not in reservation 'x#0'\n"},
        {{"mod", "x#0", "--rm-hosts", "alpha"}, 2,
         "rsvctl: the change would leave reservation 'x#0' with no hosts or no slots\n"},
        {{"mod", "x#0", "--rm-slots", "1"}, 2,
         "rsvctl: the change would leave reservation 'x#0' with no hosts or no slots\n"},
        {{"mod", "x#0", "--rm-slots", "5"}, 2, "rsvctl: reservation 'x#0' holds 1 slot: it cannot give back 5\n"},
        {{"mod", "x#0", "--add-hosts", "nohost"}, 2, "rsvctl: unknown host 'nohost': not in the cluster file\n"},
        {{"mod", "x#0", "-n", "2", "--end", "+5"}, 1, "rsvctl: -n goes with --add-hosts\n"},
        {{"planner", "nohost"}, 2, "rsvctl: unknown host 'nohost': not in the cluster file\n"},
        {{"planner", "alpha", "--week", "soon"}, 1,
         "rsvctl: bad --week 'soon': use 'YYYY-MM-DD HH:MM[:SS]', YYYY-MM-DDTHH:MM[:SS][Z|+HH:MM], now, +90m, +1d2h30m, "
         "'tomorrow 08:00' or @EPOCH-SECONDS\n"},
        {{"list", "-m", "nohost"}, 2, "rsvctl: unknown host 'nohost': not in the cluster file\n"},
    };
    auto before = snapshot(state);
    for (const Refusal &c : cases) {
        std::string joined;
        for (const auto &a : c.args)
            joined += a + " ";
        RunResult r = rsv(c.args);
        EXPECT_EQ(r.status, c.status) << joined << "\n" << r.err;
        EXPECT_EQ(r.err, c.message) << joined;
        EXPECT_EQ(snapshot(state), before) << joined;
    }
}

TEST_F(Rsvctl, RecurringRefusalsFromTheModule)
{
    ASSERT_EQ(rsv({"add", "-u", "r", "-m", "alpha", "-t", "8:00-17:00"}).status, 0);
    auto before = snapshot(state);
    const std::vector<Refusal> cases = {
        {{"mod", "r#0", "--disable", "2026:2:30"}, 1,
         "rsvctl: bad --disable day '2026:2:30': use YYYY-MM-DD, M:D, D or Y:M:D, a range such as "
         "2026-12-24..2027-01-02 or 12:30-1:2, or a list of them separated by commas\n"},
        {{"mod", "r#0", "--disable", "2026:11:1"}, 2, "rsvctl: the date '2026:11:1' is in the past\n"},
        {{"mod", "r#0", "--enable", "2026-12-24"}, 2,
         "rsvctl: none of the days '2026-12-24' is disabled in reservation 'r#0'\n"},
        {{"mod", "r#0", "--begin", "+5"}, 2,
         "rsvctl: reservation 'r#0' is recurring: --begin and --end move one-off reservations; delete it and add "
         "it again with the new window\n"},
    };
    for (const Refusal &c : cases) {
        RunResult r = rsv(c.args);
        EXPECT_EQ(r.status, c.status) << c.args[2];
        EXPECT_EQ(r.err, c.message) << c.args[2];
    }
    EXPECT_EQ(snapshot(state), before);
    ASSERT_EQ(rsv({"mod", "r#0", "--disable", "12:24-12:26"}).status, 0);
    RunResult dup = rsv({"mod", "r#0", "--disable", "12:25"});
    EXPECT_EQ(dup.status, 2);
    EXPECT_EQ(dup.err, "rsvctl: the days '12:25' are already disabled in reservation 'r#0'\n");
}

TEST_F(Rsvctl, OwnerLimitComesFromTheClusterFile)
{
    for (int i = 0; i < 3; ++i)
        addOneOff("amy", "1", "alpha", kThu0900 + i * 60, kThu1700);
    auto before = snapshot(state);
    RunResult r = rsv({"add", "-u", "amy", "-n", "1", "-m", "alpha", "-b", std::to_string(kThu0900), "-e", std::to_string(kThu1700)});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, "rsvctl: owner 'amy' already holds 3 reservations, the most allowed (max-per-owner)\n");
    EXPECT_EQ(snapshot(state), before);
}

TEST_F(Rsvctl, UsageErrorsExitOne)
{
    RunResult missing = rsv({"add", "-m", "alpha", "-t", "8-9"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err, "rsvctl: give the owner: -u USER (or --system for a system reservation)\n");
    EXPECT_EQ(rsv({}).status, 1);
    EXPECT_EQ(rsv({"frobnicate"}).status, 1);
    EXPECT_EQ(rsv({"list", "--color", "pink"}).status, 1);
}

TEST_F(Rsvctl, EveryCommandHasHelpWithExamples)
{
    for (const char *cmd : {"add", "del", "list", "show", "mod", "planner", "check", "hosts", "demo", "init"}) {
        RunResult r = runRsvctl({cmd, "--help"}, kNow);
        EXPECT_EQ(r.status, 0) << cmd;
        EXPECT_NE(r.out.find("Example"), std::string::npos) << cmd << "\n" << r.out;
    }
    RunResult top = runRsvctl({"--help"}, kNow);
    EXPECT_EQ(top.status, 0);
    EXPECT_NE(top.out.find("Exit status:\n  0  done\n  1  usage"), std::string::npos) << top.out;
}

// ---------------------------------------------------------------- del

TEST_F(Rsvctl, DeleteRemovesOnlyWhenEveryIdentifierExists)
{
    addOneOff("a", "1", "alpha", kThu0900, kThu1700);
    addOneOff("b", "1", "alpha", kThu0900, kThu1700);
    RunResult r = rsv({"del", "a#0", "b#0"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "deleted a#0\ndeleted b#0\n");
    EXPECT_EQ(stateFile(), "");
    // The counters go on: the next identifier is not reused.
    EXPECT_EQ(addOneOff("a", "1", "alpha", kThu0900, kThu1700), "a#1");
}

// ---------------------------------------------------------------- list, show

TEST_F(Rsvctl, ListPrintsAlignedColumnsAndFilters)
{
    addOneOff("alice", "4", "alpha", kThu0900, kThu1700);
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "2", "-m", "g1", "-t", "22:00-6:00", "-d", "nightly"}).status, 0);
    RunResult r = rsv({"list"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "ID       OWNER  TYPE     SLOTS  HOSTS    WINDOW                             STATUS\n"
              "alice#0  alice  one-off      4  alpha:4  Thu 11-19 09:00 - Thu 11-19 17:00  upcoming\n"
              "bob#0    bob    daily        2  gamma:2  daily 22:00-06:00                  upcoming\n");
    RunResult byOwner = rsv({"list", "-u", "bob"});
    EXPECT_EQ(lines(byOwner.out).size(), 2u);
    EXPECT_NE(byOwner.out.find("bob#0"), std::string::npos);
    RunResult byAlias = rsv({"list", "-m", "g2"});
    EXPECT_EQ(lines(byAlias.out).size(), 2u);
    EXPECT_NE(byAlias.out.find("bob#0"), std::string::npos);
    RunResult none = rsv({"list", "-u", "carol"});
    EXPECT_EQ(none.out, "no reservations\n");
}

TEST_F(Rsvctl, ListJsonHasEveryDocumentedField)
{
    addOneOff("alice", "4:6", "alpha,beta", kThu0900, kThu1700);
    json j = listJson();
    EXPECT_EQ(j["now"], kNow);
    ASSERT_EQ(j["reservations"].size(), 1u);
    nlohmann::ordered_json r = nlohmann::ordered_json::parse(rsv({"list", "--json"}).out)["reservations"][0];
    const std::vector<std::string> keys = {"id",    "owner",   "type",  "system",   "window",      "window_text",
                                           "begin", "end",     "duration", "hosts", "slots",       "state",
                                           "status", "current", "next",  "disabled", "description", "created",
                                           "creator"};
    std::vector<std::string> got;
    for (auto it = r.begin(); it != r.end(); ++it)
        got.push_back(it.key());
    EXPECT_EQ(got, keys);
    EXPECT_EQ(r["id"], "alice#0");
    EXPECT_EQ(r["owner"], "alice");
    EXPECT_EQ(r["type"], "one-off");
    EXPECT_EQ(r["system"], false);
    EXPECT_EQ(r["window"], "1795078800-1795107600");
    EXPECT_EQ(r["begin"], kThu0900);
    EXPECT_EQ(r["end"], kThu1700);
    EXPECT_EQ(r["duration"], 8 * 3600);
    ASSERT_EQ(r["hosts"].size(), 1u);  // just enough hosts: alpha gives 4
    EXPECT_EQ(r["hosts"][0]["name"], "alpha");
    EXPECT_EQ(r["hosts"][0]["slots"], 4);
    EXPECT_EQ(r["hosts"][0]["capacity"], 8);
    EXPECT_EQ(r["hosts"][0]["cpus"], 16);
    EXPECT_EQ(r["slots"], 4);
    EXPECT_EQ(r["state"], "inactive");
    EXPECT_EQ(r["status"], "upcoming");
    EXPECT_EQ(r["current"]["begin"], kThu0900);
    EXPECT_EQ(r["current"]["end"], kThu1700);
    EXPECT_TRUE(r["next"].is_null());
    EXPECT_TRUE(r["disabled"].is_array() && r["disabled"].empty());
    EXPECT_TRUE(r["description"].is_null());
    EXPECT_EQ(r["created"], kNow);
}

TEST_F(Rsvctl, ShowTellsEverythingAboutARecurringReservation)
{
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "3", "-m", "alpha", "-t", "22:00-6:00", "-d", "nightly batch"}).status,
              0);
    ASSERT_EQ(rsv({"mod", "bob#0", "--disable", "2026:11:19"}).status, 0);
    RunResult r = rsv({"show", "bob#0"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "Reservation  bob#0\n"
              "Owner        bob\n"
              "Type         daily (recurring)\n"
              "Window       every day 22:00 to 06:00 (8h)\n"
              "Hosts        3 slots on 1 host\n"
              "             HOST   SLOTS  CAPACITY  CPUS\n"
              "             alpha      3         8    16\n"
              "State        upcoming, from Wed 2026-11-18 22:00\n"
              "Current      -\n"
              "Next         Wed 2026-11-18 22:00 - Thu 2026-11-19 06:00\n"
              "Disabled     Thu Nov 19 2026\n"
              "Description  nightly batch\n"
              "Created      Wed 2026-11-18 10:00\n"
              "Creator      tester\n");
    json j = json::parse(rsv({"show", "bob#0", "--json"}).out);
    EXPECT_EQ(j["type"], "daily");
    EXPECT_TRUE(j["begin"].is_null());
    EXPECT_EQ(j["disabled"], json::array({"Thu Nov 19 2026"}));
    EXPECT_EQ(j["description"], "nightly batch");
    EXPECT_EQ(j["current"]["begin"], kNow + 12 * 3600);
    EXPECT_EQ(j["next"]["begin"], kNow + 12 * 3600);
    EXPECT_EQ(j["duration"], 8 * 3600);
}

TEST_F(Rsvctl, ShowSkipsDisabledDaysInTheNextInstance)
{
    ASSERT_EQ(rsv({"add", "-u", "bob", "-m", "alpha", "-t", "22:00-6:00"}).status, 0);
    ASSERT_EQ(rsv({"mod", "bob#0", "--disable", "18-19"}).status, 0);
    json j = json::parse(rsv({"show", "bob#0", "--json"}).out);
    EXPECT_EQ(j["next"]["begin"], kNow + 12 * 3600 + 2 * 86400);  // Fri 20 Nov 22:00
    EXPECT_EQ(j["disabled"], json::array({"Wed Nov 18 2026 - Thu Nov 19 2026"}));
}

// ---------------------------------------------------------------- mod

TEST_F(Rsvctl, ModMovesTheEndAndTheBegin)
{
    addOneOff("a", "2", "alpha", kThu0900, kThu1700);
    RunResult later = rsv({"mod", "a#0", "--end", "+60"});
    EXPECT_EQ(later.status, 0) << later.err;
    EXPECT_EQ(later.out, "a#0: window now Thu 2026-11-19 09:00 to Thu 2026-11-19 18:00 (9h)\n");
    RunResult both = rsv({"mod", "a#0", "--begin", "2026-11-19 08:00", "--end", "-2h"});
    EXPECT_EQ(both.status, 0) << both.err;
    EXPECT_EQ(both.out, "a#0: window now Thu 2026-11-19 08:00 to Thu 2026-11-19 16:00 (8h)\n");
    json j = listJson()["reservations"][0];
    EXPECT_EQ(j["begin"], kThu0900 - 3600);
    EXPECT_EQ(j["end"], kThu1700 - 3600);
    EXPECT_EQ(j["duration"], 8 * 3600);
}

TEST_F(Rsvctl, ModWindowThatDoesNotFitSaysWhyAndChangesNothing)
{
    addOneOff("a", "6", "alpha", kThu0900, kThu1700);
    addOneOff("b", "4", "alpha", kThu1700, kThu1700 + 3600);
    auto before = snapshot(state);
    RunResult r = rsv({"mod", "a#0", "--end", "+30"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err,
              "rsvctl: not enough free slots on 'alpha' for time window 'Thu 2026-11-19 09:00 - Thu "
              "2026-11-19 17:30'\n"
              "why: free slots over the window, per asked host\n"
              "  HOST   CAPACITY  FREE  NEEDED  FIRST SHORT\n"
              "  alpha         8     4       6  Thu 2026-11-19 17:00 (4 free)\n");
    EXPECT_EQ(snapshot(state), before);
}

TEST_F(Rsvctl, ModAddsAndRemovesHostsAndSlots)
{
    addOneOff("a", "4", "alpha", kThu0900, kThu1700);
    RunResult add = rsv({"mod", "a#0", "--add-hosts", "g1", "-n", "2"});
    EXPECT_EQ(add.status, 0) << add.err;
    EXPECT_EQ(add.out, "a#0: added g1\n");
    json j = listJson()["reservations"][0];
    ASSERT_EQ(j["hosts"].size(), 2u);
    EXPECT_EQ(j["hosts"][0]["name"], "gamma");
    EXPECT_EQ(j["hosts"][0]["slots"], 2);
    EXPECT_EQ(j["slots"], 6);

    // Slots are given back in the reservation's host order: the added gamma
    // comes first.
    RunResult rmSlots = rsv({"mod", "a#0", "--rm-slots", "1"});
    EXPECT_EQ(rmSlots.status, 0) << rmSlots.err;
    EXPECT_EQ(rmSlots.out, "a#0: 1 slot given back\n");
    EXPECT_EQ(listJson()["reservations"][0]["slots"], 5);

    RunResult rmHost = rsv({"mod", "a#0", "--rm-hosts", "a1"});
    EXPECT_EQ(rmHost.status, 0) << rmHost.err;
    EXPECT_EQ(rmHost.out, "a#0: removed a1 (4 slots given back)\n");
    json after = listJson()["reservations"][0];
    ASSERT_EQ(after["hosts"].size(), 1u);
    EXPECT_EQ(after["hosts"][0]["name"], "gamma");
    EXPECT_EQ(after["hosts"][0]["slots"], 1);

    RunResult tooMany = rsv({"mod", "a#0", "--add-hosts", "beta", "-n", "5"});
    EXPECT_EQ(tooMany.status, 2);
    EXPECT_NE(tooMany.err.find("  beta         4     4       5  Thu 2026-11-19 09:00 (4 free)\n"), std::string::npos)
        << tooMany.err;
}

TEST_F(Rsvctl, ModDisablesDaysAndSetsTheDescription)
{
    ASSERT_EQ(rsv({"add", "-u", "w", "-n", "2", "-m", "beta", "-t", "sat:8:00-sun:20:00"}).status, 0);
    RunResult off = rsv({"mod", "w#0", "--disable", "12:24-12:26"});
    EXPECT_EQ(off.status, 0) << off.err;
    EXPECT_EQ(off.out, "w#0: off on Thu Dec 24 2026 - Sat Dec 26 2026\n");
    RunResult desc = rsv({"mod", "w#0", "--description", "weekend"});
    EXPECT_EQ(desc.out, "w#0: description set\n");
    json j = json::parse(rsv({"show", "w#0", "--json"}).out);
    EXPECT_EQ(j["description"], "weekend");
    EXPECT_EQ(j["disabled"], json::array({"Thu Dec 24 2026 - Sat Dec 26 2026"}));
    RunResult clear = rsv({"mod", "w#0", "--description", ""});
    EXPECT_EQ(clear.out, "w#0: description removed\n");
    EXPECT_TRUE(json::parse(rsv({"show", "w#0", "--json"}).out)["description"].is_null());
}

// ---------------------------------------------------------------- planner

TEST_F(Rsvctl, PlannerDrawsTheWeekAsAHeatMap)
{
    addOneOff("a", "8", "alpha", kThu0900, kThu1700);
    ASSERT_EQ(rsv({"add", "-u", "b", "-n", "2", "-m", "a1", "-t", "22:00-1:00"}).status, 0);
    RunResult r = rsv({"planner", "a1"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "alpha: 8 slots, week Sun 2026-11-15 to Sat 2026-11-21\n"
              "           0     3     6     9     12    15    18    21\n"
              "           |     |     |     |     |     |     |     |\n"
              "Sun 11-15  --..........................................----\n"
              "Mon 11-16  --..........................................----\n"
              "Tue 11-17  --..........................................----\n"
              "Wed 11-18  --..........................................----\n"
              "Thu 11-19  --................@@@@@@@@@@@@@@@@..........----\n"
              "Fri 11-20  --..........................................----\n"
              "Sat 11-21  --..........................................----\n"
              "legend: . free  - <=25%  + <=50%  * <=75%  # <100%  @ full  ! over   (30 min per column)\n");
    RunResult next = rsv({"planner", "alpha", "--week", "2026-11-25"});
    // The next week holds only the daily booking.
    EXPECT_NE(next.out.find("Thu 11-26  --..........................................----\n"), std::string::npos)
        << next.out;
}

TEST_F(Rsvctl, PlannerColoursOnlyWhenAsked)
{
    addOneOff("a", "3", "alpha", kThu0900, kThu1700);
    EXPECT_EQ(rsv({"planner", "alpha"}).out.find('\x1b'), std::string::npos);
    RunResult coloured = rsv({"--color", "always", "planner", "alpha"});
    EXPECT_NE(coloured.out.find("\x1b[30;48;5;186m"), std::string::npos);
}

TEST_F(Rsvctl, PlannerWritesTheFullGridAsSvg)
{
    addOneOff("a", "4", "alpha", kThu0900, kThu1700);
    std::string svg = tmp.file("alpha.svg");
    RunResult r = rsv({"planner", "alpha", "--svg", svg});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("wrote " + svg + "\n"), std::string::npos);
    std::string text = rsvtest::readFile(svg);
    EXPECT_EQ(text.rfind("<svg xmlns=\"http://www.w3.org/2000/svg\"", 0), 0u);
    EXPECT_NE(text.find("<title>Thu 09:00-17:00: 4 of 8 slots</title>"), std::string::npos);
    EXPECT_NE(text.find(">booked / capacity:</text>"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 7), "</svg>\n");
    RunResult bad = rsv({"planner", "alpha", "--svg", tmp.file("no/such/dir.svg")});
    EXPECT_EQ(bad.status, 3);
    EXPECT_EQ(bad.err, "rsvctl: cannot write SVG file '" + tmp.file("no/such/dir.svg") + "'\n");
}

// ---------------------------------------------------------------- check, hosts

TEST_F(Rsvctl, CheckFindsLostAndOverReservedHosts)
{
    addOneOff("a", "2", "gamma", kThu0900, kThu1700);
    addOneOff("b", "6", "alpha", kThu0900, kThu1700);
    RunResult ok = rsv({"check"});
    EXPECT_EQ(ok.status, 0);
    EXPECT_EQ(ok.out,
              "ok: every reserved host exists and none is over-reserved\n"
              "ok: the table's invariants hold\n"
              "files on disk match the table\n");
    // gamma leaves the cluster and alpha shrinks.
    rsvtest::writeFile(state + "/hosts.conf", "alpha 4 16 a1\nbeta 4\n");
    RunResult bad = rsv({"check"});
    EXPECT_EQ(bad.status, 3);
    EXPECT_EQ(bad.out,
              "hosts that no longer exist:\n"
              "  HOST   RESERVATIONS\n"
              "  gamma  a#0\n"
              "over-reserved hosts (most slots booked at once):\n"
              "  HOST   CAPACITY  BOOKED\n"
              "  alpha         4       6\n"
              "ok: the table's invariants hold\n"
              "files on disk match the table\n");
}

TEST_F(Rsvctl, HostsShowsCapacityAndThisWeeksPeak)
{
    addOneOff("a", "6", "alpha", kThu0900, kThu1700);
    RunResult r = rsv({"hosts"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "HOST   SLOTS  CPUS  ALIASES  RSVS  PEAK THIS WEEK\n"
              "alpha      8    16  a1          1  6/8 from Thu 2026-11-19 09:00\n"
              "beta       4     4  -           0  -\n"
              "gamma      2     2  g1,g2       0  -\n"
              "max-per-owner 3\n");
}

// ---------------------------------------------------------------- files

TEST_F(Rsvctl, ClusterFileErrorsNameTheLine)
{
    rsvtest::writeFile(state + "/hosts.conf", "alpha 8\n# fine\nbeta four\n");
    RunResult r = rsv({"list"});
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "rsvctl: " + state + "/hosts.conf:3: slots of host 'beta' must be a positive number, not 'four'\n");
    rsvtest::writeFile(state + "/hosts.conf", "alpha 8 a1\nbeta 4 a1\n");
    EXPECT_EQ(rsv({"list"}).err, "rsvctl: " + state + "/hosts.conf:2: 'a1' is already a host name or alias\n");
    rsvtest::writeFile(state + "/hosts.conf", "max-per-owner lots\n");
    EXPECT_EQ(rsv({"list"}).err, "rsvctl: " + state + "/hosts.conf:1: max-per-owner takes one number from 1 to 10000\n");
    rsvtest::writeFile(state + "/hosts.conf", "alpha\n");
    EXPECT_EQ(rsv({"list"}).err,
              "rsvctl: " + state + "/hosts.conf:1: host 'alpha' needs a number of slots: name slots [cpus] [alias ...]\n");
}

TEST_F(Rsvctl, UnreadableStateLinesBlockChangesButNotListing)
{
    addOneOff("a", "1", "alpha", kThu0900, kThu1700);
    rsvtest::writeFile(state + "/rsv.state", stateFile() + "this is not a reservation\n");
    auto before = snapshot(state);
    RunResult add = rsv({"add", "-u", "b", "-m", "alpha", "-b", std::to_string(kThu0900), "-e", std::to_string(kThu1700)});
    EXPECT_EQ(add.status, 3);
    EXPECT_EQ(add.err.rfind("rsvctl: 1 line(s) of '" + state + "/rsv.state' could not be read", 0), 0u) << add.err;
    EXPECT_EQ(snapshot(state), before);
    RunResult list = rsv({"list"});
    EXPECT_EQ(list.status, 0);
    EXPECT_NE(list.out.find("a#0"), std::string::npos);
    EXPECT_EQ(list.err, "rsvctl: warning: 1 line(s) of '" + state + "/rsv.state' could not be read and are not shown\n");
    RunResult verbose = rsv({"-v", "list"});
    EXPECT_NE(verbose.err.find("rsvctl: module [3]: RsvTimeTbl_load: line 2 of " + state + "/rsv.state rejected\n"),
              std::string::npos)
        << verbose.err;
    RunResult check = rsv({"check"});
    EXPECT_EQ(check.status, 3);
    EXPECT_EQ(check.out, "1 line(s) of " + state +
                             "/rsv.state could not be read (rsvctl -v check names them)\n"
                             "ok: the table's invariants hold\n"
                             "files on disk match the table\n");
    EXPECT_EQ(snapshot(state), before);
}

TEST(RsvctlStateDir, TheDefaultDirectoryNeedsItsClusterFileFromInit)
{
    rsvtest::TempDir tmp;
    RunOptions opts;
    opts.cwd = tmp.path();
    // No directory yet: a configuration problem, and nothing is left behind.
    RunResult refused = runRsvctl({"add", "-u", "a", "-m", "node1", "-b", "+1h", "-e", "+2h"}, kNow, "UTC", opts);
    EXPECT_EQ(refused.status, 3);
    EXPECT_EQ(refused.err, "rsvctl: no state directory 'rsv-state': create one with 'rsvctl --state-dir rsv-state "
                           "init --host NAME:SLOTS ...', or run 'rsvctl --state-dir rsv-state demo' for the built-in "
                           "demo cluster\n");
    EXPECT_FALSE(rsvtest::fileExists(tmp.file("rsv-state")));
    // The default directory is ./rsv-state.
    RunResult init = runRsvctl({"init", "--host", "hpc01:16"}, kNow, "UTC", opts);
    EXPECT_EQ(init.status, 0) << init.err;
    RunResult added = runRsvctl({"add", "-u", "a", "-m", "hpc01", "-b", "+1h", "-e", "+2h"}, kNow, "UTC", opts);
    EXPECT_EQ(added.status, 0) << added.err;
    EXPECT_TRUE(rsvtest::fileExists(tmp.file("rsv-state/rsv.state")));
    EXPECT_TRUE(rsvtest::fileExists(tmp.file("rsv-state/rsv.ids")));
    RunResult hosts = runRsvctl({"hosts"}, kNow, "UTC", opts);
    EXPECT_EQ(lines(hosts.out).size(), 2u) << hosts.out;  // header, hpc01
}

TEST(RsvctlStateDir, EnvironmentNamesTheDirectoryAndTheOptionWins)
{
    rsvtest::TempDir tmp;
    RunOptions opts;
    opts.cwd = tmp.path();
    opts.env["RSV_STATE_DIR"] = tmp.file("fromenv");
    EXPECT_EQ(runRsvctl({"init", "--host", "hpc01:4"}, kNow, "UTC", opts).status, 0);
    EXPECT_EQ(runRsvctl({"add", "-u", "a", "-m", "hpc01", "-b", "+1h", "-e", "+2h"}, kNow, "UTC", opts).status, 0);
    EXPECT_TRUE(rsvtest::fileExists(tmp.file("fromenv/rsv.state")));
    RunResult other = runRsvctl({"--state-dir", tmp.file("opt"), "list"}, kNow, "UTC", opts);
    EXPECT_EQ(other.status, 3);
    EXPECT_EQ(other.err.rfind("rsvctl: no state directory '" + tmp.file("opt") + "'", 0), 0u) << other.err;
    EXPECT_FALSE(rsvtest::fileExists(tmp.file("rsv-state")));
}

TEST(RsvctlStateDir, AFileWhereTheDirectoryShouldBeIsAFileProblem)
{
    rsvtest::TempDir tmp;
    rsvtest::writeFile(tmp.file("plain"), "x");
    RunResult r = runRsvctl({"--state-dir", tmp.file("plain"), "list"}, kNow);
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "rsvctl: state directory '" + tmp.file("plain") + "' is not a directory\n");
}

// ---------------------------------------------------------------- lock

TEST(RsvctlLock, TwoProcessesAddingFiftyEachEndWithAHundred)
{
    rsvtest::TempDir tmp;
    std::string state = tmp.file("state");
    mkdir(state.c_str(), 0755);
    rsvtest::writeFile(state + "/hosts.conf", "max-per-owner 100\nbig 1000\n");
    auto worker = [&](const std::string &owner) {
        int failures = 0;
        for (int i = 0; i < 50; ++i) {
            RunResult r = runRsvctl({"--state-dir", state, "add", "-u", owner, "-n", "1", "-m", "big", "-b",
                                     std::to_string(kThu0900 + i * 60), "-e", std::to_string(kThu1700)},
                                    kNow);
            failures += r.status != 0;
        }
        return failures;
    };
    pid_t child = fork();
    if (child == 0)
        _exit(worker("p1") == 0 ? 0 : 1);
    int parentFailures = worker("p2");
    int wstatus = 0;
    waitpid(child, &wstatus, 0);
    EXPECT_EQ(parentFailures, 0);
    EXPECT_TRUE(WIFEXITED(wstatus) && WEXITSTATUS(wstatus) == 0);
    RunResult list = runRsvctl({"--state-dir", state, "list", "--json"}, kNow);
    json j = json::parse(list.out);
    EXPECT_EQ(j["reservations"].size(), 100u);
    EXPECT_EQ(lines(rsvtest::readFile(state + "/rsv.state")).size(), 100u);
    EXPECT_EQ(rsvtest::readFile(state + "/rsv.ids").rfind("9.11\n2\n", 0), 0u);
}

// ---------------------------------------------------------------- demo

TEST(RsvctlDemo, RunsFromAFreshDirectoryOnOneScreen)
{
    rsvtest::TempDir tmp;
    RunOptions opts;
    opts.cwd = tmp.path();
    RunResult r = runRsvctl({"demo"}, kNow, "UTC", opts);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    std::vector<std::string> out = lines(r.out);
    EXPECT_LE(out.size(), 50u);
    for (const auto &line : out)
        EXPECT_LE(line.size(), 100u) << line;
    EXPECT_NE(r.out.find("$ rsvctl add -u alice -n 24 -m hpc01,hpc02 -b '2026-11-23 09:00' -e '2026-11-25 "
                         "17:00' -d 'training'\nalice#0\n24 slots on hpc01:8,hpc02:16\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("bob#0: off on Thu Nov 26 2026\n"), std::string::npos);
    EXPECT_NE(r.out.find("rsvctl: not enough free slots on 'hpc01,hpc02' for '2026-11-24 10:00' to '2026-11-24 "
                         "14:00'\n"),
              std::string::npos);
    EXPECT_NE(r.out.find("  hpc01        16     8      12  Tue 2026-11-24 10:00 (8 free)\n"), std::string::npos);
    EXPECT_NE(r.out.find("system#0  system     16  hpc01:16          Thu 11-26 12:00 - Thu 11-26 16:00  maintenance\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("Thu 11-26  ++++++++++++............@@@@@@@@................\n"), std::string::npos);
    EXPECT_EQ(lines(rsvtest::readFile(tmp.file("rsv-state/rsv.state"))).size(), 4u);
    EXPECT_TRUE(rsvtest::fileExists(tmp.file("rsv-state/hosts.conf")));

    // A second run refuses to mix with what is there.
    RunResult again = runRsvctl({"demo"}, kNow, "UTC", opts);
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("already holds reservations"), std::string::npos);
}

TEST(RsvctlDemo, RunsInAnotherZone)
{
    rsvtest::TempDir tmp;
    RunResult r = runRsvctl({"--state-dir", tmp.file("d"), "demo"}, kNow, "America/New_York");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("alice#0\n"), std::string::npos);
    EXPECT_NE(r.out.find("(8 free)"), std::string::npos) << r.out;
}

} // namespace
