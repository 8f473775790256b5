// orvo-itp-classify's core: an SMT-LIB interpolation problem played on the
// atom classifier, and what it reports.
//
// Every `assert` opens one group, named by its `:named` name or "#N" (N its
// group index). The assertion is walked through the Boolean connectives
// (not, and, or, =>, xor, Bool ite, and = / distinct over Bool); every other
// Bool-sorted subterm reached is an atom (not `true` or `false`), and the walk
// does not enter atoms. The atoms are registered in the group, one atom
// variable per distinct host term across the script. Each conjunct of the
// top-level conjunction that is a literal or an `or` of literals is a clause
// of the group. `push` and `pop` open and close backtrack points, so what an
// abandoned level asserted leaves the classifier again (its groups stay,
// empty) and what it declared goes out of scope.
//
// `get-interpolants` lists partitions: a name (the live assertions carrying
// it, or else the latest popped one), `(and n1 n2 ...)`, or a parenthesised
// list that opens a subtree, in post-order. An item's subtree is itself and
// every item before it in its own list; every item but the last (the root)
// gives one partition: A is the groups of its subtree, B every other group.
#ifndef ORVO_ITP_CLASSIFY_PROBLEM_H
#define ORVO_ITP_CLASSIFY_PROBLEM_H

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace orvo {
namespace classify {

struct Options {
  bool atoms = false;   // report each atom with its status
  bool dump = false;    // add the classifier's debug dump of every partition
  bool groups = false;  // list every group at the end of the script (text report)
  bool check = false;   // answer every partition twice, by cut index and classifier, and compare
  bool symbol_lists = false;  // fill the A and B symbol lists (the JSON document has them)
};

// Atoms by status: 0 A (A-pure only), 1 B (B-pure), 2 mixed.
struct StatusCounts {
  std::size_t A = 0;
  std::size_t B = 0;
  std::size_t mixed = 0;
};

struct AtomStatus {
  std::string text;  // the atom as z3 prints it
  int status;        // 0, 1 or 2
};

struct PartitionReport {
  std::string node;                    // the item's text
  std::vector<std::string> A;          // names of the A groups, in group order; without
                                       // symbol_lists and above 12, the first five and last four
  std::size_t A_count = 0;             // the number of A groups
  std::vector<std::string> A_symbols;  // uninterpreted, sorted by bytes; with symbol_lists
  std::vector<std::string> B_symbols;  // likewise
  std::vector<std::string> common;
  StatusCounts atoms;
  std::vector<AtomStatus> atom_list;  // with Options::atoms, by atom variable
  std::string dump;                   // with Options::dump
};

struct QueryReport {
  int line = 0;  // where the command starts
  std::vector<PartitionReport> partitions;
};

struct GroupReport {
  std::string name;
  std::size_t atoms = 0;    // distinct atoms registered in the group now
  std::size_t clauses = 0;  // clauses registered in it now
  std::vector<std::string> symbols;
};

// Where the time went, in seconds.
struct Timing {
  double total = 0;
  double z3 = 0;        // inside z3's parser
  double classify = 0;  // host terms, atoms, clauses and levels on the classifier
  double queries = 0;   // the partitions of every query
  std::size_t assertions = 0;
  std::size_t partitions = 0;
};

struct ProblemReport {
  std::string file;  // base name
  std::vector<GroupReport> groups;
  std::vector<QueryReport> queries;
  Timing timing;
};

// Plays `text`, the script of the file `path`, on a fresh classifier.
// Unsupported commands are skipped with one warning line per command name
// on `warnings`. Throws smtlib::ScriptError at the first fault; nothing after
// it is run.
ProblemReport classify_problem(std::string const& path, std::string_view text,
                               Options const& options, std::ostream& warnings);

}  // namespace classify
}  // namespace orvo

#endif  // ORVO_ITP_CLASSIFY_PROBLEM_H
