// session.cpp: the state directory, its lock, and start-up as a daemon does it.
#include "session.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "cli_error.h"
#include "output.h"
#include "services.h"
#include "signals.h"

namespace rsvctl {

namespace {

std::vector<std::string> logLines;
HeldState *held = nullptr;
bool logVerbose = false;

void logSink(int level, const char *line)
{
    logLines.emplace_back(line);
    if (logVerbose)
        printErr("rsvctl: module [{}]: {}\n", level, line);
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

std::string directoryOf(const std::string &path)
{
    size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

double millisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// One line of -v on standard error.
template <typename... Args>
void verboseNote(fmt::format_string<Args...> format, Args &&...args)
{
    if (logVerbose)
        printErr("rsvctl: {}\n", fmt::format(format, std::forward<Args>(args)...));
}

[[noreturn]] void notSavedError(const std::string &file, int err)
{
    fileError(fmt::format("state not saved: {}: {}", file, std::strerror(err)));
}

} // namespace

void holdState(HeldState *state)
{
    held = state;
}

HeldState *heldState()
{
    return held;
}

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

void writeFileWhole(const std::string &path, const std::string &text)
{
    const std::string tmp = path + ".tmp";
    auto failed = [&](int fd) {
        const int err = errno;
        if (fd >= 0)
            close(fd);
        unlink(tmp.c_str());
        notSavedError(path, err);
    };
    const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        failed(-1);
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            failed(fd);
        done += static_cast<size_t>(n);
    }
    if (fsync(fd) != 0)
        failed(fd);
    if (close(fd) != 0)
        failed(-1);
    if (rename(tmp.c_str(), path.c_str()) != 0)
        failed(-1);
    // The rename itself reaches the disk with the directory.
    const int dirFd = open(directoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0 || fsync(dirFd) != 0) {
        const int err = errno;
        if (dirFd >= 0)
            close(dirFd);
        notSavedError(path, err);
    }
    close(dirFd);
}

namespace {

// The status-3 line for a directory without hosts.conf, saying how to make
// one.
std::string missingClusterMessage(const std::string &stateDir, bool dirExists)
{
    return fmt::format("{}: create one with 'rsvctl --state-dir {} init --host NAME:SLOTS ...', or run 'rsvctl "
                       "--state-dir {} demo' for the built-in demo cluster",
                       dirExists ? fmt::format("no cluster file '{}/hosts.conf'", stateDir)
                                 : fmt::format("no state directory '{}'", stateDir),
                       stateDir, stateDir);
}

} // namespace

Session::Session(const std::string &stateDir, Access access, ClusterSource source)
    : access_(access), dir_(stateDir), stateFile_(stateDir + "/rsv.state"), clusterFile_(stateDir + "/hosts.conf"),
      lockFile_(stateDir + "/rsv.lock")
{
    if (held) {
        held_ = held;
        table_ = held->table;
        numRejected_ = held->numRejected;
        return;
    }
    // The module's id-file buffer holds a 1024-character state-file name.
    if (stateFile_.size() > 1000)
        fileError(fmt::format("state directory name too long: '{}'", dir_));
    struct stat st {};
    bool exists = stat(dir_.c_str(), &st) == 0;
    if (!exists && errno != ENOENT)
        fileError(fmt::format("cannot use state directory '{}': {}", dir_, std::strerror(errno)));
    if (exists && !S_ISDIR(st.st_mode))
        fileError(fmt::format("state directory '{}' is not a directory", dir_));
    // Only demo and init make a cluster file: an operator's directory that
    // lost its hosts.conf must not quietly become the demo cluster.
    if (source == ClusterSource::File && (!exists || ::access(clusterFile_.c_str(), F_OK) != 0))
        fileError(missingClusterMessage(dir_, exists));

    if (access_ == Access::Change) {
        if (!exists) {
            if (mkdir(dir_.c_str(), 0755) != 0)
                fileError(fmt::format("cannot create state directory '{}': {}", dir_, std::strerror(errno)));
            createdDir_ = true;
        }
        lockFd_ = open(lockFile_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (lockFd_ < 0) {
            int saved = errno;
            if (createdDir_)
                rmdir(dir_.c_str());
            fileError(fmt::format("cannot open lock file '{}': {}", lockFile_, std::strerror(saved)));
        }
        // Held for the whole load-change-write cycle, so two rsvctl processes
        // on one directory never overwrite each other's change.
        const auto lockStart = std::chrono::steady_clock::now();
        lock(LOCK_EX);
        verboseNote("locked {} (exclusive) in {:.1f} ms", lockFile_, millisecondsSince(lockStart));
    } else if (exists) {
        // A reader needs no write access: the lock file opened read-only is
        // enough for flock. Where it is missing and cannot be made (a
        // directory the user may only read), the reader goes on unlocked;
        // saves replace whole files, so it still never sees a cut file.
        lockFd_ = open(lockFile_.c_str(), O_RDONLY | O_CLOEXEC);
        if (lockFd_ < 0 && errno == ENOENT)
            lockFd_ = open(lockFile_.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
        // Shared: readers run side by side, and a change waits for them (so
        // a reader never pairs an old id file with a new state file).
        if (lockFd_ >= 0) {
            const auto lockStart = std::chrono::steady_clock::now();
            lock(LOCK_SH);
            verboseNote("locked {} (shared) in {:.1f} ms", lockFile_, millisecondsSince(lockStart));
        }
    }

    try {
        const auto clusterStart = std::chrono::steady_clock::now();
        std::string text;
        if (::access(clusterFile_.c_str(), F_OK) == 0) {
            if (!readWholeFile(clusterFile_, text))
                fileError(fmt::format("cannot read cluster file '{}': {}", clusterFile_, std::strerror(errno)));
            cluster_ = Cluster::parse(text, clusterFile_);
        } else if (source == ClusterSource::File) {
            fileError(missingClusterMessage(dir_, true));
        } else {
            builtInCluster_ = true;
            cluster_ = Cluster::parse(demoClusterText(), "(built-in demo cluster)");
        }
        installServices(cluster_);
        const double clusterMs = millisecondsSince(clusterStart);
        table_ = RsvTimeTbl_new(stateFile_.c_str());
        if (!table_)
            fileError(fmt::format("cannot use state file '{}'", stateFile_));
        idFile_ = table_->idFile ? table_->idFile : "";
        stateExisted_ = ::access(stateFile_.c_str(), F_OK) == 0;
        idsExisted_ = idFile_.empty() || ::access(idFile_.c_str(), F_OK) == 0;
        // Every change is all or nothing: saved whole, or memory and both
        // files left as they were and the command fails with status 3. Set
        // before the load, so that the id file's counters are kept.
        if (RsvTimeTbl_setDurable(table_, 1) < 0)
            fileError(fmt::format("cannot use state file '{}': out of memory", stateFile_));
        // A command reads or changes a few reservations: each host's planners
        // are built when the command first needs them, not all at the load.
        if (RsvTimeTbl_setLazyPlanners(table_, 1) < 0)
            fileError(fmt::format("cannot use state file '{}': out of memory", stateFile_));
        const auto loadStart = std::chrono::steady_clock::now();
        int restored = RsvTimeTbl_load(table_, &numRejected_);
        if (restored < 0)
            fileError(fmt::format("cannot read state file '{}': {}", stateFile_, std::strerror(errno)));
        verboseNote("loaded {}: {} host{}, in {:.1f} ms", builtInCluster_ ? "the built-in demo cluster" : clusterFile_,
                    cluster_.hosts().size(), cluster_.hosts().size() == 1 ? "" : "s", clusterMs);
        verboseNote("loaded {}: {} reservation{}, {} unreadable line{}, in {:.1f} ms",
                    stateExisted_ ? stateFile_ : stateFile_ + " (none yet)", restored, restored == 1 ? "" : "s",
                    numRejected_, numRejected_ == 1 ? "" : "s", millisecondsSince(loadStart));
    } catch (...) {
        release();
        throw;
    }
}

Session::~Session()
{
    release();
}

namespace {

// The pid of the rsvd that holds the lock file open at `fd` (it writes
// "rsvd PID" into it), or 0 when it names none that is alive.
long daemonHolding(int fd)
{
    char text[64] = {};
    const ssize_t n = pread(fd, text, sizeof text - 1, 0);
    long pid = 0;
    if (n <= 0 || std::sscanf(text, "rsvd %ld", &pid) != 1 || pid <= 0)
        return 0;
    return kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM ? pid : 0;
}

} // namespace

void Session::lock(int how)
{
    // rsvd holds the lock for its whole life: say so rather than wait for
    // it, since two front ends must never change the table at once.
    if (flock(lockFd_, how | LOCK_NB) == 0)
        return;
    if (errno == EWOULDBLOCK) {
        if (const long pid = daemonHolding(lockFd_)) {
            close(lockFd_);
            lockFd_ = -1;
            fileError(fmt::format("rsvd (pid {}) holds this state directory: run the command without --direct, "
                                  "or stop rsvd",
                                  pid));
        }
    }
    while (flock(lockFd_, how) != 0) {
        if (errno != EINTR) {
            int saved = errno;
            close(lockFd_);
            lockFd_ = -1;
            if (createdDir_) {
                unlink(lockFile_.c_str());
                rmdir(dir_.c_str());
            }
            fileError(fmt::format("cannot lock '{}': {}", lockFile_, std::strerror(saved)));
        }
    }
}

void Session::release()
{
    if (held_)
        return;
    if (table_) {
        RsvTimeTbl_free(table_);
        table_ = nullptr;
        uninstallServices();
    }
    if (changeBegun_ && !changeSaved_) {
        // A failed save of a table that had no files yet writes the empty
        // table back instead of leaving none: remove what was not there.
        if (!stateExisted_)
            unlink(stateFile_.c_str());
        if (!idsExisted_)
            unlink(idFile_.c_str());
        if (wroteCluster_)
            unlink(clusterFile_.c_str());
    }
    if (lockFd_ >= 0) {
        if (!changeSaved_ && createdDir_) {
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

void Session::beginChange()
{
    if (access_ != Access::Change)
        throw std::logic_error("rsvctl: a change in a read-only session");
    // A daemon finishes the request in hand before it acts on a signal.
    if (!held_)
        holdChangeSignals();
    changeBegun_ = true;
    changeStart_ = std::chrono::steady_clock::now();
    // The change is booked on the built-in cluster: write it first, so the
    // saved reservations never name hosts of a cluster file that is missing.
    // Removed again when the change is not saved (also when the write
    // failed after its rename).
    if (builtInCluster_ && !wroteCluster_) {
        wroteCluster_ = true;
        writeFileWhole(clusterFile_, demoClusterText());
    }
}

void Session::changeSaved(const std::vector<std::string> &ids)
{
    changeSaved_ = true;
    if (held_) {
        ++held_->changes;
        held_->touched.insert(held_->touched.end(), ids.begin(), ids.end());
    }
    if (!logVerbose)
        return;
    const int count = table_ ? h_numEnts_(&table_->entries) : 0;
    verboseNote("saved {}{}: {} reservation{}; the change and its save took {:.1f} ms", stateFile_,
                idFile_.empty() ? "" : " and " + idFile_, count, count == 1 ? "" : "s", millisecondsSince(changeStart_));
}

void Session::aboutToRemove(const std::vector<std::string> &ids)
{
    std::string why;
    if (held_ && held_->beforeRemove && !held_->beforeRemove(ids, why))
        throw CliError(kExitFile, why);
}

void Session::mayChange(const std::string &id, const char *verb)
{
    const Caller *who = caller();
    if (!who || who->isOperator)
        return;
    const RsvEnt *ent = RsvTimeTbl_getEntry(table_, id.c_str());
    if (ent && ent->name && who->user != ent->name)
        throw CliError(kExitRefused,
                       fmt::format("{} may not {} {}: only its owner or an operator may", who->user, verb, id));
}

void Session::notSaved() const
{
    const int fallback = errno;
    const char *file = nullptr;
    const char *step = nullptr;
    int err = RsvTimeTbl_lastSaveError(table_, &file, &step);
    if (err == 0)
        err = fallback != 0 ? fallback : EIO;
    notSavedError(file && *file ? std::string(file) : stateFile_, err);
}

} // namespace rsvctl
