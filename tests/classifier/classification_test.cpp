// Registration, clauses, partition choice, symbol sets and term queries.
#include "classifier/fixture.h"

namespace orvo {
namespace test {
namespace {

std::vector<std::string> hook_messages;

TEST_F(ClassifierTest, MissingGroupThrowsBaseExceptionAndChangesNothing) {
  c.add_atom(3, 0);
  c.push_backtrack_point();
  dpll::Clause* c5 = clause(5, 1);
  hook_messages.clear();
  AssertionHandler previous =
      set_assertion_handler([](Exception const& e) { hook_messages.push_back(e.what()); });
  EXPECT_EQ(thrown_by([&] { c.add_atom(5, -1); }), "No interpolation group for atom: 5");
  EXPECT_EQ(thrown_by([&] { c.add_clause(c5, -1); }),
            "No interpolation group for clause: C5(1 ~2 S:A L:-1 lrnt:0)");
  set_assertion_handler(previous);
  EXPECT_EQ(hook_messages, (std::vector<std::string>{"No interpolation group for atom: ",
                                                     "No interpolation group for clause: "}));
  EXPECT_TRUE(c.get_groups().size() == 1 && trail() == 1 && !c.has_atom(5));
  EXPECT_TRUE(c.get_groups()[0].clauses.empty() && c5->ref_count() == 1);
  std::free(c5);
}

TEST_F(ClassifierTest, SymbolCountsFollowRegistrations) {
  int const xy = atom(lt(x, y)), yz = atom(lt(y, z));
  add(0, {xy});
  EXPECT_EQ(counts(0), (Counts{{"<", 1}, {"x", 1}, {"y", 1}}));
  add(0, {yz});
  EXPECT_EQ(counts(0), (Counts{{"<", 2}, {"x", 1}, {"y", 2}, {"z", 1}}));
  c.update_symbols(0, xy, false);
  EXPECT_EQ(counts(0), (Counts{{"<", 1}, {"y", 1}, {"z", 1}}));
  c.update_symbols(0, xy, false);  // x has no entry left: ignored, nothing wraps
  EXPECT_EQ(counts(0), (Counts{{"z", 1}}));
  add(1, {yz, yz});
  EXPECT_EQ(counts(1), (Counts{{"<", 2}, {"y", 2}, {"z", 2}}));
  add(2, {atom(term("p", {term("f", {term("f", {x})})}, true))});
  EXPECT_EQ(counts(2), (Counts{{"p", 1}, {"f", 1}, {"x", 1}}));

  // Negative, beyond the table, no term, non-Boolean term, headed by `not`.
  int const no_term = atom(nullptr), number = atom(term("f", {x}));
  int const negation =
      atom(tm.make_term(tm.make_symbol("not", 1, tm.get_bool_type()), {term("p", {x}, true)}));
  for (int a : {-5, 1000, no_term, number, negation}) {
    add(3, {a});
    c.update_symbols(3, a, true);
    EXPECT_TRUE(c.has_atom(a, 3) && counts(3).empty()) << a;
  }
}

TEST_F(ClassifierTest, TermWalkLeavesNoMarksEvenWhenItFails) {
  Term_ const* chain = term("a");  // each node has the same child twice: 2^40 paths
  for (int i = 0; i < 40; ++i)
    chain = term("g", {chain, chain});
  EXPECT_EQ(names(c.get_term_symbols(term("h", {x, y}))), (Names{"h", "x", "y"}));
  EXPECT_EQ(names(c.get_term_symbols(chain)), (Names{"g", "a"}));
  EXPECT_TRUE(c.check_invariants());

  itp::AtomClassifier fresh;  // its marks, stack and set have not grown yet
  fresh.set_env(&env);
  Term_ const* wide = term("k", {chain, term("h", {y, z}), term("h", {x, x}), chain});
  std::size_t k = 0;
  std::string outcome;
  do {
    FailureScope scope(++k);
    outcome = thrown_by([&] { fresh.get_term_symbols(wide); });
    fail_allocation(0);
    ASSERT_TRUE(fresh.check_invariants()) << "failing allocation " << k;
  } while (outcome == "std::bad_alloc");
  EXPECT_TRUE(k > 3 && outcome == "nothing");
  std::size_t const calls = malloc_calls();  // the scratch storage has grown: no allocation
  fresh.get_term_symbols(chain);
  fresh.get_term_symbols(wide);
  EXPECT_EQ(malloc_calls(), calls);
  EXPECT_EQ(names(fresh.get_term_symbols(wide)), (Names{"k", "g", "a", "h", "x", "y", "z"}));
  fresh.add_atom(atom(lt(x, z)), 0);
  EXPECT_EQ(fresh.get_groups()[0].symbols.size(), 3u);
}

TEST_F(ClassifierTest, ClauseReferencesKeepFlagsAndFollowMemberships) {
  dpll::Clause* both = clause(1, 5, true, true);
  c.add_clause(both, 1);
  c.add_clause(both, 1);
  EXPECT_TRUE(c.get_groups()[1].clauses.size() == 1 && both->ref_count() == 7);
  c.reset_group(1);
  EXPECT_TRUE(both->ref_count() == 6 && both->is_learnt() && both->has_t_flag());
  std::free(both);

  forget_frees();
  dpll::Clause *two = clause(2, 0, true), *three = clause(3, 1, false, true);
  {
    itp::AtomClassifier local;
    for (int g : {0, 3})
      for (dpll::Clause* cl : {two, three})
        local.add_clause(cl, g);
    local.push_backtrack_point();
    local.add_clause(three, 5);  // its cell returns nothing at destruction
    EXPECT_TRUE(two->ref_count() == 2 && three->ref_count() == 4);
  }
  EXPECT_TRUE(was_freed(two) && !was_freed(three));
  EXPECT_TRUE(three->ref_count() == 1 && three->has_t_flag() && !three->is_learnt());
  std::free(three);
}

TEST_F(ClassifierTest, PartitionChoiceBuildsSetsAndFlags) {
  atom(nullptr);
  int const a1 = atom(term("f", {x}, true)), a2 = atom(nullptr), a3 = atom(term("f", {y}, true));
  atom(nullptr);
  add(0, {a1, a2});
  add(1, {a2, a3});
  c.set_A_groups({0});
  EXPECT_EQ(names(c.get_A_symbols()), (Names{"f", "x"}));
  EXPECT_EQ(names(c.get_B_symbols()), (Names{"f", "y"}));
  EXPECT_EQ(c.get_atom_AB_flags(), (std::vector<unsigned char>{0, 1, 3, 2, 0}));

  dpll::Clause* cl = clause(4, 0);
  add(4, {cl});
  c.set_A_groups({2, 2, -1, 7});
  ASSERT_TRUE(c.get_groups().size() == 5 && c.get_A_groups().size() == 1);
  EXPECT_EQ(*c.get_A_groups().begin(), 2);
  EXPECT_TRUE(!c.is_of_A(cl) && c.is_of_B(cl));

  c.push_backtrack_point();
  c.set_frontier(6);  // grows the groups without recording a cell
  EXPECT_EQ(trail(), 1u);
  c.pop_backtrack_point();
  EXPECT_TRUE(c.get_groups().size() == 7 && c.get_A_groups().size() == 7);
  EXPECT_TRUE(c.is_of_A(cl) && !c.is_of_B(cl));
}

TEST_F(ClassifierTest, SymbolSetsGoStaleOnlyWhenGroupContentsChange) {
  int const xy = atom(lt(x, y));
  dpll::Clause* cl = clause(6, 0);  // freed by the final gc(true)
  add(1, {xy});
  std::vector<std::pair<bool, std::function<void()>>> const steps = {
      {true, [&] { c.add_atom(xy, 0); }},
      {true, [&] { c.add_clause(cl, 0); }},
      {true, [&] { c.reset_group(1); }},
      {true, [&] { c.add_atom_to_same_groups(9, 99); }},
      {false, [&] { c.new_group_index(); }},
      {false, [&] { c.add_btpoint_atom(4); }},
      {false, [&] { c.add_temporary_A_atom(4); }},
      {false, [&] { (void)c.get_term_status(x), (void)c.get_compatible_groups(x, true); }},
      {false, [&] { c.push_backtrack_point(); }},
      {true, [&] { c.pop_backtrack_point(); }},
      {true, [&] { c.gc(false); }},
      {true, [&] { c.gc(true); }},
  };
  for (std::size_t i = 0; i < steps.size(); ++i) {
    c.set_A_groups({0});
    steps[i].second();
    EXPECT_EQ(c.symbols_sets_valid(), !steps[i].first) << "step " << i;
  }
}

TEST_F(ClassifierTest, TermStatusAndGroupQueries) {
  Term_ const* cc = term("c");
  Term_ const* one = term("1", {}, false, true);
  auto f = [&](Term_ const* a, Term_ const* b) { return term("f", {a, b}); };
  auto plus = [&](Term_ const* a, Term_ const* b) { return term("+", {a, b}, false, true); };
  add(0, {atom(eq(f(x, cc), x))});
  add(1, {atom(eq(f(y, cc), y))});
  add(2, {atom(eq(z, z))});
  c.set_A_groups({0});
  EXPECT_EQ(c.get_term_status(f(x, x)), 0);
  EXPECT_EQ(c.get_term_status(f(y, y)), 1);
  EXPECT_EQ(c.get_term_status(f(x, y)), 2);
  EXPECT_EQ(c.get_term_status(f(cc, cc)), 1);
  EXPECT_TRUE(c.term_is_A_pure(plus(x, one)));  // + and 1 are interpreted
  Symbol const* numeral = one->get_symbol();    // interpreted, in neither set
  EXPECT_TRUE(c.symbol_is_common(numeral, false) && !c.symbol_is_common(numeral, true));
  EXPECT_TRUE(c.symbol_is_common(cc->get_symbol(), true) &&
              !c.symbol_is_common(x->get_symbol(), true));

  EXPECT_TRUE(c.term_is_mixed(f(x, x)));     // pure for group 0 only
  EXPECT_FALSE(c.term_is_mixed(f(cc, cc)));  // pure for groups 0 and 1
  Term_ const* registered = eq(f(x, y), z);  // impure for every group
  EXPECT_TRUE(c.term_is_mixed(registered));
  add(2, {atom(registered)});
  EXPECT_FALSE(c.term_is_mixed(registered));

  EXPECT_EQ(c.new_group_index(), 3);
  EXPECT_EQ(c.get_compatible_groups(f(cc, cc), false), (std::vector<int>{0, 1}));
  EXPECT_EQ(c.get_compatible_groups(plus(one, one), false), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_TRUE(c.get_compatible_groups(plus(one, one), true).empty());
  EXPECT_TRUE(!c.are_compatible(cc, z, false) && c.are_compatible(f(x, x), cc, false));

  // The partition snapshot lags behind the groups until the next choice.
  add(0, {atom(eq(z, x))});
  EXPECT_EQ(c.get_compatible_groups(z, false), (std::vector<int>{0, 2}));
  EXPECT_FALSE(c.term_is_A_pure(z));
  c.set_A_groups({0});
  EXPECT_TRUE(c.term_is_A_pure(z) && c.check_invariants());
}

}  // namespace
}  // namespace test
}  // namespace orvo

namespace orvo {
namespace test {
namespace {

// Calls outside an operation's contract stop a debug build with a message
// naming the operation and the bad value; release builds do not check.
TEST_F(ClassifierTest, ContractViolationsStopDebugBuilds) {
#ifdef NDEBUG
  GTEST_SKIP() << "contract checks are compiled out with NDEBUG";
#else
  c.new_group_index();
  EXPECT_DEATH(c.reset_group(7), "invalid API usage of 'reset_group'.* 7");
  EXPECT_DEATH(c.has_atom(1, 1), "invalid API usage of 'has_atom'.* 1");
  EXPECT_DEATH(c.get_term_symbols(nullptr), "invalid API usage of 'get_term_symbols': null term");
  EXPECT_DEATH(c.get_term_status(nullptr), "invalid API usage of 'term_is_pure': null term");
#endif
}

}  // namespace
}  // namespace test
}  // namespace orvo
