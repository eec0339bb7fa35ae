// Earliest-fit costs: one busy host over a year; 100 hosts of the reference
// table (bench/workload.h) over 8 weeks; and how a search that finds nothing
// (and so reads every start) grows with the horizon and the number of hosts.
// Each benchmark also reports the median and 90th percentile of its single
// calls (p50_ms, p90_ms), since calls differ by how far the first fit lies.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "rsv_test_support.h"
#include "workload.h"

using namespace rsvtest;

namespace {

constexpr time_t kDay = 86400;
constexpr time_t kWeek = 7 * kDay;

void quietSink(int, const char *) {}

void useIndexedHosts(FakeDaemon &daemon)
{
    RsvMiscFuncs services = daemon.services;
    services.findHost = rsvbench::indexedHost;
    services.officialHostName = rsvbench::indexedOfficialName;
    RsvMod_init(&services);
}

// Per-call times of one benchmark run.
class CallTimes {
public:
    template <typename Call>
    void time(Call call)
    {
        const auto start = std::chrono::steady_clock::now();
        call();
        times_.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    void report(benchmark::State &state)
    {
        if (times_.empty())
            return;
        std::sort(times_.begin(), times_.end());
        state.counters["p50_ms"] = times_[times_.size() / 2];
        state.counters["p90_ms"] = times_[times_.size() * 9 / 10];
    }

private:
    std::vector<double> times_;
};

int find(RsvTimeTbl *tbl, OwnedReq &req, time_t notBefore, time_t notAfter, int minutes, RsvFit &fit)
{
    return RsvTimeTbl_findEarliest(tbl, &req.req, notBefore, notAfter, minutes, nullptr, &fit);
}

// ---------------------------------------------------------------------------
// One host of 64 slots, about 5,700 one-off bookings of 1 to 7 days in 2026
// ---------------------------------------------------------------------------

struct BusyHost {
    FakeDaemon daemon;
    ScopedTz tz{"America/New_York"};
    time_t yearStart = localTime(2026, 1, 1);
    PinnedClock clock{yearStart};
    RsvTimeTbl *tbl = nullptr;
    int booked = 0;

    BusyHost()
    {
        kx_setLogSink(quietSink);
        rsvbench::hostIndex().clear();
        rsvbench::hostIndex()["busy"] = daemon.addHost("busy", 64);
        useIndexedHosts(daemon);
        daemon.setMaxPerOwner(1000);
        tbl = RsvTimeTbl_new(nullptr);
        fill();
    }
    ~BusyHost() { RsvTimeTbl_free(tbl); }

    // 64 lanes, one per slot, each a run of bookings of 1 to 7 days with
    // gaps of up to 3 hours between them, from New Year's Day to the year's
    // end: the host is nearly full all year, and every booking is accepted
    // by the addition on its own merits.
    void fill()
    {
        std::mt19937 rng(5);
        auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
        const time_t yearEnd = localTime(2027, 1, 1);
        for (int lane = 0; lane < 64; ++lane) {
            time_t t = yearStart + static_cast<time_t>(pick(0, 24 * 6)) * 600;
            for (;;) {
                const time_t end = t + static_cast<time_t>(pick(144, 7 * 144)) * 600;
                if (end > yearEnd)
                    break;
                const std::string owner = "filler" + std::to_string(booked % 100);
                OwnedReq add(0, owner, 1, 1, {"busy"}, oneOff(t, end));
                char *id = RsvTimeTbl_addEntry(tbl, &add.req);
                booked += id != nullptr;
                std::free(id);
                t = end + static_cast<time_t>(pick(0, 18)) * 600;
            }
        }
    }
};

BusyHost &busyHost()
{
    static BusyHost w;
    return w;
}

void BM_OneHostYear_RandomRequest(benchmark::State &state)
{
    BusyHost &w = busyHost();
    std::mt19937 rng(9);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    CallTimes times;
    int found = 0;
    int calls = 0;
    double daysAhead = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const int slots = pick(1, 4);
        const int minutes = pick(1440, 7 * 1440);
        const time_t notBefore = w.yearStart + static_cast<time_t>(pick(0, 30 * 144)) * 600;
        OwnedReq req(0, "asker", slots, slots, {"busy"}, "");
        RsvFit fit{};
        state.ResumeTiming();
        times.time([&] { find(w.tbl, req, notBefore, notBefore + 365 * kDay, minutes, fit); });
        state.PauseTiming();
        ++calls;
        if (fit.found) {
            ++found;
            daysAhead += static_cast<double>(fit.start - notBefore) / kDay;
        }
        RsvFit_destroy(&fit);
        state.ResumeTiming();
    }
    times.report(state);
    state.counters["bookings"] = w.booked;
    state.counters["found_pct"] = 100.0 * found / std::max(calls, 1);
    state.counters["days_to_fit"] = found ? daysAhead / found : 0;
}
BENCHMARK(BM_OneHostYear_RandomRequest)->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------------------
// The reference table: 1,000 hosts of 64 slots, 10,000 reservations
// ---------------------------------------------------------------------------

struct Reference {
    FakeDaemon daemon;
    ScopedTz tz{"America/New_York"};
    time_t now = localTime(2026, 3, 2, 9, 0);
    PinnedClock clock{now};
    TempDir dir;
    RsvTimeTbl *tbl = nullptr;
    std::vector<RsvHost *> hosts;

    Reference()
    {
        kx_setLogSink(quietSink);
        rsvbench::hostIndex().clear();
        rsvbench::addReferenceHosts(daemon);
        for (int h = 0; h < rsvbench::kHosts; ++h) {
            hosts.push_back(daemon.host(rsvbench::hostName(h)));
            rsvbench::hostIndex()[rsvbench::hostName(h)] = hosts.back();
        }
        useIndexedHosts(daemon);
        const std::string state = dir.file("reference.state");
        writeFile(state, rsvbench::referenceStateText(now));
        tbl = RsvTimeTbl_new(state.c_str());
        if (RsvTimeTbl_load(tbl, nullptr) != rsvbench::kReservations)
            std::abort();
        // Loaded with the limit lifted; searched with the hosts' real 64.
        for (RsvHost *h : hosts)
            h->maxSlots = rsvbench::kSlotsPerHost;
    }
    ~Reference() { RsvTimeTbl_free(tbl); }

    std::vector<std::string> someHosts(std::mt19937 &rng, int count) const
    {
        std::vector<int> all(rsvbench::kHosts);
        for (int h = 0; h < rsvbench::kHosts; ++h)
            all[static_cast<size_t>(h)] = h;
        std::shuffle(all.begin(), all.end(), rng);
        std::vector<std::string> out;
        for (int i = 0; i < count; ++i)
            out.push_back(rsvbench::hostName(all[static_cast<size_t>(i)]));
        return out;
    }
};

Reference &reference()
{
    static Reference w;
    return w;
}

// 100 random hosts, 6 hours, within 8 weeks from a random start in the
// first two weeks; the request asks for range(0) slots of the 6,400.
void BM_Reference_100Hosts_6Hours_8Weeks(benchmark::State &state)
{
    Reference &w = reference();
    std::mt19937 rng(3);
    const int slots = static_cast<int>(state.range(0));
    CallTimes times;
    int found = 0;
    int calls = 0;
    double hoursAhead = 0;
    for (auto _ : state) {
        state.PauseTiming();
        OwnedReq req(0, "asker", slots, slots, w.someHosts(rng, 100), "");
        const time_t notBefore = w.now + std::uniform_int_distribution<time_t>(0, 2 * kWeek)(rng);
        RsvFit fit{};
        state.ResumeTiming();
        times.time([&] { find(w.tbl, req, notBefore, notBefore + 8 * kWeek, 360, fit); });
        state.PauseTiming();
        ++calls;
        if (fit.found) {
            ++found;
            hoursAhead += static_cast<double>(fit.start - notBefore) / 3600;
        }
        RsvFit_destroy(&fit);
        state.ResumeTiming();
    }
    times.report(state);
    state.counters["found_pct"] = 100.0 * found / std::max(calls, 1);
    state.counters["hours_to_fit"] = found ? hoursAhead / found : 0;
}
BENCHMARK(BM_Reference_100Hosts_6Hours_8Weeks)->Arg(3200)->Arg(5000)->Unit(benchmark::kMillisecond);

// A request no start can meet (one slot more than the hosts hold), so every
// start of the horizon is read: range(0) hosts, range(1) weeks.
void BM_Reference_NoFit_Growth(benchmark::State &state)
{
    Reference &w = reference();
    std::mt19937 rng(4);
    const int numHosts = static_cast<int>(state.range(0));
    const time_t horizon = state.range(1) * kWeek;
    OwnedReq req(0, "asker", numHosts * rsvbench::kSlotsPerHost + 1, numHosts * rsvbench::kSlotsPerHost + 1,
                 w.someHosts(rng, numHosts), "");
    CallTimes times;
    for (auto _ : state) {
        RsvFit fit{};
        times.time([&] { find(w.tbl, req, w.now, w.now + horizon, 360, fit); });
        if (fit.found)
            state.SkipWithError("a request beyond every host's slots fitted");
        RsvFit_destroy(&fit);
    }
    times.report(state);
    state.counters["starts"] = static_cast<double>(horizon / 600);
}
BENCHMARK(BM_Reference_NoFit_Growth)
    ->ArgsProduct({{10, 100, 1000}, {1, 4, 16, 52}})
    ->Unit(benchmark::kMillisecond);

// The recurring search on the same table: every daily or weekly start of
// 100 hosts' planners, the recurring and every dated one.
void BM_Reference_Recurring_100Hosts(benchmark::State &state)
{
    Reference &w = reference();
    std::mt19937 rng(6);
    const int form = static_cast<int>(state.range(0));
    CallTimes times;
    for (auto _ : state) {
        state.PauseTiming();
        OwnedReq req(RSV_OPT_RECURRING, "asker", 3200, 3200, w.someHosts(rng, 100), "");
        RsvFit fit{};
        state.ResumeTiming();
        times.time([&] { RsvTimeTbl_findEarliestRecurring(w.tbl, &req.req, form, 360, nullptr, &fit); });
        state.PauseTiming();
        RsvFit_destroy(&fit);
        state.ResumeTiming();
    }
    times.report(state);
}
BENCHMARK(BM_Reference_Recurring_100Hosts)->Arg(RSV_FIT_DAILY)->Arg(RSV_FIT_WEEKLY)->Unit(benchmark::kMillisecond);

} // namespace
