// Persistence costs: start-up from a large state file, adding a reservation
// to a large table (with and without the state-file rewrite), and making an
// identifier for an owner near its limit, on the reference table of
// bench/workload.h. Files go under $TMPDIR.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "rsv_test_support.h"
#include "workload.h"

using namespace rsvtest;

namespace {

void quietSink(int, const char *) {}

// One process-wide fake daemon, clock and zone for every benchmark, and the
// reference table's state file at each size asked for.
struct World {
    ScopedTz tz{"UTC"};
    PinnedClock clock{localTime(2030, 1, 7, 9, 0)}; // a Monday
    FakeDaemon daemon;
    TempDir dir;
    rsvbench::StateFiles files{dir, PinnedClock::now()};

    World()
    {
        kx_setLogSink(quietSink);
        rsvbench::addReferenceHosts(daemon);
    }

    // The state file of the reference table with `reservations` records.
    const std::string &stateFile(int reservations) { return files.of(reservations); }

    RsvTimeTbl *load(int reservations = rsvbench::kReservations)
    {
        RsvId_clearTbl();
        RsvTimeTbl *tbl = RsvTimeTbl_new(stateFile(reservations).c_str());
        int rejected = 0;
        if (RsvTimeTbl_load(tbl, &rejected) != reservations || rejected != 0)
            std::abort();
        return tbl;
    }
};

World &world()
{
    static World w;
    return w;
}

// Start-up of the reference table (argument: reservations), the table's
// release untimed.
void BM_StartUpLoad(benchmark::State &state)
{
    World &w = world();
    const int reservations = static_cast<int>(state.range(0));
    w.stateFile(reservations);
    for (auto _ : state) {
        RsvTimeTbl *tbl = w.load(reservations);
        state.PauseTiming();
        RsvTimeTbl_free(tbl);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_StartUpLoad)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(5);

// The add path end to end, state and id files included. The table is a copy
// of the loaded one written to a file of its own, so the big file stays.
void BM_AddEntry(benchmark::State &state)
{
    World &w = world();
    RsvTimeTbl *tbl = w.load();
    const std::string own = w.dir.file("add.state");
    std::free(tbl->stateFile);
    tbl->stateFile = strdup(own.c_str());
    std::free(tbl->idFile);
    tbl->idFile = strdup(w.dir.file("add.ids").c_str());
    const time_t start = PinnedClock::now() + 3 * 86400;
    const std::string window = oneOff(start, start + 7200);
    int n = 0;
    for (auto _ : state) {
        OwnedReq r(0, "bench", 1, 1, {rsvbench::hostName(n++ % rsvbench::kHosts)}, window);
        char *id = RsvTimeTbl_addEntry(tbl, &r.req);
        state.PauseTiming();
        if (!id)
            std::abort();
        RsvTimeTbl_removeEntry(tbl, id);
        std::free(id);
        state.ResumeTiming();
    }
    RsvTimeTbl_free(tbl);
}
BENCHMARK(BM_AddEntry)->Unit(benchmark::kMillisecond)->Iterations(50);

// The state-file and id-file rewrite alone, for the share of the add path.
void BM_LogStat(benchmark::State &state)
{
    World &w = world();
    RsvTimeTbl *tbl = w.load();
    std::free(tbl->stateFile);
    tbl->stateFile = strdup(w.dir.file("log.state").c_str());
    std::free(tbl->idFile);
    tbl->idFile = strdup(w.dir.file("log.ids").c_str());
    for (auto _ : state)
        RsvTimeTbl_logStat(tbl);
    RsvTimeTbl_free(tbl);
}
BENCHMARK(BM_LogStat)->Unit(benchmark::kMillisecond)->Iterations(50);

// RsvId_new for an owner holding 9,999 of its 10,000 reservations. In order:
// identifiers 0..9998 entered in that order and the counter at 9998, so the
// candidate 9999 is free at once. Scattered: the same identifiers entered in
// random order and the counter at 9999, so the candidate 0 clashes at every
// step of the search.
void identifierBench(benchmark::State &state, bool scattered)
{
    World &w = world();
    (void)w;
    RsvId_clearTbl();
    RsvTimeTbl *tbl = RsvTimeTbl_new(nullptr);
    std::vector<int> numbers(9999);
    for (int i = 0; i < 9999; ++i)
        numbers[static_cast<size_t>(i)] = i;
    if (scattered)
        std::shuffle(numbers.begin(), numbers.end(), std::mt19937(3));
    for (int n : numbers) {
        const std::string id = "alice#" + std::to_string(n);
        RsvEnt *ent = RsvEnt_new(0, "alice", "1-2");
        ent->rsvId = strdup(id.c_str());
        h_addEnt_(&tbl->entries, id.c_str(), nullptr)->value = ent;
    }
    const char *counter = scattered ? "alice#9999" : "alice#9998";
    OwnedReq r(0, "alice", 1, 1, {}, "1-2");
    for (auto _ : state) {
        RsvId_setCur(counter);
        char *id = RsvId_new(tbl, &r.req);
        if (!id || std::string(id) != "alice#9999")
            std::abort();
        std::free(id);
    }
    RsvTimeTbl_free(tbl);
}
void BM_RsvIdNewNearLimitInOrder(benchmark::State &state) { identifierBench(state, false); }
void BM_RsvIdNewNearLimitScattered(benchmark::State &state) { identifierBench(state, true); }
BENCHMARK(BM_RsvIdNewNearLimitInOrder)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RsvIdNewNearLimitScattered)->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace
