// End-to-end tests of rsvctl's durable changes: every change under an
// injected I/O fault (the fault layer preloaded into rsvctl), the signals
// held during a change, reads in a directory the user cannot write, and
// check. Clock pinned to Wed 2026-11-18 10:00, zone UTC.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>

#include "rsv_test_support.h"
#include "rsvctl_runner.h"

using rsvctltest::finish;
using rsvctltest::lines;
using rsvctltest::restore;
using rsvctltest::RunOptions;
using rsvctltest::RunResult;
using rsvctltest::Running;
using rsvctltest::runRsvctl;
using rsvctltest::snapshot;
using rsvctltest::startRsvctl;
using rsvctltest::withFault;
using Files = std::map<std::string, std::string>;

namespace {

constexpr long long kNow = 1794996000;      // Wed 2026-11-18 10:00 UTC
constexpr long long kThu0900 = 1795078800;  // Thu 2026-11-19 09:00 UTC
constexpr long long kThu1700 = 1795107600;
constexpr long long kDay = 86400;

const char *kCluster = "max-per-owner 10\nalpha 8 16 a1\nbeta 4\n";

std::string at(long long t)
{
    return std::to_string(t);
}

std::string readIfThere(const std::string &path)
{
    return rsvtest::fileExists(path) ? rsvtest::readFile(path) : "";
}

struct Hit {
    std::string op;
    int n = 0;
    std::string path;
    std::string errnoName;
};

// "fail <op> <n> <path> <errno>" lines of the fault layer's log.
std::vector<Hit> hitsIn(const std::string &log)
{
    std::vector<Hit> hits;
    for (const auto &line : lines(log)) {
        std::istringstream in(line);
        std::string kind;
        Hit h;
        in >> kind >> h.op >> h.n >> h.path >> h.errnoName;
        if (kind == "fail")
            hits.push_back(h);
    }
    return hits;
}

bool endsWith(const std::string &text, const std::string &tail)
{
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// A state directory with three reservations made by rsvctl itself:
//   x#0  one-off Thu 09-17, 4 slots on alpha
//   y#0  one-off Fri 09-17, 8 on alpha and 2 on beta
//   r#0  every day 22:00-06:00, 1 slot on beta, off on 31 December
Files makeTemplate(const std::string &dir)
{
    mkdir(dir.c_str(), 0755);
    rsvtest::writeFile(dir + "/hosts.conf", kCluster);
    const std::vector<std::vector<std::string>> adds = {
        {"add", "-u", "x", "-n", "4", "-m", "alpha", "-b", at(kThu0900), "-e", at(kThu1700)},
        {"add", "-u", "y", "-n", "10", "-m", "alpha,beta", "-b", at(kThu0900 + kDay), "-e", at(kThu1700 + kDay)},
        {"add", "-u", "r", "-n", "1", "-m", "beta", "-t", "22:00-6:00", "-d", "nightly"},
        {"mod", "r#0", "--disable", "2026-12-31"},
    };
    for (auto args : adds) {
        args.insert(args.begin(), {"--state-dir", dir});
        RunResult r = runRsvctl(args, kNow);
        EXPECT_EQ(r.status, 0) << r.err;
    }
    return snapshot(dir);
}

struct Scenario {
    const char *name;
    std::vector<std::string> args;
};

const std::vector<Scenario> &scenarios()
{
    static const std::vector<Scenario> all = {
        {"Add", {"add", "-u", "f", "-n", "2", "-m", "alpha", "-b", at(kThu0900 + 2 * kDay), "-e", at(kThu1700 + 2 * kDay)}},
        {"Delete", {"del", "x#0", "r#0"}},
        {"ModWindow", {"mod", "x#0", "--end", "+60"}},
        {"ModAddHosts", {"mod", "x#0", "--add-hosts", "beta", "-n", "1"}},
        {"ModRemoveHosts", {"mod", "y#0", "--rm-hosts", "beta"}},
        {"ModRemoveSlots", {"mod", "x#0", "--rm-slots", "1"}},
        {"ModDisableDays", {"mod", "r#0", "--disable", "12:24"}},
        {"ModDisableDayList", {"mod", "r#0", "--disable", "2026-12-24..2026-12-26,12:29-1:2"}},
        {"ModEnableDays", {"mod", "r#0", "--enable", "2026-12-31"}},
        {"ModDescription", {"mod", "x#0", "--description", "new words"}},
    };
    return all;
}

std::vector<std::string> withDir(std::vector<std::string> args, const std::string &dir)
{
    args.insert(args.begin(), {"--state-dir", dir});
    return args;
}

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// ---------------------------------------------------------------- faults

class FaultedChange : public ::testing::TestWithParam<Scenario> {
protected:
    rsvtest::TempDir tmp;
};

// For each of open, write, fsync, close and rename, with ENOSPC and with
// EIO: fail the 1st, 2nd, ... such call under the state directory until
// the command runs without meeting the fault. A command whose save failed
// exits 3 with one line naming the file and the reason, prints nothing on
// standard output and leaves every file byte for byte as it was; one that
// met a harmless fault (closing the lock file) did all a clean run does.
TEST_P(FaultedChange, FailsWholeOrSucceedsWhole)
{
    const Scenario &scenario = GetParam();
    const auto started = std::chrono::steady_clock::now();
    const std::string dir = tmp.file("state");
    const std::string log = tmp.file("fault.log");
    const Files before = makeTemplate(dir);
    ASSERT_EQ(before.size(), 4u);  // hosts.conf, rsv.ids, rsv.lock, rsv.state

    // The clean run everything is compared with.
    RunResult clean = runRsvctl(withDir(scenario.args, dir), kNow);
    ASSERT_EQ(clean.status, 0) << clean.err;
    ASSERT_FALSE(clean.out.empty());
    const Files after = snapshot(dir);
    ASSERT_NE(after, before);

    int runs = 0;
    const std::pair<const char *, int> errnos[] = {{"ENOSPC", ENOSPC}, {"EIO", EIO}};
    for (const char *op : {"open", "write", "fsync", "close", "rename"}) {
        for (const auto &[errnoName, err] : errnos) {
            int nth = 1;
            for (;; ++nth) {
                ASSERT_LE(nth, 30) << op << ": the fault is still met after 30 calls";
                rsvtest::removeDirectory(dir);
                restore(dir, before);
                unlink(log.c_str());
                const std::string fault = std::string("op=") + op + ",nth=" + std::to_string(nth) + ",errno=" + errnoName;
                RunResult r = runRsvctl(withDir(scenario.args, dir), kNow, "UTC",
                                        withFault(RSV_IOFAULT_PATH, fault, dir, log));
                ++runs;
                const std::vector<Hit> hits = hitsIn(readIfThere(log));
                SCOPED_TRACE(fault + " | status " + std::to_string(r.status) + " | stderr: " + r.err +
                             " | log: " + readIfThere(log));
                ASSERT_LE(hits.size(), 1u);
                if (hits.empty()) {
                    // Past the last such call: a clean run.
                    EXPECT_EQ(r.status, 0);
                    EXPECT_EQ(r.out, clean.out);
                    EXPECT_EQ(r.err, "");
                    EXPECT_EQ(snapshot(dir), after);
                    break;
                }
                const Hit &hit = hits[0];
                EXPECT_EQ(hit.op, op);
                EXPECT_EQ(hit.n, nth);
                EXPECT_EQ(hit.errnoName, errnoName);
                EXPECT_TRUE(hit.path == dir || hit.path.rfind(dir + "/", 0) == 0) << hit.path;
                if (r.status == 0) {
                    // Only a descriptor closed after everything was saved
                    // may fail without consequence.
                    EXPECT_EQ(hit.op, "close");
                    EXPECT_FALSE(endsWith(hit.path, ".tmp")) << hit.path;
                    EXPECT_EQ(r.out, clean.out);
                    EXPECT_EQ(snapshot(dir), after);
                    continue;
                }
                EXPECT_EQ(r.status, 3);
                EXPECT_EQ(r.out, "") << "printed for a change that is not on disk";
                EXPECT_EQ(snapshot(dir), before) << "files changed by a failed command";
                const std::string reason = std::strerror(err);
                ASSERT_EQ(lines(r.err).size(), 1u);
                EXPECT_TRUE(endsWith(r.err, ": " + reason + "\n")) << r.err;
                if (hit.op == "open" && hit.path == dir + "/rsv.lock") {
                    EXPECT_EQ(r.err, "rsvctl: cannot open lock file '" + hit.path + "': " + reason + "\n");
                } else if (endsWith(hit.path, ".tmp")) {
                    // The file whose temporary could not be written.
                    EXPECT_EQ(r.err, "rsvctl: state not saved: " + hit.path.substr(0, hit.path.size() - 4) + ": " +
                                         reason + "\n");
                } else {
                    // The directory (its open or fsync) or a rename: one of
                    // the two state files is named.
                    const bool named = r.err == "rsvctl: state not saved: " + dir + "/rsv.ids: " + reason + "\n" ||
                                       r.err == "rsvctl: state not saved: " + dir + "/rsv.state: " + reason + "\n";
                    EXPECT_TRUE(named) << r.err;
                }
            }
            EXPECT_GT(nth, 1) << op << " was never met: the fault layer missed the save";
        }
    }
    // Then, without a fault, the command succeeds on the old files.
    rsvtest::removeDirectory(dir);
    restore(dir, before);
    RunResult again = runRsvctl(withDir(scenario.args, dir), kNow);
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.out, clean.out);
    EXPECT_EQ(snapshot(dir), after);
    std::cout << "[ timing ] " << scenario.name << ": " << runs << " faulted runs in " << secondsSince(started)
              << " s\n";
}

INSTANTIATE_TEST_SUITE_P(EveryChange, FaultedChange, ::testing::ValuesIn(scenarios()),
                         [](const ::testing::TestParamInfo<Scenario> &info) { return info.param.name; });

// init in a directory that does not exist yet makes it and writes the
// cluster file: a fault anywhere leaves no directory at all.
TEST(FaultedFirstUse, AFailedInitLeavesNothing)
{
    rsvtest::TempDir tmp;
    const std::string dir = tmp.file("fresh");
    const std::string log = tmp.file("fault.log");
    const std::vector<std::string> args = {"--state-dir", dir, "init", "--host", "node1:4"};
    RunResult clean = runRsvctl(args, kNow);
    ASSERT_EQ(clean.status, 0) << clean.err;
    const Files after = snapshot(dir);
    ASSERT_EQ(after.size(), 2u);  // hosts.conf, rsv.lock
    int hitsOnClusterFile = 0;
    for (const char *op : {"open", "write", "fsync", "close", "rename"}) {
        int nth = 1;
        for (;; ++nth) {
            ASSERT_LE(nth, 30);
            rsvtest::removeDirectory(dir);
            unlink(log.c_str());
            const std::string fault = std::string("op=") + op + ",nth=" + std::to_string(nth) + ",errno=ENOSPC";
            RunResult r = runRsvctl(args, kNow, "UTC", withFault(RSV_IOFAULT_PATH, fault, dir, log));
            const std::vector<Hit> hits = hitsIn(readIfThere(log));
            SCOPED_TRACE(fault + " | stderr: " + r.err + " | log: " + readIfThere(log));
            if (hits.empty()) {
                EXPECT_EQ(r.status, 0);
                EXPECT_EQ(snapshot(dir), after);
                break;
            }
            hitsOnClusterFile += hits[0].path == dir + "/hosts.conf.tmp";
            if (r.status == 0) {
                EXPECT_EQ(hits[0].op, "close");
                EXPECT_EQ(snapshot(dir), after);
                continue;
            }
            EXPECT_EQ(r.status, 3);
            EXPECT_EQ(r.out, "");
            EXPECT_EQ(lines(r.err).size(), 1u);
            EXPECT_TRUE(endsWith(r.err, ": No space left on device\n"));
            if (hits[0].path == dir + "/hosts.conf.tmp") {
                EXPECT_EQ(r.err, "rsvctl: state not saved: " + dir + "/hosts.conf: No space left on device\n");
            }
            struct stat st {};
            EXPECT_NE(stat(dir.c_str(), &st), 0) << "the directory was left behind";
        }
    }
    EXPECT_GE(hitsOnClusterFile, 4);  // its open, write, fsync and close
}

// The demo makes several changes: whatever fails, every identifier and
// every "off on" line it printed is on disk, and the failure is the last
// line, on standard error.
TEST(FaultedDemo, PrintsOnlyWhatIsOnDisk)
{
    rsvtest::TempDir tmp;
    const std::string dir = tmp.file("demo");
    const std::string log = tmp.file("fault.log");
    int failures = 0;
    for (const char *op : {"write", "rename"}) {
        int nth = 1;
        for (;; ++nth) {
            ASSERT_LE(nth, 40);
            rsvtest::removeDirectory(dir);
            unlink(log.c_str());
            const std::string fault = std::string("op=") + op + ",nth=" + std::to_string(nth) + ",errno=EIO";
            RunResult r = runRsvctl({"--state-dir", dir, "demo"}, kNow, "UTC", withFault(RSV_IOFAULT_PATH, fault, dir, log));
            SCOPED_TRACE(fault + " | stderr: " + r.err);
            if (hitsIn(readIfThere(log)).empty()) {
                EXPECT_EQ(r.status, 0);
                break;
            }
            ++failures;
            EXPECT_EQ(r.status, 3);
            EXPECT_EQ(lines(r.err).size(), 1u);
            EXPECT_EQ(r.err.rfind("rsvctl: state not saved: " + dir + "/", 0), 0u);
            const std::string state = readIfThere(dir + "/rsv.state");
            std::vector<std::string> out = lines(r.out);
            for (size_t i = 0; i + 1 < out.size(); ++i) {
                if (out[i].rfind("$ rsvctl add ", 0) == 0 && out[i + 1].find('#') != std::string::npos &&
                    out[i + 1].find(' ') == std::string::npos) {
                    EXPECT_NE(state.find(" " + out[i + 1] + " "), std::string::npos) << out[i + 1] << " not on disk";
                }
            }
            // The day off is printed only once saved: bob#0's line then
            // holds the disabled date.
            if (r.out.find("bob#0: off on") != std::string::npos) {
                EXPECT_NE(state.find("2026"), std::string::npos);
            }
            EXPECT_EQ(r.out.find("unexpectedly"), std::string::npos);
        }
    }
    EXPECT_GE(failures, 8);
}

// ---------------------------------------------------------------- del

TEST(DurableDelete, SeveralReservationsGoInOneChange)
{
    rsvtest::TempDir tmp;
    const std::string dir = tmp.file("state");
    const std::string log = tmp.file("fault.log");
    const Files before = makeTemplate(dir);

    // A bad identifier anywhere: nothing is removed.
    RunResult bad = runRsvctl({"--state-dir", dir, "del", "x#0", "nope#4", "r#0"}, kNow);
    EXPECT_EQ(bad.status, 2);
    EXPECT_EQ(bad.err, "rsvctl: no reservation 'nope#4'\n");
    EXPECT_EQ(snapshot(dir), before);
    RunResult twice = runRsvctl({"--state-dir", dir, "del", "x#0", "y#0", "x#0"}, kNow);
    EXPECT_EQ(twice.status, 1);
    EXPECT_EQ(twice.err, "rsvctl: 'x#0' is named twice\n");
    EXPECT_EQ(snapshot(dir), before);

    // All three at once: each file is replaced once (one rename each),
    // where one removal after another would rename six times.
    RunResult all = runRsvctl({"--state-dir", dir, "del", "x#0", "y#0", "r#0"}, kNow, "UTC",
                              withFault(RSV_IOFAULT_PATH, "op=rename,nth=1,times=0,delay_ms=1", dir, log));
    EXPECT_EQ(all.status, 0) << all.err;
    EXPECT_EQ(all.out, "deleted x#0\ndeleted y#0\ndeleted r#0\n");
    std::vector<std::string> renames = lines(readIfThere(log));
    ASSERT_EQ(renames.size(), 2u) << readIfThere(log);
    EXPECT_EQ(renames[0], "delay rename 1 " + dir + "/rsv.ids.tmp");
    EXPECT_EQ(renames[1], "delay rename 2 " + dir + "/rsv.state.tmp");
    EXPECT_EQ(rsvtest::readFile(dir + "/rsv.state"), "");
}

// ---------------------------------------------------------------- signals

struct HeldSignal {
    int signal;
    const char *fault;  // where the save is held up while the signal comes
};

class SignalDuringChange : public ::testing::TestWithParam<HeldSignal> {};

// The signal arrives while the save is held up (between its steps): the
// save completes, the identifier is printed, and only then does the
// signal end the process, as it would have without the hold.
TEST_P(SignalDuringChange, WaitsUntilTheResultIsPrinted)
{
    const HeldSignal &p = GetParam();
    rsvtest::TempDir tmp;
    const std::string dir = tmp.file("state");
    const std::string log = tmp.file("fault.log");
    makeTemplate(dir);
    Running running = startRsvctl(withDir(scenarios()[0].args, dir), kNow, "UTC",
                                  withFault(RSV_IOFAULT_PATH, std::string(p.fault) + ",delay_ms=700", dir, log));
    ASSERT_GT(running.pid, 0);
    // Wait until the save is held up.
    const auto started = std::chrono::steady_clock::now();
    while (readIfThere(log).find("delay") == std::string::npos && secondsSince(started) < 30)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_NE(readIfThere(log).find("delay"), std::string::npos) << "rsvctl never reached the save";
    ASSERT_EQ(kill(running.pid, p.signal), 0);
    RunResult r = finish(running);
    EXPECT_EQ(r.signal, p.signal) << "status " << r.status << ", stderr " << r.err;
    EXPECT_EQ(r.out, "f#0\n2 slots on alpha:2\n");
    EXPECT_NE(rsvtest::readFile(dir + "/rsv.state").find(" f#0 "), std::string::npos);
    EXPECT_NE(rsvtest::readFile(dir + "/rsv.ids").find(" f 0 \n"), std::string::npos);
    EXPECT_FALSE(rsvtest::fileExists(dir + "/rsv.state.tmp"));
    EXPECT_FALSE(rsvtest::fileExists(dir + "/rsv.ids.tmp"));
}

INSTANTIATE_TEST_SUITE_P(EverySignal, SignalDuringChange,
                         ::testing::Values(HeldSignal{SIGTERM, "op=rename,nth=2"}, HeldSignal{SIGINT, "op=fsync,nth=1"},
                                           HeldSignal{SIGHUP, "op=write,nth=2"}),
                         [](const ::testing::TestParamInfo<HeldSignal> &info) {
                             return std::string(info.param.signal == SIGTERM ? "Term"
                                                : info.param.signal == SIGINT ? "Int"
                                                                              : "Hup");
                         });

// ---------------------------------------------------------------- reads

// Runs rsvctl as an unprivileged user: under root through setpriv as
// nobody; otherwise as the user, who cannot write the directory once it is
// made read-only.
class ReadOnlyDirectory : public ::testing::Test {
protected:
    void SetUp() override
    {
        // The temporary directory is private to its maker; the other user
        // must be able to reach the state inside it.
        ASSERT_EQ(chmod(tmp.path().c_str(), 0755), 0);
        dir = tmp.file("state");
        before = makeTemplate(dir);
        if (geteuid() == 0) {
            ASSERT_EQ(access("/usr/bin/setpriv", X_OK), 0) << "setpriv (util-linux) is needed to drop root";
            as.wrapper = {"/usr/bin/setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups", "--"};
        } else {
            readOnly = true;
            ASSERT_EQ(chmod(dir.c_str(), 0555), 0);
        }
    }
    void TearDown() override
    {
        if (readOnly)
            chmod(dir.c_str(), 0755);
    }
    RunResult run(std::vector<std::string> args)
    {
        args.insert(args.begin(), {"--state-dir", dir});
        return runRsvctl(args, kNow, "UTC", as);
    }
    void makeWritable(bool on)
    {
        if (readOnly)
            chmod(dir.c_str(), on ? 0755 : 0555);
    }

    rsvtest::TempDir tmp;
    std::string dir;
    Files before;
    RunOptions as;
    bool readOnly = false;
};

TEST_F(ReadOnlyDirectory, EveryReadWorksAndWritesNothing)
{
    // The user really cannot write there.
    RunResult add = run({"add", "-u", "z", "-m", "beta", "-b", "+1h", "-e", "+2h"});
    EXPECT_EQ(add.status, 3);
    EXPECT_EQ(add.err, "rsvctl: cannot open lock file '" + dir + "/rsv.lock': Permission denied\n");

    RunResult list = run({"list"});
    EXPECT_EQ(list.status, 0) << list.err;
    EXPECT_EQ(lines(list.out).size(), 4u) << list.out;
    RunResult show = run({"show", "r#0", "--json"});
    EXPECT_EQ(show.status, 0) << show.err;
    EXPECT_NE(show.out.find("\"description\": \"nightly\""), std::string::npos);
    RunResult planner = run({"planner", "alpha", "--week", "2026-11-19"});
    EXPECT_EQ(planner.status, 0) << planner.err;
    EXPECT_NE(planner.out.find("alpha: 8 slots"), std::string::npos);
    RunResult hosts = run({"hosts"});
    EXPECT_EQ(hosts.status, 0) << hosts.err;
    RunResult check = run({"check"});
    EXPECT_EQ(check.status, 0) << check.err;
    EXPECT_EQ(check.out,
              "ok: every reserved host exists and none is over-reserved\n"
              "ok: the table's invariants hold\n"
              "files on disk match the table\n");
    EXPECT_EQ(snapshot(dir), before);
}

TEST_F(ReadOnlyDirectory, ReadsGoOnWithoutALockFileTheyCannotMake)
{
    makeWritable(true);
    ASSERT_EQ(unlink((dir + "/rsv.lock").c_str()), 0);
    makeWritable(false);
    Files noLock = snapshot(dir);
    for (const auto &args : std::vector<std::vector<std::string>>{{"list"}, {"show", "x#0"}, {"planner", "a1"},
                                                                   {"hosts"}, {"check"}}) {
        RunResult r = run(args);
        EXPECT_EQ(r.status, 0) << args[0] << ": " << r.err;
        EXPECT_EQ(r.err, "");
    }
    EXPECT_EQ(snapshot(dir), noLock);
    EXPECT_FALSE(rsvtest::fileExists(dir + "/rsv.lock"));
}

TEST_F(ReadOnlyDirectory, AReaderNeedsTheClusterFileAndWritesNone)
{
    makeWritable(true);
    ASSERT_EQ(unlink((dir + "/hosts.conf").c_str()), 0);
    makeWritable(false);
    RunResult hosts = run({"hosts"});
    EXPECT_EQ(hosts.status, 3);
    EXPECT_EQ(hosts.err.rfind("rsvctl: no cluster file '" + dir + "/hosts.conf': create one with", 0), 0u)
        << hosts.err;
    EXPECT_EQ(run({"list"}).status, 3);
    EXPECT_FALSE(rsvtest::fileExists(dir + "/hosts.conf"));
}

TEST_F(ReadOnlyDirectory, AMissingDirectoryIsNotMade)
{
    RunResult r = runRsvctl({"--state-dir", dir + "/inner", "list"}, kNow, "UTC", as);
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err.rfind("rsvctl: no state directory '" + dir + "/inner': create one with", 0), 0u) << r.err;
    struct stat st {};
    EXPECT_NE(stat((dir + "/inner").c_str(), &st), 0);
}

// Readers share the lock; a change waits for them, and they wait for it.
TEST(ReadLock, ReadersShareAndChangesExclude)
{
    rsvtest::TempDir tmp;
    const std::string dir = tmp.file("state");
    const Files before = makeTemplate(dir);
    const int fd = open((dir + "/rsv.lock").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);

    // Another reader holds it shared: a read goes ahead, a change waits.
    ASSERT_EQ(flock(fd, LOCK_SH), 0);
    RunResult list = runRsvctl({"--state-dir", dir, "list"}, kNow);
    EXPECT_EQ(list.status, 0) << list.err;
    Running add = startRsvctl(withDir(scenarios()[0].args, dir), kNow);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(waitpid(add.pid, nullptr, WNOHANG), 0) << "the change did not wait for the reader";
    EXPECT_EQ(snapshot(dir), before);
    ASSERT_EQ(flock(fd, LOCK_UN), 0);
    RunResult added = finish(add);
    EXPECT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(added.out, "f#0\n2 slots on alpha:2\n");

    // A change holds it: a read waits until the change is done.
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    Running read = startRsvctl({"--state-dir", dir, "list"}, kNow);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(waitpid(read.pid, nullptr, WNOHANG), 0) << "the read did not wait for the change";
    ASSERT_EQ(flock(fd, LOCK_UN), 0);
    RunResult listed = finish(read);
    EXPECT_EQ(listed.status, 0);
    EXPECT_NE(listed.out.find("f#0"), std::string::npos);
    close(fd);
}

// ---------------------------------------------------------------- check

TEST(CheckFiles, TemporariesLeftByACutSaveAreNotedAndIgnored)
{
    rsvtest::TempDir tmp;
    const std::string dir = tmp.file("state");
    makeTemplate(dir);
    rsvtest::writeFile(dir + "/rsv.state.tmp", "9.11 half a rec");
    rsvtest::writeFile(dir + "/rsv.ids.tmp", "9.11\n");
    RunResult check = runRsvctl({"--state-dir", dir, "check"}, kNow);
    EXPECT_EQ(check.status, 0) << check.err;
    EXPECT_EQ(check.out,
              "note: " + dir + "/rsv.ids.tmp was left by a save that did not finish; it is harmless and ignored\n"
              "note: " + dir + "/rsv.state.tmp was left by a save that did not finish; it is harmless and ignored\n"
              "ok: every reserved host exists and none is over-reserved\n"
              "ok: the table's invariants hold\n"
              "files on disk match the table\n");
    RunResult list = runRsvctl({"--state-dir", dir, "list"}, kNow);
    EXPECT_EQ(lines(list.out).size(), 4u);
    // The next save writes its own temporaries over them.
    RunResult add = runRsvctl(withDir(scenarios()[0].args, dir), kNow);
    EXPECT_EQ(add.status, 0) << add.err;
    EXPECT_FALSE(rsvtest::fileExists(dir + "/rsv.state.tmp"));
    EXPECT_FALSE(rsvtest::fileExists(dir + "/rsv.ids.tmp"));
    EXPECT_EQ(runRsvctl({"--state-dir", dir, "check"}, kNow).status, 0);
}

} // namespace
