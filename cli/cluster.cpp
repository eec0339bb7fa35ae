// cluster.cpp: reading hosts.conf, and the built-in demo cluster.
#include "cluster.h"

#include <cctype>
#include <charconv>
#include <sstream>

#include <fmt/format.h>

#include "cli_error.h"

namespace rsvctl {

namespace {

// A positive int, or -1.
int positiveInt(const std::string &word)
{
    int value = 0;
    auto [end, ec] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (ec != std::errc() || end != word.data() + word.size() || value < 1)
        return -1;
    return value;
}

bool isNumber(const std::string &word)
{
    return !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
}

bool validName(const std::string &word)
{
    // Names end up in record text and in identifiers: keep them to plain
    // host-name characters.
    if (word.empty() || word.size() > 255)
        return false;
    for (char c : word)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' || c == '_'))
            return false;
    return std::isalpha(static_cast<unsigned char>(word[0])) != 0;
}

} // namespace

Cluster Cluster::parse(const std::string &text, const std::string &fileName)
{
    Cluster cluster;
    std::istringstream in(text);
    std::string line;
    int lineNo = 0;
    auto bad = [&](const std::string &why) { fileError(fmt::format("{}:{}: {}", fileName, lineNo, why)); };
    while (std::getline(in, line)) {
        ++lineNo;
        if (auto hash = line.find('#'); hash != std::string::npos)
            line.erase(hash);
        std::istringstream words(line);
        std::vector<std::string> w;
        for (std::string word; words >> word;)
            w.push_back(word);
        if (w.empty())
            continue;
        if (w[0] == "max-per-owner") {
            if (w.size() != 2 || positiveInt(w[1]) < 1 || positiveInt(w[1]) > 10000)
                bad("max-per-owner takes one number from 1 to 10000");
            cluster.maxPerOwner_ = positiveInt(w[1]);
            continue;
        }
        if (!validName(w[0]))
            bad(fmt::format("'{}' is not a host name (letters, digits, '-', '.', '_'; a letter first)", w[0]));
        if (w.size() < 2)
            bad(fmt::format("host '{}' needs a number of slots: name slots [cpus] [alias ...]", w[0]));
        ClusterHost host;
        host.name = w[0];
        host.slots = positiveInt(w[1]);
        if (host.slots < 1)
            bad(fmt::format("slots of host '{}' must be a positive number, not '{}'", w[0], w[1]));
        host.cpus = host.slots;
        size_t next = 2;
        if (next < w.size() && isNumber(w[next])) {
            host.cpus = positiveInt(w[next]);
            if (host.cpus < 1)
                bad(fmt::format("cpus of host '{}' must be a positive number, not '{}'", w[0], w[next]));
            ++next;
        }
        for (; next < w.size(); ++next) {
            if (!validName(w[next]))
                bad(fmt::format("'{}' is not a valid alias of host '{}'", w[next], w[0]));
            host.aliases.push_back(w[next]);
        }
        for (const auto &name : [&] {
                 std::vector<std::string> all{host.name};
                 all.insert(all.end(), host.aliases.begin(), host.aliases.end());
                 return all;
             }()) {
            if (cluster.index_.count(name))
                bad(fmt::format("'{}' is already a host name or alias", name));
            cluster.index_[name] = cluster.hosts_.size();
        }
        host.record.maxSlots = host.slots;
        host.record.numCpus = host.cpus;
        cluster.hosts_.push_back(std::move(host));
    }
    return cluster;
}

ClusterHost *Cluster::find(const std::string &nameOrAlias)
{
    auto it = index_.find(nameOrAlias);
    return it == index_.end() ? nullptr : &hosts_[it->second];
}

const ClusterHost *Cluster::find(const std::string &nameOrAlias) const
{
    auto it = index_.find(nameOrAlias);
    return it == index_.end() ? nullptr : &hosts_[it->second];
}

const char *clusterFileHeader()
{
    return R"(# hosts.conf: the cluster rsvctl books reservations on.
# One host per line:  name slots [cpus] [alias ...]
#   slots  job slots that reservations may take on the host
#   cpus   processors (defaults to slots)
#   alias  other names that mean the same host
# max-per-owner N limits the reservations one owner may hold.
# Edit freely: rsvctl reads this file on every command.
)";
}

const std::string &demoClusterText()
{
    static const std::string text = clusterFileHeader() + std::string(R"(
max-per-owner 20

# compute nodes
hpc01   16  16  node1
hpc02   16  16  node2
hpc03   16  16  node3
hpc04   16  16  node4
hpc05   16  16
hpc06   16  16
# large-memory nodes
fat01   64  64  bigmem1
fat02   64  64  bigmem2
# accelerator nodes
gpu01    8  32  cuda1
gpu02    8  32  cuda2
gpu03    8  32
gpu04    8  32
# small nodes for development
dev01    4   4
dev02    4   4
dev03    4   4
dev04    4   4
)");
    return text;
}

} // namespace rsvctl
