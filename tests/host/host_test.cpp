// Host stand-in: the model-based test runs on it, so its faults would be
// shared by both sides of that comparison and are checked here instead:
// hash-consed terms with dense ids, the reserved Boolean symbols, atom
// variables of the environment, and the order of the marked term walk.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "host/host.h"

namespace {

using orvo::Term_;
using Terms = std::vector<Term_ const*>;

TEST(Host, TermsIdsReservedSymbolsAtomsAndWalkOrder) {
  orvo::TermManager tm;
  orvo::Type const* u = tm.make_type("U");
  orvo::Symbol const* g = tm.make_symbol("g", 2, u);
  EXPECT_EQ(tm.make_type("U"), u);
  EXPECT_EQ(tm.make_symbol("g", 2, u), g);
  EXPECT_FALSE(tm.is_interpreted(g));
  Term_ const* a = tm.make_term(tm.make_symbol("a", 0, u));
  Term_ const* b = tm.make_term(tm.make_symbol("b", 0, u));
  EXPECT_THROW(tm.make_term(g, {a}), std::invalid_argument);
  EXPECT_THROW(tm.make_term(g, {a, nullptr}), std::invalid_argument);
  Term_ const* x = tm.make_term(g, {a, b});
  Term_ const* y = tm.make_term(g, {b, a});
  Term_ const* r = tm.make_term(g, {x, y});
  EXPECT_EQ(tm.make_term(g, {a, b}), x);
  EXPECT_EQ(r->get_child(1), y);
  EXPECT_EQ((std::vector<std::uint64_t>{a->get_id(), x->get_id(), r->get_id(), tm.num_terms()}),
            (std::vector<std::uint64_t>{0, 2, 4, 5}));  // failed calls take no id
  char const* const names[] = {"true", "false", "not", "and", "or", "iff"};
  for (int i = 0; i < 6; ++i) {
    orvo::Symbol const* s = tm.get_reserved_symbols()[i];
    EXPECT_EQ(s->get_name(), names[i]);
    EXPECT_EQ(s->get_output_type(), tm.get_bool_type()) << names[i];
    EXPECT_TRUE(tm.is_interpreted(s)) << names[i];
    EXPECT_TRUE(tm.is_reserved(s)) << names[i];
  }

  orvo::Environment env;
  EXPECT_EQ(
      (std::vector<int>{env.new_atom(a), env.new_atom(nullptr), env.new_atom(a), env.new_atom(b)}),
      (std::vector<int>{0, 1, 0, 2}));
  EXPECT_EQ(env.atom_terms, (Terms{a, nullptr, b}));
  EXPECT_EQ(env.num_atoms(), 3u);
  EXPECT_EQ(env.term_atoms.size(), 2u);
  EXPECT_EQ(env.term_atoms[b], 2);

  Terms order;  // root first, children last to first; a finished term is not entered again
  auto record = [&order](Term_ const* t) { order.push_back(t); };
  std::vector<bool> marks;
  orvo::TermVisitor<decltype(record)> marked(record, true, &marks);
  marked.visit(x);
  marked.visit(r);
  EXPECT_EQ(order, (Terms{x, b, a, r, y}));
  EXPECT_EQ(marked.marked(), order);
  orvo::TermVisitor<decltype(record)>::clear_marks(marks, marked.marked());
  EXPECT_TRUE(std::find(marks.begin(), marks.end(), true) == marks.end());
}

}  // namespace
