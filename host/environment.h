// The host environment that the classifier borrows: the term manager and the
// two tables that tie Boolean atom variables to terms.
#ifndef ORVO_ITP_HOST_ENVIRONMENT_H
#define ORVO_ITP_HOST_ENVIRONMENT_H

#include <cstddef>
#include <vector>

#include "containers/hash_table.h"
#include "host/term.h"

namespace orvo {

struct Environment {
  TermManager* term_manager = nullptr;
  std::vector<Term_ const*> atom_terms;        // atom variable -> term, null for none
  hsh::HashMap<Term_ const*, int> term_atoms;  // term -> atom variable, -1 for none

  // The number of atom variables.
  std::size_t num_atoms() const noexcept { return atom_terms.size(); }
  // The variable of `t`, made on first request. A null `t` makes a fresh
  // variable without a term every time.
  int new_atom(Term_ const* t);
};

}  // namespace orvo

#endif  // ORVO_ITP_HOST_ENVIRONMENT_H
