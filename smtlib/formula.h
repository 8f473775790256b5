// The rules that turn an assertion into atoms and clauses.
//
// The assertion is walked through the Boolean connectives (not, and, or, =>,
// xor, Bool ite, and = / distinct over Bool); every other Bool-sorted subterm
// reached is an atom (not `true` or `false`), and the walk does not enter
// atoms. Each distinct conjunct of the top-level conjunction (nested `and`s
// flattened) that is a literal or an `or` of literals is one clause; a
// conjunct reached twice (written twice, or shared through `let` or
// `define-fun`) is the same clause. Both walks visit each distinct subterm
// once, so their cost is the formula's number of distinct subterms, however
// often they are shared.
#ifndef ORVO_ITP_SMTLIB_FORMULA_H
#define ORVO_ITP_SMTLIB_FORMULA_H

#include <z3++.h>

#include <cstddef>
#include <vector>

namespace orvo {
namespace smtlib {

struct Literal {
  std::size_t atom;  // index into Formula::atoms
  bool negated;
};

struct Formula {
  std::vector<z3::expr> atoms;                 // distinct, in the order the walk meets them
  std::vector<std::vector<Literal>> clauses;  // in the order of the conjuncts
  std::size_t visits = 0;                      // subterms the two walks entered
};

// The atoms and clauses of `assertion` (Bool-sorted).
Formula split_formula(z3::expr const& assertion);

// Whether `e` is an atom: Bool-sorted, no connective, not true or false.
bool is_atom(z3::expr const& e);

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_FORMULA_H
