#include "smtlib/formula.h"

#include <unordered_map>
#include <unordered_set>

namespace orvo {
namespace smtlib {

namespace {

bool is_bool(z3::expr const& e) {
  return e.get_sort().sort_kind() == Z3_BOOL_SORT;
}

bool has_kind(z3::expr const& e, Z3_decl_kind kind) {
  return e.is_app() && e.decl().decl_kind() == kind;
}

// Whether the assertion walk goes through `e` (a Boolean connective).
bool is_connective(z3::expr const& e) {
  if (!e.is_app()) return false;
  switch (e.decl().decl_kind()) {
    case Z3_OP_NOT:
    case Z3_OP_AND:
    case Z3_OP_OR:
    case Z3_OP_IMPLIES:
    case Z3_OP_XOR:
    case Z3_OP_IFF:
      return true;
    case Z3_OP_ITE:
      return is_bool(e);
    case Z3_OP_EQ:
    case Z3_OP_DISTINCT:
      return e.num_args() > 0 && is_bool(e.arg(0));
    default:
      return false;
  }
}

bool is_constant(z3::expr const& e) {
  return has_kind(e, Z3_OP_TRUE) || has_kind(e, Z3_OP_FALSE);
}

}  // namespace

bool is_atom(z3::expr const& e) {
  return is_bool(e) && !is_connective(e) && !is_constant(e);
}

Formula split_formula(z3::expr const& assertion) {
  Formula out;
  std::unordered_map<unsigned, std::size_t> atom_index;  // ast id -> index into out.atoms
  {
    // Left to right, each distinct subterm once.
    std::unordered_set<unsigned> seen;
    std::vector<z3::expr> stack{assertion};
    while (!stack.empty()) {
      z3::expr const e = stack.back();
      stack.pop_back();
      if (!seen.insert(e.id()).second) continue;
      ++out.visits;
      if (is_connective(e)) {
        for (unsigned i = e.num_args(); i-- > 0;)
          stack.push_back(e.arg(i));
      } else if (is_atom(e)) {
        atom_index.emplace(e.id(), out.atoms.size());
        out.atoms.push_back(e);
      }
    }
  }
  // Every literal's atom was met above: the walk goes through and, or, not.
  auto literal = [&](z3::expr const& e, std::vector<Literal>& clause) {
    bool const negated = has_kind(e, Z3_OP_NOT);
    z3::expr const atom = negated ? e.arg(0) : e;
    if (!is_atom(atom)) return false;
    clause.push_back(Literal{atom_index.at(atom.id()), negated});
    return true;
  };
  std::unordered_set<unsigned> seen;
  std::vector<z3::expr> stack{assertion};
  std::vector<Literal> clause;
  while (!stack.empty()) {
    z3::expr const e = stack.back();
    stack.pop_back();
    if (!seen.insert(e.id()).second) continue;
    ++out.visits;
    if (has_kind(e, Z3_OP_AND)) {
      for (unsigned i = e.num_args(); i-- > 0;)
        stack.push_back(e.arg(i));
      continue;
    }
    clause.clear();
    bool is_clause = literal(e, clause);
    if (!is_clause && has_kind(e, Z3_OP_OR)) {
      is_clause = true;
      for (unsigned i = 0; is_clause && i < e.num_args(); ++i)
        is_clause = literal(e.arg(i), clause);
    }
    if (is_clause) out.clauses.push_back(clause);
  }
  return out;
}

}  // namespace smtlib
}  // namespace orvo
