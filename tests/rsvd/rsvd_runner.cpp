// rsvd_runner.cpp: fork, exec, wait for "event=ready"; the line client.
#include "rsvd_runner.h"

#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

namespace rsvdtest {

namespace {

int connectTo(const std::string &path)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// One byte with room for one descriptor beside it.
struct FdMessage {
    char byte = 0;
    iovec iov{&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr msg{};
    FdMessage()
    {
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        msg.msg_control = control;
        msg.msg_controllen = sizeof control;
    }
};

// Send `fd` over the Unix socket `channel`.
void passFd(int channel, int fd)
{
    FdMessage m;
    cmsghdr *c = CMSG_FIRSTHDR(&m.msg);
    c->cmsg_level = SOL_SOCKET;
    c->cmsg_type = SCM_RIGHTS;
    c->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(c), &fd, sizeof fd);
    (void)sendmsg(channel, &m.msg, 0);
}

int receiveFd(int channel)
{
    FdMessage m;
    if (recvmsg(channel, &m.msg, 0) <= 0)
        return -1;
    cmsghdr *c = CMSG_FIRSTHDR(&m.msg);
    if (!c || c->cmsg_type != SCM_RIGHTS)
        return -1;
    int fd = -1;
    std::memcpy(&fd, CMSG_DATA(c), sizeof fd);
    return fd;
}

} // namespace

Daemon::Daemon(const std::string &stateDir, long long now, const std::vector<std::string> &extra)
    : socket_(stateDir + "/rsvd.sock")
{
    int fds[2];
    if (pipe(fds) != 0)
        return;
    std::vector<std::string> words{RSVD_PATH, "--state-dir", stateDir, "--foreground", "--test-clock",
                                   std::to_string(now)};
    words.insert(words.end(), extra.begin(), extra.end());
    for (size_t i = 0; i + 1 < extra.size(); ++i)
        if (extra[i] == "--socket")
            socket_ = extra[i + 1];
    pid_ = fork();
    if (pid_ == 0) {
        dup2(fds[1], 2);
        close(fds[0]);
        close(fds[1]);
        setenv("TZ", "UTC", 1);
        unsetenv("RSV_STATE_DIR");
        std::vector<char *> argv;
        for (auto &w : words)
            argv.push_back(w.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(fds[1]);
    logFd_ = fds[0];
    // Blocks until rsvd logs "ready" or ends: no polling, no sleeping.
    char buf[4096];
    while (log_.find("event=ready") == std::string::npos) {
        const ssize_t n = read(logFd_, buf, sizeof buf);
        if (n <= 0)
            return;
        log_.append(buf, static_cast<size_t>(n));
    }
    ready_ = true;
}

void Daemon::readLogToEnd()
{
    char buf[4096];
    for (ssize_t n; (n = read(logFd_, buf, sizeof buf)) > 0;)
        log_.append(buf, static_cast<size_t>(n));
}

void Daemon::followLog()
{
    if (pid_ > 0 && !follower_.joinable())
        follower_ = std::thread([this] { readLogToEnd(); });
}

int Daemon::stop(int signum)
{
    if (pid_ <= 0)
        return -2;
    kill(pid_, signum);
    if (follower_.joinable())
        follower_.join();
    else
        readLogToEnd();
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    close(logFd_);
    logFd_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Daemon::~Daemon()
{
    stop();
}

Client::Client(const std::string &socketPath, int uid)
{
    if (uid < 0) {
        fd_ = connectTo(socketPath);
        return;
    }
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0)
        return;
    const pid_t child = fork();
    if (child == 0) {
        close(pair[0]);
        const passwd *pw = getpwuid(static_cast<uid_t>(uid));
        const gid_t gid = pw ? pw->pw_gid : static_cast<gid_t>(uid);
        if (setgroups(0, nullptr) != 0 || setgid(gid) != 0 || setuid(static_cast<uid_t>(uid)) != 0)
            _exit(1);
        const int fd = connectTo(socketPath);
        if (fd >= 0)
            passFd(pair[1], fd);
        _exit(fd >= 0 ? 0 : 1);
    }
    close(pair[1]);
    fd_ = receiveFd(pair[0]);
    close(pair[0]);
    int status = 0;
    waitpid(child, &status, 0);
}

Client::~Client()
{
    if (fd_ >= 0)
        close(fd_);
}

void Client::sendRaw(const std::string &bytes)
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t n = send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        done += static_cast<size_t>(n);
    }
}

nlohmann::json Client::reply()
{
    char buf[65536];
    size_t newline;
    while ((newline = pending_.find('\n')) == std::string::npos) {
        const ssize_t n = read(fd_, buf, sizeof buf);
        if (n <= 0)
            return nlohmann::json::parse("", nullptr, false);
        pending_.append(buf, static_cast<size_t>(n));
    }
    const std::string line = pending_.substr(0, newline);
    pending_.erase(0, newline + 1);
    return nlohmann::json::parse(line, nullptr, false);
}

bool Client::closedByDaemon()
{
    char buf[256];
    return pending_.empty() && read(fd_, buf, sizeof buf) == 0;
}

nlohmann::json Client::ask(const nlohmann::json &request)
{
    sendRaw(request.dump() + "\n");
    return reply();
}

nlohmann::json Client::command(const std::string &cmd, const std::vector<std::string> &args)
{
    return ask({{"v", 1}, {"id", 1}, {"cmd", cmd}, {"args", args}});
}

} // namespace rsvdtest
