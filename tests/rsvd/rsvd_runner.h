// rsvd_runner.h: an rsvd child process on a temporary state directory with a
// pinned clock, and a line client for its socket.
#ifndef RSVD_RUNNER_H
#define RSVD_RUNNER_H

#include <sys/types.h>

#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

namespace rsvdtest {

class Daemon {
public:
    // Start rsvd on `stateDir` with --test-clock `now`, TZ=UTC and `extra`
    // arguments, and return once it has logged that it is ready.
    Daemon(const std::string &stateDir, long long now, const std::vector<std::string> &extra = {});
    // SIGTERM and wait, unless stopped already.
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    bool ready() const { return ready_; }
    pid_t pid() const { return pid_; }
    const std::string &socket() const { return socket_; }
    // Send `signum`, wait for the exit, and return the exit status (-1 when a
    // signal ended it). The log read so far is in log().
    int stop(int signum = 15);
    const std::string &log() const { return log_; }
    // From now on read the log in the background, so that an rsvd logging a
    // line per change never blocks on a full pipe; log() is then only read
    // after stop().
    void followLog();

private:
    void readLogToEnd();

    pid_t pid_ = -1;
    int logFd_ = -1;
    bool ready_ = false;
    std::string socket_;
    std::string log_;
    std::thread follower_;
};

// A connection to rsvd's socket, made as uid `uid` (and its primary group)
// when `uid` >= 0: a child process switches to it, connects, and hands the
// connected socket back.
class Client {
public:
    explicit Client(const std::string &socketPath, int uid = -1);
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    bool connected() const { return fd_ >= 0; }
    void sendRaw(const std::string &bytes);
    // The next reply line, parsed (discarded JSON at end of input).
    nlohmann::json reply();
    // Whether the daemon has closed the connection (reads end of input).
    bool closedByDaemon();
    nlohmann::json ask(const nlohmann::json &request);
    // {"v":1,"id":1,"cmd":cmd,"args":args}
    nlohmann::json command(const std::string &cmd, const std::vector<std::string> &args);

private:
    int fd_ = -1;
    std::string pending_;
};

} // namespace rsvdtest

#endif
