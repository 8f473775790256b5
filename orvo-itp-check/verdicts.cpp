#include "orvo-itp-check/verdicts.h"

#include <utility>

namespace orvo {
namespace check {

Decision join_root(Decision own, Decision root) {
  for (Outcome const o : {Outcome::fails, Outcome::not_checked, Outcome::unknown}) {
    if (own.outcome == o) return own;
    if (root.outcome == o) return root;
  }
  return own;
}

Verdict verdict_of(bool readable, bool vocabulary_holds, Outcome implication) {
  if (!readable) return Verdict::unreadable;
  if (!vocabulary_holds || implication == Outcome::fails) return Verdict::invalid;
  if (implication == Outcome::holds) return Verdict::valid;
  return Verdict::unknown;
}

char const* outcome_name(Outcome o) {
  switch (o) {
    case Outcome::holds:
      return "holds";
    case Outcome::fails:
      return "fails";
    case Outcome::unknown:
      return "unknown";
    case Outcome::not_checked:
      return "not checked";
  }
  return "";
}

char const* verdict_name(Verdict v) {
  switch (v) {
    case Verdict::valid:
      return "valid";
    case Verdict::invalid:
      return "invalid";
    case Verdict::unknown:
      return "unknown";
    case Verdict::unreadable:
      return "unreadable";
  }
  return "";
}

}  // namespace check
}  // namespace orvo
