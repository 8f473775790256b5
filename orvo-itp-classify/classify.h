// orvo-itp-classify's core: an SMT-LIB interpolation problem played on the
// atom classifier through the SMT-LIB pipeline, and the report of every
// partition of every query.
#ifndef ORVO_ITP_CLASSIFY_CLASSIFY_H
#define ORVO_ITP_CLASSIFY_CLASSIFY_H

#include <z3++.h>

#include <iosfwd>
#include <string>
#include <string_view>

#include "orvo-itp-classify/report.h"
#include "smtlib/query.h"

namespace orvo {
namespace classify {

struct Options {
  bool json = false;    // the JSON document (symbol lists filled)
  bool atoms = false;   // each atom with its status
  bool dump = false;    // the classifier's debug dump of every partition (text report)
  bool groups = false;  // every group at the end of the script (text report)
  bool check = false;   // answer every partition by cut index and classifier, and compare
  // Only the text report will be written: each query's partitions are kept
  // as their text, and the groups are summed up only with `groups`, so the
  // report's peak is its text, not its lists.
  bool text_only = false;
  smtlib::Unmentioned unmentioned = smtlib::Unmentioned::root;
};

// Plays `text`, the script of the file `path`, on a fresh classifier.
// Warnings go to `warnings`. Throws smtlib::ScriptError at the first fault;
// nothing after it is run. z3's terms live in `shared` when given (one
// context for many problems), else in a context of their own.
ProblemReport classify_problem(std::string const& path, std::string_view text,
                               Options const& options, std::ostream& warnings,
                               z3::context* shared = nullptr);

}  // namespace classify
}  // namespace orvo

#endif  // ORVO_ITP_CLASSIFY_CLASSIFY_H
