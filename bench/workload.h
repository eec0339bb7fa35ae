// workload.h: the reference table of the benchmarks, so that figures compare
// across files: 1,000 hosts of 64 slots; 10,000 reservations of 500 owners,
// each on 1 to 4 hosts with 1 to 4 slots per host; 70 % one-off windows of 1
// to 14 days starting within the next 8 weeks, 15 % daily (H:0-H2:30), 15 %
// weekly (D:8:0-D2:18:0).
#ifndef RSV_BENCH_WORKLOAD_H
#define RSV_BENCH_WORKLOAD_H

#include <random>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <unordered_map>

#include "rsv_test_support.h"

namespace rsvbench {

inline constexpr int kHosts = 1000;
inline constexpr int kSlotsPerHost = 64;
inline constexpr int kReservations = 10000;
inline constexpr int kOwners = 500;

inline std::string hostName(int h)
{
    return "host" + std::to_string(h);
}

// The mix of a generated table: how many reservations over how many hosts,
// how far ahead one-off windows start, and how the recurring share splits.
// The defaults are the reference table.
struct Mix {
    int reservations = kReservations;
    int hosts = kHosts;
    int startWeeks = 8;     // one-off starts lie within this many weeks
    int dailyPercent = 15;  // H:0-H2:30
    int weeklyPercent = 15; // D:8:0-D2:18:0
};

// The state-file text of a table of `mix`, starting at `now`. The reference
// mix gives the reference table.
inline std::string stateText(const Mix &mix, time_t now, unsigned seed = 11)
{
    std::mt19937 rng(seed);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    const int oneOffPercent = 100 - mix.dailyPercent - mix.weeklyPercent;
    std::string out;
    for (int i = 0; i < mix.reservations; ++i) {
        const std::string owner = "user" + std::to_string(i % kOwners);
        int options = 0;
        std::string window;
        const int kind = pick(0, 99);
        if (kind < oneOffPercent) {
            const time_t start = now + static_cast<time_t>(pick(0, mix.startWeeks * 7 * 24 * 6)) * 600;
            window = std::to_string(start) + "-" + std::to_string(start + pick(1, 14) * 86400);
        } else if (kind < oneOffPercent + mix.dailyPercent) {
            options = RSV_OPT_RECURRING;
            const int from = pick(0, 21);
            window = std::to_string(from) + ":0-" + std::to_string(from + 2) + ":30";
        } else {
            options = RSV_OPT_RECURRING;
            const int day = pick(0, 4);
            window = std::to_string(day) + ":8:0-" + std::to_string(day + 2) + ":18:0";
        }
        const int numHosts = pick(1, 4);
        // One piece at a time: a long chain of + makes temporaries for nothing.
        for (const std::string &word : {std::string("9.11"), std::to_string(now), std::to_string(options),
                                         owner + "#" + std::to_string(i / kOwners), owner, window,
                                         std::to_string(numHosts), std::string("0")}) {
            out += word;
            out += ' ';
        }
        out.pop_back();
        for (int h = 0; h < numHosts; ++h) {
            const std::string host = hostName(pick(0, mix.hosts - 1));
            out += ' ';
            out += host;
            out += ' ';
            out += std::to_string(pick(1, 4));
        }
        out += "  \"benchmark\" 0 0\n";
    }
    return out;
}

// The state-file text of the reference table, starting at `now`.
inline std::string referenceStateText(time_t now, unsigned seed = 11)
{
    return stateText(Mix{}, now, seed);
}

// The table of the long-range listing: 10,000 reservations over 50 weeks,
// 2,000 of them daily and no weekly ones.
inline Mix fiftyWeekMix()
{
    Mix mix;
    mix.startWeeks = 50;
    mix.dailyPercent = 20;
    mix.weeklyPercent = 0;
    return mix;
}

// A host no reservation holds, where a timed addition always fits however
// full the table's hosts are.
inline constexpr const char *kSpareHost = "spare";

// A state directory for rsvctl and rsvd: a hosts.conf of the hosts of `mix`
// plus the spare host, and an rsv.state holding the table of `mix` starting
// at `now`. False when a file cannot be written.
inline bool writeStateDir(const std::string &dir, const Mix &mix, time_t now)
{
    std::string hosts = "max-per-owner 10000\n";
    for (int h = 0; h < mix.hosts; ++h)
        hosts += hostName(h) + " " + std::to_string(kSlotsPerHost) + "\n";
    hosts += std::string(kSpareHost) + " " + std::to_string(kSlotsPerHost) + "\n";
    auto write = [&dir](const char *name, const std::string &text) {
        std::ofstream out(dir + name, std::ios::binary | std::ios::trunc);
        out << text;
        return static_cast<bool>(out);
    };
    return write("/hosts.conf", hosts) && write("/rsv.state", stateText(mix, now));
}

// State files of the reference mix, one per table size, written once under
// `dir` with the table starting at `now`.
class StateFiles {
public:
    StateFiles(const rsvtest::TempDir &dir, time_t now) : dir_(dir), now_(now) {}
    const std::string &of(int reservations)
    {
        auto it = files_.find(reservations);
        if (it != files_.end())
            return it->second;
        Mix mix;
        mix.reservations = reservations;
        std::string name = dir_.file("reference" + std::to_string(reservations) + ".state");
        rsvtest::writeFile(name, stateText(mix, now_));
        return files_.emplace(reservations, std::move(name)).first->second;
    }

private:
    const rsvtest::TempDir &dir_;
    time_t now_;
    std::map<int, std::string> files_;
};

// Host look-ups by hash, as a daemon and rsvctl make them; the fake
// daemon's own look-ups are linear scans that would be measured instead of
// the module.
inline std::unordered_map<std::string, RsvHost *> &hostIndex()
{
    static std::unordered_map<std::string, RsvHost *> index;
    return index;
}

inline RsvHost *indexedHost(const char *name)
{
    auto it = hostIndex().find(name ? name : "");
    return it == hostIndex().end() ? nullptr : it->second;
}

inline char *indexedOfficialName(const char *name)
{
    return indexedHost(name) ? strdup(name) : nullptr;
}

// The hosts of the reference table in the fake daemon, found by hash. Their
// slot limit is lifted so that every reference record books, whatever
// overlaps.
inline void addReferenceHosts(rsvtest::FakeDaemon &daemon, int maxSlots = 100000, int hosts = kHosts)
{
    daemon.setMaxPerOwner(10000);
    for (int h = 0; h < hosts; ++h)
        hostIndex()[hostName(h)] = daemon.addHost(hostName(h), maxSlots, kSlotsPerHost);
    daemon.services.findHost = indexedHost;
    daemon.services.officialHostName = indexedOfficialName;
    RsvMod_init(&daemon.services);
}

inline void quietLogSink(int, const char *) {}

// The reference setting of a benchmark: UTC, the clock pinned to a Monday
// morning of 2030, the fake daemon with the reference hosts, state files of
// the reference mix under a temporary directory, and the module's log quiet.
struct ReferenceSetting {
    rsvtest::ScopedTz tz{"UTC"};
    rsvtest::PinnedClock clock{rsvtest::localTime(2030, 1, 7, 9, 0)};
    rsvtest::FakeDaemon daemon;
    rsvtest::TempDir dir;
    StateFiles files{dir, rsvtest::PinnedClock::now()};

    ReferenceSetting()
    {
        kx_setLogSink(quietLogSink);
        addReferenceHosts(daemon);
    }
};

} // namespace rsvbench

#endif
