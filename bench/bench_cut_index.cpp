// Every prefix cut of a sequence query with the status of every atom: the
// classifier path (set_A_groups per cut, then get_term_status per atom)
// against the cut index (one build, then prefix_status_counts). Both produce
// the status counts of all atoms for each of the G - 1 cuts.
//
// The sequence has G groups; group i holds three atoms over its own
// variables x_i, a_i and its right neighbour's x_(i+1), a_(i+1):
//   x_i < x_(i+1),   a_i < x_(i+1) + a_(i+1),   p(d_i)
// where d_i is a shared chain of depth 8 (d = f(d, d) from f(x_i, a_i)): 9
// distinct subterms, 256 paths. f and p are common to every group.
//
// At G = 10,000 the classifier path would take minutes per run; it runs
// every 100th cut there, and the items_per_second counter (cuts per second)
// gives the time for all cuts. Run for instance
//   build/default/bench/orvo_itp_bench --benchmark_filter=AllPrefixCuts
//     --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "classifier/atom_classifier.h"
#include "classifier/cut_index.h"
#include "host/host.h"

namespace {

using orvo::Symbol;
using orvo::Term_;
using orvo::itp::CutIndex;

constexpr int chain_depth = 8;

struct Sequence {
  explicit Sequence(int groups) {
    env.term_manager = &tm;
    c.set_env(&env);
    orvo::Type const* ints = tm.make_type("Int");
    Symbol const* lt = tm.make_symbol("<", 2, tm.get_bool_type(), true);
    Symbol const* plus = tm.make_symbol("+", 2, ints, true);
    Symbol const* f = tm.make_symbol("f", 2, ints);
    Symbol const* p = tm.make_symbol("p", 1, tm.get_bool_type());
    auto var = [&](char const* name, int i) {
      return tm.make_term(tm.make_symbol(name + std::to_string(i), 0, ints));
    };
    for (int i = 0; i < groups; ++i) {
      Term_ const *x = var("x", i), *a = var("a", i), *x1 = var("x", i + 1), *a1 = var("a", i + 1);
      Term_ const* d = tm.make_term(f, {x, a});
      for (int k = 0; k < chain_depth; ++k)
        d = tm.make_term(f, {d, d});
      for (Term_ const* t :
           {tm.make_term(lt, {x, x1}), tm.make_term(lt, {a, tm.make_term(plus, {x1, a1})}),
            tm.make_term(p, {d})}) {
        int const atom = env.new_atom(t);
        c.pre_add_atom(atom, i);
        atoms.push_back(t);
      }
      positions.push_back({i});
    }
  }

  // The classifier path for the cuts 0, stride, 2 * stride, ... below G - 1.
  std::vector<CutIndex::StatusCounts> classifier_cuts(int stride) {
    std::vector<CutIndex::StatusCounts> out;
    std::vector<int> a_groups;
    int const cuts = static_cast<int>(positions.size()) - 1;
    for (int r = 0; r < cuts; r += stride) {
      while (static_cast<int>(a_groups.size()) <= r)
        a_groups.push_back(static_cast<int>(a_groups.size()));
      c.set_A_groups(a_groups);
      CutIndex::StatusCounts counts;
      for (Term_ const* t : atoms) {
        int const status = c.get_term_status(t);
        ++(status == 0 ? counts.A : status == 1 ? counts.B : counts.mixed);
      }
      out.push_back(counts);
    }
    return out;
  }

  orvo::TermManager tm;
  orvo::Environment env;
  orvo::itp::AtomClassifier c;
  std::vector<Term_ const*> atoms;
  std::vector<std::vector<int>> positions;
};

bool same(CutIndex::StatusCounts const& x, CutIndex::StatusCounts const& y) {
  return x.A == y.A && x.B == y.B && x.mixed == y.mixed;
}

void BM_AllPrefixCuts_Classifier(benchmark::State& state) {
  int const groups = static_cast<int>(state.range(0));
  int const stride = groups >= 10000 ? 100 : 1;
  Sequence s(groups);
  std::vector<CutIndex::StatusCounts> counts;
  for (auto _ : state) {
    counts = s.classifier_cuts(stride);
    benchmark::DoNotOptimize(counts.data());
  }
  // Both paths must agree on every cut they both answer.
  CutIndex index(s.c, s.positions);
  std::vector<CutIndex::StatusCounts> const all = index.prefix_status_counts();
  for (std::size_t k = 0; k < counts.size(); ++k)
    if (!same(counts[k], all[k * static_cast<std::size_t>(stride)]))
      state.SkipWithError("the classifier and the index disagree");
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(counts.size()));
  state.counters["cuts_run"] = static_cast<double>(counts.size());
  state.counters["groups"] = groups;
}
BENCHMARK(BM_AllPrefixCuts_Classifier)
    ->RangeMultiplier(10)
    ->Range(10, 10000)
    ->Unit(benchmark::kMillisecond);

void BM_AllPrefixCuts_CutIndex(benchmark::State& state) {
  int const groups = static_cast<int>(state.range(0));
  Sequence s(groups);
  for (auto _ : state) {
    CutIndex index(s.c, s.positions);
    std::vector<CutIndex::StatusCounts> counts = index.prefix_status_counts();
    benchmark::DoNotOptimize(counts.data());
  }
  // Items are cuts, as above, so that items_per_second compares directly.
  state.SetItemsProcessed(state.iterations() * (groups - 1));
  state.counters["groups"] = groups;
}
BENCHMARK(BM_AllPrefixCuts_CutIndex)
    ->RangeMultiplier(10)
    ->Range(10, 10000)
    ->Unit(benchmark::kMillisecond);

// Building the index of one query while the classifier holds many other
// groups, all empty (what a model-checker loop leaves: push, assert, query,
// pop, repeated): 50 query groups as above, then E empty groups. The index
// that counts every group reads all E; the one given the groups that count
// (the query's, no others) reads none of them, so its time stays flat in E.
void BM_CutIndexBuild_EmptyGroups(benchmark::State& state) {
  bool const listed = state.range(0) != 0;
  int const empty = static_cast<int>(state.range(1));
  Sequence s(50);
  for (int i = 0; i < empty; ++i)
    s.c.new_group_index();
  std::vector<int> const none;
  for (auto _ : state) {
    CutIndex index = listed ? CutIndex(s.c, s.positions, none) : CutIndex(s.c, s.positions);
    benchmark::DoNotOptimize(index.size());
  }
  state.counters["listed"] = listed;
  state.counters["empty_groups"] = empty;
}
BENCHMARK(BM_CutIndexBuild_EmptyGroups)
    ->ArgsProduct({{0, 1}, {0, 1000, 10000, 100000}})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
