// The daemon's lifecycle engine over the reference table of 10,000
// reservations: what a change of one reservation costs (changed(id)), what
// the whole-table recomputation costs (changed(), start-up's schedule), and
// a step with nothing due.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "lifecycle.h"
#include "rsv_test_support.h"
#include "workload.h"

namespace {

// The reference table loaded once, and its identifiers in table order.
struct World : rsvbench::ReferenceSetting {
    RsvTimeTbl *tbl = nullptr;
    std::vector<std::string> ids;

    World()
    {
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

// One engine over the table. The clock never moves, so after the first step
// (which trims and activates the instances running at that moment) the
// measured calls only compute and order due times.
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
    time_t now = rsvtest::PinnedClock::now();
    engine().step(now); // the first step trims once
    for (auto _ : state)
        benchmark::DoNotOptimize(engine().step(now));
}
BENCHMARK(BM_StepNothingDue);

} // namespace
