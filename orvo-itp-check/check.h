// orvo-itp-check's core: a solver's interpolants for an SMT-LIB
// interpolation problem, checked query by query while the script is played
// through the SMT-LIB pipeline (each query stands where its command stands:
// its declarations, definitions and live assertions).
//
// The one entry, check_problem, takes the two texts and the options and
// returns the report; it reads no files but the emitted obligations it is
// asked to write.
#ifndef ORVO_ITP_CHECK_CHECK_H
#define ORVO_ITP_CHECK_CHECK_H

#include <z3++.h>

#include <iosfwd>
#include <string>
#include <string_view>

#include "orvo-itp-check/report.h"
#include "smtlib/query.h"
#include "smtlib/sexpr.h"

namespace orvo {
namespace check {

struct Options {
  bool json = false;            // the JSON document (for the program)
  bool craig = false;           // also the plain Craig conditions per item
  unsigned timeout_ms = 10000;  // z3's time limit per obligation
  std::string emit_dir;         // when set, every obligation is written there
  smtlib::Unmentioned unmentioned = smtlib::Unmentioned::root;
};

// A fault of the responses text (unbalanced, a malformed token); a fault of
// the problem is an smtlib::ScriptError.
class ResponsesError : public smtlib::ScriptError {
 public:
  using ScriptError::ScriptError;
};

// Checks every answer of `responses` (the solver's output for the script
// `problem`) to the problem's get-interpolants commands. The paths name the
// texts in the report and in warnings. Throws smtlib::ScriptError at the
// problem's first fault and ResponsesError at the responses' first fault.
// z3's terms and solvers live in `shared` when given (one context for many
// problems), else in a context of their own.
ProblemReport check_problem(std::string const& problem_path, std::string_view problem,
                            std::string const& responses_path, std::string_view responses,
                            Options const& options, std::ostream& warnings,
                            z3::context* shared = nullptr);

}  // namespace check
}  // namespace orvo

#endif  // ORVO_ITP_CHECK_CHECK_H
