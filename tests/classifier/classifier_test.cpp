// What the model-based test cannot show: a full collection that frees a clause
// a still-open level names (a double free the model would only see as a
// crash), the symbol walk staying linear on heavily shared terms, and one
// contract check of each kind in builds without NDEBUG.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "classifier/atom_classifier.h"
#include "fault/alloc_hook.h"
#include "host/host.h"

namespace orvo {
namespace {

class Classifier : public ::testing::Test {
 protected:
  Classifier() {
    env.term_manager = &tm;
    c.set_env(&env);
  }
  Term_ const* term(std::string const& name, std::vector<Term_ const*> const& args = {},
                    bool boolean = false) {
    Type const* type = boolean ? tm.get_bool_type() : tm.make_type("Int");
    return tm.make_term(tm.make_symbol(name, args.size(), type), args);
  }
  // The clause "1 ~2" numbered `number`, carrying `refs` host references.
  static dpll::Clause* clause(int number, unsigned refs) {
    return dpll::make_clause(number, {dpll::make_literal(1, false), dpll::make_literal(2, true)},
                             refs);
  }

  TermManager tm;
  Environment env;
  itp::AtomClassifier c;
};

TEST_F(Classifier, FullCollectionStrikesTrailCellsOfFreedClauses) {
  test::forget_frees();
  dpll::Clause *released = clause(10, 1), *kept = clause(11, 1);
  int const atom = env.new_atom(term("p", {term("x")}, true));
  c.push_backtrack_point();
  c.add_clause(released, 0);
  c.add_atom(atom, 0);
  c.add_clause(kept, 0);
  dpll::release_reference(released);  // only the classifier's reference is left
  c.gc(true);
  EXPECT_TRUE(test::was_freed(released));
  EXPECT_FALSE(test::was_freed(kept));
  EXPECT_EQ(c.get_undo_trail().size(), 3u);  // marker, atom, kept
  c.pop_backtrack_point();                   // must not release `released` again
  EXPECT_FALSE(c.has_atom(atom, 0));
  EXPECT_TRUE(c.get_groups()[0].clauses.empty());
  EXPECT_EQ(kept->ref_count(), 1u);
  EXPECT_TRUE(c.check_invariants());
  dpll::release_reference(kept);
}

// Each node has the same child twice: 2^20 paths, 21 distinct subterms. The
// walk enters each subterm once, leaves every mark clear, and once its
// scratch storage has grown, allocates nothing.
TEST_F(Classifier, SymbolWalkIsLinearInDistinctSubterms) {
  Term_ const* chain = term("a");
  for (int i = 0; i < 20; ++i)
    chain = term("g", {chain, chain});
  Term_ const* wide = term("k", {chain, term("b")});
  EXPECT_EQ(c.get_term_symbols(wide).size(), 4u);
  EXPECT_EQ(c.terms_entered(), 23u);
  EXPECT_TRUE(c.check_invariants());
  std::size_t const calls = test::malloc_calls();  // the scratch storage has grown
  c.get_term_symbols(chain);
  c.get_term_symbols(wide);
  EXPECT_EQ(test::malloc_calls(), calls);
}

// Calls outside an operation's contract stop a build without NDEBUG with a
// message naming the operation and the bad value.
TEST_F(Classifier, ContractViolationsStopCheckedBuilds) {
#ifdef NDEBUG
  GTEST_SKIP() << "contract checks are compiled out with NDEBUG";
#else
  c.new_group_index();
  // A group that does not exist, a bad atom, a group index out of range, a
  // null argument, no environment.
  EXPECT_DEATH(c.reset_group(7), "invalid API usage of 'reset_group'.* 7");
  EXPECT_DEATH(c.add_atom(-1, 0), "invalid API usage of 'add_atom': atom -1");
  EXPECT_DEATH(c.add_atom(0, 1 << 30), "'add_atom': group index at or above 2\\^30");
  EXPECT_DEATH(c.get_term_status(nullptr), "invalid API usage of 'term_is_pure': null term");
  itp::AtomClassifier unset;
  EXPECT_DEATH(unset.set_frontier(0), "'build_symbols_sets': no environment set");
#endif
}

}  // namespace
}  // namespace orvo
