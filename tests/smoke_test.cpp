#include <gtest/gtest.h>

#include "classifier/atom_classifier.h"
#include "host/host.h"
#include "support/clause_printer.h"
#include "support/sort.h"

TEST(Smoke, Builds) {
  orvo::TermManager tm;
  orvo::Environment env;
  env.term_manager = &tm;
  orvo::itp::AtomClassifier c;
  c.set_env(&env);
  auto* x = tm.make_symbol("x", 0, tm.make_type("Int"));
  auto* lt = tm.make_symbol("<", 2, tm.get_bool_type(), true);
  auto* t = tm.make_term(lt, {tm.make_term(x), tm.make_term(x)});
  c.add_atom(env.new_atom(t), 0);
  c.set_frontier(0);
  EXPECT_EQ(c.get_term_status(t), 0);  // A = {0}, B has no symbols
  EXPECT_TRUE(c.check_invariants());
}
