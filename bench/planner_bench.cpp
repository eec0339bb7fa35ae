// Capacity-planning benchmarks: availability of one host over one week, with
// and without a planner for that week in a table of 10,000 reservations; the
// reservable slots of a 100-host request; and the memory of dated planners.
#include <benchmark/benchmark.h>

#include <malloc.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "../tests/planner/planner_test_util.h"
#include "rsv_test_support.h"
#include "workload.h"

using namespace rsvtest;
using namespace plannertest;

namespace {

constexpr int kHosts = 1000;
constexpr int kReservations = 10000;
constexpr int kCapacity = 64;

std::string hostName(int i)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "host%04d", i);
    return buf;
}

// The world every benchmark runs in: a pinned zone and clock, the fake daemon
// with its hosts, and a table.
struct World {
    World() : tz("UTC"), clock(localTime(2026, 1, 1, 0, 0))
    {
        rsvbench::hostIndex().clear();
        for (int h = 0; h < kHosts; ++h)
            rsvbench::hostIndex()[hostName(h)] = daemon.addHost(hostName(h), kCapacity);
        RsvMiscFuncs services = daemon.services;
        services.findHost = rsvbench::indexedHost;
        services.officialHostName = rsvbench::indexedOfficialName;
        RsvMod_init(&services);
        tbl = RsvTimeTbl_new(nullptr);
    }
    ~World() { RsvTimeTbl_free(tbl); }

    // 10,000 reservations on 1,000 hosts, one host each, of which 2,000 recur
    // (daily and weekly windows); the one-off ones lie in the 52 weeks from
    // 4 January 2026, 1 to 4 hours long.
    void populate()
    {
        const time_t base = localTime(2026, 1, 4, 0, 0);
        for (int i = 0; i < kReservations; ++i) {
            const std::string host = hostName(i % kHosts);
            const std::string id = "user" + std::to_string(i % 97) + "#" + std::to_string(i);
            std::string window;
            int options = 0;
            if (i % 5 == 0) { // every fifth: 2,000 recurring ones
                options = RSV_OPT_RECURRING;
                const int h = (i / 5) % 20;
                window = (i / 5) % 2 ? std::to_string(h) + ":0-" + std::to_string(h + 2) + ":30"
                                     : std::to_string(1 + (i / 5) % 6) + ":" + std::to_string(h) + ":0-" +
                                           std::to_string(1 + (i / 5 + 1) % 6) + ":" + std::to_string(h) + ":0";
            } else {
                const time_t s = base + static_cast<time_t>((i * 7919L) % (52L * 7 * 24)) * 3600;
                window = oneOff(s, s + 3600 * (1 + i % 4));
            }
            addAndBook(tbl, makeEntry(id, options, window, {{host, 1 + i % 3}}));
        }
    }

    FakeDaemon daemon;
    ScopedTz tz;
    PinnedClock clock;
    RsvTimeTbl *tbl = nullptr;
};

// One week, Sunday 00:00 to Saturday 23:59: all 1,008 cells of one planner.
std::string oneWeek(int year, int month, int day)
{
    return oneOff(localTime(year, month, day, 0, 0), localTime(year, month, day + 6, 23, 59));
}

void BM_MaxAvail_WeekWithPlanner(benchmark::State &state)
{
    World w;
    const std::string window = oneWeek(2026, 3, 1);
    const std::string host = hostName(0);
    addAndBook(w.tbl, makeEntry("alice#1", 0, window, {{host, 3}}));
    int avail = 0;
    for (auto _ : state) {
        avail = Rsv_getMaxAvailonHost(w.tbl, host.c_str(), window.c_str(), 0, nullptr);
        benchmark::DoNotOptimize(avail);
    }
    if (avail != kCapacity - 3)
        state.SkipWithError("wrong availability");
}
BENCHMARK(BM_MaxAvail_WeekWithPlanner);

// The same on a host holding a planner in each of 53 weeks, the asked one
// last in its list: the cost of finding the week's planner.
void BM_MaxAvail_WeekWithPlanner_53WeeksInList(benchmark::State &state)
{
    World w;
    const std::string host = hostName(0);
    const time_t base = localTime(2026, 1, 7, 12, 0);
    for (int week = 0; week < 53; ++week) {
        const time_t t = base + static_cast<time_t>(week) * 7 * 86400;
        addAndBook(w.tbl, makeEntry("bob#" + std::to_string(week), 0, oneOff(t, t + 600), {{host, 1}}));
    }
    const std::string window = oneWeek(2027, 1, 3);
    int avail = 0;
    for (auto _ : state) {
        avail = Rsv_getMaxAvailonHost(w.tbl, host.c_str(), window.c_str(), 0, nullptr);
        benchmark::DoNotOptimize(avail);
    }
    if (avail != kCapacity - 1)
        state.SkipWithError("wrong availability");
}
BENCHMARK(BM_MaxAvail_WeekWithPlanner_53WeeksInList);

void BM_MaxAvail_WeekWithoutPlanner_10kReservations(benchmark::State &state)
{
    World w;
    w.populate();
    // Two years on: no host has a planner for this week.
    const std::string window = oneWeek(2028, 3, 5);
    const std::string host = hostName(5);
    const int before = listSize(RsvTimeTbl_getPlannerList(w.tbl, host.c_str()));
    int avail = 0;
    for (auto _ : state) {
        avail = Rsv_getMaxAvailonHost(w.tbl, host.c_str(), window.c_str(), 0, nullptr);
        benchmark::DoNotOptimize(avail);
    }
    if (listSize(RsvTimeTbl_getPlannerList(w.tbl, host.c_str())) != before)
        state.SkipWithError("the query left a planner behind");
    state.counters["avail"] = avail;
}
BENCHMARK(BM_MaxAvail_WeekWithoutPlanner_10kReservations);

// The floor of a query on a week without a planner: one walk over the table's
// reservations, reading each one's options and nothing else.
void BM_TableWalkOnly_10kReservations(benchmark::State &state)
{
    World w;
    w.populate();
    int recurring = 0;
    for (auto _ : state) {
        recurring = 0;
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(&w.tbl->entries, &iter); he; he = h_nextEnt_(&iter))
            recurring += (static_cast<RsvEnt *>(he->value)->options & RSV_OPT_RECURRING) != 0;
        benchmark::DoNotOptimize(recurring);
    }
    state.counters["recurring"] = recurring;
    if (recurring != kReservations / 5)
        state.SkipWithError("unexpected number of recurring reservations");
}
BENCHMARK(BM_TableWalkOnly_10kReservations);

void BM_ReservableAlloc_100Hosts_OneWeek(benchmark::State &state)
{
    World w;
    w.populate();
    std::vector<std::string> hosts;
    for (int h = 0; h < 100; ++h)
        hosts.push_back(hostName(h * 7));
    OwnedReq req(0, "alice", 0, 1000, hosts, oneWeek(2026, 3, 1));
    int total = 0;
    for (auto _ : state) {
        ResAlloc *out = nullptr;
        total = RsvTimeTbl_getReservableAlloc(w.tbl, &req.req, &out, nullptr);
        benchmark::DoNotOptimize(total);
        free(out);
    }
    state.counters["slots"] = total;
}
BENCHMARK(BM_ReservableAlloc_100Hosts_OneWeek);

size_t heapInUse()
{
    struct mallinfo2 mi = mallinfo2();
    return mi.uordblks + mi.hblkhd;
}

long maxRssKb()
{
    struct rusage ru {};
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_maxrss;
}

// 1,000 hosts with a planner in each of 52 dated weeks (plus the zero week).
void BM_Memory_1000Hosts_52Weeks(benchmark::State &state)
{
    for (auto _ : state) {
        state.PauseTiming();
        World w;
        const size_t heapBefore = heapInUse();
        const long rssBefore = maxRssKb();
        state.ResumeTiming();
        const time_t base = localTime(2026, 1, 7, 12, 0);
        for (int h = 0; h < kHosts; ++h) {
            const std::string host = hostName(h);
            List *list = RsvTimeTbl_getPlannerList(w.tbl, host.c_str());
            for (int week = 0; week < 52; ++week) {
                const time_t t = base + static_cast<time_t>(week) * 7 * 86400;
                ResPlannerList_map(list, w.tbl, host.c_str(), oneOff(t, t + 600).c_str(), 0, ResPlannerEnt_incr, 1,
                                   1, nullptr);
            }
        }
        state.PauseTiming();
        const size_t heapAfter = heapInUse();
        const long rssAfter = maxRssKb();
        const double planners = kHosts * 53.0;
        state.counters["sizeof_ResPlanner"] = sizeof(ResPlanner);
        state.counters["heap_bytes_per_planner"] = (heapAfter - heapBefore) / planners;
        state.counters["heap_MiB"] = (heapAfter - heapBefore) / 1048576.0;
        state.counters["maxrss_delta_MiB"] = (rssAfter - rssBefore) / 1024.0;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_Memory_1000Hosts_52Weeks)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
