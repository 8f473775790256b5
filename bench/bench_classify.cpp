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

#include "orvo-itp-classify/classify.h"

namespace {

// Step i relates x_i and x_(i+1) through a let-shared term of depth 6 (64
// paths through 13 distinct subterms), as unrolled transition relations do.
std::string sequence_script(int n) {
  std::ostringstream s;
  s << "(set-logic QF_UFLIA)\n(declare-fun f (Int) Int)\n(declare-fun g (Int Int) Int)\n";
  for (int i = 0; i <= n; ++i)
    s << "(declare-fun x" << i << " () Int)\n";
  for (int i = 0; i < n; ++i) {
    s << "(assert (! (let ((a0 (g x" << i << " x" << i + 1 << ")))";
    for (int d = 1; d <= 6; ++d)
      s << " (let ((a" << d << " (f (g a" << d - 1 << " a" << d - 1 << "))))";
    s << " (and (< x" << i << " a6) (or (= a6 x" << i + 1 << ") (> a3 x" << i << ")) (<= a1 (+ x"
      << i + 1 << " 1)))" << std::string(7, ')') << " :named P" << i << "))\n";
  }
  // 100 queries of 100 steps spread over the trace (overlapping below
  // 10,000 steps), then one over every step.
  for (int q = 0; q < 100 && n >= 100; ++q) {
    int const first = static_cast<int>(static_cast<long long>(q) * (n - 100) / 99);
    s << "(get-interpolants";
    for (int i = first; i < first + 100; ++i)
      s << " P" << i;
    s << ")\n";
  }
  s << "(get-interpolants";
  for (int i = 0; i < n; ++i)
    s << " P" << i;
  s << ")\n";
  return s.str();
}

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
  run(state, "sequence.smt2", sequence_script(n), n);
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
    std::cout << sequence_script(std::atoi(argv[2]));
    return 0;
  }
  register_bundled();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
