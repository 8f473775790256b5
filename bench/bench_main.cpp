#include <benchmark/benchmark.h>

#include "containers/hash_table.h"

static void BM_HashSetInsertClear(benchmark::State& state) {
  orvo::hsh::HashSet<int> set;
  for (auto _ : state) {
    for (int i = 0; i < state.range(0); ++i)
      set.insert(i);
    benchmark::DoNotOptimize(set.size());
    set.clear();
  }
}
BENCHMARK(BM_HashSetInsertClear)->Arg(64)->Arg(4096);
