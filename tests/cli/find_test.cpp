// End-to-end tests of rsvctl find and add --earliest: the built program in
// temporary state directories, the clock pinned to Wed 2026-11-18 10:00 (or
// to dates around a clock change) and the zone pinned.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "rsv_test_support.h"
#include "rsvctl_runner.h"

using rsvctltest::lines;
using rsvctltest::RunResult;
using rsvctltest::runRsvctl;
using rsvctltest::snapshot;
using nlohmann::json;

namespace {

using rsvctltest::kNow;
using rsvctltest::kSmallCluster;


class Find : public ::testing::Test {
protected:
    void SetUp() override
    {
        state = tmp.file("state");
        mkdir(state.c_str(), 0755);
        rsvtest::writeFile(state + "/hosts.conf", kSmallCluster);
        // The lock file, as the first command leaves it (a read makes it
        // when it is missing): from then on a find writes nothing at all.
        rsvtest::writeFile(state + "/rsv.lock", "");
    }

    RunResult rsv(std::vector<std::string> args, const std::string &tz = "UTC", long long now = kNow)
    {
        args.insert(args.begin(), {"--state-dir", state});
        return runRsvctl(args, now, tz);
    }

    // A change that must succeed.
    void book(std::vector<std::string> args, const std::string &tz = "UTC", long long now = kNow)
    {
        RunResult r = rsv(std::move(args), tz, now);
        ASSERT_EQ(r.status, 0) << r.err;
    }

    // A find that must write nothing, whatever it answers.
    RunResult find(std::vector<std::string> args, const std::string &tz = "UTC", long long now = kNow)
    {
        auto before = snapshot(state);
        args.insert(args.begin(), "find");
        RunResult r = rsv(std::move(args), tz, now);
        EXPECT_EQ(snapshot(state), before);
        return r;
    }

    rsvtest::TempDir tmp;
    std::string state;
};

// ---------------------------------------------------------------- one-off

TEST_F(Find, AFitStartsExactlyWhenABookingEnds)
{
    book({"add", "-u", "x", "-n", "8", "-m", "alpha", "-b", "2026-11-18 10:30", "-e", "2026-11-19 09:00"});
    RunResult r = find({"-u", "alice", "-n", "8", "-m", "alpha", "-D", "6h"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out,
              "Start        Thu 2026-11-19 09:00\n"
              "End          Thu 2026-11-19 15:00 (6h)\n"
              "Hosts        8 slots on 1 host\n"
              "             HOST   SLOTS  CAPACITY  CPUS\n"
              "             alpha      8         8    16\n");
    // A short window ends exactly when the booking begins; the first start
    // is the first 10-minute boundary after now.
    RunResult shortOne = find({"-u", "alice", "-n", "8", "-m", "alpha", "-D", "20m"});
    EXPECT_EQ(shortOne.status, 0) << shortOne.err;
    EXPECT_EQ(lines(shortOne.out)[0], "Start        Wed 2026-11-18 10:10");
    EXPECT_EQ(lines(shortOne.out)[1], "End          Wed 2026-11-18 10:30 (20m)");
    // Ten minutes longer no longer fits before it.
    RunResult longer = find({"-u", "alice", "-n", "8", "-m", "alpha", "-D", "30m"});
    EXPECT_EQ(lines(longer.out)[0], "Start        Thu 2026-11-19 09:00");
}

TEST_F(Find, ARequestThatNeedsTwoHostsThroughAnAlias)
{
    book({"add", "-u", "x", "-n", "4", "-m", "beta", "-b", "2026-11-18 10:30", "-e", "2026-11-18 20:00"});
    // alpha gives 8 of 10 at any time; beta has the other 2 only from 20:00.
    RunResult r = find({"-u", "alice", "-n", "10", "-m", "a1,beta", "-D", "2h"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "Start        Wed 2026-11-18 20:00\n"
              "End          Wed 2026-11-18 22:00 (2h)\n"
              "Hosts        10 slots on 2 hosts\n"
              "             HOST   SLOTS  CAPACITY  CPUS\n"
              "             alpha      8         8    16\n"
              "             beta       2         4     4\n");
    // With a range up to MAX, the hosts are filled as far as they can.
    RunResult range = find({"-u", "alice", "-n", "10:12", "-m", "alpha,beta", "-D", "2h"});
    EXPECT_EQ(lines(range.out)[2], "Hosts        12 slots on 2 hosts");
}

TEST_F(Find, AfterAndBeforeBoundTheStart)
{
    RunResult after = find({"-u", "a", "-m", "gamma", "-D", "1h", "--after", "2026-11-20 08:05"});
    EXPECT_EQ(after.status, 0) << after.err;
    EXPECT_EQ(lines(after.out)[0], "Start        Fri 2026-11-20 08:10");
    // An --after in the past is now.
    RunResult past = find({"-u", "a", "-m", "gamma", "-D", "1h", "--after", "2026-11-01"});
    EXPECT_EQ(lines(past.out)[0], "Start        Wed 2026-11-18 10:10");
    RunResult relative = find({"-u", "a", "-m", "g2", "-D", "1h", "--after", "+1d"});
    EXPECT_EQ(lines(relative.out)[0], "Start        Thu 2026-11-19 10:00");
}

// ---------------------------------------------------------------- recurring

TEST_F(Find, ADailyFindSkipsRecurringAndDatedBookings)
{
    book({"add", "-u", "bob", "-n", "8", "-m", "alpha", "-t", "22:00-6:00"});
    book({"add", "-u", "x", "-n", "8", "-m", "alpha", "-b", "2026-11-19 06:00", "-e", "2026-11-19 07:00"});
    RunResult r = find({"-u", "carol", "-n", "4", "-m", "alpha", "-D", "8h", "--daily"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "Start        every day 07:00\n"
              "End          15:00 (8h)\n"
              "Hosts        4 slots on 1 host\n"
              "             HOST   SLOTS  CAPACITY  CPUS\n"
              "             alpha      4         8    16\n");
}

TEST_F(Find, ADailyWindowMayRunPastMidnight)
{
    book({"add", "-u", "x", "-n", "8", "-m", "alpha", "-b", "2026-11-19 06:00", "-e", "2026-11-19 07:00"});
    RunResult r = find({"-u", "carol", "-m", "alpha", "-D", "23h", "--daily"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out)[0], "Start        every day 07:00");
    EXPECT_EQ(lines(r.out)[1], "End          06:00 the next day (23h)");
}

TEST_F(Find, AWeeklyFindGivesTheDayAndTime)
{
    book({"add", "-u", "lab", "-n", "8", "-m", "alpha", "-t", "fri:18:00-mon:6:00"});
    RunResult r = find({"-u", "carol", "-n", "1", "-m", "alpha", "-D", "2d", "--weekly"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "Start        every Mon 06:00\n"
              "End          Wed 06:00 (2d)\n"
              "Hosts        1 slot on 1 host\n"
              "             HOST   SLOTS  CAPACITY  CPUS\n"
              "             alpha      1         8    16\n");
    // The whole free stretch, Monday 06:00 to Friday 18:00.
    RunResult longest = find({"-u", "carol", "-m", "alpha", "-D", "4d12h", "--weekly"});
    EXPECT_EQ(lines(longest.out)[1], "End          Fri 18:00 (4d 12h)");
}

// ---------------------------------------------------------------- nothing fits

struct NoFit {
    std::vector<std::string> args;
    std::string message;
};

TEST_F(Find, NothingFitsExitsTwoNamingTheClosestStartTheHostAndTheCell)
{
    // alpha: 6 of 8 slots taken from 10:10 until December.
    book({"add", "-u", "hog", "-n", "6", "-m", "alpha", "-b", "2026-11-18 10:10", "-e", "2026-12-02 00:00"});
    // beta: one slot on Thursday morning; gamma: a dated week and a weekly one.
    book({"add", "-u", "x", "-n", "1", "-m", "beta", "-b", "2026-11-19 10:00", "-e", "2026-11-19 11:00"});
    book({"add", "-u", "y", "-n", "2", "-m", "gamma", "-b", "2026-11-19 06:00", "-e", "2026-11-19 07:00"});
    book({"add", "-u", "lab", "-n", "2", "-m", "g1", "-t", "fri:18:00-mon:6:00"});
    const std::vector<NoFit> cases = {
        {{"-u", "a", "-n", "9", "-m", "gamma,beta", "-D", "1h"},
         "rsvctl: no 1h window with 9 slots on 'gamma,beta' starts before Wed 2027-01-13 10:00; closest: Wed "
         "2026-11-18 10:10 with 6 of 9 slots, every slot the hosts have\n"},
        {{"-u", "a", "-n", "4", "-m", "alpha", "-D", "1h", "--before", "2026-12-01"},
         "rsvctl: no 1h window with 4 slots on 'alpha' starts before Tue 2026-12-01 00:00; closest: Wed 2026-11-18 "
         "10:10 with 2 of 4 slots, held back by alpha at Wed 2026-11-18 10:10\n"},
        {{"-u", "a", "-n", "4", "-m", "a1", "-D", "1h", "--after", "2026-11-20 08:00", "--before", "2026-12-01"},
         "rsvctl: no 1h window with 4 slots on 'a1' starts between Fri 2026-11-20 08:00 and Tue 2026-12-01 00:00; "
         "closest: Fri 2026-11-20 08:00 with 2 of 4 slots, held back by alpha at Fri 2026-11-20 08:00\n"},
        {{"-u", "ops", "--system", "-m", "beta", "-D", "1d", "--before", "2026-11-19 11:00"},
         "rsvctl: no 1d window with nothing else booked on 'beta' starts before Thu 2026-11-19 11:00; closest: Wed "
         "2026-11-18 10:10, held back by a booking on beta at Thu 2026-11-19 10:00\n"},
        {{"-u", "a", "-n", "1", "-m", "beta", "-D", "1h", "--after", "2026-11-18 10:01", "--before", "2026-11-18 10:09"},
         "rsvctl: no 1h window with 1 slot on 'beta' starts between Wed 2026-11-18 10:01 and Wed 2026-11-18 10:09: "
         "no 10-minute boundary in the future lies in that range\n"},
        {{"-u", "a", "-n", "1", "-m", "gamma", "-D", "5d", "--weekly"},
         "rsvctl: no weekly 5d window with 1 slot on 'gamma' fits; closest: every Sun 00:00 with 0 of 1 slot, held "
         "back by gamma at Sun 00:00 in every week\n"},
        {{"-u", "a", "-n", "4", "-m", "beta", "-D", "23h30m", "--daily"},
         "rsvctl: no daily 23h 30m window with 4 slots on 'beta' fits; closest: every day 00:00 with 3 of 4 slots, "
         "held back by beta at Thu 10:00 in the week of Sun 2026-11-15\n"},
    };
    for (const NoFit &c : cases) {
        RunResult r = find(c.args);
        EXPECT_EQ(r.status, 2) << c.message;
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, c.message);
    }
}

// ---------------------------------------------------------------- add --earliest

TEST_F(Find, AddEarliestBooksWhatFindFound)
{
    book({"add", "-u", "x", "-n", "8", "-m", "alpha", "-b", "2026-11-18 10:30", "-e", "2026-11-19 09:00"});
    RunResult found = find({"-u", "alice", "-n", "8", "-m", "a1", "-D", "6h", "--json"});
    ASSERT_EQ(found.status, 0) << found.err;
    json fit = json::parse(found.out);

    RunResult added = rsv({"add", "-u", "alice", "-n", "8", "-m", "a1", "--earliest", "-D", "6h", "-d", "training"});
    EXPECT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(added.err, "");
    EXPECT_EQ(added.out, "alice#0\nbooked Thu 2026-11-19 09:00 to Thu 2026-11-19 15:00 (6h) on alpha:8\n");

    RunResult shown = rsv({"show", "alice#0", "--json"});
    json booked = json::parse(shown.out);
    EXPECT_EQ(booked["begin"], fit["begin"]);
    EXPECT_EQ(booked["end"], fit["end"]);
    EXPECT_EQ(booked["window"], fit["window"]);
    EXPECT_EQ(booked["hosts"], fit["hosts"]);
    EXPECT_EQ(booked["description"], "training");

    RunResult planner = rsv({"planner", "alpha", "--week", "2026-11-15"});
    ASSERT_EQ(planner.status, 0) << planner.err;
    std::vector<std::string> rows = lines(planner.out);
    ASSERT_GE(rows.size(), 9u);
    EXPECT_EQ(rows[6], "Wed 11-18  " + std::string(21, '.') + std::string(27, '@'));
    EXPECT_EQ(rows[7], "Thu 11-19  " + std::string(30, '@') + std::string(18, '.'));

    // The same request again takes the next window.
    RunResult again = rsv({"add", "-u", "alice", "-n", "8", "-m", "alpha", "--earliest", "-D", "6h"});
    EXPECT_EQ(again.out, "alice#1\nbooked Thu 2026-11-19 15:00 to Thu 2026-11-19 21:00 (6h) on alpha:8\n");
}

TEST_F(Find, AddEarliestDailyAndWeekly)
{
    book({"add", "-u", "bob", "-n", "8", "-m", "alpha", "-t", "22:00-6:00"});
    RunResult daily = rsv({"add", "-u", "carol", "-n", "4", "-m", "alpha", "--earliest", "-D", "8h", "--daily"});
    EXPECT_EQ(daily.status, 0) << daily.err;
    EXPECT_EQ(daily.out, "carol#0\nbooked every day 06:00 to 14:00 (8h) on alpha:4\n");
    RunResult weekly = rsv({"add", "-u", "carol", "-n", "2", "-m", "gamma", "--earliest", "-D", "2d", "--weekly"});
    EXPECT_EQ(weekly.status, 0) << weekly.err;
    EXPECT_EQ(weekly.out, "carol#1\nbooked every Sun 00:00 to Tue 00:00 (2d) on gamma:2\n");
    json list = json::parse(rsv({"list", "--json"}).out);
    ASSERT_EQ(list["reservations"].size(), 3u);
    EXPECT_EQ(list["reservations"][1]["type"], "daily");
    EXPECT_EQ(list["reservations"][1]["window_text"], "every day 06:00 to 14:00 (8h)");
    EXPECT_EQ(list["reservations"][2]["type"], "weekly");
    EXPECT_EQ(list["reservations"][2]["window_text"], "every Sun 00:00 to Tue 00:00 (2d)");
    // The daily window is now taken: nothing of 8h with 4 more slots is left.
    RunResult full = rsv({"add", "-u", "dave", "-n", "8", "-m", "alpha", "--earliest", "-D", "9h", "--daily"});
    EXPECT_EQ(full.status, 2);
}

TEST_F(Find, AddEarliestRefusedChangesNoFile)
{
    book({"add", "-u", "x", "-n", "8", "-m", "alpha", "-b", "2026-11-18 10:30", "-e", "2026-11-19 09:00"});
    auto before = snapshot(state);
    RunResult r = rsv({"add", "-u", "alice", "-n", "9", "-m", "alpha", "--earliest", "-D", "1h"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err,
              "rsvctl: no 1h window with 9 slots on 'alpha' starts before Wed 2027-01-13 10:00; closest: Thu "
              "2026-11-19 09:00 with 8 of 9 slots, every slot the hosts have\n");
    EXPECT_EQ(snapshot(state), before);
    // The same message as find's.
    EXPECT_EQ(find({"-u", "alice", "-n", "9", "-m", "alpha", "-D", "1h"}).err, r.err);

    // A fresh directory is not even made: it has no cluster file.
    const std::string fresh = tmp.file("fresh");
    RunResult none = runRsvctl({"--state-dir", fresh, "add", "-u", "a", "-n", "99", "-m", "hpc01", "--earliest",
                                "-D", "1h"},
                               kNow);
    EXPECT_EQ(none.status, 3);
    EXPECT_EQ(none.err.rfind("rsvctl: no state directory '" + fresh + "'", 0), 0u) << none.err;
    struct stat st {};
    EXPECT_NE(stat(fresh.c_str(), &st), 0);
}

TEST_F(Find, FindInAMissingDirectoryNeedsItsClusterFileAndMakesNothing)
{
    const std::string missing = tmp.file("missing");
    RunResult r = runRsvctl({"--state-dir", missing, "find", "-u", "a", "-n", "4", "-m", "node1", "-D", "90m"}, kNow);
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("rsvctl: no state directory '" + missing + "'", 0), 0u) << r.err;
    struct stat st {};
    EXPECT_NE(stat(missing.c_str(), &st), 0);
}

// ---------------------------------------------------------------- JSON

TEST_F(Find, JsonOfAWindowFound)
{
    book({"add", "-u", "x", "-n", "4", "-m", "beta", "-b", "2026-11-18 10:30", "-e", "2026-11-18 20:00"});
    RunResult r = find({"-u", "alice", "-n", "10:11", "-m", "a1,beta", "-D", "2h", "--json"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    const std::string expected = R"json({
  "now": 1794996000,
  "found": true,
  "owner": "alice",
  "type": "one-off",
  "system": false,
  "min_slots": 10,
  "max_slots": 11,
  "duration": 7200,
  "asked_hosts": [
    "a1",
    "beta"
  ],
  "after": 1794996000,
  "before": 1799834400,
  "window": "1795032000-1795039200",
  "window_text": "Wed 2026-11-18 20:00 to Wed 2026-11-18 22:00 (2h)",
  "begin": 1795032000,
  "end": 1795039200,
  "begin_offset": null,
  "end_offset": null,
  "hosts": [
    {
      "name": "alpha",
      "slots": 8,
      "capacity": 8,
      "cpus": 16
    },
    {
      "name": "beta",
      "slots": 3,
      "capacity": 4,
      "cpus": 4
    }
  ],
  "slots": 11,
  "closest": null
}
)json";
    EXPECT_EQ(r.out, expected);
}

TEST_F(Find, JsonOfARecurringWindowAndOfNothingFound)
{
    book({"add", "-u", "lab", "-n", "8", "-m", "alpha", "-t", "fri:18:00-mon:6:00"});
    book({"add", "-u", "y", "-n", "8", "-m", "alpha", "-b", "2026-11-19 06:00", "-e", "2026-11-19 07:00"});
    RunResult weekly = find({"-u", "carol", "-m", "alpha", "-D", "2d", "--weekly", "--json"});
    EXPECT_EQ(weekly.status, 0) << weekly.err;
    nlohmann::ordered_json w = nlohmann::ordered_json::parse(weekly.out);
    EXPECT_EQ(w["type"], "weekly");
    EXPECT_EQ(w["after"], nullptr);
    EXPECT_EQ(w["before"], nullptr);
    EXPECT_EQ(w["begin"], nullptr);
    EXPECT_EQ(w["end"], nullptr);
    EXPECT_EQ(w["window_text"], "every Mon 06:00 to Wed 06:00 (2d)");
    EXPECT_EQ(w["begin_offset"], 1 * 86400 + 6 * 3600);  // Monday 06:00 from Sunday 00:00
    EXPECT_EQ(w["end_offset"], 3 * 86400 + 6 * 3600);

    RunResult none = find({"-u", "carol", "-n", "1", "-m", "alpha", "-D", "23h30m", "--daily", "--json"});
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.err,
              "rsvctl: no daily 23h 30m window with 1 slot on 'alpha' fits; closest: every day 00:00 with 0 of 1 "
              "slot, held back by alpha at Sun 00:00 in every week\n");
    const std::string expected = R"json({
  "now": 1794996000,
  "found": false,
  "owner": "carol",
  "type": "daily",
  "system": false,
  "min_slots": 1,
  "max_slots": 1,
  "duration": 84600,
  "asked_hosts": [
    "alpha"
  ],
  "after": null,
  "before": null,
  "window": null,
  "window_text": null,
  "begin": null,
  "end": null,
  "begin_offset": null,
  "end_offset": null,
  "hosts": [],
  "slots": 0,
  "closest": {
    "begin": 0,
    "slots": 0,
    "host": "alpha",
    "cell": 0,
    "cell_week": null
  }
}
)json";
    EXPECT_EQ(none.out, expected);
}

// ---------------------------------------------------------------- clock changes

// America/New_York puts its clock back on Sun 2026-11-01 at 02:00 (EDT to
// EST) and forward on Sun 2027-03-14 at 02:00.
constexpr long long kNyFri20261030 = 1793368800;  // Fri 2026-10-30 10:00 EDT
constexpr long long kNyFri20270312 = 1804863600;  // Fri 2027-03-12 10:00 EST

TEST_F(Find, AWindowAcrossTheClockGoingBackIsSixRealHours)
{
    const std::string ny = "America/New_York";
    book({"add", "-u", "x", "-n", "8", "-m", "alpha", "-b", "2026-10-30 10:30", "-e", "2026-10-31 22:00"}, ny,
         kNyFri20261030);
    RunResult r = find({"-u", "a", "-n", "8", "-m", "alpha", "-D", "6h", "--json"}, ny, kNyFri20261030);
    EXPECT_EQ(r.status, 0) << r.err;
    json j = json::parse(r.out);
    EXPECT_EQ(j["begin"], 1793498400);  // Sat 22:00 EDT
    EXPECT_EQ(j["end"], 1793498400 + 6 * 3600);
    EXPECT_EQ(j["window_text"], "Sat 2026-10-31 22:00 to Sun 2026-11-01 03:00 (6h)");
    // The default horizon is 56 calendar days: the same clock time in EST.
    EXPECT_EQ(j["before"], 1798210800);  // Fri 2026-12-25 10:00 EST

    RunResult text = find({"-u", "a", "-n", "8", "-m", "alpha", "-D", "6h"}, ny, kNyFri20261030);
    EXPECT_EQ(lines(text.out)[0], "Start        Sat 2026-10-31 22:00");
    EXPECT_EQ(lines(text.out)[1], "End          Sun 2026-11-01 03:00 (6h)");
    RunResult none = find({"-u", "a", "-n", "9", "-m", "alpha", "-D", "6h"}, ny, kNyFri20261030);
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.err,
              "rsvctl: no 6h window with 9 slots on 'alpha' starts before Fri 2026-12-25 10:00; closest: Sat "
              "2026-10-31 22:00 with 8 of 9 slots, every slot the hosts have\n");

    RunResult added = rsv({"add", "-u", "a", "-n", "8", "-m", "alpha", "--earliest", "-D", "6h"}, ny, kNyFri20261030);
    EXPECT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(added.out, "a#0\nbooked Sat 2026-10-31 22:00 to Sun 2026-11-01 03:00 (6h) on alpha:8\n");
}

TEST_F(Find, AWindowAcrossTheClockGoingForward)
{
    const std::string ny = "America/New_York";
    book({"add", "-u", "x", "-n", "8", "-m", "alpha", "-b", "2027-03-12 10:30", "-e", "2027-03-13 23:00"}, ny,
         kNyFri20270312);
    RunResult r = find({"-u", "a", "-n", "8", "-m", "alpha", "-D", "6h"}, ny, kNyFri20270312);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(lines(r.out)[0], "Start        Sat 2027-03-13 23:00");
    EXPECT_EQ(lines(r.out)[1], "End          Sun 2027-03-14 06:00 (6h)");
    // A start typed in the hour the clocks skip is refused naming both
    // neighbours; one after the change is read in local time.
    RunResult skipped = find({"-u", "a", "-n", "8", "-m", "alpha", "-D", "1h", "--after", "2027-03-14 02:30"}, ny,
                             kNyFri20270312);
    EXPECT_EQ(skipped.status, 1);
    EXPECT_EQ(skipped.err, "rsvctl: --after '2027-03-14 02:30' does not exist in America/New_York: the clocks jump "
                           "from 01:59 to 03:00; use '2027-03-14 01:59' or '2027-03-14 03:00'\n");
    RunResult later = find({"-u", "a", "-n", "8", "-m", "alpha", "-D", "1h", "--after", "2027-03-14 03:30"}, ny,
                           kNyFri20270312);
    EXPECT_EQ(later.status, 0) << later.err;
    ASSERT_FALSE(later.out.empty());
    EXPECT_EQ(lines(later.out)[0], "Start        Sun 2027-03-14 03:30");
}

// ---------------------------------------------------------------- usage

struct Usage {
    std::vector<std::string> args;
    std::string message;
};

TEST_F(Find, UsageErrorsExitOneAndChangeNoFile)
{
    book({"add", "-u", "x", "-n", "1", "-m", "alpha", "-t", "8:00-9:00"});
    const std::vector<Usage> cases = {
        {{"find", "-u", "a", "-m", "alpha"}, "rsvctl: give the length of the window: -D DURATION, such as 6h, 90m or 1d2h\n"},
        {{"find", "-u", "a", "-m", "alpha", "-D", "6"},
         "rsvctl: bad -D '6': use numbers with units d, h and m in that order, such as 6h, 90m, 1d2h or 2h30m\n"},
        {{"find", "-u", "a", "-m", "alpha", "-D", "1h", "--daily", "--weekly"},
         "rsvctl: give --daily or --weekly, not both\n"},
        {{"find", "-u", "a", "-m", "alpha", "-D", "1h", "--daily", "--after", "+1d"},
         "rsvctl: --after and --before limit one-off searches: a daily or weekly window repeats without end\n"},
        {{"find", "-u", "a", "-m", "alpha", "-D", "1d", "--daily"},
         "rsvctl: -D '1d' is too long for a daily window: at most 23h59m\n"},
        {{"find", "-u", "a", "-m", "alpha", "-D", "7d", "--weekly"},
         "rsvctl: -D '7d' is too long for a weekly window: at most 6d23h59m\n"},
        {{"find", "-u", "a", "-m", "alpha", "-D", "1h", "--before", "2026-11-18 09:00"},
         "rsvctl: --before '2026-11-18 09:00' must come after Wed 2026-11-18 10:00 (now)\n"},
        {{"find", "-u", "a", "-m", "alpha", "-D", "1h", "--after", "+2d", "--before", "+1d"},
         "rsvctl: --before '+1d' must come after Fri 2026-11-20 10:00 (--after)\n"},
        {{"find", "-u", "a", "-m", "alpha", "-D", "1h", "--after", "soon"},
         "rsvctl: bad --after 'soon': use 'YYYY-MM-DD HH:MM[:SS]', YYYY-MM-DDTHH:MM[:SS][Z|+HH:MM], now, +90m, "
         "+1d2h30m, 'tomorrow 08:00' or @EPOCH-SECONDS\n"},
        {{"find", "-u", "a#1", "-m", "alpha", "-D", "1h"}, "rsvctl: bad owner 'a#1': use letters, digits, '_', '-' and '.'\n"},
        {{"find", "-u", "a", "-n", "4:2", "-m", "alpha", "-D", "1h"}, "rsvctl: bad slot count '4:2': MAX is below MIN\n"},
        {{"add", "-u", "a", "-m", "alpha", "--earliest", "-D", "1h", "-b", "+1h", "-e", "+2h"},
         "rsvctl: --earliest finds the window: give -D DURATION instead of -b/-e or -t\n"},
        {{"add", "-u", "a", "-m", "alpha", "--earliest", "-D", "1h", "-t", "8-9"},
         "rsvctl: --earliest finds the window: give -D DURATION instead of -b/-e or -t\n"},
        {{"add", "-u", "a", "-m", "alpha", "--earliest"},
         "rsvctl: give the length of the window: -D DURATION, such as 6h, 90m or 1d2h\n"},
        {{"add", "-u", "a", "-m", "alpha", "-D", "1h", "-b", "+1h", "-e", "+2h"},
         "rsvctl: give the end (-e) or the length (-D), not both\n"},
        {{"add", "-u", "a", "-m", "alpha", "--daily", "-t", "8-9"},
         "rsvctl: --after, --before, --daily and --weekly go with --earliest\n"},
        {{"add", "-u", "a", "-m", "alpha", "--earliest", "-D", "1h", "-d", "say \"hi\""},
         "rsvctl: the description may not hold control characters or double quotes\n"},
    };
    auto before = snapshot(state);
    for (const Usage &c : cases) {
        std::string joined;
        for (const auto &a : c.args)
            joined += a + " ";
        RunResult r = rsv(c.args);
        EXPECT_EQ(r.status, 1) << joined << "\n" << r.err;
        EXPECT_EQ(r.err, c.message) << joined;
        EXPECT_EQ(r.out, "") << joined;
        EXPECT_EQ(snapshot(state), before) << joined;
    }
    // Refusals from the module's side: status 2.
    RunResult unknown = find({"-u", "a", "-m", "nohost", "-D", "1h"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err, "rsvctl: unknown host 'nohost': not in the cluster file\n");
    RunResult limit = rsv({"add", "-u", "x", "-m", "beta", "--earliest", "-D", "1h"});
    EXPECT_EQ(limit.status, 0) << limit.err;
    rsv({"add", "-u", "x", "-m", "beta", "--earliest", "-D", "1h"});
    RunResult over = rsv({"add", "-u", "x", "-m", "beta", "--earliest", "-D", "1h"});
    EXPECT_EQ(over.status, 2);
    EXPECT_EQ(over.err, "rsvctl: owner 'x' already holds 3 reservations, the most allowed (max-per-owner)\n");
}

// The README's and the guide's examples, on the demo's directory.
TEST_F(Find, TheDocumentedExamplesOnTheDemo)
{
    const std::string demo = tmp.file("demo");
    ASSERT_EQ(runRsvctl({"demo", "--state-dir", demo}, kNow).status, 0);
    auto run = [&](std::vector<std::string> args) {
        args.insert(args.begin(), {"--state-dir", demo});
        return runRsvctl(args, kNow);
    };
    RunResult found = run({"find", "-u", "dave", "-n", "12", "-m", "hpc01,hpc02", "-D", "4h", "--after",
                           "2026-11-24 10:00"});
    EXPECT_EQ(found.status, 0) << found.err;
    EXPECT_EQ(found.out,
              "Start        Wed 2026-11-25 17:00\n"
              "End          Wed 2026-11-25 21:00 (4h)\n"
              "Hosts        12 slots on 1 host\n"
              "             HOST   SLOTS  CAPACITY  CPUS\n"
              "             hpc01     12        16    16\n");
    RunResult added = run({"add", "-u", "dave", "-n", "12", "-m", "hpc01,hpc02", "--earliest", "-D", "4h",
                           "--after", "2026-11-24 10:00"});
    EXPECT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(added.out, "dave#0\nbooked Wed 2026-11-25 17:00 to Wed 2026-11-25 21:00 (4h) on hpc01:12\n");
    RunResult daily = run({"find", "-u", "ops", "-n", "4", "-m", "cuda1", "-D", "8h", "--daily"});
    EXPECT_EQ(daily.out,
              "Start        every day 00:00\n"
              "End          08:00 (8h)\n"
              "Hosts        4 slots on 1 host\n"
              "             HOST   SLOTS  CAPACITY  CPUS\n"
              "             gpu01      4         8    32\n");
    RunResult none = run({"find", "-u", "erin", "-n", "20", "-m", "hpc01,hpc02", "-D", "4h", "--after",
                          "2026-11-23 08:00", "--before", "2026-11-25 12:00"});
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.err,
              "rsvctl: no 4h window with 20 slots on 'hpc01,hpc02' starts between Mon 2026-11-23 08:00 and Wed "
              "2026-11-25 12:00; closest: Mon 2026-11-23 08:00 with 8 of 20 slots, held back by hpc01 at Mon "
              "2026-11-23 09:00\n");
    RunResult weekly = run({"find", "-u", "lab", "-n", "8", "-m", "fat01", "-D", "2d", "--weekly", "--json"});
    json w = json::parse(weekly.out);
    EXPECT_EQ(w["window"], "7:0:0-2:0:0");
    EXPECT_EQ(w["window_text"], "every Sun 00:00 to Tue 00:00 (2d)");
    EXPECT_EQ(w["begin_offset"], 0);
    EXPECT_EQ(w["end_offset"], 172800);
}

TEST_F(Find, HelpNamesFindAndEarliest)
{
    RunResult top = runRsvctl({"--help"}, kNow);
    EXPECT_EQ(top.status, 0);
    EXPECT_NE(top.out.find("  find "), std::string::npos) << top.out;
    RunResult findHelp = runRsvctl({"find", "--help"}, kNow);
    EXPECT_EQ(findHelp.status, 0);
    EXPECT_NE(findHelp.out.find("Examples:"), std::string::npos) << findHelp.out;
    EXPECT_NE(findHelp.out.find("--before (default 56 days later)"), std::string::npos) << findHelp.out;
    RunResult addHelp = runRsvctl({"add", "--help"}, kNow);
    EXPECT_NE(addHelp.out.find("--earliest"), std::string::npos) << addHelp.out;
}

} // namespace
