// The pooled hash tables against std::unordered_set/map and, when abseil is
// available, absl::flat_hash_set/map, on the three instances the classifier
// uses most: HashSet<int>, HashSet<Symbol const*> and
// HashMap<Symbol const*, unsigned>.
//
// Every benchmark is registered as  <operation>/<table>/<family>/<n>  with n
// in 16, 100, 1000, 10000, 100000, and reports its time per element: the
// plotting script and docs/performance.md read these names. Run with
// repetitions and random interleaving (see docs/performance.md): single runs
// on a shared machine prove nothing. Compare cpu_time, except for the
// manually timed insert, inc_new and erase, whose real_time is the thread's
// CPU time over the timed part alone.
//
// Operations: insert (a fresh table filled with n keys, destruction not
// timed), find_hit, find_miss, erase (every key of a filled table, filling
// not timed), clear_refill (clear() and n inserts on a grown table), and for
// the map inc_new (++map[k] on a fresh map) and inc_present (++map[k] on
// keys already there); iterate (a full pass). The insert benchmark also
// reports the heap bytes per element of the filled table, malloc overhead
// included.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "containers/hash_table.h"
#include "host/term.h"

#if defined(ORVO_ITP_BENCH_ABSL)
#include "absl/container/flat_hash_map.h"
#include "absl/container/flat_hash_set.h"
#endif

namespace {

using orvo::Symbol;
using SymbolKey = Symbol const*;

// Distinct pseudo-random ints: a full-period LCG never repeats within 2^32 steps.
std::vector<int> int_keys(std::size_t n) {
  std::vector<int> out;
  out.reserve(n);
  std::uint32_t x = 12345u;
  for (std::size_t i = 0; i < n; ++i) {
    x = x * 1664525u + 1013904223u;
    out.push_back(static_cast<std::int32_t>(x));
  }
  return out;
}

// Symbol addresses as a heap would hand them out: 64 bytes apart (the size
// class of a symbol with its name), used in a shuffled order. The addresses
// are only hashed and compared, never dereferenced.
std::vector<SymbolKey> symbol_keys(std::size_t n) {
  static std::vector<std::uint64_t> arena;
  if (arena.size() < 8 * n) arena.resize(8 * n);
  std::vector<SymbolKey> out;
  out.reserve(n);
  for (std::size_t i = 0; i < n; ++i)
    out.push_back(reinterpret_cast<SymbolKey>(arena.data() + 8 * i));
  std::uint32_t x = 777u;
  for (std::size_t i = n; i > 1; --i) {  // Fisher-Yates with the same LCG
    x = x * 1664525u + 1013904223u;
    std::swap(out[i - 1], out[static_cast<std::size_t>(x) % i]);
  }
  return out;
}

template <class K>
std::vector<K> keys(std::size_t n);
template <>
std::vector<int> keys<int>(std::size_t n) {
  return int_keys(n);
}
template <>
std::vector<SymbolKey> keys<SymbolKey>(std::size_t n) {
  return symbol_keys(n);
}

std::uint64_t as_u64(int v) {
  return static_cast<std::uint64_t>(v);
}
std::uint64_t as_u64(SymbolKey v) {
  return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(v));
}

// What the benchmarks need of a table, for the three families alike.
template <class T>
struct Ops {
  using Key = typename T::key_type;
  static constexpr bool is_map = !std::is_same<typename T::value_type, Key>::value;
  static void add(T& t, Key k) {
    if constexpr (is_map)
      ++t[k];
    else
      t.insert(k);
  }
  static bool has(T const& t, Key k) { return t.find(k) != t.end(); }
  static std::uint64_t sum(T const& t) {
    std::uint64_t s = 0;
    for (auto const& v : t) {
      if constexpr (is_map)
        s += v.second;
      else
        s += as_u64(v);
    }
    return s;
  }
};

// Tables are filled and timed in batches of at least this many elements, so
// that the clock reads around a batch cost nothing at n = 16.
constexpr std::size_t kBatch = 8192;
std::size_t batch_tables(std::size_t n) {
  return std::max<std::size_t>(1, kBatch / n);
}

// Batches are timed in this thread's CPU time, like the automatically timed
// benchmarks' cpu_time: on a shared machine, wall time counts the other
// programs' turns on the core too.
double thread_seconds() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

std::size_t heap_in_use() {
  return mallinfo2().uordblks;
}

template <class T>
void insert(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  auto const k = keys<typename T::key_type>(n);
  std::size_t const tables = batch_tables(n);
  {
    std::size_t const before = heap_in_use();
    auto t = std::make_unique<T>();
    for (auto key : k)
      Ops<T>::add(*t, key);
    state.counters["bytes_per_elem"] =
        static_cast<double>(heap_in_use() - before) / static_cast<double>(n);
  }
  for (auto _ : state) {
    double const start = thread_seconds();
    std::vector<T> batch(tables);
    for (T& t : batch)
      for (auto key : k)
        Ops<T>::add(t, key);
    state.SetIterationTime(thread_seconds() - start);
    benchmark::DoNotOptimize(batch.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * tables * n));
}

template <class T>
void find_hit(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  auto const k = keys<typename T::key_type>(n);
  T t;
  for (auto key : k)
    Ops<T>::add(t, key);
  for (auto _ : state) {
    std::size_t found = 0;
    for (auto key : k)
      found += Ops<T>::has(t, key);
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
}

template <class T>
void find_miss(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  auto const k = keys<typename T::key_type>(2 * n);
  T t;
  for (std::size_t i = 0; i < n; ++i)
    Ops<T>::add(t, k[i]);
  for (auto _ : state) {
    std::size_t found = 0;
    for (std::size_t i = n; i < 2 * n; ++i)
      found += Ops<T>::has(t, k[i]);
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
}

template <class T>
void erase(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  auto const k = keys<typename T::key_type>(n);
  std::size_t const tables = batch_tables(n);
  for (auto _ : state) {
    std::vector<T> batch(tables);
    for (T& t : batch)
      for (auto key : k)
        Ops<T>::add(t, key);
    double const start = thread_seconds();
    for (T& t : batch)
      for (auto key : k)
        t.erase(key);
    state.SetIterationTime(thread_seconds() - start);
    benchmark::DoNotOptimize(batch.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * tables * n));
}

template <class T>
void clear_refill(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  auto const k = keys<typename T::key_type>(n);
  T t;
  for (auto key : k)
    Ops<T>::add(t, key);
  for (auto _ : state) {
    t.clear();
    for (auto key : k)
      Ops<T>::add(t, key);
    benchmark::DoNotOptimize(t.size());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
}

template <class T>
void inc_present(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  auto const k = keys<typename T::key_type>(n);
  T t;
  for (auto key : k)
    ++t[key];
  for (auto _ : state) {
    for (auto key : k)
      ++t[key];
    benchmark::DoNotOptimize(t.size());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
}

template <class T>
void iterate(benchmark::State& state) {
  auto const n = static_cast<std::size_t>(state.range(0));
  auto const k = keys<typename T::key_type>(n);
  T t;
  for (auto key : k)
    Ops<T>::add(t, key);
  for (auto _ : state)
    benchmark::DoNotOptimize(Ops<T>::sum(t));
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
}

template <class T>
void register_family(std::string const& table, std::string const& family) {
  auto reg = [&](std::string const& op, void (*fn)(benchmark::State&), bool manual) {
    auto* b = benchmark::RegisterBenchmark((op + "/" + table + "/" + family).c_str(), fn);
    for (int n : {16, 100, 1000, 10000, 100000})
      b->Arg(n);
    if (manual) b->UseManualTime();
  };
  if constexpr (Ops<T>::is_map) {
    reg("inc_new", insert<T>, true);
    reg("inc_present", inc_present<T>, false);
  } else {
    reg("insert", insert<T>, true);
    reg("clear_refill", clear_refill<T>, false);
  }
  reg("find_hit", find_hit<T>, false);
  reg("find_miss", find_miss<T>, false);
  reg("erase", erase<T>, true);
  reg("iterate", iterate<T>, false);
}

int register_all() {
  register_family<orvo::hsh::HashSet<int>>("int_set", "pooled");
  register_family<std::unordered_set<int>>("int_set", "std");
  register_family<orvo::hsh::HashSet<SymbolKey>>("ptr_set", "pooled");
  register_family<std::unordered_set<SymbolKey>>("ptr_set", "std");
  register_family<orvo::hsh::HashMap<SymbolKey, unsigned>>("ptr_map", "pooled");
  register_family<std::unordered_map<SymbolKey, unsigned>>("ptr_map", "std");
#if defined(ORVO_ITP_BENCH_ABSL)
  register_family<absl::flat_hash_set<int>>("int_set", "absl");
  register_family<absl::flat_hash_set<SymbolKey>>("ptr_set", "absl");
  register_family<absl::flat_hash_map<SymbolKey, unsigned>>("ptr_map", "absl");
#endif
  return 0;
}
int const registered = register_all();

}  // namespace
