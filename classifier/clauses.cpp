// Clause classification: clauses of groups and their side of the partition.
#include "classifier/atom_classifier.h"
#include "support/clause_printer.h"
#include "support/contract.h"

namespace orvo {
namespace itp {

void AtomClassifier::add_clause(dpll::Clause const* clause, int group) {
  ORVO_ITP_REQUIRE(clause != nullptr, "add_clause", "null clause, address", 0);
  int const g = group >= 0 ? group : current_group_;
  // The hook sees only the prefix; what propagates is the orvo::Exception copy.
  if (g < 0) throw error("No interpolation group for clause: ") << *clause;
  ensure_group(g, "add_clause");
  dpll::take_reference(clause);
  hsh::HashSet<dpll::Clause const*>& clauses = groups_[static_cast<std::size_t>(g)].clauses;
  bool inserted = false;
  try {
    inserted = clauses.insert(clause).second;
    symbols_sets_valid_ = false;
    record(UndoCell::make_clause(clause, static_cast<std::uint32_t>(g)));
  } catch (...) {
    // Out of memory: leave the membership and the count as they were, so
    // that no reference is held without a membership or a cell to return it.
    if (inserted) clauses.erase(clause);
    dpll::untake_reference(clause);
    throw;
  }
}

// A_groups_ names existing groups only (the partition choice sees to it).
bool AtomClassifier::is_of_A(dpll::Clause const* clause) const {
  for (int g : A_groups_) {
    hsh::HashSet<dpll::Clause const*> const& clauses = groups_[static_cast<std::size_t>(g)].clauses;
    if (clauses.contains(clause)) return true;
  }
  return false;
}

bool AtomClassifier::is_of_B(dpll::Clause const* clause) const {
  for (std::size_t g = 0; g < groups_.size(); ++g) {
    if (A_groups_.contains(static_cast<int>(g))) continue;
    hsh::HashSet<dpll::Clause const*> const& clauses = groups_[g].clauses;
    if (clauses.contains(clause)) return true;
  }
  return false;
}

}  // namespace itp
}  // namespace orvo
