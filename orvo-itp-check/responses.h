// A solver's standard output read as the responses to a script's commands.
//
// The stream holds one top-level s-expression or token per response. They
// are matched to the script's commands in order: each command that answers
// (check-sat, get-value, get-interpolants, echo, ...) takes the next
// response; a `success` is skipped wherever it stands, and an
// `(error "...")` answers the command whose turn it is. Commands after
// `(exit)` take none; responses left over after the last command are
// ignored.
#ifndef ORVO_ITP_CHECK_RESPONSES_H
#define ORVO_ITP_CHECK_RESPONSES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "smtlib/sexpr.h"

namespace orvo {
namespace check {

// Whether a command with this head takes one response.
bool takes_response(std::string_view head);

class Responses {
 public:
  // Reads the stream; throws smtlib::ScriptError when it is not balanced or
  // holds a malformed token. `text` must outlive the object.
  explicit Responses(std::string_view text);

  // For every command, its response (null when it takes none or the stream
  // ended before its turn).
  std::vector<smtlib::SExpr const*> match(std::vector<smtlib::CommandSpan> const& commands) const;

 private:
  std::vector<smtlib::SExpr> items_;
};

// What the solver said to one get-interpolants.
struct Answer {
  enum class Kind { interpolants, missing, error, count } kind = Kind::missing;
  std::string message;                         // error: the solver's; count: both numbers
  std::vector<smtlib::SExpr const*> formulas;  // interpolants: one per item but the root
};

// The answer `response` (null: missing) gives to a query that expects
// `expected` interpolants.
Answer read_answer(smtlib::SExpr const* response, std::size_t expected);

// The name of an answer kind as the reports write it.
char const* answer_name(Answer::Kind kind);

}  // namespace check
}  // namespace orvo

#endif  // ORVO_ITP_CHECK_RESPONSES_H
