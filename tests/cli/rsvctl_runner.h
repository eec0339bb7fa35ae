// rsvctl_runner.h: running the built rsvctl as a user would, with the clock
// and the zone pinned through its environment.
#ifndef RSVCTL_RUNNER_H
#define RSVCTL_RUNNER_H

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace rsvctltest {

// The pinned "now" of the end-to-end tests: Wed 2026-11-18 10:00 UTC.
inline constexpr long long kNow = 1794996000;

// The login name rsvctl sees ($LOGNAME) in the end-to-end tests.
inline constexpr const char *kOperator = "tester";

// A small cluster: aliases, a host without a processor count, and a
// per-owner limit of 3.
inline constexpr const char *kSmallCluster = R"(# test cluster
max-per-owner 3
alpha  8  16  a1
beta   4
gamma  2   2  g1 g2
)";

struct RunResult {
    int status = -1;  // exit status, or -1 when killed by a signal
    int signal = 0;   // the signal that ended it, or 0
    std::string out;
    std::string err;
};

struct RunOptions {
    std::string cwd;                         // working directory ("" = inherit)
    std::map<std::string, std::string> env;  // set on top of the pinned ones
    std::vector<std::string> unset;          // removed from the environment
    std::string input;                       // standard input
    std::vector<std::string> wrapper;        // a command rsvctl runs under (such as setpriv ...)
};

// Run rsvctl with `args` (without the program name). TZ and RSVCTL_NOW come
// from `tz` and `now`, LOGNAME is kOperator; RSV_STATE_DIR and NO_COLOR are
// cleared unless `options` sets them.
RunResult runRsvctl(const std::vector<std::string> &args, long long now, const std::string &tz = "UTC",
                    const RunOptions &options = {});

// The same, started in the background: `finish` waits for it.
struct Running {
    pid_t pid = -1;
    int outFd = -1;
    int errFd = -1;
    int inFd = -1;
};
Running startRsvctl(const std::vector<std::string> &args, long long now, const std::string &tz = "UTC",
                    const RunOptions &options = {});
RunResult finish(Running &running);

// Options that preload the I/O fault layer at `library` into rsvctl with
// the fault text `fault` (RSV_IOFAULT form) under `dir`, logging to `log`. Under
// AddressSanitizer the link-order check is switched off, as preloading needs.
RunOptions withFault(const std::string &library, const std::string &fault, const std::string &dir,
                     const std::string &log);

// Every regular file of `dir` with its contents.
std::map<std::string, std::string> snapshot(const std::string &dir);

// Write every file of a snapshot into `dir` (made if missing).
void restore(const std::string &dir, const std::map<std::string, std::string> &files);

// Split text into lines (without the newlines).
std::vector<std::string> lines(const std::string &text);

} // namespace rsvctltest

#endif
