// End-to-end tests of rsvctl for several operators, whole hosts, and output
// for people and scripts: the built program in temporary state directories,
// clock pinned to Wed 2026-11-18 10:00 UTC, zone pinned, login "tester".
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <set>

#include <nlohmann/json.hpp>

#include "rsv_test_support.h"
#include "rsvctl_runner.h"

using nlohmann::json;
using rsvctltest::kNow;
using rsvctltest::kSmallCluster;
using rsvctltest::lines;
using rsvctltest::RunResult;
using rsvctltest::runRsvctl;
using rsvctltest::snapshot;

namespace {

constexpr const char *kThu0900 = "2026-11-19 09:00";
constexpr const char *kThu1700 = "2026-11-19 17:00";

class People : public ::testing::Test {
protected:
    void SetUp() override
    {
        state = tmp.file("state");
        mkdir(state.c_str(), 0755);
        rsvtest::writeFile(state + "/hosts.conf", kSmallCluster);
    }

    RunResult rsv(std::vector<std::string> args, const std::string &tz = "UTC")
    {
        args.insert(args.begin(), {"--state-dir", state});
        return runRsvctl(args, kNow, tz);
    }

    // A change that must be refused: the status, the exact error, and not
    // one file of the directory touched.
    void expectRefused(const std::vector<std::string> &args, int status, const std::string &err)
    {
        auto before = snapshot(state);
        RunResult r = rsv(args);
        EXPECT_EQ(r.status, status);
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err, err);
        EXPECT_EQ(snapshot(state), before);
    }

    std::string stateFile() { return rsvtest::readFile(state + "/rsv.state"); }

    rsvtest::TempDir tmp;
    std::string state;
};

// ------------------------------------------------------- several operators

TEST_F(People, SystemReservationsOfTwoOperatorsGetDistinctIdentifiers)
{
    RunResult ops = rsv({"add", "-u", "ops", "--system", "-m", "beta", "-b", kThu0900, "-e", kThu1700});
    EXPECT_EQ(ops.status, 0) << ops.err;
    EXPECT_EQ(ops.out, "system#0\n4 slots on beta:4\n");
    RunResult root = rsv({"add", "-u", "root", "--system", "-m", "gamma", "-b", kThu0900, "-e", kThu1700});
    EXPECT_EQ(root.status, 0) << root.err;
    EXPECT_EQ(root.out, "system#1\n2 slots on gamma:2\n");
    RunResult ann = rsv({"add", "--system", "--as", "ann", "-m", "a1", "-b", kThu0900, "-e", kThu1700});
    EXPECT_EQ(ann.status, 0) << ann.err;
    EXPECT_EQ(ann.out, "system#2\n8 slots on alpha:8\n");

    // Owner "system", the operator as creator, in the saved records.
    std::vector<std::string> records = lines(stateFile());
    ASSERT_EQ(records.size(), 3u);
    EXPECT_NE(records[0].find(" system#0 system 1795078800-1795107600 1 0 beta 4 ops \"\" "), std::string::npos)
        << records[0];
    EXPECT_NE(records[1].find(" system#1 system 1795078800-1795107600 1 0 gamma 2 root \"\" "), std::string::npos)
        << records[1];
    EXPECT_NE(records[2].find(" system#2 system 1795078800-1795107600 1 0 alpha 8 ann \"\" "), std::string::npos)
        << records[2];

    RunResult mine = rsv({"list", "-u", "root", "-o", "id,owner,creator"});
    EXPECT_EQ(mine.status, 0) << mine.err;
    EXPECT_EQ(mine.out, "ID        OWNER   CREATOR\n"
                        "system#1  system  root\n");
    RunResult all = rsv({"list", "-u", "system", "--noheader", "-o", "id"});
    EXPECT_EQ(all.out, "system#0\nsystem#1\nsystem#2\n");
}

TEST_F(People, SystemReservationsTogetherMeetThePerOwnerLimit)
{
    ASSERT_EQ(rsv({"add", "--system", "--as", "ops", "-m", "gamma", "-b", "+1d", "-e", "+25h"}).status, 0);
    ASSERT_EQ(rsv({"add", "--system", "--as", "root", "-m", "alpha", "-b", "+2d", "-e", "+49h"}).status, 0);
    ASSERT_EQ(rsv({"add", "--system", "--as", "ann", "-m", "beta", "-b", "+2d", "-e", "+49h"}).status, 0);
    // max-per-owner 3 counts the reservations owned by "system", whoever made them.
    expectRefused({"add", "--system", "--as", "eve", "-m", "alpha", "-b", "+3d", "-e", "+73h"}, 2,
                  "rsvctl: owner 'system' already holds 3 reservations, the most allowed (max-per-owner)\n");
}

TEST_F(People, TheCreatorIsTheLoginOrAsAndListUFindsBoth)
{
    RunResult a = rsv({"add", "-u", "alice", "-n", "2", "-m", "alpha", "-b", kThu0900, "-e", kThu1700});
    EXPECT_EQ(a.out, "alice#0\n2 slots on alpha:2\n");
    RunResult b = rsv({"add", "-u", "bob", "-n", "2", "-m", "alpha", "-b", kThu0900, "-e", kThu1700, "--as", "carol"});
    EXPECT_EQ(b.out, "bob#0\n2 slots on alpha:2\n");
    EXPECT_EQ(rsv({"list", "-u", "tester", "--noheader", "-o", "id,owner,creator"}).out, "alice#0  alice  tester\n");
    EXPECT_EQ(rsv({"list", "-u", "carol", "--noheader", "-o", "id,owner,creator"}).out, "bob#0  bob  carol\n");
    EXPECT_EQ(rsv({"list", "-u", "bob", "--noheader", "-o", "id"}).out, "bob#0\n");
    RunResult json = rsv({"list", "--json", "-o", "id,creator"});
    EXPECT_EQ(json.out, R"({
  "now": 1794996000,
  "reservations": [
    {
      "id": "alice#0",
      "creator": "tester"
    },
    {
      "id": "bob#0",
      "creator": "carol"
    }
  ]
}
)");
}

TEST_F(People, AnOperatorNameThatCannotBeRecordedChangesNothing)
{
    ASSERT_EQ(rsv({"add", "-u", "alice", "-n", "1", "-m", "alpha", "-b", kThu0900, "-e", kThu1700}).status, 0);
    expectRefused({"add", "-u", "alice", "-n", "1", "-m", "alpha", "-b", kThu0900, "-e", kThu1700, "--as", "a b"}, 1,
                  "rsvctl: bad operator 'a b': use letters, digits, '_', '-' and '.' (give --as NAME)\n");
    expectRefused({"add", "-n", "1", "-m", "alpha", "-b", kThu0900, "-e", kThu1700}, 1,
                  "rsvctl: give the owner: -u USER (or --system for a system reservation)\n");
}

// ------------------------------------------------------------ hosts, slots

TEST_F(People, NamedHostsWithoutSlotCountAreTakenWhole)
{
    RunResult r = rsv({"add", "-u", "alice", "-m", "alpha,beta,g1", "-b", kThu0900, "-e", kThu1700});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "alice#0\n14 slots on alpha:8,beta:4,gamma:2\n");
    EXPECT_NE(stateFile().find(" 3 0 alpha 8 beta 4 gamma 2 tester "), std::string::npos) << stateFile();
}

TEST_F(People, AWholeHostThatIsPartlyBookedIsRefusedWithTheReason)
{
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "1", "-m", "beta", "-b", "2026-11-19 12:00", "-e", "2026-11-19 13:00"})
                  .status,
              0);
    expectRefused({"add", "-u", "alice", "-m", "alpha,beta", "-b", kThu0900, "-e", kThu1700}, 2,
                  "rsvctl: not enough free slots on 'alpha,beta' for '2026-11-19 09:00' to '2026-11-19 17:00'\n"
                  "why: free slots over the window, per asked host\n"
                  "  HOST   CAPACITY  FREE  NEEDED  FIRST SHORT\n"
                  "  alpha         8     8       8  -\n"
                  "  beta          4     3       4  Thu 2026-11-19 12:00 (3 free)\n");
}

TEST_F(People, ASlotCountFillsTheHostsInTheOrderNamed)
{
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "6", "-m", "alpha", "-b", kThu0900, "-e", kThu1700}).status, 0);
    RunResult r = rsv({"add", "-u", "alice", "-n", "5", "-m", "alpha,beta", "-b", kThu0900, "-e", kThu1700});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "alice#0\n5 slots on alpha:2,beta:3\n");
}

TEST_F(People, MaxOnlyCapsTheTotalWhenTheLastHostOvershootsMin)
{
    // Plenty free: MIN from the first host, MAX unused.
    RunResult plenty = rsv({"add", "-u", "alice", "-n", "4:8", "-m", "alpha,beta", "-b", kThu0900, "-e", kThu1700});
    EXPECT_EQ(plenty.out, "alice#0\n4 slots on alpha:4\n");
    // alpha has 1 left: beta then offers up to MIN (4), 5 in all, capped at MAX.
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "3", "-m", "alpha", "-b", kThu0900, "-e", kThu1700}).status, 0);
    RunResult capped = rsv({"add", "-u", "carol", "-n", "4:4", "-m", "alpha,beta", "-b", kThu0900, "-e", kThu1700});
    EXPECT_EQ(capped.out, "carol#0\n4 slots on alpha:1,beta:3\n");
}

TEST_F(People, FindWithoutSlotCountLooksForWholeHosts)
{
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "1", "-m", "beta", "-b", "2026-11-18 10:30", "-e", "2026-11-18 12:00"})
                  .status,
              0);
    RunResult r = rsv({"find", "-u", "alice", "-m", "alpha,beta", "-D", "1h", "--noheader", "-o", "host,slots,begin"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "alpha  8  Wed 2026-11-18 12:00\n"
                     "beta   4  Wed 2026-11-18 12:00\n");
}

// ---------------------------------------------------- for people, scripts

TEST_F(People, VerboseSaysWhatWasLoadedAndSavedAndHowLong)
{
    auto timesHidden = [](const std::string &text) {
        return std::regex_replace(text, std::regex("[0-9]+\\.[0-9] ms"), "_ ms");
    };
    RunResult add = rsv({"-v", "add", "-u", "alice", "-n", "2", "-m", "alpha", "-b", kThu0900, "-e", kThu1700});
    EXPECT_EQ(add.status, 0) << add.err;
    EXPECT_EQ(timesHidden(add.err), "rsvctl: locked " + state + "/rsv.lock (exclusive) in _ ms\n" +
                                        "rsvctl: loaded " + state + "/hosts.conf: 3 hosts, in _ ms\n" + "rsvctl: loaded " +
                                        state + "/rsv.state (none yet): 0 reservations, 0 unreadable lines, in _ ms\n" +
                                        "rsvctl: saved " + state + "/rsv.state and " + state +
                                        "/rsv.ids: 1 reservation; the change and its save took _ ms\n");
    RunResult list = rsv({"list", "--noheader", "-o", "id", "--verbose"});
    EXPECT_EQ(list.out, "alice#0\n");
    EXPECT_EQ(timesHidden(list.err), "rsvctl: locked " + state + "/rsv.lock (shared) in _ ms\n" +
                                         "rsvctl: loaded " + state + "/hosts.conf: 3 hosts, in _ ms\n" + "rsvctl: loaded " +
                                         state + "/rsv.state: 1 reservation, 0 unreadable lines, in _ ms\n");
}

TEST_F(People, ListColumnsForScripts)
{
    ASSERT_EQ(rsv({"add", "-u", "alice", "-n", "2", "-m", "alpha", "-b", kThu0900, "-e", kThu1700, "-d", "test run"})
                  .status,
              0);
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "1", "-m", "g2", "-t", "22:00-6:00"}).status, 0);
    EXPECT_EQ(rsv({"list"}).out,
              "ID       OWNER  TYPE     SLOTS  HOSTS    WINDOW                             STATUS\n"
              "alice#0  alice  one-off      2  alpha:2  Thu 11-19 09:00 - Thu 11-19 17:00  upcoming\n"
              "bob#0    bob    daily        1  gamma:1  daily 22:00-06:00                  upcoming\n");
    EXPECT_EQ(rsv({"list", "--noheader"}).out,
              "alice#0  alice  one-off  2  alpha:2  Thu 11-19 09:00 - Thu 11-19 17:00  upcoming\n"
              "bob#0    bob    daily    1  gamma:1  daily 22:00-06:00                  upcoming\n");
    EXPECT_EQ(rsv({"list", "-o", "ID,slots,description"}).out,
              "ID       SLOTS  DESCRIPTION\n"
              "alice#0      2  test run\n"
              "bob#0        1  -\n");
    RunResult bad = rsv({"list", "-o", "id,size"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err,
              "rsvctl: unknown field 'size' for -o: use id,owner,creator,type,slots,hosts,window,status,description,"
              "created\n");
    RunResult none = rsv({"list", "-u", "nobody", "--noheader"});
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.out, "");
}

TEST_F(People, HostsColumnsForScripts)
{
    ASSERT_EQ(rsv({"add", "-u", "alice", "-n", "2", "-m", "alpha", "-b", kThu0900, "-e", kThu1700}).status, 0);
    EXPECT_EQ(rsv({"hosts", "--noheader", "-o", "host,slots,rsvs"}).out, "alpha  8  1\nbeta   4  0\ngamma  2  0\n");
    RunResult r = rsv({"hosts", "--json"});
    EXPECT_EQ(r.status, 0) << r.err;
    json j = json::parse(r.out);
    EXPECT_EQ(j["hosts"].size(), 3u);
    EXPECT_EQ(j["hosts"][0], json::parse(R"({"host": "alpha", "slots": 8, "cpus": 16, "aliases": ["a1"], "rsvs": 1,
                                             "peak": {"booked": 2, "at": 1795078800}})"));
    EXPECT_EQ(j["hosts"][1]["peak"], nullptr);
    EXPECT_EQ(j["max_per_owner"], 3);
}

TEST_F(People, ShowTellsOneStateWithTheCurrentAndNextInstance)
{
    // Made at 08:00, running at 10:00: a one-off from 09:00 and a daily 9-11 window.
    auto early = [&](std::vector<std::string> args) {
        args.insert(args.begin(), {"--state-dir", state});
        return runRsvctl(args, kNow - 7200, "UTC");
    };
    ASSERT_EQ(early({"add", "-u", "alice", "-n", "2", "-m", "alpha", "-b", "+1h", "-e", "+4h"}).status, 0);
    ASSERT_EQ(early({"add", "-u", "bob", "-n", "1", "-m", "beta", "-t", "9-11"}).status, 0);
    RunResult one = rsv({"show", "alice#0"});
    EXPECT_EQ(one.status, 0) << one.err;
    EXPECT_EQ(one.out, "Reservation  alice#0\n"
                       "Owner        alice\n"
                       "Type         one-off\n"
                       "Window       Wed 2026-11-18 09:00 to Wed 2026-11-18 12:00 (3h)\n"
                       "Hosts        2 slots on 1 host\n"
                       "             HOST   SLOTS  CAPACITY  CPUS\n"
                       "             alpha      2         8    16\n"
                       "State        running, until Wed 2026-11-18 12:00\n"
                       "Current      Wed 2026-11-18 09:00 - Wed 2026-11-18 12:00\n"
                       "Next         -\n"
                       "Disabled     -\n"
                       "Description  -\n"
                       "Created      Wed 2026-11-18 08:00\n"
                       "Creator      tester\n");
    RunResult daily = rsv({"show", "bob#0"});
    std::vector<std::string> shown = lines(daily.out);
    ASSERT_GE(shown.size(), 10u);
    EXPECT_EQ(shown[7], "State        running, until Wed 2026-11-18 11:00");
    EXPECT_EQ(shown[8], "Current      Wed 2026-11-18 09:00 - Wed 2026-11-18 11:00");
    EXPECT_EQ(shown[9], "Next         Thu 2026-11-19 09:00 - Thu 2026-11-19 11:00");
    // Once it has ended, neither.
    std::vector<std::string> ended = lines(runRsvctl({"--state-dir", state, "show", "alice#0"}, kNow + 7200).out);
    ASSERT_GE(ended.size(), 10u);
    EXPECT_EQ(ended[7], "State        ended, at Wed 2026-11-18 12:00");
    EXPECT_EQ(ended[8], "Current      -");
    EXPECT_EQ(ended[9], "Next         -");
}

TEST_F(People, ShowFarFromUtcTellsTheInstanceUnderWayAndTheNext)
{
    // In Kiritimati (UTC+14) it is Thu 00:00: last night's 22:00 is under way.
    ASSERT_EQ(rsv({"add", "-u", "bob", "-n", "1", "-m", "beta", "-t", "22:00-6:00"}, "Pacific/Kiritimati").status, 0);
    std::vector<std::string> shown = lines(rsv({"show", "bob#0"}, "Pacific/Kiritimati").out);
    ASSERT_GE(shown.size(), 10u);
    EXPECT_EQ(shown[7], "State        running, until Thu 2026-11-19 06:00");
    EXPECT_EQ(shown[8], "Current      Wed 2026-11-18 22:00 - Thu 2026-11-19 06:00");
    EXPECT_EQ(shown[9], "Next         Thu 2026-11-19 22:00 - Fri 2026-11-20 06:00");
}

TEST_F(People, TheDemoShowsTheDescriptionsItSets)
{
    std::string dir = tmp.file("demo");
    RunResult r = runRsvctl({"demo", "--state-dir", dir, "--color", "never"}, kNow);
    EXPECT_EQ(r.status, 0) << r.err;
    for (const char *text : {"-d 'nightly batch'", "-d 'weekend crunch'", "-d 'training'", "-d 'maintenance'"})
        EXPECT_NE(r.out.find(text), std::string::npos) << text;
    EXPECT_NE(r.out.find("$ rsvctl list -o id,owner,slots,hosts,window,description\n"), std::string::npos);
    EXPECT_NE(r.out.find("bob#0     bob         8  hpc01:8           daily 22:00-06:00 (1 span off)     nightly batch\n"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("system#0  system     16  hpc01:16          Thu 11-26 12:00 - Thu 11-26 16:00  maintenance\n"),
              std::string::npos)
        << r.out;
}

// ------------------------------------------- manual page and completions

// Every subcommand, and every option of rsvctl and each subcommand, as
// --help lists them.
std::map<std::string, std::set<std::string>> commandsFromHelp()
{
    std::map<std::string, std::set<std::string>> out;
    auto optionsOf = [](const std::string &help) {
        std::set<std::string> names;
        for (const auto &line : lines(help)) {
            if (line.rfind("  -", 0) != 0)
                continue;
            std::string first = line.substr(2, line.find(' ', 2) - 2);
            for (size_t start = 0; start < first.size();) {
                size_t comma = first.find(',', start);
                names.insert(first.substr(start, comma - start));
                start = comma == std::string::npos ? first.size() : comma + 1;
            }
        }
        return names;
    };
    RunResult top = runRsvctl({"--help"}, kNow);
    out[""] = optionsOf(top.out);
    bool inCommands = false;
    for (const auto &line : lines(top.out)) {
        if (line == "Subcommands:") {
            inCommands = true;
            continue;
        }
        if (inCommands && line.rfind("  ", 0) == 0) {
            std::string name = line.substr(2, line.find(' ', 2) - 2);
            out[name] = optionsOf(runRsvctl({name, "--help"}, kNow).out);
        } else {
            inCommands = false;
        }
    }
    return out;
}

// What a shell command prints on standard output.
std::string shellOutput(const std::string &command)
{
    std::string out;
    if (FILE *pipe = popen(command.c_str(), "r")) {
        char buf[256];
        while (size_t n = fread(buf, 1, sizeof buf, pipe))
            out.append(buf, n);
        pclose(pipe);
    }
    return out;
}

TEST(Generated, ManualPageAndCompletionsNameEveryCommandAndOption)
{
    auto commands = commandsFromHelp();
    ASSERT_GE(commands.size(), 11u);  // the top level and ten subcommands
    ASSERT_TRUE(commands.count("add") && commands["add"].count("--as"));
    rsvtest::TempDir tmp;
    for (const char *what : {"man", "bash", "zsh"}) {
        std::string file = tmp.file(what);
        RunResult r = runRsvctl({"--generate", what, file}, kNow);
        ASSERT_EQ(r.status, 0) << r.err;
        std::string text = rsvtest::readFile(file);
        // troff writes a minus sign as "\-".
        if (std::string(what) == "man")
            text = std::regex_replace(text, std::regex("\\\\-"), "-");
        for (const auto &[name, options] : commands) {
            if (!name.empty()) {
                EXPECT_NE(text.find(name), std::string::npos) << what << ": " << name;
            }
            for (const auto &option : options)
                EXPECT_NE(text.find(option), std::string::npos) << what << ": " << name << " " << option;
        }
    }
    // The bash completion is a valid script, and offers the options of
    // the subcommand being typed.
    std::string bash = tmp.file("bash");
    EXPECT_EQ(std::system(("bash -n '" + bash + "'").c_str()), 0);
    EXPECT_EQ(shellOutput("bash -c 'source \"$0\"; COMP_WORDS=(rsvctl list --no); COMP_CWORD=2; _rsvctl; "
                          "echo \"${COMPREPLY[@]}\"' '" + bash + "'"),
              "--noheader\n");
    EXPECT_EQ(shellOutput("bash -c 'source \"$0\"; COMP_WORDS=(rsvctl add --a); COMP_CWORD=2; _rsvctl; "
                          "echo \"${COMPREPLY[@]}\"' '" + bash + "'"),
              "--as --after\n");
}

TEST(Generated, TheBuildWritesThemForInstalling)
{
    for (const char *file : {"rsvctl.1", "rsvctl.bash", "_rsvctl"})
        EXPECT_TRUE(rsvtest::fileExists(std::string(RSVCTL_DOCS_DIR) + "/" + file)) << file;
    EXPECT_EQ(rsvtest::readFile(std::string(RSVCTL_DOCS_DIR) + "/rsvctl.1").rfind(".TH RSVCTL 1", 0), 0u);
}

} // namespace
