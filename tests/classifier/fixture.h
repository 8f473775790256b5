// Shared fixture of the classifier's hand-written tests: a term manager, an
// environment whose atoms are made on demand, and a classifier bound to it.
#ifndef ORVO_ITP_TESTS_CLASSIFIER_FIXTURE_H
#define ORVO_ITP_TESTS_CLASSIFIER_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <iostream>
#include <map>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "classifier/atom_classifier.h"
#include "host/host.h"
#include "support/alloc_hook.h"

namespace orvo {
namespace test {

using Counts = std::map<std::string, unsigned>;
using Names = std::set<std::string>;

class ClassifierTest : public ::testing::Test {
 protected:
  ClassifierTest() {
    env.term_manager = &tm;
    c.set_env(&env);
  }

  // The term `name`(`args`...): Int-valued unless `boolean`, uninterpreted unless `interpreted`.
  Term_ const* term(std::string const& name, std::vector<Term_ const*> const& args = {},
                    bool boolean = false, bool interpreted = false) {
    Type const* type = boolean ? tm.get_bool_type() : int_type;
    return tm.make_term(tm.make_symbol(name, args.size(), type, interpreted), args);
  }
  Term_ const* lt(Term_ const* a, Term_ const* b) { return term("<", {a, b}, true, true); }
  Term_ const* eq(Term_ const* a, Term_ const* b) { return term("=", {a, b}, true, true); }
  int atom(Term_ const* t) { return env.new_atom(t); }
  void add(int group, std::initializer_list<int> atoms) {
    for (int a : atoms)
      c.add_atom(a, group);
  }
  void add(int group, std::initializer_list<dpll::Clause*> clauses) {
    for (dpll::Clause* cl : clauses)
      c.add_clause(cl, group);
  }
  std::size_t trail() const { return c.get_undo_trail().size(); }

  Counts counts(std::size_t group) const {
    Counts out;
    for (auto const& entry : c.get_groups()[group].symbols)
      out[entry.first->get_name()] = entry.second;
    return out;
  }
  static Names names(hsh::HashSet<Symbol const*> const& symbols) {
    Names out;
    for (Symbol const* s : symbols)
      out.insert(s->get_name());
    return out;
  }
  bool in_group(dpll::Clause const* clause, std::size_t group) const {
    auto const& set = c.get_groups()[group].clauses;
    return set.find(clause) != set.end();
  }

  // The clause "1 ~2" numbered `number`, carrying `refs` host references.
  static dpll::Clause* clause(int number, unsigned refs, bool learnt = false, bool t = false) {
    return dpll::make_clause(number, {dpll::make_literal(1, false), dpll::make_literal(2, true)},
                             refs, learnt, t);
  }
  // The host gives back one of its references, freeing the clause at zero.
  static void drop(dpll::Clause* clause) { dpll::release_reference(clause); }

  // What `op` throws: a plain orvo::Exception's text, or the name of another type.
  static std::string thrown_by(std::function<void()> const& op) {
    try {
      op();
    } catch (itp::AtomClassifier::error const&) {
      return "AtomClassifier::error";
    } catch (Exception const& e) {
      return e.what();
    } catch (std::bad_alloc const&) {
      return "std::bad_alloc";
    }
    return "nothing";
  }

  std::string dump() {
    std::ostringstream out;
    std::streambuf* previous = std::cout.rdbuf(out.rdbuf());
    c.debug_dump();
    std::cout.rdbuf(previous);
    return out.str();
  }

  TermManager tm;
  Type const* int_type = tm.make_type("Int");
  Environment env;
  itp::AtomClassifier c;
  Term_ const* x = term("x");
  Term_ const* y = term("y");
  Term_ const* z = term("z");
};

}  // namespace test
}  // namespace orvo

#endif  // ORVO_ITP_TESTS_CLASSIFIER_FIXTURE_H
