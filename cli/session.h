// session.h: one command's hold on a state directory: the lock, the cluster,
// and the reservation table loaded with the module's start-up call.
#ifndef RSVCTL_SESSION_H
#define RSVCTL_SESSION_H

#include <chrono>
#include <string>
#include <vector>

#include "cluster.h"
#include "qob.rsvimpl.h"

namespace rsvctl {

// The state directory: --state-dir, else $RSV_STATE_DIR, else ./rsv-state.
std::string resolveStateDir(const std::string &fromOption);

// Every module log line of this process; printed to standard error at once
// when verbose is on.
void installLogSink(bool verbose);
const std::vector<std::string> &moduleLogLines();

// Write `text` to `path` as a whole: a temporary "<path>.tmp" in the same
// directory, fsynced, renamed over `path`, and the directory fsynced. On
// failure the temporary is removed, `path` is as it was, and a CliError
// (status 3) says "state not saved: <path>: <reason>".
void writeFileWhole(const std::string &path, const std::string &text);

// What a command does with the state directory.
enum class Access {
    Read,   // shared lock; creates and writes nothing (list, show, planner, hosts, check)
    Change  // exclusive lock; creates the directory when needed
};

// Where the cluster comes from.
enum class ClusterSource {
    File,             // hosts.conf, which must exist (made by init or demo)
    BuiltInOrFile     // hosts.conf, else the built-in demo cluster (demo only)
};

class Session {
public:
    // Lock the directory (see Access), read hosts.conf (with BuiltInOrFile,
    // the built-in demo cluster when there is none), install the daemon
    // services, load rsv.state and switch the table to durable saving.
    // Throws CliError (status 3) for a file or configuration problem, and
    // with ClusterSource::File when the directory or its hosts.conf is
    // missing (then nothing is created).
    Session(const std::string &stateDir, Access access, ClusterSource source = ClusterSource::File);
    // Releases the table and the lock. Unless a change was saved, what this
    // session created (the directory, the cluster file, state files that
    // were not there) is removed again, so a failed command leaves the
    // directory as it found it.
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    RsvTimeTbl *table() { return table_; }
    Cluster &cluster() { return cluster_; }
    const Cluster &cluster() const { return cluster_; }
    const std::string &dir() const { return dir_; }
    const std::string &stateFile() const { return stateFile_; }
    const std::string &clusterFile() const { return clusterFile_; }
    int numRejected() const { return numRejected_; }
    bool usingBuiltInCluster() const { return builtInCluster_; }
    // Whether a lock is held (a read in a directory without a lock file that
    // cannot be made goes on without one).
    bool locked() const { return lockFd_ >= 0; }

    // A change would rewrite rsv.state from the table, dropping lines the
    // load could not read: refuse (status 3) while there are such lines.
    void requireWritableState() const;

    // Call right before the module call that changes the table: holds the
    // termination signals until the result is printed, and writes the
    // built-in cluster file when it is in use (the change is then booked on
    // it). Only for Access::Change sessions.
    void beginChange();

    // The module saved a change: keep what this session created (and, with
    // -v, say what was saved and how long the change and its save took).
    void changeSaved();

    // The module answered RSV_ERR_NOT_SAVED: throw the status-3 error naming
    // the file that could not be written and why.
    [[noreturn]] void notSaved() const;

private:
    void lock(int how);
    void release();

    Access access_;
    std::string dir_;
    std::string stateFile_;
    std::string clusterFile_;
    std::string lockFile_;
    int lockFd_ = -1;
    bool createdDir_ = false;
    bool builtInCluster_ = false;
    bool wroteCluster_ = false;
    bool changeBegun_ = false;
    bool changeSaved_ = false;
    // Whether rsv.state and rsv.ids were there at the load: a save that
    // fails may still leave them, written back as the (empty) table.
    bool stateExisted_ = false;
    bool idsExisted_ = false;
    std::string idFile_;
    Cluster cluster_;
    RsvTimeTbl *table_ = nullptr;
    int numRejected_ = 0;
    // When beginChange was called, for -v.
    std::chrono::steady_clock::time_point changeStart_;
};

} // namespace rsvctl

#endif
