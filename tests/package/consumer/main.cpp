// Every public header compiles on its own from an install prefix, and the
// installed library links: group 0 gets an atom, partition A = {0}.
#include "classifier/atom_classifier.h"
#include "containers/hash_table.h"
#include "host/host.h"
#include "support/clause_printer.h"
#include "support/exception.h"
#include "support/sort.h"

int main() {
  orvo::TermManager tm;
  orvo::Environment env;
  env.term_manager = &tm;
  orvo::itp::AtomClassifier c;
  c.set_env(&env);
  orvo::Symbol const* p = tm.make_symbol("p", 0, tm.get_bool_type());
  c.add_atom(env.new_atom(tm.make_term(p)), 0);
  c.set_frontier(0);
  return c.get_atom_AB_flags().at(0) == 1 ? 0 : 1;
}
