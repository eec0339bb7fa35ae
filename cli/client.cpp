// client.cpp: one request to rsvd and its answer, protocol version 1 (see
// docs/protocol.md).
#include "client.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "cli_error.h"
#include "output.h"
#include "session.h"

namespace rsvctl {

namespace {

// A connected socket, closed with the object.
class Connection {
public:
    explicit Connection(int fd) : fd_(fd) {}
    ~Connection()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

// -1 with errno set when nothing answers at `path`.
int connectTo(const std::string &path)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, reinterpret_cast<const sockaddr *>(&addr), sizeof addr) != 0) {
        const int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

[[noreturn]] void unreachable(const std::string &path, const std::string &why)
{
    fileError(fmt::format("rsvd at '{}': {}", path, why));
}

} // namespace

std::vector<std::string> commandWords(int argc, char **argv)
{
    std::vector<std::string> words;
    bool afterDashes = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (!afterDashes) {
            if (arg == "--") {
                afterDashes = true;
            } else if (arg == "--state-dir" || arg == "--color" || arg == "--socket") {
                ++i;
                continue;
            } else if (arg.rfind("--state-dir=", 0) == 0 || arg.rfind("--color=", 0) == 0 ||
                       arg.rfind("--socket=", 0) == 0 || arg == "-v" || arg == "--verbose" || arg == "--direct") {
                continue;
            }
        }
        words.push_back(arg);
    }
    return words;
}

std::optional<int> askDaemon(const GlobalOptions &global, const std::string &command, int argc, char **argv)
{
    if (global.direct || command == "init" || command == "demo")
        return std::nullopt;
    const bool named = !global.socket.empty();
    const std::string path = named ? global.socket : resolveStateDir(global.stateDir) + "/rsvd.sock";
    const int fd = connectTo(path);
    if (fd < 0) {
        // A socket file left by an rsvd that is gone answers nothing: the
        // directory is then worked on directly.
        if (named)
            unreachable(path, std::strerror(errno));
        return std::nullopt;
    }
    Connection conn(fd);

    std::vector<std::string> words = commandWords(argc, argv);
    if (words.empty() || words.front() != command)
        usageError(fmt::format("put the global options before or after '{}', not among its values", command));
    words.erase(words.begin());
    nlohmann::json request = {{"v", 1}, {"id", 1}, {"cmd", command}, {"args", words}};
    if (command == "planner")
        request["colour"] = useColour(global);
    const std::string line = request.dump() + "\n";
    for (size_t done = 0; done < line.size();) {
        const ssize_t n = send(fd, line.data() + done, line.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            unreachable(path, std::strerror(errno));
        done += static_cast<size_t>(n);
    }
    std::string reply;
    char buf[65536];
    while (reply.empty() || reply.back() != '\n') {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            unreachable(path, std::strerror(errno));
        if (n == 0)
            unreachable(path, "closed the connection before answering (the change, if any, may or may not be made)");
        reply.append(buf, static_cast<size_t>(n));
    }
    const nlohmann::json answer = nlohmann::json::parse(reply, nullptr, false);
    if (answer.is_discarded() || !answer.is_object() || !answer.contains("status"))
        unreachable(path, "answered something that is not a reply");
    if (answer.contains("error"))
        throw CliError(answer.value("status", kExitFile), fmt::format("rsvd: {}", answer.value("error", "")));
    output().out(answer.value("stdout", ""));
    output().err(answer.value("stderr", ""));
    return answer.value("status", kExitFile);
}

} // namespace rsvctl
