// server.cpp: the event loop: the listening socket, one line-reading
// connection per client, the lifecycle timer, and the signals. Every module
// call happens on this one thread, in a callback of the loop.
#include "server.h"

#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <set>

#include <fmt/format.h>
#include <uv.h>

#include "cluster.h"
#include "log.h"
#include "services.h"

namespace rsvd {

namespace {

// A longer line is refused and its connection closed: there is no telling
// where the next request would begin.
constexpr size_t kMaxLine = 64 * 1024;

struct Server;

struct Connection {
    uv_pipe_t pipe{};
    Server *server = nullptr;
    std::string pending;  // bytes of a line not yet ended
    rsvctl::Caller caller;
    bool closing = false;
};

struct Server {
    Daemon *daemon = nullptr;
    uv_loop_t *loop = nullptr;
    uv_pipe_t listener{};
    uv_timer_t timer{};
    uv_signal_t term{}, intr{}, hup{};
    std::set<Connection *> connections;
    bool stopping = false;
};

Server *theServer = nullptr;

struct WriteRequest {
    uv_write_t req{};
    std::string text;
};

void closeConnection(Connection *conn)
{
    if (conn->closing)
        return;
    conn->closing = true;
    conn->server->connections.erase(conn);
    uv_close(reinterpret_cast<uv_handle_t *>(&conn->pipe),
             [](uv_handle_t *handle) { delete static_cast<Connection *>(handle->data); });
}

void send(Connection *conn, const nlohmann::json &reply)
{
    auto *write = new WriteRequest;
    write->text = reply.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    uv_buf_t buf = uv_buf_init(write->text.data(), static_cast<unsigned>(write->text.size()));
    write->req.data = write;
    const int rc = uv_write(&write->req, reinterpret_cast<uv_stream_t *>(&conn->pipe), &buf, 1,
                            [](uv_write_t *req, int) { delete static_cast<WriteRequest *>(req->data); });
    if (rc != 0) {
        delete write;
        closeConnection(conn);
    }
}

// After the replies written so far have gone out.
void finishConnection(Connection *conn)
{
    if (conn->closing)
        return;
    uv_read_stop(reinterpret_cast<uv_stream_t *>(&conn->pipe));
    auto *req = new uv_shutdown_t;
    req->data = conn;
    if (uv_shutdown(req, reinterpret_cast<uv_stream_t *>(&conn->pipe), [](uv_shutdown_t *r, int) {
            closeConnection(static_cast<Connection *>(r->data));
            delete r;
        }) != 0) {
        delete req;
        closeConnection(conn);
    }
}

void onRead(uv_stream_t *stream, ssize_t nread, const uv_buf_t *buf)
{
    auto *conn = static_cast<Connection *>(stream->data);
    if (nread < 0) {
        // End of input or an error: a line left unfinished is dropped.
        delete[] buf->base;
        closeConnection(conn);
        return;
    }
    conn->pending.append(buf->base, static_cast<size_t>(nread));
    delete[] buf->base;
    size_t start = 0;
    for (size_t newline; !conn->closing && !conn->server->stopping &&
                         (newline = conn->pending.find('\n', start)) != std::string::npos;
         start = newline + 1) {
        std::string line = conn->pending.substr(start, newline - start);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty())
            continue;
        if (line.size() > kMaxLine) {
            send(conn, errorReply(nullptr, fmt::format("request line longer than {} bytes", kMaxLine)));
            finishConnection(conn);
            return;
        }
        send(conn, handleRequest(*conn->server->daemon, line, conn->caller));
    }
    conn->pending.erase(0, start);
    if (conn->pending.size() > kMaxLine) {
        send(conn, errorReply(nullptr, fmt::format("request line longer than {} bytes", kMaxLine)));
        finishConnection(conn);
    }
}

// The peer's identity from the socket itself.
rsvctl::Caller peerOf(uv_pipe_t *pipe, const Options &options)
{
    rsvctl::Caller caller{"", false};
    uv_os_fd_t fd = -1;
    ucred cred{};
    socklen_t len = sizeof cred;
    if (uv_fileno(reinterpret_cast<uv_handle_t *>(pipe), &fd) != 0 ||
        getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0)
        return caller;
    const passwd *pw = getpwuid(cred.uid);
    caller.user = pw && pw->pw_name ? pw->pw_name : fmt::format("uid{}", static_cast<unsigned>(cred.uid));
    caller.isOperator = isOperator(cred.uid, cred.gid, caller.user, options.operatorsGroup);
    return caller;
}

void onConnection(uv_stream_t *listener, int status)
{
    Server *server = static_cast<Server *>(listener->data);
    if (status < 0 || server->stopping)
        return;
    auto *conn = new Connection;
    conn->server = server;
    uv_pipe_init(server->loop, &conn->pipe, 0);
    conn->pipe.data = conn;
    if (uv_accept(listener, reinterpret_cast<uv_stream_t *>(&conn->pipe)) != 0) {
        uv_close(reinterpret_cast<uv_handle_t *>(&conn->pipe),
                 [](uv_handle_t *handle) { delete static_cast<Connection *>(handle->data); });
        return;
    }
    server->connections.insert(conn);
    conn->caller = peerOf(&conn->pipe, server->daemon->options);
    if (conn->caller.user.empty()) {
        send(conn, errorReply(nullptr, "cannot tell who is asking (no peer credentials)", 2));
        finishConnection(conn);
        return;
    }
    uv_read_start(
        reinterpret_cast<uv_stream_t *>(&conn->pipe),
        [](uv_handle_t *, size_t suggested, uv_buf_t *buf) { *buf = uv_buf_init(new char[suggested], suggested); },
        onRead);
}

void onTimer(uv_timer_t *timer)
{
    Server *server = static_cast<Server *>(timer->data);
    Daemon &daemon = *server->daemon;
    if (daemon.lifecycle)
        daemon.schedule(daemon, daemon.lifecycle->step(kx_now()));
}

void scheduleStep(Daemon &daemon, time_t next)
{
    Server *server = theServer;
    if (!server || server->stopping)
        return;
    uv_timer_stop(&server->timer);
    // A pinned clock moves only by rsvd.clock, which steps at once.
    if (next <= 0 || daemon.options.testClock >= 0)
        return;
    const time_t now = kx_now();
    const uint64_t delayMs = next > now ? static_cast<uint64_t>(next - now) * 1000 : 0;
    uv_timer_start(&server->timer, onTimer, delayMs, 0);
}

void reloadHosts(Daemon &daemon)
{
    const std::string path = daemon.options.stateDir + "/hosts.conf";
    try {
        auto cluster = std::make_unique<rsvctl::Cluster>(readCluster(path));
        rsvctl::uninstallServices();
        rsvctl::installServices(*cluster);
        daemon.cluster = std::move(cluster);
        daemon.held.cluster = daemon.cluster.get();
        logEvent("reconfigure", {{"file", path}, {"hosts", daemon.cluster->hosts().size()}});
        // The module logs each vanished host (6101) and over-reserved host
        // (6100) through the module log.
        RsvTimeTbl_checkEntries(daemon.held.table);
        logEvent("reconfigure-checked", {{"file", path}});
    } catch (const std::exception &e) {
        logEvent("reconfigure-failed", {{"file", path}, {"error", e.what()}, {"kept", "the cluster as it was"}});
    }
}

void onSignal(uv_signal_t *handle, int signum)
{
    Server *server = static_cast<Server *>(handle->data);
    if (signum == SIGHUP) {
        reloadHosts(*server->daemon);
        return;
    }
    if (server->stopping)
        return;
    // The request in hand is already answered: signals come between
    // callbacks. Stop listening, let the replies go out, close everything.
    server->stopping = true;
    logEvent("stopping", {{"signal", signum == SIGTERM ? "TERM" : "INT"}});
    uv_close(reinterpret_cast<uv_handle_t *>(&server->listener), nullptr);
    uv_close(reinterpret_cast<uv_handle_t *>(&server->timer), nullptr);
    uv_close(reinterpret_cast<uv_handle_t *>(&server->term), nullptr);
    uv_close(reinterpret_cast<uv_handle_t *>(&server->intr), nullptr);
    uv_close(reinterpret_cast<uv_handle_t *>(&server->hup), nullptr);
    for (Connection *conn : std::set<Connection *>(server->connections))
        finishConnection(conn);
}

} // namespace

rsvctl::Cluster readCluster(const std::string &path)
{
    FILE *file = std::fopen(path.c_str(), "rb");
    if (!file)
        throw std::runtime_error(fmt::format("cannot read cluster file '{}': {}", path, std::strerror(errno)));
    std::string text;
    char buf[8192];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, file)) > 0;)
        text.append(buf, n);
    std::fclose(file);
    return rsvctl::Cluster::parse(text, path);
}

int serve(Daemon &daemon)
{
    Server server;
    server.daemon = &daemon;
    server.loop = uv_default_loop();
    theServer = &server;
    daemon.schedule = &scheduleStep;

    const std::string &path = daemon.options.socketPath;
    // This rsvd holds the state directory's lock: a socket file there is a
    // stale one of an rsvd that is gone.
    unlink(path.c_str());
    uv_pipe_init(server.loop, &server.listener, 0);
    server.listener.data = &server;
    int rc = uv_pipe_bind(&server.listener, path.c_str());
    if (rc == 0) {
        // Anyone may connect: who may do what is decided per request from
        // the peer's credentials.
        chmod(path.c_str(), 0666);
        rc = uv_listen(reinterpret_cast<uv_stream_t *>(&server.listener), 128, onConnection);
    }
    if (rc != 0) {
        logEvent("error", {{"socket", path}, {"error", uv_strerror(rc)}});
        uv_close(reinterpret_cast<uv_handle_t *>(&server.listener), nullptr);
        uv_run(server.loop, UV_RUN_DEFAULT);
        theServer = nullptr;
        return 3;
    }
    uv_timer_init(server.loop, &server.timer);
    server.timer.data = &server;
    const std::pair<uv_signal_t *, int> signals[] = {{&server.term, SIGTERM}, {&server.intr, SIGINT}, {&server.hup, SIGHUP}};
    for (auto [handle, signum] : signals) {
        uv_signal_init(server.loop, handle);
        handle->data = &server;
        uv_signal_start(handle, onSignal, signum);
    }
    signal(SIGPIPE, SIG_IGN);
    if (daemon.lifecycle)
        scheduleStep(daemon, daemon.lifecycle->nextDue());
    logEvent("ready", {{"socket", path}, {"pid", static_cast<long long>(getpid())},
                       {"reservations", h_numEnts_(&daemon.held.table->entries)}});
    uv_run(server.loop, UV_RUN_DEFAULT);
    uv_loop_close(server.loop);
    unlink(path.c_str());
    theServer = nullptr;
    return 0;
}

} // namespace rsvd
