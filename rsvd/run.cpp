// run.cpp: rsvd's life from its command line to its exit: the state
// directory's lock, the table loaded once (and saved durably on every
// change), the lifecycle, and the event loop serving rsvctl's commands.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "daemon.h"
#include "log.h"
#include "server.h"
#include "services.h"

namespace {

// Exclusive for rsvd's whole life, with "rsvd PID" written in, so that a
// direct-mode rsvctl refuses to change the table behind rsvd's back and says
// why. -1 when another process holds it.
int lockStateDir(const std::string &dir)
{
    const std::string path = dir + "/rsv.lock";
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        throw std::runtime_error(fmt::format("cannot open lock file '{}': {}", path, std::strerror(errno)));
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        close(fd);
        return -1;
    }
    const std::string text = fmt::format("rsvd {}\n", static_cast<long>(getpid()));
    if (ftruncate(fd, 0) != 0 || pwrite(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        rsvd::logEvent("warning", {{"file", path}, {"error", std::strerror(errno)}});
    return fd;
}

int runDaemon(int argc, char **argv)
{
    rsvd::Options options;
    CLI::App app{"rsvd: the reservation daemon: holds the table, serves rsvctl over a Unix socket, and activates "
                 "and ends reservations on time"};
    app.name("rsvd");
    app.set_version_flag("--version", "rsvd 0.1.0");
    app.add_option("--state-dir", options.stateDir,
                   "State directory (default $RSV_STATE_DIR, else ./rsv-state); must hold hosts.conf");
    app.add_option("--socket", options.socketPath, "Listening socket (default <state-dir>/rsvd.sock)");
    app.add_option("--finish-log", options.finishLog,
                   "Finish records, one JSON line per ended instance (default <state-dir>/rsv.finish)");
    app.add_option("--operators-group", options.operatorsGroup,
                   "Members of this group (and root) act on anyone's reservations (default rsvops)");
    app.add_flag("--foreground", options.foreground,
                 "Stay in the foreground, logging to standard error (what rsvd always does; for service managers)");
    app.add_option("--test-clock", options.testClock,
                   "Tests only: pin the clock at these epoch seconds and accept rsvd.clock to move it")
        ->check(CLI::NonNegativeNumber);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        const int code = app.exit(e);
        return code == 0 ? 0 : 1;
    }
    options.stateDir = rsvctl::resolveStateDir(options.stateDir);
    if (options.socketPath.empty())
        options.socketPath = options.stateDir + "/rsvd.sock";
    if (options.finishLog.empty())
        options.finishLog = options.stateDir + "/rsv.finish";

    rsvd::installModuleLog();
    if (options.testClock >= 0)
        rsvd::pinClock(static_cast<time_t>(options.testClock));

    rsvd::Daemon daemon;
    daemon.options = options;
    const int lockFd = lockStateDir(options.stateDir);
    if (lockFd < 0) {
        rsvd::logEvent("error", {{"dir", options.stateDir},
                                 {"error", "another rsvd or a change by rsvctl holds this state directory"}});
        return 3;
    }
    daemon.cluster = std::make_unique<rsvctl::Cluster>(rsvd::readCluster(options.stateDir + "/hosts.conf"));
    rsvctl::installServices(*daemon.cluster);
    const std::string stateFile = options.stateDir + "/rsv.state";
    RsvTimeTbl *table = RsvTimeTbl_new(stateFile.c_str());
    if (!table || RsvTimeTbl_setDurable(table, 1) < 0)
        throw std::runtime_error(fmt::format("cannot use state file '{}'", stateFile));
    int rejected = 0;
    const int loaded = RsvTimeTbl_load(table, &rejected);
    if (loaded < 0)
        throw std::runtime_error(fmt::format("cannot read state file '{}': {}", stateFile, std::strerror(errno)));
    rsvd::logEvent("loaded", {{"file", stateFile}, {"reservations", loaded}, {"unreadable", rejected}});
    daemon.held.table = table;
    daemon.held.cluster = daemon.cluster.get();
    daemon.held.numRejected = rejected;
    rsvctl::holdState(&daemon.held);
    daemon.started = kx_now();
    daemon.lifecycle = std::make_unique<rsvd::Lifecycle>(table, options.finishLog, &rsvd::logEvent);
    daemon.lifecycle->start(kx_now());
    // A running reservation that is deleted gets its finish record first,
    // charged up to now; without it the deletion is refused.
    daemon.held.beforeRemove = [&daemon](const std::vector<std::string> &ids, std::string &why) {
        for (const std::string &rsvId : ids)
            if (!daemon.lifecycle->finishEarly(rsvId.c_str(), kx_now())) {
                why = fmt::format("{} is running and its finish record could not be written to {}; nothing deleted",
                                  rsvId, daemon.options.finishLog);
                return false;
            }
        return true;
    };

    const int status = rsvd::serve(daemon);

    daemon.lifecycle.reset();
    rsvctl::holdState(nullptr);
    RsvTimeTbl_free(table);
    rsvctl::uninstallServices();
    if (ftruncate(lockFd, 0) != 0)
        rsvd::logEvent("warning", {{"file", options.stateDir + "/rsv.lock"}, {"error", std::strerror(errno)}});
    close(lockFd);
    rsvd::logEvent("stopped", {{"status", status}});
    return status;
}

} // namespace

namespace rsvd {

int run(int argc, char **argv)
{
    try {
        return runDaemon(argc, argv);
    } catch (const std::exception &e) {
        logEvent("error", {{"error", e.what()}});
        return 3;
    }
}

} // namespace rsvd
