// daemon.h: what rsvd holds for its whole life, shared by the event loop and
// the request handler. Everything here is touched from the loop thread only.
#ifndef RSVD_DAEMON_H
#define RSVD_DAEMON_H

#include <ctime>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "cluster.h"
#include "lifecycle.h"
#include "session.h"

namespace rsvd {

struct Options {
    std::string stateDir;
    std::string socketPath;      // default <state-dir>/rsvd.sock
    std::string finishLog;       // default <state-dir>/rsv.finish
    std::string operatorsGroup = "rsvops";
    bool foreground = false;
    long long testClock = -1;    // >= 0: the module clock pinned there, and rsvd.clock allowed
};

struct Daemon {
    Options options;
    std::unique_ptr<rsvctl::Cluster> cluster;
    rsvctl::HeldState held;
    std::unique_ptr<Lifecycle> lifecycle;
    time_t started = 0;
    long long requests = 0;
    // Set by the loop: re-arm the lifecycle timer for `next` (0: nothing due).
    void (*schedule)(Daemon &daemon, time_t next) = nullptr;
};

// The reply to one request line from a peer that is `caller`.
nlohmann::json handleRequest(Daemon &daemon, const std::string &line, const rsvctl::Caller &caller);

// An error reply (status 1 unless given) for request `id` (null when unknown).
nlohmann::json errorReply(const nlohmann::json &id, const std::string &error, int status = 1);

// Whether `user` (uid, primary gid) belongs to `group`; root always does.
bool isOperator(unsigned uid, unsigned gid, const std::string &user, const std::string &groupName);

// The pinned clock of --test-clock.
void pinClock(time_t now);

// rsvd from its command line to its exit status (errors logged, never
// thrown).
int run(int argc, char **argv);

// Tests only: a request may then carry "test_peer" ({"user":NAME,
// "operator":BOOL}), which the hook turns into the caller in place of the
// socket's peer, so that who may do what is tested without switching uids.
// Only a test build of the daemon installs one; rsvd itself refuses the
// field as unknown.
using TestPeerHook = bool (*)(const nlohmann::json &peer, rsvctl::Caller &caller);
void setTestPeerHook(TestPeerHook hook);

} // namespace rsvd

#endif
