// session.cpp: the state directory, its lock, and start-up as a daemon does it.
#include "session.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "cli_error.h"
#include "services.h"

namespace rsvctl {

namespace {

std::vector<std::string> logLines;
bool logVerbose = false;

void logSink(int level, const char *line)
{
    logLines.emplace_back(line);
    if (logVerbose)
        fmt::print(stderr, "rsvctl: module [{}]: {}\n", level, line);
}

bool readWholeFile(const std::string &path, std::string &out)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream buf;
    buf << in.rdbuf();
    out = buf.str();
    return !in.bad();
}

} // namespace

std::string resolveStateDir(const std::string &fromOption)
{
    if (!fromOption.empty())
        return fromOption;
    if (const char *env = std::getenv("RSV_STATE_DIR"); env && *env)
        return env;
    return "rsv-state";
}

void installLogSink(bool verbose)
{
    logVerbose = verbose;
    kx_setLogSink(&logSink);
}

const std::vector<std::string> &moduleLogLines()
{
    return logLines;
}

Session::Session(const std::string &stateDir)
    : dir_(stateDir), stateFile_(stateDir + "/rsv.state"), clusterFile_(stateDir + "/hosts.conf"),
      lockFile_(stateDir + "/rsv.lock")
{
    // The module's id-file buffer holds a 1024-character state-file name.
    if (stateFile_.size() > 1000)
        fileError(fmt::format("state directory name too long: '{}'", dir_));
    struct stat st {};
    if (stat(dir_.c_str(), &st) != 0) {
        if (mkdir(dir_.c_str(), 0755) != 0)
            fileError(fmt::format("cannot create state directory '{}': {}", dir_, std::strerror(errno)));
        createdDir_ = true;
    } else if (!S_ISDIR(st.st_mode)) {
        fileError(fmt::format("state directory '{}' is not a directory", dir_));
    }
    lockFd_ = open(lockFile_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (lockFd_ < 0) {
        int saved = errno;
        if (createdDir_)
            rmdir(dir_.c_str());
        fileError(fmt::format("cannot open lock file '{}': {}", lockFile_, std::strerror(saved)));
    }
    // Held for the whole load-change-write cycle, so two rsvctl processes on
    // one directory never overwrite each other's change.
    while (flock(lockFd_, LOCK_EX) != 0) {
        if (errno != EINTR) {
            int saved = errno;
            close(lockFd_);
            lockFd_ = -1;
            fileError(fmt::format("cannot lock '{}': {}", lockFile_, std::strerror(saved)));
        }
    }

    try {
        std::string text;
        if (access(clusterFile_.c_str(), F_OK) == 0) {
            if (!readWholeFile(clusterFile_, text))
                fileError(fmt::format("cannot read cluster file '{}': {}", clusterFile_, std::strerror(errno)));
            cluster_ = Cluster::parse(text, clusterFile_);
        } else {
            builtInCluster_ = true;
            cluster_ = Cluster::parse(demoClusterText(), "(built-in demo cluster)");
        }
        installServices(cluster_);
        table_ = RsvTimeTbl_new(stateFile_.c_str());
        if (!table_)
            fileError(fmt::format("cannot use state file '{}'", stateFile_));
        int restored = RsvTimeTbl_load(table_, &numRejected_);
        if (restored < 0)
            fileError(fmt::format("cannot read state file '{}': {}", stateFile_, std::strerror(errno)));
    } catch (...) {
        release();
        throw;
    }
}

Session::~Session()
{
    release();
}

void Session::release()
{
    if (table_) {
        RsvTimeTbl_free(table_);
        table_ = nullptr;
        uninstallServices();
    }
    if (lockFd_ >= 0) {
        if (!committed_ && createdDir_) {
            unlink(lockFile_.c_str());
            rmdir(dir_.c_str());
        }
        close(lockFd_);
        lockFd_ = -1;
    }
}

void Session::requireWritableState() const
{
    if (numRejected_ > 0)
        fileError(fmt::format("{} line(s) of '{}' could not be read; a change would drop them. Fix or remove "
                              "those lines first (rsvctl -v list shows which)",
                              numRejected_, stateFile_));
}

void Session::commit()
{
    if (builtInCluster_) {
        // Written under a temporary name and renamed, so a reader never sees
        // half a cluster file.
        std::string tmp = clusterFile_ + ".new";
        {
            std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
            out << demoClusterText();
            if (!out)
                fileError(fmt::format("cannot write cluster file '{}'", tmp));
        }
        if (std::rename(tmp.c_str(), clusterFile_.c_str()) != 0)
            fileError(fmt::format("cannot write cluster file '{}': {}", clusterFile_, std::strerror(errno)));
        builtInCluster_ = false;
    }
    committed_ = true;
}

} // namespace rsvctl
