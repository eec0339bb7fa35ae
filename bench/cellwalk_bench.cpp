// The reference of every query figure: the bare walk over the 1,008 cells of
// one planner week, finding the most booked cell with a plain loop and
// nothing else (no look-up, no window, no allocation).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

#include "rsv_test_support.h"

namespace {

void BM_BareCellWalk_OneWeek(benchmark::State &state)
{
    ResPlanner *planner = ResPlanner_new("host0", nullptr);
    std::mt19937 rng(3);
    for (auto &day : planner->slots)
        for (ResPlannerEnt &cell : day)
            cell.reserved = std::uniform_int_distribution<int>(0, 64)(rng);
    int most = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(planner);
        most = 0;
        for (const auto &day : planner->slots)
            for (const ResPlannerEnt &cell : day)
                most = std::max(most, cell.reserved);
        benchmark::DoNotOptimize(most);
    }
    ResPlanner_destroy(planner);
}
BENCHMARK(BM_BareCellWalk_OneWeek);

} // namespace
