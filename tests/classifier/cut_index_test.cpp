// The cut index against the classifier itself: random hosts (shared term
// graphs with deep chains, interpreted and reserved symbols, atoms without a
// term), random groups and random positions (sequences, several groups per
// position, repeated, missing and invalid group indices), every group
// counted or only listed ones (more of B, background), and for every range of
// positions every answer compared with the classifier's after set_A_groups:
// A's side with the range's and the background groups, B's side without the
// background groups, the groups the index ignores emptied.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "classifier/cut_index.h"
#include "fault/alloc_hook.h"
#include "host/host.h"

namespace orvo {
namespace itp {
namespace {

using Counts = CutIndex::StatusCounts;

struct Instance {
  explicit Instance(unsigned seed) : rng(seed) {
    env.term_manager = &tm;
    c.set_env(&env);
    Type const* ints = tm.make_type("Int");
    Type const* b = tm.get_bool_type();
    for (int i = 0; i < 6; ++i)  // constants x0..x5, x5 interpreted; then f g + p < not
      symbols.push_back(tm.make_symbol("x" + std::to_string(i), 0, ints, i == 5));
    symbols.insert(symbols.end(), {tm.make_symbol("f", 2, ints), tm.make_symbol("g", 1, ints),
                                   tm.make_symbol("+", 2, ints, true), tm.make_symbol("p", 1, b),
                                   tm.make_symbol("<", 2, b, true), tm.get_reserved_symbols()[2]});
    for (int i = 0; i < 6; ++i)
      terms.push_back(tm.make_term(symbols[static_cast<std::size_t>(i)]));
    for (int i = 0; i < 30; ++i) {  // a shared graph: children drawn from all terms so far
      Symbol const* s = symbols[6 + pick(6)];
      std::vector<Term_ const*> args;
      for (std::size_t k = 0; k < s->get_arity(); ++k)
        args.push_back(terms[terms.size() - 1 - pick(std::min<int>(8, int(terms.size())))]);
      terms.push_back(tm.make_term(s, args));
    }
    Term_ const* chain = terms[static_cast<std::size_t>(pick(6))];  // 2^depth paths
    for (int d = pick(11); d > 0; --d)
      chain = tm.make_term(symbols[6], {chain, terms[static_cast<std::size_t>(pick(6))]}),
      chain = tm.make_term(symbols[6], {chain, chain});
    terms.push_back(tm.make_term(symbols[9], {chain}));
    for (std::size_t i = 6; i < terms.size(); ++i)
      env.new_atom(terms[i]);  // Boolean or not, headed by a reserved symbol or not
    env.new_atom(nullptr);
    int const groups = 1 + pick(9);
    for (int i = pick(40); i >= -1; --i) {  // the last one beyond the host's atoms
      int const atom = i < 0 ? int(env.num_atoms()) + pick(2) : pick(int(env.num_atoms()));
      c.add_atom(atom, pick(groups));  // picks in a fixed order, whatever the compiler
    }
    positions.resize(static_cast<std::size_t>(1 + pick(8)));
    bool const sequence = pick(3) == 0;
    for (std::size_t i = 0; i < positions.size(); ++i) {
      if (sequence) positions[i].push_back(int(i));
      for (int k = sequence ? 0 : pick(4); k > 0; --k)
        positions[i].push_back(pick(groups + 4) - 2);
    }
    listed = pick(3) != 0;
    for (auto* list : {&others, &background})
      for (int k = listed ? pick(3) : 0; k > 0; --k)
        list->push_back(pick(groups + 4) - 2);
  }
  // The index under test; with listed groups, the classifier's other groups
  // are emptied after the build, which must not notice.
  CutIndex index() {
    if (!listed) return CutIndex(c, positions);
    CutIndex index(c, positions, others, background);
    std::set<int> counted(others.begin(), others.end());
    counted.insert(background.begin(), background.end());
    for (auto const& at : positions)
      counted.insert(at.begin(), at.end());
    for (int g = 0; g < int(c.get_groups().size()); ++g)
      if (counted.count(g) == 0) c.reset_group(g);
    return index;
  }
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }

  std::mt19937 rng;
  TermManager tm;
  Environment env;
  AtomClassifier c;
  std::vector<Symbol const*> symbols;
  std::vector<Term_ const*> terms;
  std::vector<std::vector<int>> positions;
  bool listed;
  std::vector<int> others, background;
};

template <class Symbols>
std::multiset<Symbol const*> bag(Symbols const& s) {
  return {s.begin(), s.end()};
}
std::tuple<std::size_t, std::size_t, std::size_t> tie(Counts const& c) {
  return {c.A, c.B, c.mixed};
}

TEST(CutIndex, EveryRangeAnswersAsTheClassifierAfterSetAGroups) {
  for (unsigned seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Instance in(seed);
    CutIndex index = in.index();
    int const n = int(index.size());
    std::set<int> held;  // distinct atoms of the groups, for the status counts
    for (auto const& g : in.c.get_groups())
      held.insert(g.atoms.begin(), g.atoms.end());
    std::vector<Counts> prefix;
    std::vector<Symbol const*> out;
    for (int first = n - 1; first >= 0; --first) {  // middle ranges first: walks before the memo
      for (int last = first; last < n; ++last) {
        std::vector<int> a = in.background;  // A's side
        for (int i = first; i <= last; ++i)
          for (int g : in.positions[std::size_t(i)])
            a.push_back(g);
        in.c.set_A_groups(a);
        std::multiset<Symbol const*> const a_symbols = bag(in.c.get_A_symbols());
        std::vector<unsigned char> flags = in.c.get_atom_AB_flags();
        std::map<Term_ const*, int> pure;  // 1 A-pure, 2 B-pure, 3 both
        for (Term_ const* t : in.terms)
          pure[t] = in.c.term_is_A_pure(t);
        for (int g : in.background)  // B's side
          a.erase(std::remove(a.begin(), a.end(), g), a.end());
        in.c.set_A_groups(a);
        for (Term_ const* t : in.terms)
          pure[t] |= 2 * in.c.term_is_B_pure(t);
        for (std::size_t i = 0; i < flags.size(); ++i)
          flags[i] = (flags[i] & 1) | (in.c.get_atom_AB_flags()[i] & 2);
        auto const status = [&pure](Term_ const* t) { return pure[t] & 2 ? 1 : 2 * !pure[t]; };

        for (Symbol const* s : in.symbols)
          for (bool interpreted : {false, true})
            ASSERT_EQ(index.symbol_is_common(s, first, last, interpreted),
                      (!interpreted && in.tm.is_interpreted(s)) ||
                          (a_symbols.count(s) != 0 && in.c.get_B_symbols().contains(s)));
        for (auto t = in.terms.rbegin(); t != in.terms.rend(); ++t) {  // roots first
          ASSERT_EQ(index.get_term_status(*t, first, last), status(*t));
          if (first > 0) continue;
          CutIndex::PrefixStatus const p = index.prefix_status(*t);
          ASSERT_EQ((last >= p.a_from) + 2 * (last < p.b_below), pure[*t]);
        }
        for (int atom = -1; atom <= int(in.env.num_atoms()) + 1; ++atom)
          ASSERT_EQ(index.get_atom_AB_flags(atom, first, last),
                    atom >= 0 && atom < int(flags.size()) ? flags[std::size_t(atom)] : 0);
        index.get_A_symbols(first, last, out);
        ASSERT_EQ(bag(out), a_symbols);
        index.get_B_symbols(first, last, out);
        ASSERT_EQ(bag(out), bag(in.c.get_B_symbols()));
        Counts expected;
        for (int atom : held) {
          if (atom >= int(in.env.num_atoms()) || in.env.atom_terms[std::size_t(atom)] == nullptr)
            continue;
          int const code = status(in.env.atom_terms[std::size_t(atom)]);
          ++(code == 0 ? expected.A : code == 1 ? expected.B : expected.mixed);
        }
        ASSERT_EQ(tie(index.status_counts(first, last)), tie(expected));
        if (first > 0) continue;
        if (prefix.empty()) prefix = index.prefix_status_counts();
        ASSERT_EQ(tie(prefix[std::size_t(last)]), tie(expected));
      }
    }
  }
}

// The groups outside the query given as holder counts answer as the same
// groups given as a list: every range, every prefix, every term and atom.
// The counts are built by adding every group and removing those that do not
// count again (and some that the index counts anyway), so both directions of
// their upkeep are exercised.
TEST(CutIndex, HolderCountsStandInForTheGroupsElsewhere) {
  for (unsigned seed = 1; seed <= 150; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Instance in(seed);
    int const groups = int(in.c.get_groups().size());
    std::vector<int> others = in.others, background = in.background;
    if (!in.listed)
      for (int g = 0; g < groups; ++g)
        others.push_back(g);
    std::set<int> live(others.begin(), others.end());
    live.insert(background.begin(), background.end());
    for (auto const& at : in.positions)
      live.insert(at.begin(), at.end());
    HolderCounts holders(in.c);
    for (int g = -1; g <= groups; ++g)
      holders.add(g);
    holders.add(0);
    // Groups the index counts anyway need not be in the counts.
    std::set<int> const elsewhere(others.begin(), others.end());
    for (int g = -1; g <= groups; ++g)
      if (live.count(g) == 0 || (elsewhere.count(g) == 0 && in.pick(3) == 0)) holders.remove(g);
    CutIndex listed(in.c, in.positions, others, background);
    CutIndex counted(in.c, in.positions, holders, background);
    int const n = int(listed.size());
    std::vector<Symbol const*> a, b;
    for (int first = n - 1; first >= 0; --first)
      for (int last = first; last < n; ++last) {
        for (Term_ const* t : in.terms)
          ASSERT_EQ(counted.get_term_status(t, first, last),
                    listed.get_term_status(t, first, last));
        for (Symbol const* s : in.symbols)
          ASSERT_EQ(counted.symbol_is_common(s, first, last, true),
                    listed.symbol_is_common(s, first, last, true));
        for (int atom = -1; atom <= int(in.env.num_atoms()); ++atom)
          ASSERT_EQ(counted.get_atom_AB_flags(atom, first, last),
                    listed.get_atom_AB_flags(atom, first, last));
        counted.get_A_symbols(first, last, a);
        listed.get_A_symbols(first, last, b);
        ASSERT_EQ(bag(a), bag(b));
        counted.get_B_symbols(first, last, a);
        listed.get_B_symbols(first, last, b);
        ASSERT_EQ(bag(a), bag(b));
        ASSERT_EQ(tie(counted.status_counts(first, last)), tie(listed.status_counts(first, last)));
      }
    for (Term_ const* t : in.terms) {
      ASSERT_EQ(counted.prefix_status(t).a_from, listed.prefix_status(t).a_from);
      ASSERT_EQ(counted.prefix_status(t).b_below, listed.prefix_status(t).b_below);
    }
    std::vector<Counts> const p = counted.prefix_status_counts(), q = listed.prefix_status_counts();
    for (std::size_t r = 0; r < q.size(); ++r)
      ASSERT_EQ(tie(p[r]), tie(q[r]));
    // Only what groups elsewhere alone hold is left out, and counted.
    std::map<Symbol const*, std::pair<int, int>> kept;
    for (auto const& e : counted.prefix_symbols())
      kept[e.symbol] = {e.prefix.a_from, e.prefix.b_below};
    std::size_t left_out = 0;
    for (auto const& e : listed.prefix_symbols()) {
      auto const it = kept.find(e.symbol);
      if (it != kept.end()) {
        ASSERT_EQ(it->second, std::make_pair(e.prefix.a_from, e.prefix.b_below));
        continue;
      }
      ASSERT_EQ(std::make_pair(e.prefix.a_from, e.prefix.b_below), std::make_pair(n, n));
      left_out += !in.tm.is_interpreted(e.symbol);
    }
    ASSERT_EQ(counted.only_elsewhere(), left_out);
    ASSERT_EQ(listed.only_elsewhere(), 0u);
  }
}

// A prefix walk that runs out of memory part way leaves nothing half-known:
// once memory is back, the answers are those of an index that never failed.
TEST(CutIndex, PrefixWalkRecoversFromAllocationFailure) {
  Instance in(2), fresh(2);  // a host whose walk, left half-known, would answer wrong
  CutIndex index(in.c, in.positions), reference(fresh.c, fresh.positions);
  for (std::size_t k = 1;; ++k) {
    test::FailureScope scope(k);
    try {
      index.prefix_status(in.terms.back());
      break;
    } catch (std::bad_alloc const&) {
    }
  }
  for (std::size_t i = 0; i < in.terms.size(); ++i) {
    CutIndex::PrefixStatus const p = index.prefix_status(in.terms[i]);
    CutIndex::PrefixStatus const q = reference.prefix_status(fresh.terms[i]);
    ASSERT_EQ(p.a_from, q.a_from);
    ASSERT_EQ(p.b_below, q.b_below);
  }
}

// Walks mark what they have seen: a chain with 2^21 paths, all of its
// symbols interpreted so that no walk stops early, costs its 21 nodes, in a
// range walk and once in the prefix walk. And the snapshot rule: an index
// that counts every group notices any change; one that counts listed groups
// only notices changes of those.
TEST(CutIndex, SharedSubtermsAreWalkedOnceAndGroupsMustNotChange) {
  Instance in(5);
  in.positions.resize(3);  // the range below must not start at 0: that is the memo's path
  Term_ const* chain = in.terms[5];
  for (int d = 0; d < 20; ++d)
    chain = in.tm.make_term(in.symbols[8], {chain, chain});
  CutIndex index(in.c, in.positions), listed(in.c, {{0}}, {});
  EXPECT_EQ(index.get_term_status(chain, 1, 2), 1);
  EXPECT_EQ(index.prefix_status(chain).b_below, 3);
  index.prefix_status(chain);
  EXPECT_EQ(index.terms_entered(), 42u);  // 21 in each walk, the second prefix call from the memo
  in.c.new_group_index();                 // ignored by `listed`
  EXPECT_FALSE(index.matches_groups());
  EXPECT_TRUE(listed.matches_groups());
  // A new symbol: group 0's symbol map grows.
  in.c.add_atom(in.env.new_atom(in.tm.make_term(in.tm.make_symbol("q", 0, in.tm.get_bool_type()))),
                0);
  EXPECT_FALSE(listed.matches_groups());
#ifndef NDEBUG
  EXPECT_DEATH(index.get_term_status(in.terms[0], 0, 0), "'get_term_status': groups changed");
  EXPECT_DEATH(listed.get_term_status(in.terms[0], 0, 1), "not below size");
#endif
}

}  // namespace
}  // namespace itp
}  // namespace orvo
