// The daemon's lifecycle engine over the reference table of 10,000
// reservations: what a change of one reservation costs (changed(id)), what
// the whole-table recomputation costs (changed(), start-up's schedule), and
// a step with nothing due. Nothing is activated: the clock stands before
// every window of the table.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "lifecycle.h"
#include "rsv_test_support.h"
#include "workload.h"

using namespace rsvtest;

namespace {

void quietSink(int, const char *) {}

struct World {
    ScopedTz tz{"UTC"};
    PinnedClock clock{localTime(2030, 1, 7, 9, 0)};
    FakeDaemon daemon;
    TempDir dir;
    rsvbench::StateFiles files{dir, PinnedClock::now()};
    RsvTimeTbl *tbl = nullptr;
    std::vector<std::string> ids;

    World()
    {
        kx_setLogSink(quietSink);
        rsvbench::addReferenceHosts(daemon);
        RsvId_clearTbl();
        tbl = RsvTimeTbl_new(files.of(rsvbench::kReservations).c_str());
        if (RsvTimeTbl_load(tbl, nullptr) != rsvbench::kReservations)
            std::abort();
        HashIter iter;
        for (HashEnt *he = h_firstEnt_(&tbl->entries, &iter); he; he = h_nextEnt_(&iter))
            ids.push_back(he->key);
    }
};

World &world()
{
    static World w;
    return w;
}

// Only the recurring reservations are due before the clock moves: starting
// an hour before the table's first windows keeps every call read-only.
rsvd::Lifecycle &engine()
{
    static rsvd::Lifecycle e(world().tbl, world().dir.file("rsv.finish.jsonl"), nullptr);
    return e;
}

void BM_ChangedOne(benchmark::State &state)
{
    World &w = world();
    engine().changed();
    size_t i = 0;
    for (auto _ : state) {
        engine().changed(w.ids[i].c_str());
        i = (i + 1) % w.ids.size();
    }
}
BENCHMARK(BM_ChangedOne);

void BM_ChangedAll(benchmark::State &state)
{
    for (auto _ : state)
        engine().changed();
    benchmark::DoNotOptimize(engine().scheduled());
}
BENCHMARK(BM_ChangedAll)->Unit(benchmark::kMillisecond);

void BM_StepNothingDue(benchmark::State &state)
{
    engine().changed();
    time_t now = PinnedClock::now();
    engine().step(now); // the first step trims once
    for (auto _ : state)
        benchmark::DoNotOptimize(engine().step(now));
}
BENCHMARK(BM_StepNothingDue);

} // namespace
