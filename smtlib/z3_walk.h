// The one walk over z3 terms that the reader's definition expansion and the
// host-term conversion share: post-order over the distinct subterms, with an
// explicit stack. A quantifier's one child is its body (its patterns are not
// walked), an application's children are its arguments, a bound variable has
// none.
#ifndef ORVO_ITP_SMTLIB_Z3_WALK_H
#define ORVO_ITP_SMTLIB_Z3_WALK_H

#include <z3++.h>

#include <utility>
#include <vector>

namespace orvo {
namespace smtlib {

inline unsigned num_children(z3::expr const& e) {
  return e.kind() == Z3_QUANTIFIER_AST ? 1u : e.is_app() ? e.num_args() : 0u;
}
inline z3::expr child(z3::expr const& e, unsigned i) {
  return e.kind() == Z3_QUANTIFIER_AST ? e.body() : e.arg(i);
}

// Calls visit(e) once for every subterm e of `root` for which done(e) is
// false, after all of e's children; visit must make done(e) true.
template <class Done, class Visit>
void post_order(z3::expr const& root, Done done, Visit visit) {
  std::vector<std::pair<z3::expr, bool>> stack;  // term, children scheduled
  stack.emplace_back(root, false);
  while (!stack.empty()) {
    z3::expr const e = stack.back().first;
    if (done(e)) {
      stack.pop_back();
      continue;
    }
    unsigned const n = num_children(e);
    if (!stack.back().second && n > 0) {
      stack.back().second = true;
      for (unsigned i = n; i-- > 0;)
        stack.emplace_back(child(e, i), false);
      continue;
    }
    stack.pop_back();
    visit(e);
  }
}

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_Z3_WALK_H
