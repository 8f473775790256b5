// The pooled hash tables against std::unordered_set, on the operations the
// classifier leans on: filling a fresh table (through every growth step up to
// the size), hits, erasing, and clear-then-refill of a table that has already
// grown (where the pooled table allocates nothing).
//
// Sizes straddle the growth points: a table of 31 buckets grows at its 22nd
// element, and each later step roughly doubles the bucket count.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "containers/hash_table.h"

namespace {

// The same pseudo-random, distinct keys for every container and run.
std::vector<int> keys(std::size_t n) {
  std::vector<int> out;
  out.reserve(n);
  std::uint32_t x = 12345u;
  for (std::size_t i = 0; i < n; ++i) {
    x = x * 1664525u + 1013904223u;  // full-period LCG: no repeat within 2^32 steps
    out.push_back(static_cast<std::int32_t>(x));
  }
  return out;
}

using PooledSet = orvo::hsh::HashSet<int>;
using StdSet = std::unordered_set<int>;

template <class Set>
void BM_Insert(benchmark::State& state) {
  std::vector<int> const k = keys(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    Set set;
    for (int key : k)
      set.insert(key);
    benchmark::DoNotOptimize(set.size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Set>
void BM_FindHit(benchmark::State& state) {
  std::vector<int> const k = keys(static_cast<std::size_t>(state.range(0)));
  Set set;
  for (int key : k)
    set.insert(key);
  for (auto _ : state) {
    std::size_t found = 0;
    for (int key : k)
      found += set.find(key) != set.end();
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Set>
void BM_FindMiss(benchmark::State& state) {
  std::vector<int> const k = keys(static_cast<std::size_t>(2 * state.range(0)));
  Set set;
  for (std::size_t i = 0; i < k.size() / 2; ++i)
    set.insert(k[i]);
  for (auto _ : state) {
    std::size_t found = 0;
    for (std::size_t i = k.size() / 2; i < k.size(); ++i)
      found += set.find(k[i]) != set.end();
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Insert every key, then erase every key, on one long-lived table: after the
// first round the pooled table recycles its nodes and keeps its buckets.
template <class Set>
void BM_InsertErase(benchmark::State& state) {
  std::vector<int> const k = keys(static_cast<std::size_t>(state.range(0)));
  Set set;
  for (auto _ : state) {
    for (int key : k)
      set.insert(key);
    for (int key : k)
      set.erase(key);
    benchmark::DoNotOptimize(set.size());
  }
  state.SetItemsProcessed(state.iterations() * 2 * state.range(0));
}

// clear() and fill again, as the classifier does with its scratch and
// partition sets on every rebuild.
template <class Set>
void BM_ClearRefill(benchmark::State& state) {
  std::vector<int> const k = keys(static_cast<std::size_t>(state.range(0)));
  Set set;
  for (int key : k)
    set.insert(key);
  for (auto _ : state) {
    set.clear();
    for (int key : k)
      set.insert(key);
    benchmark::DoNotOptimize(set.size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Find-or-insert counting, the access pattern of the group symbol counts.
void BM_PooledMapCount(benchmark::State& state) {
  std::vector<int> const k = keys(static_cast<std::size_t>(state.range(0)));
  orvo::hsh::HashMap<int, unsigned> map;
  for (auto _ : state) {
    for (int key : k)
      ++map[key];
    benchmark::DoNotOptimize(map.size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// 16 and 21 fit in the first 31 buckets; 22 forces the first growth; the
// larger sizes pass through 5, 10 and 15 growth steps.
void sizes(benchmark::internal::Benchmark* b) {
  for (int n : {16, 21, 22, 1024, 32768, 1 << 20})
    b->Arg(n);
}

}  // namespace

BENCHMARK_TEMPLATE(BM_Insert, PooledSet)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Insert, StdSet)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_FindHit, PooledSet)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_FindHit, StdSet)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_FindMiss, PooledSet)->Arg(1024)->Arg(32768);
BENCHMARK_TEMPLATE(BM_FindMiss, StdSet)->Arg(1024)->Arg(32768);
BENCHMARK_TEMPLATE(BM_InsertErase, PooledSet)->Arg(1024)->Arg(32768);
BENCHMARK_TEMPLATE(BM_InsertErase, StdSet)->Arg(1024)->Arg(32768);
BENCHMARK_TEMPLATE(BM_ClearRefill, PooledSet)->Arg(1024)->Arg(32768);
BENCHMARK_TEMPLATE(BM_ClearRefill, StdSet)->Arg(1024)->Arg(32768);
BENCHMARK(BM_PooledMapCount)->Arg(1024)->Arg(32768);
