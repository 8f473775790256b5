// orvo-itp-classify end to end: the bundled real problems, and a generated
// model-checker-like sequence problem of N steps (shared `let` terms, 100
// queries of 100 items and one over all N steps) for the growth in N.
//
//   orvo_itp_bench_classify                       run the benchmarks
//   orvo_itp_bench_classify --script N            print the generated script of N steps
//
// Counters: z3 = seconds in z3's parser, classifier = host terms, atoms,
// clauses and levels, queries = every partition of every query; per_assertion
// is the whole time divided by N.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "bench/workloads.h"
#include "orvo-itp-classify/classify.h"

namespace {

void run(benchmark::State& state, std::string const& name, std::string const& text, double steps) {
  orvo::smtlib::Timing t;
  double queries = 0;
  std::size_t partitions = 0;
  for (auto _ : state) {
    std::ostringstream warnings;
    auto report = orvo::classify::classify_problem(name, text, {}, warnings);
    benchmark::DoNotOptimize(report.queries.data());
    t = report.timing;
    queries = report.queries_time;
    partitions = report.partitions;
  }
  state.counters["z3"] = t.z3;
  state.counters["classifier"] = t.classify;
  state.counters["queries"] = queries;
  state.counters["partitions"] = static_cast<double>(partitions);
  state.counters["per_assertion"] = benchmark::Counter(
      steps, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_GeneratedSequence(benchmark::State& state) {
  int const n = static_cast<int>(state.range(0));
  run(state, "sequence.smt2", orvo::bench::sequence_script(n), n);
  state.SetComplexityN(n);
}
BENCHMARK(BM_GeneratedSequence)
    ->Arg(1000)
    ->Arg(2000)
    ->Arg(4000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN)
    ->Iterations(1);

void register_bundled() {
  char const* const files[] = {"counter",      "datatype3b",         "incremental_itp2",
                               "issue213_itp", "LockingExample.bpl", "treeInterpolation1"};
  for (char const* f : files) {
    std::string const path = std::string(ORVO_ITP_SOURCE_DIR) + "/orvo-itp-classify/problems/" + f + ".smt2";
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    benchmark::RegisterBenchmark(
        (std::string("BM_BundledProblem/") + f).c_str(),
        [name = std::string(f), text = text.str()](benchmark::State& s) { run(s, name, text, 1); })
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--script") == 0) {
    std::cout << orvo::bench::sequence_script(std::atoi(argv[2]));
    return 0;
  }
  register_bundled();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
