#include "smtlib/formula.h"

#include <unordered_map>
#include <unordered_set>

namespace orvo {
namespace smtlib {

namespace {

// The walks read z3's terms through its C interface: they are borrowed from
// the assertion, which holds them while the walk runs, so no handle (and no
// reference count) is made per visit.
class Terms {
 public:
  explicit Terms(Z3_context c) : c_(c) {}

  bool is_bool(Z3_ast a) const { return Z3_get_sort_kind(c_, Z3_get_sort(c_, a)) == Z3_BOOL_SORT; }
  // The kind of an application's head; false for anything else.
  bool kind(Z3_ast a, Z3_decl_kind& out) const {
    if (Z3_get_ast_kind(c_, a) != Z3_APP_AST) return false;
    out = Z3_get_decl_kind(c_, Z3_get_app_decl(c_, Z3_to_app(c_, a)));
    return true;
  }
  bool has_kind(Z3_ast a, Z3_decl_kind k) const {
    Z3_decl_kind got;
    return kind(a, got) && got == k;
  }
  unsigned num_args(Z3_ast a) const { return Z3_get_app_num_args(c_, Z3_to_app(c_, a)); }
  Z3_ast arg(Z3_ast a, unsigned i) const { return Z3_get_app_arg(c_, Z3_to_app(c_, a), i); }
  unsigned id(Z3_ast a) const { return Z3_get_ast_id(c_, a); }

  // Whether the assertion walk goes through `a` (a Boolean connective).
  bool is_connective(Z3_ast a) const {
    Z3_decl_kind k;
    if (!kind(a, k)) return false;
    switch (k) {
      case Z3_OP_NOT:
      case Z3_OP_AND:
      case Z3_OP_OR:
      case Z3_OP_IMPLIES:
      case Z3_OP_XOR:
      case Z3_OP_IFF:
        return true;
      case Z3_OP_ITE:
        return is_bool(a);
      case Z3_OP_EQ:
      case Z3_OP_DISTINCT:
        return num_args(a) > 0 && is_bool(arg(a, 0));
      default:
        return false;
    }
  }
  bool is_atom(Z3_ast a) const {
    return is_bool(a) && !is_connective(a) && !has_kind(a, Z3_OP_TRUE) && !has_kind(a, Z3_OP_FALSE);
  }

 private:
  Z3_context c_;
};

}  // namespace

bool is_atom(z3::expr const& e) {
  return Terms(e.ctx()).is_atom(e);
}

Formula split_formula(z3::expr const& assertion) {
  Formula out;
  Terms const t(assertion.ctx());
  std::unordered_map<unsigned, std::size_t> atom_index;  // ast id -> index into out.atoms
  std::unordered_set<unsigned> seen;
  std::vector<Z3_ast> stack;
  {
    // Left to right, each distinct subterm once.
    stack.push_back(assertion);
    while (!stack.empty()) {
      Z3_ast const e = stack.back();
      stack.pop_back();
      if (!seen.insert(t.id(e)).second) continue;
      ++out.visits;
      if (t.is_connective(e)) {
        for (unsigned i = t.num_args(e); i-- > 0;)
          stack.push_back(t.arg(e, i));
      } else if (t.is_atom(e)) {
        atom_index.emplace(t.id(e), out.atoms.size());
        out.atoms.emplace_back(assertion.ctx(), e);
      }
    }
  }
  // Every literal's atom was met above: the walk goes through and, or, not.
  auto literal = [&](Z3_ast e, std::vector<Literal>& clause) {
    bool const negated = t.has_kind(e, Z3_OP_NOT);
    Z3_ast const atom = negated ? t.arg(e, 0) : e;
    if (!t.is_atom(atom)) return false;
    clause.push_back(Literal{atom_index.at(t.id(atom)), negated});
    return true;
  };
  seen.clear();
  stack.push_back(assertion);
  std::vector<Literal> clause;
  while (!stack.empty()) {
    Z3_ast const e = stack.back();
    stack.pop_back();
    if (!seen.insert(t.id(e)).second) continue;
    ++out.visits;
    if (t.has_kind(e, Z3_OP_AND)) {
      for (unsigned i = t.num_args(e); i-- > 0;)
        stack.push_back(t.arg(e, i));
      continue;
    }
    clause.clear();
    bool is_clause = literal(e, clause);
    if (!is_clause && t.has_kind(e, Z3_OP_OR)) {
      is_clause = true;
      for (unsigned i = 0, n = t.num_args(e); is_clause && i < n; ++i)
        is_clause = literal(t.arg(e, i), clause);
    }
    if (is_clause) out.clauses.push_back(clause);
  }
  return out;
}

}  // namespace smtlib
}  // namespace orvo
