// session.h: one command's hold on a state directory: the lock, the cluster,
// and the reservation table loaded with the module's start-up call.
#ifndef RSVCTL_SESSION_H
#define RSVCTL_SESSION_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "cluster.h"
#include "qob.rsvimpl.h"

namespace rsvctl {

// Who asks, when a daemon runs the command for a client: the login name of
// the socket peer's uid (from the password database, never from the
// request), and whether they belong to the operators.
struct Caller {
    std::string user;
    bool isOperator = false;
};

// A table, its cluster and its state directory that a daemon holds for its
// whole life. While one is installed, every Session uses it: no lock, no
// load, no free.
struct HeldState {
    RsvTimeTbl *table = nullptr;
    Cluster *cluster = nullptr;
    int numRejected = 0;
    Caller caller;     // the current request's
    long changes = 0;  // changes saved through it so far
    // The reservations the saved changes touched (added, changed or
    // removed), in order; the daemon takes them after each request.
    std::vector<std::string> touched;
    // Called with the reservations a change is about to remove, before the
    // module removes them (the daemon writes the finish record of one that
    // is running); false refuses the change with `why` and nothing changes.
    std::function<bool(const std::vector<std::string> &ids, std::string &why)> beforeRemove;
};
void holdState(HeldState *held);  // nullptr: each session loads the directory again
HeldState *heldState();

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
    Cluster &cluster() { return held_ ? *held_->cluster : cluster_; }
    const Cluster &cluster() const { return held_ ? *held_->cluster : cluster_; }
    const std::string &dir() const { return dir_; }
    const std::string &stateFile() const { return stateFile_; }
    const std::string &clusterFile() const { return clusterFile_; }
    int numRejected() const { return numRejected_; }
    bool usingBuiltInCluster() const { return builtInCluster_; }
    // Whether a lock is held (a read in a directory without a lock file that
    // cannot be made goes on without one).
    bool locked() const { return lockFd_ >= 0; }

    // Who asks, when a daemon serves the command (else nullptr: anyone who
    // may write the directory may do anything).
    const Caller *caller() const { return held_ ? &held_->caller : nullptr; }

    // A caller who is neither `ownerOf`'s owner nor an operator may not
    // `verb` it: refuse (status 2). Nothing for an identifier not in the
    // table (the change itself says so) or without a caller.
    void mayChange(const std::string &id, const char *verb);

    // A change would rewrite rsv.state from the table, dropping lines the
    // load could not read: refuse (status 3) while there are such lines.
    void requireWritableState() const;

    // Call right before the module call that changes the table: holds the
    // termination signals until the result is printed, and writes the
    // built-in cluster file when it is in use (the change is then booked on
    // it). Only for Access::Change sessions.
    void beginChange();

    // The module saved a change to the reservations `ids`: keep what this
    // session created (and, with -v, say what was saved and how long the
    // change and its save took).
    void changeSaved(const std::vector<std::string> &ids);

    // The reservations `ids` are about to be removed: give the daemon that
    // holds the table its say first (a refusal throws, status 3).
    void aboutToRemove(const std::vector<std::string> &ids);

    // The module answered RSV_ERR_NOT_SAVED: throw the status-3 error naming
    // the file that could not be written and why.
    [[noreturn]] void notSaved() const;

private:
    void lock(int how);
    void release();

    Access access_;
    HeldState *held_ = nullptr;
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
