// The classifier's hot operations: collecting a term's symbols, the purity
// walks behind the partition queries, a decision level's worth of atoms and
// clauses pushed and popped, the rebuild of the partition symbol sets, and a
// full garbage collection; and the costs that must follow the work, not the
// largest table ever seen: a small term's symbols after a huge term, gc on
// grown but empty tables, and building many host terms.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "classifier/atom_classifier.h"
#include "host/host.h"

namespace {

using orvo::Symbol;
using orvo::Term_;
using orvo::dpll::Clause;

// A host with integer variables, < and +, and one classifier bound to it.
struct World {
  World() {
    env.term_manager = &tm;
    c.set_env(&env);
  }
  Term_ const* var(std::string const& name) { return tm.make_term(tm.make_symbol(name, 0, ints)); }
  int less(Term_ const* l, Term_ const* r) { return env.new_atom(tm.make_term(lt, {l, r})); }
  // A balanced sum over `n` fresh variables: 2n - 1 distinct nodes, no sharing.
  Term_ const* sum(int lo, int hi) {
    if (hi - lo == 1) return var("v" + std::to_string(lo));
    int const mid = lo + (hi - lo) / 2;
    return tm.make_term(plus, {sum(lo, mid), sum(mid, hi)});
  }

  orvo::TermManager tm;
  orvo::Environment env;
  orvo::itp::AtomClassifier c;
  orvo::Type const* ints = tm.make_type("Int");
  Symbol const* lt = tm.make_symbol("<", 2, tm.get_bool_type(), true);
  Symbol const* plus = tm.make_symbol("+", 2, ints, true);
};

// A chain in which every node has the same child twice: `depth` + 1 distinct
// terms but 2^depth paths. The marked walk enters each distinct term once, so
// the time grows linearly with the depth.
void BM_GetTermSymbols_SharedChain(benchmark::State& state) {
  World w;
  Symbol const* f = w.tm.make_symbol("f", 2, w.ints);
  Term_ const* t = w.var("c");
  for (std::int64_t d = 0; d < state.range(0); ++d)
    t = w.tm.make_term(f, {t, t});
  for (auto _ : state)
    benchmark::DoNotOptimize(w.c.get_term_symbols(t).size());
  state.SetItemsProcessed(state.iterations() * (state.range(0) + 1));
  state.SetComplexityN(state.range(0) + 1);
  state.counters["distinct_terms"] = static_cast<double>(state.range(0) + 1);
}
BENCHMARK(BM_GetTermSymbols_SharedChain)
    ->RangeMultiplier(4)
    ->Range(1024, 65536)
    ->Complexity(benchmark::oN);

// term_is_pure against a group's symbol counts, every symbol present, so the
// walk visits the whole tree (interpreted symbols looked up as well).
void BM_TermIsPure(benchmark::State& state) {
  World w;
  int const n = static_cast<int>(state.range(0));
  Term_ const* t = w.sum(0, n);
  w.c.add_atom(w.less(t, w.var("zero")), 0);
  auto const& symbols = w.c.get_groups()[0].symbols;
  for (auto _ : state)
    benchmark::DoNotOptimize(w.c.term_is_pure(t, symbols, true));
  state.SetItemsProcessed(state.iterations() * (2 * n - 1));
  state.SetComplexityN(2 * n - 1);
}
BENCHMARK(BM_TermIsPure)->RangeMultiplier(8)->Range(64, 32768)->Complexity(benchmark::oN);

// get_term_status on a term whose symbols are all common: the A walk and the
// B walk both run to the end.
void BM_GetTermStatus(benchmark::State& state) {
  World w;
  int const n = static_cast<int>(state.range(0));
  Term_ const* t = w.sum(0, n);
  int const atom = w.less(t, w.var("zero"));
  w.c.add_atom(atom, 0);
  w.c.add_atom(atom, 1);
  w.c.set_frontier(0);
  int status = -1;
  for (auto _ : state) {
    status = w.c.get_term_status(t);
    benchmark::DoNotOptimize(status);
  }
  if (status != 1) state.SkipWithError("the term should be B-pure (and A-pure)");
  state.SetItemsProcessed(state.iterations() * (2 * n - 1));
  state.counters["walks_per_call"] = 2;
}
BENCHMARK(BM_GetTermStatus)->RangeMultiplier(8)->Range(64, 32768);

// One decision level: push, k atoms and k clauses into 8 groups, pop. Each
// atom's symbols are counted in and out again; each clause reference is taken
// and returned.
void BM_AddAtomsAndClausesThenPop(benchmark::State& state) {
  World w;
  int const k = static_cast<int>(state.range(0));
  std::vector<Term_ const*> x;
  for (int i = 0; i <= k; ++i)
    x.push_back(w.var("x" + std::to_string(i)));
  std::vector<int> atoms;
  std::vector<Clause*> clauses;
  for (int i = 0; i < k; ++i) {
    atoms.push_back(w.less(x[static_cast<std::size_t>(i)], x[static_cast<std::size_t>(i) + 1]));
    clauses.push_back(
        orvo::dpll::make_clause(i, {orvo::dpll::make_literal(atoms.back(), false)}, 1));
  }
  for (int g = 0; g < 8; ++g)
    w.c.new_group_index();
  for (auto _ : state) {
    w.c.push_backtrack_point();
    for (int i = 0; i < k; ++i) {
      w.c.add_atom(atoms[static_cast<std::size_t>(i)], i % 8);
      w.c.add_clause(clauses[static_cast<std::size_t>(i)], i % 8);
    }
    w.c.pop_backtrack_point();
  }
  state.SetItemsProcessed(state.iterations() * 2 * k);
  state.counters["cells_per_level"] = 2.0 * k + 1;
  for (Clause* cl : clauses)
    std::free(cl);  // only the host's reference is left after the pops
}
BENCHMARK(BM_AddAtomsAndClausesThenPop)->RangeMultiplier(8)->Range(16, 4096);

// set_frontier on G groups of a chain, three atoms each (x_i < a_i,
// a_i < b_i, b_i < x_i+1): rebuilds both symbol sets and the atom flags.
void BM_SetFrontier(benchmark::State& state) {
  World w;
  int const groups = static_cast<int>(state.range(0));
  Term_ const* prev = w.var("x0");
  for (int i = 0; i < groups; ++i) {
    std::string const n = std::to_string(i);
    Term_ const *a = w.var("a" + n), *b = w.var("b" + n),
                *next = w.var("x" + std::to_string(i + 1));
    w.c.pre_add_atom(w.less(prev, a), i);
    w.c.pre_add_atom(w.less(a, b), i);
    w.c.pre_add_atom(w.less(b, next), i);
    prev = next;
  }
  for (auto _ : state) {
    w.c.set_frontier(groups / 2);
    benchmark::DoNotOptimize(w.c.get_B_symbols().size());
  }
  state.SetItemsProcessed(state.iterations() * groups);
  state.counters["atoms"] = 3.0 * groups;
  state.counters["symbols"] =
      static_cast<double>(w.c.get_A_symbols().size() + w.c.get_B_symbols().size());
}
BENCHMARK(BM_SetFrontier)->RangeMultiplier(8)->Range(8, 4096);

// gc(true) when the host has let go of every clause: each one is erased from
// its group and freed. The clauses are made outside the timed region.
void BM_GcFull_FreesAll(benchmark::State& state) {
  World w;
  int const n = static_cast<int>(state.range(0));
  for (int g = 0; g < 8; ++g)
    w.c.new_group_index();
  for (auto _ : state) {
    state.PauseTiming();
    for (int i = 0; i < n; ++i)  // count 0, then the classifier's one reference
      w.c.add_clause(orvo::dpll::make_clause(i, {orvo::dpll::make_literal(i, false)}, 0), i % 8);
    state.ResumeTiming();
    w.c.gc(true);
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_GcFull_FreesAll)->RangeMultiplier(8)->Range(1024, 65536);

// gc(true) when the host still holds every clause: one walk, nothing freed.
void BM_GcFull_KeepsAll(benchmark::State& state) {
  int const n = static_cast<int>(state.range(0));
  std::vector<Clause*> clauses;
  for (int i = 0; i < n; ++i)
    clauses.push_back(orvo::dpll::make_clause(i, {orvo::dpll::make_literal(i, false)}, 1));
  {
    World w;
    for (int i = 0; i < n; ++i)
      w.c.add_clause(clauses[static_cast<std::size_t>(i)], i % 8);
    for (auto _ : state)
      w.c.gc(true);
  }  // the classifier returns its references here
  for (Clause* cl : clauses)
    std::free(cl);
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_GcFull_KeepsAll)->RangeMultiplier(8)->Range(1024, 65536);

// The symbols of a 3-node term (x < y), after the scratch symbol set has
// once held those of a term with `range(0)` symbols (0: never).
void BM_SmallTermAfterLargeTerm(benchmark::State& state) {
  World w;
  int const big = static_cast<int>(state.range(0));
  if (big > 0) benchmark::DoNotOptimize(w.c.get_term_symbols(w.sum(0, big)).size());
  Term_ const* small = w.tm.make_term(w.lt, {w.var("x"), w.var("y")});
  for (auto _ : state)
    benchmark::DoNotOptimize(w.c.get_term_symbols(small).size());
  state.counters["bucket_count"] = static_cast<double>(w.c.get_term_symbols(small).bucket_count());
}
BENCHMARK(BM_SmallTermAfterLargeTerm)->Arg(0)->Arg(100000);

// gc(true) with nothing to do, on 8 groups whose clause tables once held
// `range(0)` clauses in all and were emptied by a pop.
void BM_GcEmptyGrownTables(benchmark::State& state) {
  World w;
  int const n = static_cast<int>(state.range(0));
  std::vector<Clause*> clauses;
  for (int i = 0; i < n; ++i)
    clauses.push_back(orvo::dpll::make_clause(i, {orvo::dpll::make_literal(i, false)}, 1));
  for (int g = 0; g < 8; ++g)
    w.c.new_group_index();
  w.c.push_backtrack_point();
  for (int i = 0; i < n; ++i)
    w.c.add_clause(clauses[static_cast<std::size_t>(i)], i % 8);
  w.c.pop_backtrack_point();
  for (auto _ : state)
    w.c.gc(true);
  for (Clause* cl : clauses)
    std::free(cl);
}
BENCHMARK(BM_GcEmptyGrownTables)->Arg(0)->Arg(100000);

// range(0) distinct host terms: variables, then x_i < x_i+1 over them.
void BM_MakeTerms(benchmark::State& state) {
  int const n = static_cast<int>(state.range(0)) / 2;
  for (auto _ : state) {
    orvo::TermManager tm;
    orvo::Type const* ints = tm.make_type("Int");
    Symbol const* lt = tm.make_symbol("<", 2, tm.get_bool_type(), true);
    Symbol const* x = tm.make_symbol("x", 0, ints);
    Symbol const* s = tm.make_symbol("s", 1, ints);
    Term_ const* t = tm.make_term(x);
    for (int i = 0; i < n; ++i) {
      Term_ const* next = tm.make_term(s, {t});
      tm.make_term(lt, {t, next});
      t = next;
    }
    benchmark::DoNotOptimize(tm.num_terms());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_MakeTerms)->Arg(20000)->Arg(40000)->Arg(80000)->Arg(160000)->Unit(
    benchmark::kMillisecond);

}  // namespace
