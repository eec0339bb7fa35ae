// cluster.h: the cluster file hosts.conf: the hosts a reservation may name,
// their capacity and aliases, and the per-owner reservation limit.
#ifndef RSVCTL_CLUSTER_H
#define RSVCTL_CLUSTER_H

#include <map>
#include <string>
#include <vector>

#include "qob.rsvimpl.h"

namespace rsvctl {

struct ClusterHost {
    std::string name;               // official name
    int slots = 0;                  // reservable job slots
    int cpus = 0;                   // processors; defaults to slots
    std::vector<std::string> aliases;
    RsvHost record{};               // what the module's findHost sees
};

class Cluster {
public:
    // Parse the text of a cluster file. Throws CliError (status 3) naming
    // `fileName` and the line for the first bad line.
    static Cluster parse(const std::string &text, const std::string &fileName);

    // The official host for an official name or an alias, or nullptr.
    ClusterHost *find(const std::string &nameOrAlias);
    const ClusterHost *find(const std::string &nameOrAlias) const;

    // Hosts in file order.
    std::vector<ClusterHost> &hosts() { return hosts_; }
    const std::vector<ClusterHost> &hosts() const { return hosts_; }

    // The configured max-per-owner, or 0 when the file sets none (the module
    // then uses its own default).
    int maxPerOwner() const { return maxPerOwner_; }

private:
    std::vector<ClusterHost> hosts_;
    std::map<std::string, size_t> index_;  // official names and aliases
    int maxPerOwner_ = 0;
};

// The built-in demo cluster, written as hosts.conf by demo.
const std::string &demoClusterText();

// The comment block that opens a hosts.conf written by rsvctl: the line
// format and what each field means.
const char *clusterFileHeader();

} // namespace rsvctl

#endif
