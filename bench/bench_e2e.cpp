// orvo-itp-classify against z3's own reading of the same script, side by
// side in one run. For every workload (bench/workloads.h) two benchmarks:
//
//   e2e/<workload>/z3     z3's parser on the script without the interpolation
//                         commands (a fresh context, the parse, the context
//                         deleted)
//   e2e/<workload>/ours   the program on the script, its text report
//                         formatted into a counting stream
//
//   orvo_itp_bench_e2e [benchmark flags] [WORKLOAD...]
//
// Without workloads, every default one (quasigroup when its file is present,
// loop/100 to loop/2000, sequence/10000). Run with
// --benchmark_repetitions=N --benchmark_enable_random_interleaving=true so
// that the two contenders alternate in time; tools/perf/e2e.sh does, and
// turns the JSON into ratios. Peak memory is measured per process by
// orvo_itp_e2e_process.
//
// Counters of ours: the program's own phases in seconds (z3, classifier,
// queries), partitions, report_bytes. Of z3: assertions (left after the
// last pop).
#include <benchmark/benchmark.h>

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/contenders.h"
#include "bench/workloads.h"

namespace {


void bm_z3(benchmark::State& state, std::shared_ptr<std::string const> text) {
  std::size_t assertions = 0;
  for (auto _ : state) {
    try {
      assertions = orvo::bench::z3_read(*text);
    } catch (std::exception const& e) {
      state.SkipWithError(e.what());
      return;
    }
  }
  state.counters["assertions"] = static_cast<double>(assertions);
}

void bm_ours(benchmark::State& state, std::string name, std::shared_ptr<std::string const> text) {
  orvo::bench::ProgramPhases p;
  std::size_t bytes = 0;
  for (auto _ : state) {
    try {
      p = orvo::bench::run_program(name + ".smt2", *text);
    } catch (std::exception const& e) {
      state.SkipWithError(e.what());
      return;
    }
    bytes = p.report_bytes;
  }
  state.counters["z3"] = p.z3;
  state.counters["classifier"] = p.classifier;
  state.counters["queries"] = p.queries;
  state.counters["partitions"] = static_cast<double>(p.partitions);
  state.counters["report_bytes"] = static_cast<double>(bytes);
}

void register_workload(std::string const& name) {
  std::string why;
  auto script = orvo::bench::workload_script(name, why);
  if (!script) {
    std::cerr << "orvo_itp_bench_e2e: skipping " << name << ": " << why << "\n";
    return;
  }
  auto ours = std::make_shared<std::string const>(std::move(*script));
  auto z3 = std::make_shared<std::string const>(orvo::bench::z3_form(*ours));
  benchmark::RegisterBenchmark(("e2e/" + name + "/z3").c_str(), bm_z3, z3)
      ->Unit(benchmark::kMillisecond)
      ->Iterations(1);
  benchmark::RegisterBenchmark(("e2e/" + name + "/ours").c_str(), bm_ours, name, ours)
      ->Unit(benchmark::kMillisecond)
      ->Iterations(1);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::vector<std::string> names(argv + 1, argv + argc);
  if (names.empty()) names = orvo::bench::default_workloads();
  for (std::string const& name : names)
    register_workload(name);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
