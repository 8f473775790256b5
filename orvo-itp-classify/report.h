// orvo-itp-classify's report: the raw answers of the pipeline named, ordered
// and shortened, as text for people or one JSON document per problem for
// programs.
#ifndef ORVO_ITP_CLASSIFY_REPORT_H
#define ORVO_ITP_CLASSIFY_REPORT_H

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "smtlib/partition.h"
#include "smtlib/script.h"

namespace orvo {
namespace classify {

struct Options;

struct AtomStatus {
  std::string text;  // the atom as the script writes it, on one line
  int status;        // 0 A, 1 B, 2 mixed
};

struct PartitionReport {
  std::string node;                     // the item's text
  std::vector<std::string> A;           // names of the A groups, in group order (text: at
                                        // most the first five and the last four)
  std::size_t A_count = 0;              // the number of A groups
  std::vector<std::string> background;  // names of the background groups, in group order
  std::vector<std::string> A_symbols;   // uninterpreted, sorted by bytes (JSON only)
  std::vector<std::string> B_symbols;   // likewise
  std::vector<std::string> common;      // likewise
  std::size_t A_local = 0;
  std::size_t B_local = 0;
  itp::CutIndex::StatusCounts atoms;
  std::vector<AtomStatus> atom_list;  // with --atoms, by atom variable
  std::string dump;                   // with --dump
};

struct QueryReport {
  int line = 0;           // where the command starts
  std::string text;       // the command on one line
  bool sequence = true;   // or a tree
  std::string root;       // the root item's text
  std::size_t items = 0;  // number of items
  std::vector<PartitionReport> partitions;
  std::size_t partition_count = 0;  // partitions.size(), or what `rendered` holds
  std::string rendered;             // after render_partitions: their text; partitions empty
};

struct GroupReport {
  std::string name;
  std::size_t atoms = 0;    // distinct atoms registered in the group now
  std::size_t clauses = 0;  // clauses registered in it now
  std::vector<std::string> symbols;
};

struct ProblemReport {
  std::string file;         // base name
  bool background = false;  // the partitions list their background groups
  std::size_t group_count = 0;
  std::vector<GroupReport> groups;  // every group, or none when only counted
  std::vector<QueryReport> queries;
  smtlib::Timing timing;
  double setup_time = 0;     // seconds making the script (z3's context, the classifier)
  double queries_time = 0;   // seconds answering queries
  double groups_time = 0;    // seconds summarising the groups at the end
  double teardown_time = 0;  // seconds releasing the script (z3's context, the classifier)
  std::size_t partitions = 0;
};

// The report of one query from its raw answers (and, with --dump, one dump
// per partition).
QueryReport report_query(smtlib::Script const& script, smtlib::Query const& q,
                         std::vector<smtlib::PartitionAnswer> const& answers,
                         std::vector<int> const& held, std::vector<std::string> dumps);
// Every group as it stands at the end of the script; without `details`,
// only their number.
void report_groups(smtlib::Script const& script, ProblemReport& report, bool details = true);
// Replaces q's partitions by their text as write_text writes it.
void render_partitions(QueryReport& q, bool background, Options const& options);

void write_text(std::ostream& out, ProblemReport const& report, Options const& options);

// One document for one problem; for several, a JSON array of documents, and
// {"file": ..., "error": ...} for a problem that could not be read.
struct JsonEntry {
  ProblemReport const* report;  // null for a failed problem
  std::string file;
  std::string error;
};
void write_json(std::ostream& out, std::vector<JsonEntry> const& entries, Options const& options);

}  // namespace classify
}  // namespace orvo

#endif  // ORVO_ITP_CLASSIFY_REPORT_H
