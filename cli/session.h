// session.h: one command's hold on a state directory: the lock, the cluster,
// and the reservation table loaded with the module's start-up call.
#ifndef RSVCTL_SESSION_H
#define RSVCTL_SESSION_H

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

class Session {
public:
    // Take the directory's exclusive lock (creating the directory if needed),
    // read hosts.conf (the built-in demo cluster when there is none), install
    // the daemon services and load rsv.state. Throws CliError (status 3) for
    // a file or configuration problem.
    explicit Session(const std::string &stateDir);
    // Releases the table and the lock. Without commit(), a directory this
    // session created is removed again, so a failed first command leaves
    // nothing behind.
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

    // A change would rewrite rsv.state from the table, dropping lines the
    // load could not read: refuse (status 3) while there are such lines.
    void requireWritableState() const;

    // The command succeeded: write the demo cluster file if it was used.
    void commit();

private:
    void release();

    std::string dir_;
    std::string stateFile_;
    std::string clusterFile_;
    std::string lockFile_;
    int lockFd_ = -1;
    bool createdDir_ = false;
    bool builtInCluster_ = false;
    bool committed_ = false;
    Cluster cluster_;
    RsvTimeTbl *table_ = nullptr;
    int numRejected_ = 0;
};

} // namespace rsvctl

#endif
