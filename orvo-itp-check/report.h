// orvo-itp-check's report: per query the solver's answer, per interpolant
// its verdict with the conditions behind it and its metrics; as text for
// people or one JSON document per problem for programs.
#ifndef ORVO_ITP_CHECK_REPORT_H
#define ORVO_ITP_CHECK_REPORT_H

#include <cstddef>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

#include "orvo-itp-check/obligations.h"
#include "orvo-itp-check/responses.h"
#include "orvo-itp-check/verdicts.h"
#include "smtlib/query.h"
#include "smtlib/script.h"

namespace orvo {
namespace check {

struct InterpolantReport {
  std::string node;  // the item's text
  Verdict verdict = Verdict::unreadable;
  std::vector<std::string> A_local;  // each list sorted by bytes, names as declared
  std::vector<std::string> B_local;
  std::vector<std::string> foreign;
  Decision implication;
  std::string reason;  // unreadable: why; else the implication's reason, if any
  bool craig = false;  // with --craig: the two plain conditions
  Outcome A_implies = Outcome::not_checked;
  Outcome B_inconsistent = Outcome::not_checked;
  Metrics metrics;                   // readable only
  std::vector<std::string> symbols;  // uninterpreted, sorted by bytes
};

struct QueryReport {
  int line = 0;      // where the command starts
  std::string text;  // the command on one line
  Answer::Kind answer = Answer::Kind::missing;
  std::string message;  // error and count answers
  std::vector<InterpolantReport> interpolants;
};

struct Summary {
  std::size_t valid = 0;
  std::size_t invalid = 0;
  std::size_t unknown = 0;
  std::size_t unreadable = 0;
  std::size_t unanswered = 0;  // missing, error or count answers
};

// Where the checking time went, in seconds (the script's own playing aside).
struct CheckTiming {
  double reading = 0;     // interpolants through z3's parser, metrics and symbols
  double vocabulary = 0;  // the cut index and the symbol checks
  double z3 = 0;          // the implications
  std::size_t interpolants = 0;
  smtlib::Timing playing;  // the script's own playing
};

struct ProblemReport {
  std::string file;       // as named on the command line
  std::string responses;  // likewise
  smtlib::Unmentioned unmentioned = smtlib::Unmentioned::root;
  std::vector<QueryReport> queries;
  CheckTiming timing;
};

Summary summarize(ProblemReport const& report);

// 0 every interpolant valid and every query answered; 2 something proven
// wrong (invalid, unreadable, a wrong count); 3 otherwise when something is
// not proven (unknown, a missing or error answer).
int exit_status(ProblemReport const& report);

void write_text(std::ostream& out, ProblemReport const& report);

// One document for one problem; for several, a JSON array, with
// {"file", "responses", "error"} for a problem that could not be read.
struct JsonEntry {
  ProblemReport const* report;  // null for a failed problem
  std::string file;
  std::string responses;
  std::string error;
};
void write_json(std::ostream& out, std::vector<JsonEntry> const& entries);

}  // namespace check
}  // namespace orvo

#endif  // ORVO_ITP_CHECK_REPORT_H
