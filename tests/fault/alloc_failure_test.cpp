// Allocation-failure injection. Every operation of the classifier and of the
// pooled tables that can allocate runs with the k-th allocation failing, for
// k = 1, 2, ... until it completes without a failure, once and persistently,
// at sizes around the tables' growth point (21/22 elements) and the pools'
// chunk boundaries (16, 48, 112 nodes). After each failure: the exception is
// an allocation error, every invariant holds, each live clause's reference
// count equals the host's references plus the classifier's memberships, the
// parts the operation promises to keep are unchanged, the operation succeeds
// when run again, and that rerun reproduces a never-failed run in every part
// the operation can restore. Leaks show in the live allocation count (and in
// the leak checker under AddressSanitizer).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "classifier/atom_classifier.h"
#include "fault/alloc_hook.h"
#include "support/exception.h"

namespace orvo {
namespace itp {
namespace {

using dpll::Clause;
using Kind = AtomClassifier::UndoCell::Kind;

// A host of size n: constants c0..c(n+1); atom i is p(h(ci, ci+1)); clause i
// has number i, one host reference and flag bits i & 3; chain = h(c0, h(c1,
// ... c(n+1))).
struct Fx {
  explicit Fx(int size) : n(size) {
    env.term_manager = &tm;
    Type const* u = tm.make_type("U");
    h = tm.make_symbol("h", 2, u);
    Symbol const* p = tm.make_symbol("p", 1, tm.get_bool_type());
    for (int i = 0; i <= n + 1; ++i)
      k.push_back(tm.make_term(tm.make_symbol("c" + std::to_string(i), 0, u)));
    chain = k[n + 1];
    for (int i = n; i >= 0; --i)
      chain = tm.make_term(h, {k[i], chain});
    for (int i = 0; i <= n; ++i) {
      env.new_atom(tm.make_term(p, {tm.make_term(h, {k[i], k[i + 1]})}));
      cl.push_back(dpll::make_clause(i, {dpll::make_literal(i, false)}, 1, i & 1, i & 2));
    }
    host.assign(cl.size(), true);
    shared = tm.make_term(h, {chain, chain});
    truth = tm.make_term(tm.get_reserved_symbols()[0]);
    c.emplace();
    c->set_env(&env);
    test::forget_frees();  // no block freed from here on can share a live clause's address
  }
  // Once the classifier is gone, the host's clauses carry exactly the host's
  // reference and their flags, and all the others have been freed.
  ~Fx() {
    c.reset();
    for (std::size_t i = 0; i < cl.size(); ++i) {
      bool const freed = test::was_freed(cl[i]);
      EXPECT_EQ(!host[i], freed) << "clause " << i << (freed ? " freed under the host" : " leaked");
      if (freed) continue;
      EXPECT_EQ((i & 3) << 30 | (host[i] ? 1u : 0u), cl[i]->reference_word()) << "clause " << i;
      std::free(cl[i]);
    }
  }
  // The host gives up its reference: the classifier's become the only ones.
  void drop_host(int i) { host[i] = false, dpll::release_reference(cl[i]); }
  int n;
  TermManager tm;
  Environment env;
  Symbol const* h;
  std::vector<Term_ const*> k;
  Term_ const *chain, *shared, *truth;
  std::vector<Clause*> cl;
  std::vector<bool> host;
  std::optional<AtomClassifier> c;
  hsh::HashSet<int> set, other;
  hsh::HashMap<Symbol const*, unsigned> map;
  std::optional<hsh::HashSet<int>> copy;
  std::vector<int> created, pick, ans{0, 0, 0, 0, 0},
      groups;  // inputs and answers of the operations
  hsh::HashSet<Symbol const*> const* syms = nullptr;
  std::string out;  // what the operation printed
};

// A snapshot in canonical text, by part, so that runs on different hosts compare.
enum Part { kMembers, kCounts, kTrail, kDerived, kValid, kTables, kLayout, kOut, kParts };
using Snap = std::array<std::string, kParts>;
constexpr unsigned bit(int p) {
  return 1u << p;
}
constexpr unsigned kAll = bit(kParts) - 1, kNoCounts = kAll & ~bit(kCounts) & ~bit(kLayout);

template <class T>
std::string str(T const& v) {
  if constexpr (std::is_pointer_v<T>)
    return v->get_name();
  else if constexpr (std::is_arithmetic_v<T>)
    return std::to_string(v);
  else
    return v.first->get_name() + ":" + std::to_string(v.second);
}
template <class Range>
std::string list(Range const& r, bool sort = true) {
  std::vector<std::string> v;
  for (auto const& e : r)
    v.push_back(str(e));
  if (sort) std::sort(v.begin(), v.end());
  std::string s = "{";
  for (std::string const& e : v)
    s += e + " ";
  return s + "} ";
}
Snap snap(Fx& f) {
  AtomClassifier const& c = *f.c;
  auto num = [&f](Clause const* x) {
    return std::find(f.cl.begin(), f.cl.end(), x) - f.cl.begin();
  };
  auto const& gs = c.get_groups();
  std::size_t used = gs.size();  // trailing empty groups are layout, not contents
  while (used > 0 && gs[used - 1].atoms.empty() && gs[used - 1].clauses.empty())
    --used;
  Snap s;
  for (std::size_t g = 0; g < used; ++g) {
    std::vector<long> clauses;
    for (Clause const* x : gs[g].clauses)
      clauses.push_back(num(x));
    s[kMembers] += list(gs[g].atoms) + list(clauses) + "| ";
    s[kCounts] += list(gs[g].symbols);
  }
  s[kMembers] += list(c.get_btpoint_atoms()) + list(c.get_temporary_A_atoms()) +
                 list(c.get_temporary_B_atoms()) + list(c.get_A_groups()) + "refs ";
  for (Clause const* x : f.cl)
    if (!test::was_freed(x)) s[kMembers] += str(num(x)) + ":" + str(x->ref_count()) + " ";
  for (auto const& cell : c.get_undo_trail())
    s[kTrail] += str(int(cell.kind())) + ":" +
                 (cell.kind() == Kind::clause ? "#" + str(num(cell.clause)) : str(cell.atom)) +
                 "@" + str(cell.group()) + " ";
  s[kDerived] = list(c.get_A_symbols()) + list(c.get_B_symbols()) + list(c.get_atom_AB_flags(), 0);
  s[kValid] = c.symbols_sets_valid() ? "valid" : "stale";
  for (auto const* t : {&f.set, &f.other})
    s[kTables] += list(*t) + str(t->pool().handed_out()) + " ";
  s[kTables] += list(f.map) + str(f.map.pool().handed_out()) + (f.copy ? list(*f.copy) : "no copy");
  s[kTables] += str(f.set.pool().free_count()) +
                str(f.set.pool().next_chunk_size() + f.map.pool().next_chunk_size());
  // (when a symbol map grows depends on the symbols' addresses: not layout)
  for (auto const& g : gs)
    s[kLayout] += str(g.atoms.bucket_count() + 1000 * g.clauses.bucket_count()) + " ";
  s[kLayout] += list(f.set, 0) + list(f.other, 0) + list(c.get_A_groups(), 0) +
                (f.copy ? list(*f.copy, 0) : "") + str(f.map.bucket_count());
  s[kOut] = f.out + list(f.ans, 0) + list(f.groups, 0) + (f.syms ? list(*f.syms) : "");
  return s;
}

// Broken invariants and unbalanced clause references, as text ("" when none).
std::string problems(Fx& f) {
  std::string p = f.c->check_invariants() ? "" : "classifier invariants; ";
  if (!f.set.check_invariants() || !f.other.check_invariants() || !f.map.check_invariants() ||
      (f.copy && !f.copy->check_invariants()))
    p += "table invariants; ";
  for (std::size_t i = 0; i < f.cl.size(); ++i) {
    unsigned held = 0;
    for (auto const& g : f.c->get_groups())
      held += g.clauses.find(f.cl[i]) != g.clauses.end();
    bool const freed = test::was_freed(f.cl[i]);  // then no group may name it
    if (freed ? held != 0 : f.cl[i]->ref_count() != held + f.host[i])
      p += "clause " + str(i) + " references; ";
  }
  return p;
}

struct Scenario {
  char const* name;
  void (*setup)(Fx&);
  void (*op)(Fx&);
  unsigned again;  // parts that a rerun after a failure must reproduce from a never-failed run
  unsigned kept;   // parts that a failed call leaves as they were
  std::size_t (*atomic)(Fx&) = nullptr;  // how many leading allocations come before any change
};

// Runs the scenario on a fresh host with allocation k failing (k = 0: none,
// and `ref` receives the result). Returns whether the failure fired.
bool run(Scenario const& s, int n, std::size_t k, bool persistent, Snap& ref) {
  long const live = test::live_allocations();
  bool fired = false, threw = false;
  {
    Fx f(n);
    s.setup(f);
    Snap const before = snap(f);
    std::size_t const atomic = s.atomic ? s.atomic(f) : 0;
    testing::internal::CaptureStdout();
    {
      test::FailureScope arm(k, persistent);
      try {
        s.op(f);
      } catch (std::bad_alloc const&) {
        threw = true;
      } catch (std::length_error const&) {
        threw = true;
      }
      fired = test::failure_fired();
    }
    f.out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(fired, threw) << "an allocation failure must surface as an exception";
    if (threw) {
      EXPECT_EQ("", problems(f)) << "after failing allocation " << k;
      Snap const now = snap(f);
      for (int p = 0; p < kParts; ++p)  // (parts not kept compare with themselves)
        EXPECT_EQ(((k <= atomic ? kAll : s.kept) & bit(p) ? before : now)[p], now[p])
            << "part " << p << ", k=" << k;
      EXPECT_EQ(0u, ref[kOut].rfind(f.out, 0)) << "printed text is a prefix of the full dump";
      testing::internal::CaptureStdout();
      s.op(f);
      f.out = testing::internal::GetCapturedStdout();
    }
    EXPECT_EQ("", problems(f));
    Snap const after = snap(f);
    if (k == 0) ref = after;
    for (int p = 0; p < kParts; ++p)
      EXPECT_EQ((s.again & bit(p) ? ref : after)[p], after[p])
          << "part " << p << " after rerun, k=" << k;
  }
  EXPECT_EQ(live, test::live_allocations()) << "blocks leaked, k=" << k;
  return fired;
}

// Scenario steps. ORVO_ITP_EACH runs its statement for i = 0 .. n-1.
// clang-format off
#define ORVO_ITP_STEP(...) [](Fx& f [[maybe_unused]]) { __VA_ARGS__; }
#define ORVO_ITP_EACH(...) for (int i = 0; i < f.n; ++i) __VA_ARGS__
// clang-format on
void atoms_and_A(Fx& f) {  // group 0 holds every atom, groups 1-3 share them; A = {0}
  for (int i = 0; i <= f.n; ++i)
    f.c->pre_add_atom(i, 0), f.c->pre_add_atom(i, 1 + i % 3);
  f.c->set_frontier(0);
}
void nested_level(Fx& f) {  // one open level with groups, atoms, clauses and btpoint atoms
  f.c->pre_add_atom(f.n, 0);
  f.c->push_backtrack_point();
  for (int i = 0; i < f.n; ++i) {
    f.created.push_back(f.c->new_group_index());
    f.c->add_atom(i, f.created.back()), f.c->add_atom(i, 0), f.c->add_btpoint_atom(i);
    f.c->add_clause(f.cl[i], f.created.back());
    if (i % 2) f.drop_host(i);
  }
  f.c->add_clause(f.cl[f.n], 0);
  f.drop_host(f.n);
}
void keys(Fx& f) {
  ORVO_ITP_EACH(f.set.insert(31 * i), f.map[f.k[i]->get_symbol()] = unsigned(i));
}
std::size_t temporary_set_cost(Fx& f) {  // what pop's set of the created groups costs to build
  std::size_t const before = test::malloc_calls();
  hsh::HashSet<int> s;
  for (int g : f.created)
    s.insert(g);
  return test::malloc_calls() - before;
}

constexpr unsigned kPartition = bit(kCounts) | bit(kTrail) | bit(kValid), kTable = bit(kTables);
Scenario const scenarios[] = {
    {"construct", ORVO_ITP_STEP(),
     ORVO_ITP_STEP(AtomClassifier c; c.set_env(&f.env); c.pre_add_atom(0, f.n)), kAll, kAll},
    {"new_group_index",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->pre_add_atom(i, i)); f.c->push_backtrack_point()),
     ORVO_ITP_STEP(f.c->new_group_index()), kNoCounts & ~bit(kTrail), kAll & ~bit(kLayout)},
    {"add_atom", ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->pre_add_atom(i, 0)); f.c->push_backtrack_point()),
     ORVO_ITP_STEP(f.c->add_atom(f.n, 0); f.c->pre_add_atom(f.n, 2 * f.n)),
     kNoCounts & ~bit(kTrail), 0},
    {"add_atom_to_same_groups",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->pre_add_atom(0, i)); f.c->push_backtrack_point()),
     ORVO_ITP_STEP(f.c->add_atom_to_same_groups(1, 0)), kNoCounts & ~bit(kTrail), 0},
    {"add_clause to a full group",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->add_clause(f.cl[i], 0)); f.c->push_backtrack_point()),
     ORVO_ITP_STEP(f.c->add_clause(f.cl[f.n], 0)), kAll, kAll & ~bit(kValid) & ~bit(kLayout)},
    {"add_clause growing groups",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->add_clause(f.cl[i], i)); f.c->push_backtrack_point()),
     ORVO_ITP_STEP(f.c->add_clause(f.cl[f.n], 2 * f.n + 1)), kAll,
     kAll & ~bit(kValid) & ~bit(kLayout)},
    {"add_btpoint_atom",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->add_btpoint_atom(i)); f.c->push_backtrack_point()),
     ORVO_ITP_STEP(f.c->add_btpoint_atom(f.n)), kAll, 0},
    {"temporary atoms",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->add_temporary_A_atom(i), f.c->add_temporary_B_atom(i + 1))),
     ORVO_ITP_STEP(f.c->add_temporary_A_atom(f.n); f.c->add_temporary_B_atom(f.n + 1)), kAll, 0},
    {"set_A_groups",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->pre_add_atom(i, i)); f.c->set_frontier(0);
                   f.pick = {f.n, -1, 0, f.n / 2, 7 * f.n}),
     ORVO_ITP_STEP(f.c->set_A_groups(f.pick)), kAll, kPartition},
    {"set_frontier",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->pre_add_atom(i, i)); f.c->push_backtrack_point();
                   f.c->set_A_groups({f.n / 2}); f.c->add_atom(
                       f.n, 0)),  // the sets go stale, and a failed choice must leave them so
     ORVO_ITP_STEP(f.c->set_frontier(2 * f.n)), kAll, kPartition},
    {"push_backtrack_point", ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->push_backtrack_point())),
     ORVO_ITP_STEP(f.c->push_backtrack_point()), kAll, kAll},
    {"pop_backtrack_point", nested_level, ORVO_ITP_STEP(f.c->pop_backtrack_point()), kNoCounts, 0,
     temporary_set_cost},
    {"gc(true)",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->add_clause(f.cl[i], i % 4), i % 3 ? f.drop_host(i) : void(),
                                 i == f.n / 2 ? f.c->push_backtrack_point() : void())),
     ORVO_ITP_STEP(f.c->gc(true)), kAll, 0},
    {"reset_group",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->pre_add_atom(i, 1), f.c->add_clause(f.cl[i], 1),
                                 i % 2 ? f.drop_host(i) : void())),
     ORVO_ITP_STEP(f.c->reset_group(1)), kAll, 0},
    {"debug_dump",
     ORVO_ITP_STEP(ORVO_ITP_EACH(f.c->pre_add_atom(f.n - i, i % 3)); f.c->set_A_groups({2, 0})),
     ORVO_ITP_STEP(f.c->debug_dump()), kAll, kAll & ~bit(kOut)},
    {"get_term_symbols", ORVO_ITP_STEP(), ORVO_ITP_STEP(f.syms = &f.c->get_term_symbols(f.shared)),
     kAll, kAll},
    {"term queries", atoms_and_A,
     ORVO_ITP_STEP(f.ans = {f.c->get_term_status(f.chain), f.c->term_is_AB_mixed(f.shared),
                            f.c->symbol_is_common(f.h, false), f.c->term_is_mixed(f.chain),
                            f.c->are_compatible(f.chain, f.shared, false)};
                   f.groups = f.c->get_compatible_groups(f.truth, false)),
     kAll, kAll & ~bit(kOut)},
    {"table insert", keys, ORVO_ITP_STEP(f.set.insert(31 * f.n)), kAll, kTable},
    {"map operator[]", keys, ORVO_ITP_STEP(++f.map[f.k[f.n]->get_symbol()]), kAll, kTable},
    {"rehash", keys, ORVO_ITP_STEP(f.set.rehash(f.set.bucket_count() + 1)), kAll, kAll},
    {"copy construction", keys, ORVO_ITP_STEP(f.copy.emplace(f.set)), kAll, kAll},
    {"assignment", ORVO_ITP_STEP(keys(f); ORVO_ITP_EACH(f.other.insert(-i))),
     ORVO_ITP_STEP(f.other = f.set), kAll & ~kTable, 0},
};

TEST(AllocFailure, EveryOperationSurvivesEveryFailurePoint) {
  std::size_t points = 0;
  for (Scenario const& s : scenarios)
    for (int n : {1, 16, 21, 22, 48, 112}) {
      Snap ref;
      for (std::string& part : ref)
        part.reserve(1 << 16);  // so that filling it allocates nothing
      ASSERT_FALSE(run(s, n, 0, false, ref)) << s.name;
      for (bool persistent : {false, true}) {
        SCOPED_TRACE(std::string(s.name) + " n=" + str(n) + (persistent ? " persistent" : " once"));
        for (std::size_t k = 1; k < 100000 && run(s, n, k, persistent, ref); ++k)
          ++points;
        if (HasFailure()) return;  // the first broken scenario says enough
      }
    }
  std::printf("alloc-failure: %zu failure points injected over %zu scenarios\n", points,
              std::size(scenarios));
}

// The message text needs memory of its own: without any, what() answers an
// empty text instead of throwing, and the full text once memory is back.
TEST(AllocFailure, ExceptionTextWithoutMemoryIsEmpty) {
  Exception e("No interpolation group for atom: ", false);
  e << 17;
  bool empty = false;
  {
    test::FailureScope arm(1, true);
    empty = *e.what() == '\0';
    EXPECT_TRUE(test::failure_fired());
  }
  EXPECT_TRUE(empty);
  EXPECT_STREQ("No interpolation group for atom: 17", e.what());
}

}  // namespace
}  // namespace itp
}  // namespace orvo
