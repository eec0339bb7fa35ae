// cmd_init.cpp: init, which makes a state directory's hosts.conf. With demo,
// the only command that writes one: every other command needs it there.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fmt/format.h>

#include "cli_error.h"
#include "cluster.h"
#include "commands.h"
#include "output.h"
#include "session.h"

namespace rsvctl {

namespace {

struct InitOptions {
    std::vector<std::string> hosts;  // NAME:SLOTS[:CPUS]
    int maxPerOwner = 0;
    bool demoCluster = false;  // the built-in demo cluster's hosts, no reservations
};

// "NAME:SLOTS[:CPUS]" as a hosts.conf line, checked as the file is.
std::string hostLine(const std::string &typed)
{
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t colon = typed.find(':', start);
        parts.push_back(typed.substr(start, colon - start));
        if (colon == std::string::npos)
            break;
        start = colon + 1;
    }
    if (parts.size() < 2 || parts.size() > 3)
        usageError(fmt::format("bad --host '{}': use NAME:SLOTS or NAME:SLOTS:CPUS, such as hpc01:16", typed));
    std::string line = parts[0] + " " + parts[1] + (parts.size() == 3 ? " " + parts[2] : "");
    try {
        Cluster::parse(line, "--host");
    } catch (const CliError &e) {
        std::string why = e.what();
        why.erase(0, why.find(": ") + 2);  // "--host:1: "
        usageError(fmt::format("bad --host '{}': {}", typed, why));
    }
    return line;
}

std::string clusterText(const InitOptions &init)
{
    if (init.demoCluster) {
        if (!init.hosts.empty() || init.maxPerOwner > 0)
            usageError("--demo-cluster writes the demo's hosts: give it alone, or --host and --max-per-owner");
        return demoClusterText();
    }
    std::string text = clusterFileHeader();
    if (init.maxPerOwner > 0)
        text += fmt::format("\nmax-per-owner {}\n", init.maxPerOwner);
    if (init.hosts.empty()) {
        text += "\n# No hosts yet: add one line per host, for example\n# hpc01   16  16  node1\n";
        return text;
    }
    text += "\n";
    for (const auto &typed : init.hosts)
        text += hostLine(typed) + "\n";
    Cluster::parse(text, "--host");  // names and aliases given twice
    return text;
}

int runInit(const InitOptions &init, const GlobalOptions &global)
{
    if (init.maxPerOwner < 0 || init.maxPerOwner > 10000)
        usageError("--max-per-owner takes a number from 1 to 10000");
    std::string text;
    try {
        text = clusterText(init);
    } catch (const CliError &e) {
        if (e.status() == kExitUsage)
            throw;
        std::string why = e.what();
        why.erase(0, why.find(": ") + 2);  // "--host:N: "
        usageError(fmt::format("bad --host: {}", why));
    }
    const std::string dir = resolveStateDir(global.stateDir);
    const std::string conf = dir + "/hosts.conf";
    struct stat st {};
    bool created = false;
    if (stat(dir.c_str(), &st) != 0) {
        if (errno != ENOENT || mkdir(dir.c_str(), 0755) != 0)
            fileError(fmt::format("cannot create state directory '{}': {}", dir, std::strerror(errno)));
        created = true;
    } else if (!S_ISDIR(st.st_mode)) {
        fileError(fmt::format("state directory '{}' is not a directory", dir));
    }
    const std::string lockFile = dir + "/rsv.lock";
    const int lockFd = open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    bool writing = false;
    auto undo = [&] {
        // A write that failed after its rename (the directory's fsync) left
        // the file in place: the command reports it not saved, so it goes.
        if (writing)
            unlink(conf.c_str());
        if (lockFd >= 0)
            close(lockFd);
        if (created) {
            unlink(lockFile.c_str());
            rmdir(dir.c_str());
        }
    };
    try {
        if (lockFd < 0)
            fileError(fmt::format("cannot open lock file '{}': {}", lockFile, std::strerror(errno)));
        while (flock(lockFd, LOCK_EX) != 0)
            if (errno != EINTR)
                fileError(fmt::format("cannot lock '{}': {}", lockFile, std::strerror(errno)));
        if (::access(conf.c_str(), F_OK) == 0)
            fileError(fmt::format("'{}' already exists: edit it, or init another directory", conf));
        writing = true;
        writeFileWhole(conf, text);
    } catch (...) {
        undo();
        throw;
    }
    close(lockFd);
    if (init.demoCluster)
        printOut("created {} with the demo cluster's hosts\n", conf);
    else if (init.hosts.empty())
        printOut("created {} with no hosts yet: add one line per host (name slots [cpus] [alias ...])\n", conf);
    else
        printOut("created {} with {} host{}\n", conf, init.hosts.size(), init.hosts.size() == 1 ? "" : "s");
    return kExitOk;
}

} // namespace

void addInitCommand(CLI::App &app, GlobalOptions &global, CommandList &commands)
{
    auto init = std::make_shared<InitOptions>();
    CLI::App *cmd = app.add_subcommand("init", "Create the state directory's cluster file, hosts.conf");
    cmd->add_option("--host", init->hosts, "A host: NAME:SLOTS or NAME:SLOTS:CPUS (repeat for more)");
    cmd->add_option("--max-per-owner", init->maxPerOwner, "Most reservations one owner may hold");
    cmd->add_flag("--demo-cluster", init->demoCluster,
                  "The built-in 16-host demo cluster, with no reservations (what demo books on)");
    cmd->footer(R"(Writes hosts.conf with the hosts given, or a commented file to fill in.
The directory is made when missing; an existing hosts.conf is never replaced.
Every other command except demo needs hosts.conf to be there.
Examples:
  rsvctl --state-dir /var/lib/rsv init --host hpc01:16 --host hpc02:16 --host gpu01:8:32
  rsvctl --state-dir /var/lib/rsv init      (then edit /var/lib/rsv/hosts.conf)
  rsvctl --state-dir /tmp/rsv-try init --demo-cluster)");
    commands.push_back({cmd, [init, &global]() { return runInit(*init, global); }});
}

} // namespace rsvctl
