// Host stand-in: shared names, hash-consed terms with dense ids, the reserved
// Boolean symbols, atom variables of the environment, and the term visitor.
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "host/host.h"

namespace {

using orvo::Term_;
using Terms = std::vector<Term_ const*>;

TEST(Host, SharedNamesHashConsedTermsDenseIdsAndReservedSymbols) {
  orvo::TermManager tm;
  orvo::Type const* u = tm.make_type("U");
  orvo::Symbol const* f = tm.make_symbol("f", 2, u);
  EXPECT_TRUE(tm.make_type("U") == u && tm.make_symbol("f", 2, u) == f && !tm.is_interpreted(f));
  Term_ const* a = tm.make_term(tm.make_symbol("a", 0, u));
  Term_ const* faa = tm.make_term(f, {a, a});
  EXPECT_THROW(tm.make_term(f, {a}), std::invalid_argument);
  EXPECT_THROW(tm.make_term(f, {a, nullptr}), std::invalid_argument);
  Term_ const* ffa = tm.make_term(f, {faa, a});
  EXPECT_TRUE(tm.make_term(f, {a, a}) == faa && ffa->get_child(0) == faa && ffa->get_child(1) == a);
  EXPECT_EQ((std::vector<std::uint64_t>{a->get_id(), faa->get_id(), ffa->get_id(), tm.num_terms()}),
            (std::vector<std::uint64_t>{0, 1, 2, 3}));  // failed calls take no id

  char const* const names[] = {"true", "false", "not", "and", "or", "iff"};
  for (int i = 0; i < 6; ++i) {
    orvo::Symbol const* r = tm.get_reserved_symbols()[i];
    EXPECT_EQ(r->get_name(), names[i]);
    EXPECT_TRUE(r->get_output_type() == tm.get_bool_type() && tm.is_interpreted(r) &&
                tm.is_reserved(r));
  }
}

TEST(Host, EnvironmentAtomsAndTermVisitorOrder) {
  orvo::TermManager tm;
  orvo::Type const* u = tm.make_type("U");
  orvo::Symbol const* g = tm.make_symbol("g", 2, u);
  Term_ const* a = tm.make_term(tm.make_symbol("a", 0, u));
  Term_ const* b = tm.make_term(tm.make_symbol("b", 0, u));
  Term_ const* faa = tm.make_term(tm.make_symbol("f", 2, u), {a, a});
  Term_ const* x = tm.make_term(g, {a, b});
  Term_ const* y = tm.make_term(g, {b, a});
  Term_ const* r = tm.make_term(tm.make_symbol("h", 2, u), {x, y});

  orvo::Environment env;
  EXPECT_EQ((std::vector<int>{env.new_atom(a), env.new_atom(nullptr), env.new_atom(nullptr),
                              env.new_atom(a), env.new_atom(b)}),
            (std::vector<int>{0, 1, 2, 0, 3}));
  EXPECT_EQ(env.atom_terms, (Terms{a, nullptr, nullptr, b}));
  EXPECT_TRUE(env.num_atoms() == 4 && env.term_atoms.size() == 2 && env.term_atoms[b] == 3);

  Terms order;  // the callback records the order of entry
  auto record = [&order](Term_ const* t) { order.push_back(t); };
  std::vector<bool> marks;
  orvo::TermVisitor<decltype(record)> marked(record, true, &marks);
  marked.visit(faa);
  marked.visit(r);  // root first, children last to first; a is already finished
  EXPECT_EQ(order, (Terms{faa, a, r, y, b, x}));
  EXPECT_EQ(marked.marked(), order);
  order.clear();
  orvo::TermVisitor<decltype(record)>(record, false, &marks).visit(r);  // once per path
  EXPECT_EQ(order, (Terms{r, y, a, b, x, b, a}));
}

}  // namespace
