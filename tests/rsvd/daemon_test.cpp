// daemon_test.cpp: rsvd end to end through its socket: every rsvctl command
// says the same with and without it, who may do what, bad input, and the
// lifecycle driven by the pinned clock.
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "rsv_test_support.h"
#include "rsvctl_runner.h"
#include "rsvd_runner.h"

using rsvctltest::kNow;
using rsvctltest::kSmallCluster;
using rsvctltest::RunResult;
using rsvctltest::runRsvctl;

namespace {

// Whether one line of `log` holds every one of `words` (the fields of a
// line come in no fixed order).
bool logged(const std::string &log, const std::vector<std::string> &words)
{
    for (const std::string &line : rsvctltest::lines(log)) {
        bool all = true;
        for (const std::string &word : words)
            all = all && line.find(word) != std::string::npos;
        if (all)
            return true;
    }
    return false;
}

// Moves a --test-clock rsvd's clock to `now`; its status reply.
nlohmann::json setClock(rsvdtest::Client &client, long long now)
{
    return client.ask({{"v", 1}, {"cmd", "rsvd.clock"}, {"set", now}});
}

class Rsvd : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Other uids reach the socket through here.
        chmod(tmp.path().c_str(), 0755);
        state = tmp.file("state");
        fresh();
    }

    void fresh()
    {
        rsvtest::removeDirectory(state);
        mkdir(state.c_str(), 0755);
        rsvtest::writeFile(state + "/hosts.conf", kSmallCluster);
    }

    RunResult rsv(std::vector<std::string> args)
    {
        args.insert(args.begin(), {"--state-dir", state});
        return runRsvctl(args, kNow);
    }

    rsvtest::TempDir tmp;
    std::string state;
};

// Each command as a user types it; the creator is named so that it is the
// same whoever runs the command.
const std::vector<std::vector<std::string>> kSession = {
    {"add", "-u", "alice", "-n", "4", "-m", "alpha", "-b", "+1h", "-D", "2h", "--as", "tester"},
    {"add", "-u", "bob", "-n", "2", "-m", "beta,gamma", "-t", "22:00-6:00", "--as", "tester", "-d", "nightly"},
    {"add", "-u", "alice", "-n", "40", "-m", "alpha", "-b", "+1h", "-D", "2h", "--as", "tester"},
    {"add", "-u", "carol", "-m", "alpha", "-b", "+1h", "-e", "nonsense", "--as", "tester"},
    {"add", "-u", "dave", "-n", "2", "-m", "beta", "--earliest", "-D", "3h", "--as", "tester"},
    {"list"},
    {"list", "--json"},
    {"show", "alice#0"},
    {"show", "--json", "bob#0"},
    {"show", "nobody#7"},
    {"mod", "alice#0", "--end", "+4h"},
    {"mod", "bob#0", "--disable", "2026-11-20"},
    {"mod", "bob#0", "--description", "nightly batch"},
    {"mod", "alice#0"},
    {"planner", "-m", "alpha"},
    {"hosts"},
    {"hosts", "--json"},
    {"check"},
    {"find", "-n", "4", "-m", "alpha", "-D", "2h"},
    {"find", "--json", "-n", "4", "-m", "alpha", "-D", "2h"},
    {"del", "dave#0", "nobody#1"},
    {"del", "dave#0"},
    {"lsit"},
    {"add", "--help"},
    {"list"},
};

std::vector<RunResult> runSession(const std::function<RunResult(std::vector<std::string>)> &run)
{
    std::vector<RunResult> results;
    for (const auto &args : kSession)
        results.push_back(run(args));
    return results;
}

TEST_F(Rsvd, EveryCommandSaysTheSameThroughTheSocket)
{
    std::vector<RunResult> direct = runSession([&](std::vector<std::string> a) { return rsv(a); });
    const std::string directState = rsvtest::readFile(state + "/rsv.state");
    fresh();
    std::vector<RunResult> served;
    {
        rsvdtest::Daemon daemon(state, kNow);
        ASSERT_TRUE(daemon.ready()) << daemon.log();
        served = runSession([&](std::vector<std::string> a) { return rsv(a); });
        // rsvctl really went through the socket: each change is in rsvd's log.
        EXPECT_EQ(daemon.stop(), 0);
        EXPECT_TRUE(logged(daemon.log(), {"event=change ", "user=root", "cmd=add"})) << daemon.log();
        EXPECT_NE(daemon.log().find("event=stopped"), std::string::npos) << daemon.log();
    }
    ASSERT_EQ(direct.size(), served.size());
    for (size_t i = 0; i < direct.size(); ++i) {
        SCOPED_TRACE(testing::PrintToString(kSession[i]));
        EXPECT_EQ(served[i].status, direct[i].status);
        EXPECT_EQ(served[i].out, direct[i].out);
        EXPECT_EQ(served[i].err, direct[i].err);
    }
    EXPECT_EQ(direct[0].status, 0);
    EXPECT_EQ(direct[2].status, 2);
    EXPECT_EQ(direct[3].status, 1);
    EXPECT_EQ(rsvtest::readFile(state + "/rsv.state"), directState);
}

TEST_F(Rsvd, JsonRepliesCarryTheParsedDocument)
{
    rsvdtest::Daemon daemon(state, kNow);
    ASSERT_TRUE(daemon.ready()) << daemon.log();
    rsvdtest::Client client(daemon.socket());
    nlohmann::json added = client.command("add", {"-u", "root", "-n", "2", "-m", "alpha", "-b", "+1h", "-D", "1h"});
    EXPECT_EQ(added["status"], 0) << added.dump();
    EXPECT_EQ(added["stdout"], "root#0\n2 slots on alpha:2\n");
    nlohmann::json listed = client.command("list", {"--json"});
    ASSERT_TRUE(listed.contains("json")) << listed.dump();
    EXPECT_EQ(listed["json"].dump(), nlohmann::json::parse(listed["stdout"].get<std::string>()).dump());
    nlohmann::json status = client.ask({{"v", 1}, {"id", "s"}, {"cmd", "rsvd.status"}});
    EXPECT_EQ(status["id"], "s");
    EXPECT_EQ(status["reservations"], 1);
    EXPECT_EQ(status["clock"], kNow);
    EXPECT_EQ(status["pid"], daemon.pid());
}

TEST_F(Rsvd, DirectModeRefusesWhileRsvdRuns)
{
    rsvdtest::Daemon daemon(state, kNow);
    ASSERT_TRUE(daemon.ready()) << daemon.log();
    RunResult r = rsv({"--direct", "add", "-u", "alice", "-n", "1", "-m", "alpha", "-b", "+1h", "-D", "1h"});
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "rsvctl: rsvd (pid " + std::to_string(daemon.pid()) +
                         ") holds this state directory: run the command without --direct, or stop rsvd\n");
    EXPECT_FALSE(rsvtest::fileExists(state + "/rsv.state"));
    // A socket named explicitly that nothing answers at is an error.
    RunResult lost = rsv({"--socket", state + "/none.sock", "list"});
    EXPECT_EQ(lost.status, 3);
    EXPECT_NE(lost.err.find("rsvd at '" + state + "/none.sock'"), std::string::npos) << lost.err;
}

TEST_F(Rsvd, EveryAcknowledgedChangeOutlivesAKill)
{
    {
        rsvdtest::Daemon daemon(state, kNow);
        ASSERT_TRUE(daemon.ready()) << daemon.log();
        EXPECT_EQ(rsv({"add", "-u", "alice", "-n", "1", "-m", "alpha", "-b", "+1h", "-D", "1h"}).status, 0);
        EXPECT_EQ(daemon.stop(SIGKILL), -1);
    }
    // The socket file is left behind, but nothing answers: rsvctl works on
    // the directory directly.
    ASSERT_TRUE(rsvtest::fileExists(state + "/rsvd.sock"));
    RunResult r = rsv({"list"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("alice#0"), std::string::npos) << r.out;
}

// Users of the password database that every system has: bin (uid 2) and
// nobody act for themselves; "daemon" (uid 1) is an operator through its
// primary group.
class RsvdUsers : public Rsvd {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "switching uids needs root";
        Rsvd::SetUp();
        const passwd *pw = getpwnam("nobody");
        ASSERT_NE(pw, nullptr);
        nobody = static_cast<int>(pw->pw_uid);
    }
    int bin = 2;
    int daemonUser = 1;
    int nobody = -1;
};

namespace {

// Who may do what, asked by bin and nobody (users) and daemon (an
// operator), however the daemon learns who they are.
void checkWhoMayDoWhat(rsvdtest::Daemon &daemon, rsvdtest::Client &asBin, rsvdtest::Client &asNobody,
                       rsvdtest::Client &asOperator)
{
    nlohmann::json r = asBin.command("add", {"-u", "bin", "-n", "2", "-m", "alpha", "-b", "+1h", "-D", "1h"});
    EXPECT_EQ(r["status"], 0) << r.dump();
    r = asBin.command("show", {"--json", "bin#0"});
    EXPECT_EQ(r["json"]["creator"], "bin") << r.dump();

    r = asBin.command("add", {"-u", "nobody", "-n", "1", "-m", "alpha", "-b", "+1h", "-D", "1h"});
    EXPECT_EQ(r["status"], 2);
    EXPECT_EQ(r["stderr"], "rsvctl: bin may not book for nobody: only nobody or an operator may\n");
    r = asBin.command("add", {"--system", "-m", "beta", "-b", "+1h", "-D", "1h"});
    EXPECT_EQ(r["status"], 2);
    r = asBin.command("add", {"-u", "bin", "-n", "1", "-m", "alpha", "-b", "+1h", "-D", "1h", "--as", "root"});
    EXPECT_EQ(r["status"], 2);

    r = asNobody.command("del", {"bin#0"});
    EXPECT_EQ(r["status"], 2);
    EXPECT_EQ(r["stderr"], "rsvctl: nobody may not delete bin#0: only its owner or an operator may\n");
    r = asNobody.command("mod", {"bin#0", "--end", "+3h"});
    EXPECT_EQ(r["status"], 2);
    EXPECT_EQ(r["stderr"], "rsvctl: nobody may not change bin#0: only its owner or an operator may\n");
    r = asNobody.command("list", {});
    EXPECT_EQ(r["status"], 0);
    EXPECT_NE(r["stdout"].get<std::string>().find("bin#0"), std::string::npos);

    r = asOperator.command("mod", {"bin#0", "--end", "+3h"});
    EXPECT_EQ(r["status"], 0) << r.dump();
    r = asOperator.command("add", {"--system", "-m", "beta", "-b", "+1h", "-D", "1h"});
    EXPECT_EQ(r["status"], 0) << r.dump();
    r = asBin.command("del", {"bin#0"});
    EXPECT_EQ(r["status"], 0) << r.dump();
    r = asOperator.command("del", {"system#0"});
    EXPECT_EQ(r["status"], 0) << r.dump();

    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_TRUE(logged(daemon.log(), {"event=change-refused ", "user=nobody", "operator=false", "cmd=del"}))
        << daemon.log();
    EXPECT_TRUE(logged(daemon.log(), {"event=change ", "user=daemon", "operator=true", "cmd=mod"})) << daemon.log();
}

} // namespace

TEST_F(RsvdUsers, OwnersAndOperatorsMayChangeOthersMayOnlyRead)
{
    rsvdtest::Daemon daemon(state, kNow, {"--operators-group", "daemon"});
    ASSERT_TRUE(daemon.ready()) << daemon.log();
    rsvdtest::Client asBin(daemon.socket(), bin);
    rsvdtest::Client asNobody(daemon.socket(), nobody);
    rsvdtest::Client asOperator(daemon.socket(), daemonUser);
    ASSERT_TRUE(asBin.connected() && asNobody.connected() && asOperator.connected());
    checkWhoMayDoWhat(daemon, asBin, asNobody, asOperator);
}

// The same as any user: a test build of the daemon takes the caller stated
// in the request instead of the socket's peer.
TEST_F(Rsvd, OwnersAndOperatorsMayChangeOthersMayOnlyReadAsStatedCallers)
{
    rsvdtest::Daemon daemon(state, kNow, {}, STATED_PEER_RSVD_PATH);
    ASSERT_TRUE(daemon.ready()) << daemon.log();
    rsvdtest::Client asBin(daemon.socket()), asNobody(daemon.socket()), asOperator(daemon.socket());
    ASSERT_TRUE(asBin.connected() && asNobody.connected() && asOperator.connected());
    asBin.statePeer({{"user", "bin"}, {"operator", false}});
    asNobody.statePeer({{"user", "nobody"}, {"operator", false}});
    asOperator.statePeer({{"user", "daemon"}, {"operator", true}});
    rsvdtest::Client unclear(daemon.socket());
    nlohmann::json r = unclear.ask({{"v", 1}, {"cmd", "list"}, {"test_peer", "bin"}});
    EXPECT_EQ(r["status"], 1);
    EXPECT_EQ(r["error"], "\"test_peer\" must be {\"user\":NAME,\"operator\":BOOL}");
    checkWhoMayDoWhat(daemon, asBin, asNobody, asOperator);
}

// rsvd itself never lets a request say who asks.
TEST_F(Rsvd, ARequestCannotStateItsCaller)
{
    rsvdtest::Daemon daemon(state, kNow);
    ASSERT_TRUE(daemon.ready()) << daemon.log();
    rsvdtest::Client client(daemon.socket());
    client.statePeer({{"user", "daemon"}, {"operator", true}});
    nlohmann::json r = client.command("list", {});
    EXPECT_EQ(r["status"], 1);
    EXPECT_EQ(r["error"], "unknown field \"test_peer\"");
}

TEST_F(Rsvd, BadInputIsAnsweredAndOthersAreStillServed)
{
    rsvdtest::Daemon daemon(state, kNow);
    ASSERT_TRUE(daemon.ready()) << daemon.log();
    // Connected and silent, and one that leaves in the middle of a line:
    // neither blocks anybody.
    rsvdtest::Client silent(daemon.socket());
    {
        rsvdtest::Client leaver(daemon.socket());
        leaver.sendRaw("{\"v\":1,\"cmd\":\"li");
    }
    rsvdtest::Client client(daemon.socket());
    client.sendRaw("{not json\n");
    nlohmann::json r = client.reply();
    EXPECT_EQ(r["status"], 1);
    EXPECT_EQ(r["error"], "malformed JSON: send one JSON object per line");
    r = client.ask({{"v", 1}, {"id", 9}, {"cmd", "list"}, {"colour", "red"}});
    EXPECT_EQ(r["error"], "\"colour\" must be true or false");
    r = client.ask({{"v", 1}, {"id", 9}, {"cmd", "list"}, {"verbose", true}});
    EXPECT_EQ(r["id"], 9);
    EXPECT_EQ(r["error"], "unknown field \"verbose\"");
    r = client.ask({{"v", 2}, {"cmd", "list"}});
    EXPECT_EQ(r["error"], "unsupported protocol version: this rsvd speaks \"v\":1");
    r = client.ask({{"v", 1}, {"cmd", "list"}, {"args", {"--state-dir", "/etc"}}});
    EXPECT_EQ(r["status"], 1);
    r = client.ask({{"v", 1}, {"cmd", "list"}, {"args", {1, 2}}});
    EXPECT_EQ(r["error"], "\"args\" must be an array of strings");
    r = client.ask({{"v", 1}, {"cmd", "rsvd.clock"}, {"set", "soon"}});
    EXPECT_EQ(r["error"], "\"set\" must be epoch seconds");
    r = client.ask(nlohmann::json::array({1, 2}));
    EXPECT_EQ(r["error"], "a request is a JSON object");
    // The connection is still usable after each of those.
    r = client.command("list", {});
    EXPECT_EQ(r["status"], 0);

    rsvdtest::Client flooder(daemon.socket());
    flooder.sendRaw(std::string(70 * 1024, 'x'));
    r = flooder.reply();
    EXPECT_EQ(r["error"], "request line longer than 65536 bytes");
    EXPECT_TRUE(flooder.closedByDaemon());

    rsvdtest::Client other(daemon.socket());
    EXPECT_EQ(other.command("hosts", {})["status"], 0);
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(Rsvd, ActivatesEndsAndCatchesUpAfterARestart)
{
    const std::string finishLog = state + "/rsv.finish";
    {
        rsvdtest::Daemon daemon(state, kNow);
        ASSERT_TRUE(daemon.ready()) << daemon.log();
        rsvdtest::Client client(daemon.socket());
        EXPECT_EQ(client.command("add", {"-u", "root", "-n", "2", "-m", "alpha", "-b", "+1h", "-D", "1h"})["status"], 0);
        EXPECT_EQ(client.command("add", {"-u", "root", "-n", "2", "-m", "beta", "-b", "+3h", "-D", "1h"})["status"], 0);
        nlohmann::json r = setClock(client, kNow + 5400);
        EXPECT_EQ(r["clock"], kNow + 5400);
        EXPECT_FALSE(rsvtest::fileExists(finishLog) && rsvtest::readFile(finishLog).find("root#0") != std::string::npos);
        r = setClock(client, kNow + 7300);
        EXPECT_NE(rsvtest::readFile(finishLog).find("root#0"), std::string::npos);
        EXPECT_EQ(daemon.stop(), 0);
    }
    // Down while root#1 ran and ended: the restart finishes it, once.
    for (int run = 0; run < 2; ++run) {
        rsvdtest::Daemon daemon(state, kNow + 6 * 3600);
        ASSERT_TRUE(daemon.ready()) << daemon.log();
        EXPECT_EQ(daemon.stop(), 0);
    }
    const std::string log = rsvtest::readFile(finishLog);
    EXPECT_EQ(rsvctltest::lines(log).size(), 2u) << log;
    EXPECT_NE(log.find("root#1"), std::string::npos) << log;
}

// A running reservation deleted through rsvd is charged up to the deletion
// in its finish record, written before it goes.
TEST_F(Rsvd, DeletingARunningReservationWritesItsFinishRecordFirst)
{
    const std::string finishLog = state + "/rsv.finish";
    rsvdtest::Daemon daemon(state, kNow);
    ASSERT_TRUE(daemon.ready()) << daemon.log();
    rsvdtest::Client client(daemon.socket());
    ASSERT_EQ(client.command("add", {"-u", "root", "-n", "2", "-m", "alpha", "-b", "+1h", "-D", "2h"})["status"], 0);
    setClock(client, kNow + 3600);
    setClock(client, kNow + 3600 + 1800);
    nlohmann::json r = client.command("show", {"--json", "root#0"});
    EXPECT_EQ(r["json"]["state"], "active") << r.dump();
    r = client.command("del", {"root#0"});
    ASSERT_EQ(r["status"], 0) << r.dump();
    const std::vector<std::string> records = rsvctltest::lines(rsvtest::readFile(finishLog));
    ASSERT_EQ(records.size(), 1u);
    const nlohmann::json record = nlohmann::json::parse(records[0]);
    EXPECT_EQ(record["rsvId"], "root#0") << records[0];
    EXPECT_EQ(record["activeDuration"], 1800) << records[0];
    // Past its planned end nothing more is written for it.
    setClock(client, kNow + 4 * 3600);
    EXPECT_EQ(rsvctltest::lines(rsvtest::readFile(finishLog)).size(), 1u);
    EXPECT_EQ(daemon.stop(), 0);
}

// When the finish record of a running reservation cannot be written, its
// deletion is refused and nothing changes: its use would never be counted.
TEST_F(Rsvd, ARunningReservationIsNotDeletedWithoutItsFinishRecord)
{
    const std::string finishLog = state + "/missing/rsv.finish";
    rsvdtest::Daemon daemon(state, kNow, {"--finish-log", finishLog});
    ASSERT_TRUE(daemon.ready()) << daemon.log();
    rsvdtest::Client client(daemon.socket());
    ASSERT_EQ(client.command("add", {"-u", "root", "-n", "2", "-m", "alpha", "-b", "+1h", "-D", "2h"})["status"], 0);
    setClock(client, kNow + 3600);
    const std::string stateText = rsvtest::readFile(state + "/rsv.state");
    nlohmann::json r = client.command("del", {"root#0"});
    EXPECT_EQ(r["status"], 3) << r.dump();
    EXPECT_EQ(r["stderr"], "rsvctl: root#0 is running and its finish record could not be written to " + finishLog +
                               "; nothing deleted\n");
    EXPECT_EQ(rsvtest::readFile(state + "/rsv.state"), stateText);
    r = client.command("show", {"--json", "root#0"});
    EXPECT_EQ(r["json"]["state"], "active") << r.dump();
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(Rsvd, HangupRereadsTheHostsAndLogsWhatNoLongerFits)
{
    rsvdtest::Daemon daemon(state, kNow);
    ASSERT_TRUE(daemon.ready()) << daemon.log();
    EXPECT_EQ(rsv({"add", "-u", "alice", "-n", "2", "-m", "gamma", "-b", "+1h", "-D", "1h"}).status, 0);
    EXPECT_EQ(rsv({"add", "-u", "bob", "-n", "4", "-m", "beta", "-b", "+1h", "-D", "1h"}).status, 0);
    // gamma is gone and beta has two slots fewer than bob holds.
    rsvtest::writeFile(state + "/hosts.conf", "alpha 8 16 a1\nbeta 2\n");
    kill(daemon.pid(), SIGHUP);
    // Signals reach the loop in the order sent: the hangup is handled first.
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_TRUE(logged(daemon.log(), {"event=reconfigure ", "hosts=2"})) << daemon.log();
    EXPECT_TRUE(logged(daemon.log(), {"event=module ", "gamma", "alice#0", "longer exists"})) << daemon.log();
    EXPECT_TRUE(logged(daemon.log(), {"event=module ", "beta"})) << daemon.log();
    // A hosts.conf that cannot be read leaves the cluster as it was.
    rsvdtest::Daemon again(state, kNow);
    ASSERT_TRUE(again.ready()) << again.log();
    rsvtest::writeFile(state + "/hosts.conf", "alpha eight\n");
    kill(again.pid(), SIGHUP);
    EXPECT_EQ(again.stop(), 0);
    EXPECT_TRUE(logged(again.log(), {"event=reconfigure-failed ", "kept="})) << again.log();
}

TEST(RsvdAlone, RefusesASecondDaemonOnOneDirectory)
{
    rsvtest::TempDir tmp;
    const std::string state = tmp.file("state");
    mkdir(state.c_str(), 0755);
    rsvtest::writeFile(state + "/hosts.conf", kSmallCluster);
    rsvdtest::Daemon first(state, kNow);
    ASSERT_TRUE(first.ready()) << first.log();
    rsvdtest::Daemon second(state, kNow, {"--socket", tmp.file("second.sock")});
    EXPECT_FALSE(second.ready());
    EXPECT_EQ(second.stop(), 3);
    EXPECT_NE(second.log().find("holds this state directory"), std::string::npos) << second.log();
}

} // namespace
