// rsvctl_runner.h: running the built rsvctl as a user would, with the clock
// and the zone pinned through its environment.
#ifndef RSVCTL_RUNNER_H
#define RSVCTL_RUNNER_H

#include <map>
#include <string>
#include <vector>

namespace rsvctltest {

struct RunResult {
    int status = -1;  // exit status, or -1 when killed by a signal
    std::string out;
    std::string err;
};

struct RunOptions {
    std::string cwd;                         // working directory ("" = inherit)
    std::map<std::string, std::string> env;  // set on top of the pinned ones
    std::vector<std::string> unset;          // removed from the environment
    std::string input;                       // standard input
};

// Run rsvctl with `args` (without the program name). TZ and RSVCTL_NOW come
// from `tz` and `now`; RSV_STATE_DIR and NO_COLOR are cleared unless `options`
// sets them.
RunResult runRsvctl(const std::vector<std::string> &args, long long now, const std::string &tz = "UTC",
                    const RunOptions &options = {});

// Every regular file of `dir` with its contents.
std::map<std::string, std::string> snapshot(const std::string &dir);

// Split text into lines (without the newlines).
std::vector<std::string> lines(const std::string &text);

} // namespace rsvctltest

#endif
