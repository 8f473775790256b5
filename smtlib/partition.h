// The raw answers of a query's partitions, computed once from one cut index:
// symbol sets, status counts and per-atom statuses. Names, order, shortening
// and format are the report's business.
#ifndef ORVO_ITP_SMTLIB_PARTITION_H
#define ORVO_ITP_SMTLIB_PARTITION_H

#include <cstddef>
#include <string>
#include <vector>

#include "classifier/cut_index.h"
#include "host/term.h"
#include "smtlib/query.h"

namespace orvo {
namespace smtlib {

class Script;

struct PartitionAnswer {
  std::size_t item = 0;                     // the query item it belongs to
  std::vector<int> A_groups;                // ascending; without full lists at most the
                                            // first five and the last four
  std::size_t A_count = 0;                  // the number of A groups
  std::vector<Symbol const*> A_symbols;     // uninterpreted only; with symbol lists
  std::vector<Symbol const*> B_symbols;     // likewise
  std::vector<Symbol const*> common;        // uninterpreted, in both
  std::size_t A_local = 0;                  // uninterpreted symbols in A only
  std::size_t B_local = 0;                  // uninterpreted symbols in B only
  itp::CutIndex::StatusCounts atoms;        // held atoms by status
  std::vector<unsigned char> atom_status;   // with atom statuses: per held atom, 0 A, 1 B, 2 mixed
};

struct AnswerOptions {
  bool symbol_lists = false;   // fill A_symbols and B_symbols, and every A group
  bool atom_statuses = false;  // fill atom_status
};

// The names of `symbols` as the script declared them, printable, sorted by
// bytes: how every program lists symbols.
std::vector<std::string> symbol_names(std::vector<Symbol const*> const& symbols);

// Every partition of `q` (every item but the root), in item order.
// `held` is script.held_atoms().
std::vector<PartitionAnswer> answer_query(Script const& script, Query const& q,
                                          itp::CutIndex& index, std::vector<int> const& held,
                                          AnswerOptions options);

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_PARTITION_H
