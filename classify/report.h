// The two forms of orvo-itp-classify's report: text for people, and one
// JSON document per problem for programs.
#ifndef ORVO_ITP_CLASSIFY_REPORT_H
#define ORVO_ITP_CLASSIFY_REPORT_H

#include <iosfwd>
#include <vector>

#include "classify/problem.h"

namespace orvo {
namespace classify {

// Per query: each partition's A groups, common symbols and atom counts by
// status; with the options, each atom's status and the classifier's dump.
void write_text(std::ostream& out, ProblemReport const& report, Options const& options);

// One document for one problem, a JSON array of documents for several.
void write_json(std::ostream& out, std::vector<ProblemReport> const& reports);

}  // namespace classify
}  // namespace orvo

#endif  // ORVO_ITP_CLASSIFY_REPORT_H
