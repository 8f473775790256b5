// How the conditions of an interpolant make its verdict.
//
// - valid: readable, the vocabulary holds and the implication holds;
// - invalid: the vocabulary or the implication fails;
// - unknown: the vocabulary holds, the implication is undecided (z3 gave up,
//   or a premise, a child's interpolant, could not be read);
// - unreadable: the interpolant itself could not be read.
//
// The root has no interpolant of its own: its obligation belongs to each of
// its children, whose implication fails when their own step or the root's
// fails, is undecided when either is, and holds otherwise.
#ifndef ORVO_ITP_CHECK_VERDICTS_H
#define ORVO_ITP_CHECK_VERDICTS_H

#include "orvo-itp-check/obligations.h"

namespace orvo {
namespace check {

enum class Verdict { valid, invalid, unknown, unreadable };

// The implication of a root child from its own step and the root's: the
// first failure (with its counterexample), else the first obligation not
// checked, else the first unknown one, else holds.
Decision join_root(Decision own, Decision root);

Verdict verdict_of(bool readable, bool vocabulary_holds, Outcome implication);

char const* outcome_name(Outcome o);
char const* verdict_name(Verdict v);

}  // namespace check
}  // namespace orvo

#endif  // ORVO_ITP_CHECK_VERDICTS_H
