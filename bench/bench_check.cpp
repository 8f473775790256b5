// orvo-itp-check end to end: the shared pairs of problems and a solver's
// answers, and a generated counter trace of N steps with its inductive
// sequence interpolants, valid and with one planted fault, for the growth in
// N.
//
//   orvo_itp_bench_check                          run the benchmarks
//   orvo_itp_bench_check --trace N                print the trace of N steps
//   orvo_itp_bench_check --answers N [K]          print its answers (K: the faulty item)
//
// Every run checks the checker's verdicts first (the shared pairs against
// their expected documents, the trace against the verdicts it was built
// with) and reports an error instead of a time when they differ.
//
// Counters, in microseconds per interpolant: total (the whole check_problem),
// reading, vocabulary and z3 (the implications) as the checker times them,
// other (playing the script, matching the answers), and of that the
// script's playing as z3's parser (play_parser) and the split, host terms and
// classifier (play_classifier); outside_z3 is the share of the total not
// spent deciding implications.
// BM_CounterTraceOutsideZ3 times only that part, so its complexity fit is
// the fit of the time outside z3.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "orvo-itp-check/check.h"

namespace {

namespace fs = std::filesystem;
using orvo::check::ProblemReport;
using orvo::check::Verdict;

std::string read_text(fs::path const& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// ---------------------------------------------------------------------------
// The counter trace.
//
// S0: x0 = 0; Si: xi = x(i-1) + 1 for i = 1..N; S(N+1): xN < 0. One sequence
// query over S0 .. S(N+1), answered with Ii = (>= xi 0) for i = 0..N: each
// follows from the one before and its step, and the last contradicts the
// bad state. The faulty answer replaces I_k by (>= x(k+1) 0): x(k+1) is
// B-local at k and its step does not imply it, while the step after still
// holds, so exactly item k is invalid.

std::string trace_problem(int n) {
  std::string s = "(set-logic QF_LIA)\n(set-option :produce-interpolants true)\n";
  for (int i = 0; i <= n; ++i)
    s += "(declare-fun x" + std::to_string(i) + " () Int)\n";
  s += "(assert (! (= x0 0) :named S0))\n";
  for (int i = 1; i <= n; ++i)
    s += "(assert (! (= x" + std::to_string(i) + " (+ x" + std::to_string(i - 1) + " 1)) :named S" +
         std::to_string(i) + "))\n";
  s += "(assert (! (< x" + std::to_string(n) + " 0) :named S" + std::to_string(n + 1) + "))\n";
  s += "(check-sat)\n(get-interpolants";
  for (int i = 0; i <= n + 1; ++i)
    s += " S" + std::to_string(i);
  s += ")\n";
  return s;
}

// The answers; `faulty` < 0 for the valid sequence.
std::string trace_responses(int n, int faulty) {
  std::string s = "unsat\n(";
  for (int i = 0; i <= n; ++i) {
    int const var = i == faulty ? i + 1 : i;
    s += (i == 0 ? "(>= x" : " (>= x") + std::to_string(var) + " 0)";
  }
  s += ")\n";
  return s;
}

// The first item whose verdict differs from the expected one, "" when none.
std::string trace_mismatch(ProblemReport const& report, int n, int faulty) {
  if (report.queries.size() != 1) return "expected one query";
  auto const& itps = report.queries[0].interpolants;
  if (itps.size() != static_cast<std::size_t>(n + 1))
    return "expected " + std::to_string(n + 1) + " interpolants, got " +
           std::to_string(itps.size());
  for (std::size_t i = 0; i < itps.size(); ++i) {
    bool const is_faulty = static_cast<int>(i) == faulty;
    Verdict const want = is_faulty ? Verdict::invalid : Verdict::valid;
    if (itps[i].verdict != want)
      return "item " + itps[i].node + ": " + orvo::check::verdict_name(itps[i].verdict) +
             ", expected " + orvo::check::verdict_name(want);
    if (is_faulty && itps[i].B_local != std::vector<std::string>{"x" + std::to_string(i + 1)})
      return "item " + itps[i].node + ": the planted B-local symbol is not reported";
  }
  return {};
}

// ---------------------------------------------------------------------------
// One measured run: check_problem on the two texts, its timing averaged over
// the iterations.

struct Split {
  double total = 0, reading = 0, vocabulary = 0, z3 = 0;
  double parser = 0, classifier = 0;  // the script's playing: z3's parser, our own work
  double interpolants = 0;
};

template <typename Verify>
void measure(benchmark::State& state, std::string const& problem, std::string const& responses,
             orvo::check::Options const& options, Verify verify, bool outside_z3_only) {
  Split sum;
  for (auto _ : state) {
    std::ostringstream warnings;
    auto const start = std::chrono::steady_clock::now();
    ProblemReport report;
    try {
      report = orvo::check::check_problem("problem.smt2", problem, "responses.out", responses,
                                          options, warnings);
    } catch (std::exception const& e) {
      state.SkipWithError((std::string("check_problem failed: ") + e.what()).c_str());
      return;
    }
    double const total =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    benchmark::DoNotOptimize(report.queries.data());
    std::string const wrong = verify(report);
    if (!wrong.empty()) {
      state.SkipWithError(("wrong verdicts: " + wrong).c_str());
      return;
    }
    if (outside_z3_only) state.SetIterationTime(total - report.timing.z3);
    sum.total += total;
    sum.reading += report.timing.reading;
    sum.vocabulary += report.timing.vocabulary;
    sum.z3 += report.timing.z3;
    orvo::smtlib::Timing const& p = report.timing.playing;
    sum.parser += p.z3;
    sum.classifier += p.split + p.host_terms + p.classify;
    sum.interpolants += static_cast<double>(report.timing.interpolants);
  }
  if (sum.interpolants == 0) return;
  double const us = 1e6 / sum.interpolants;  // seconds summed -> microseconds per interpolant
  state.counters["interpolants"] = sum.interpolants / static_cast<double>(state.iterations());
  state.counters["total_us"] = sum.total * us;
  state.counters["reading_us"] = sum.reading * us;
  state.counters["vocabulary_us"] = sum.vocabulary * us;
  state.counters["z3_us"] = sum.z3 * us;
  state.counters["other_us"] = (sum.total - sum.reading - sum.vocabulary - sum.z3) * us;
  state.counters["play_parser_us"] = sum.parser * us;
  state.counters["play_classifier_us"] = sum.classifier * us;
  state.counters["outside_z3"] = (sum.total - sum.z3) / sum.total;
}

void trace(benchmark::State& state, bool faulty, bool outside_z3_only) {
  int const n = static_cast<int>(state.range(0));
  int const k = faulty ? n / 2 : -1;
  std::string const problem = trace_problem(n);
  std::string const responses = trace_responses(n, k);
  measure(
      state, problem, responses, {},
      [&](ProblemReport const& r) { return trace_mismatch(r, n, k); }, outside_z3_only);
  state.SetComplexityN(n);
}

void BM_CounterTrace_valid(benchmark::State& state) {
  trace(state, false, false);
}
void BM_CounterTrace_faulty(benchmark::State& state) {
  trace(state, true, false);
}
void BM_CounterTraceOutsideZ3_valid(benchmark::State& state) {
  trace(state, false, true);
}

void sizes(benchmark::internal::Benchmark* b) {
  for (int n : {100, 250, 500, 1000, 2000})
    b->Arg(n);
  b->Unit(benchmark::kMillisecond)->Complexity(benchmark::oN);
}
BENCHMARK(BM_CounterTrace_valid)->Apply(sizes);
BENCHMARK(BM_CounterTrace_faulty)->Apply(sizes);
BENCHMARK(BM_CounterTraceOutsideZ3_valid)->Apply(sizes)->UseManualTime();

// ---------------------------------------------------------------------------
// The shared pairs: problems/<pair>.smt2 with responses/<pair>.out, the
// options of expected/<pair>.flags, and the verdicts of expected/<pair>.json.

// Beside the main checkout, or one level further up from a worktree.
fs::path pairs_dir() {
  if (char const* dir = std::getenv("ORVO_ITP_INTERPOLANTS")) return dir;
  fs::path const root = ORVO_ITP_SOURCE_DIR;
  for (char const* up : {"../shared/data/interpolants", "../../shared/data/interpolants"})
    if (fs::exists(root / up / "problems")) return root / up;
  return root / "../shared/data/interpolants";
}

// Every answered interpolant's verdict against the expected document; ""
// when they agree.
std::string pair_mismatch(ProblemReport const& report, nlohmann::json const& expected) {
  if (expected.contains("error")) return "expected an error, the problem was read";
  auto const& queries = expected.at("queries");
  if (queries.size() != report.queries.size())
    return std::to_string(report.queries.size()) + " queries, expected " +
           std::to_string(queries.size());
  for (std::size_t q = 0; q < queries.size(); ++q) {
    auto const& got = report.queries[q].interpolants;
    std::size_t const want_n =
        queries[q].contains("interpolants") ? queries[q]["interpolants"].size() : 0;
    if (got.size() != want_n) return "query " + std::to_string(q + 1) + ": interpolant count";
    for (std::size_t i = 0; i < want_n; ++i)
      if (queries[q]["interpolants"][i].at("verdict").get<std::string>() !=
          orvo::check::verdict_name(got[i].verdict))
        return "query " + std::to_string(q + 1) + " item " + got[i].node + ": " +
               orvo::check::verdict_name(got[i].verdict);
  }
  return {};
}

orvo::check::Options options_of(fs::path const& flags) {
  orvo::check::Options o;
  std::istringstream in(read_text(flags));
  std::string flag;
  while (in >> flag) {
    if (flag == "--craig") o.craig = true;
    if (flag == "--unmentioned=background") o.unmentioned = orvo::smtlib::Unmentioned::background;
    if (flag == "--unmentioned=error") o.unmentioned = orvo::smtlib::Unmentioned::error;
  }
  return o;
}

void register_pairs() {
  fs::path const dir = pairs_dir();
  if (!fs::exists(dir / "problems") || !fs::exists(dir / "responses")) {
    std::cerr << "no shared interpolant pairs under " << dir.string()
              << " (set ORVO_ITP_INTERPOLANTS): BM_SharedPair is skipped\n";
    return;
  }
  std::vector<fs::path> problems;
  for (auto const& e : fs::recursive_directory_iterator(dir / "problems"))
    if (e.is_regular_file() && e.path().extension() == ".smt2") problems.push_back(e.path());
  std::sort(problems.begin(), problems.end());
  for (fs::path const& p : problems) {
    fs::path const pair = fs::relative(p, dir / "problems").replace_extension();
    fs::path responses = dir / "responses" / pair;
    responses += ".out";
    fs::path expected = dir / "expected" / pair;
    expected += ".json";
    fs::path flags = dir / "expected" / pair;
    flags += ".flags";
    if (!fs::exists(responses) || !fs::exists(expected)) continue;
    nlohmann::json const want = nlohmann::json::parse(read_text(expected));
    if (want.contains("error")) continue;  // nothing is checked: no time to report
    orvo::check::Options const options =
        fs::exists(flags) ? options_of(flags) : orvo::check::Options{};
    benchmark::RegisterBenchmark(
        ("BM_SharedPair/" + pair.generic_string()).c_str(),
        [problem = read_text(p), answers = read_text(responses), options,
         want](benchmark::State& s) {
          measure(
              s, problem, answers, options,
              [&](ProblemReport const& r) { return pair_mismatch(r, want); }, false);
        })
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && std::strcmp(argv[1], "--trace") == 0) {
    std::cout << trace_problem(std::atoi(argv[2]));
    return 0;
  }
  if (argc >= 3 && std::strcmp(argv[1], "--answers") == 0) {
    std::cout << trace_responses(std::atoi(argv[2]), argc >= 4 ? std::atoi(argv[3]) : -1);
    return 0;
  }
  register_pairs();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
