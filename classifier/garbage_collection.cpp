// Garbage collection: derived symbol data, and clauses only the classifier holds.
#include <algorithm>
#include <functional>

#include "classifier/atom_classifier.h"

namespace orvo {
namespace itp {

void AtomClassifier::gc(bool full) {
  symbols_sets_valid_ = false;
  A_symbols_.clear();
  B_symbols_.clear();
  atom_AB_flags_.clear();
  if (!full || groups_.empty()) return;

  std::vector<dpll::Clause const*> victims;
  for (Group& group : groups_) {
    // First pass: pick the clauses whose last reference is ours; the set is
    // not changed until the list is complete.
    victims.clear();
    for (dpll::Clause const* clause : group.clauses)
      if (clause->ref_count() == 1) victims.push_back(clause);
    if (victims.empty()) continue;
    // A clause added inside a still-open level has a cell that would return
    // its reference at the pop: once the clause is freed that cell must go.
    if (!undo_trail_.empty()) {
      std::sort(victims.begin(), victims.end(), std::less<dpll::Clause const*>());
      undo_trail_.erase(std::remove_if(undo_trail_.begin(), undo_trail_.end(),
                                       [&victims](UndoCell const& cell) {
                                         return cell.kind() == UndoCell::Kind::clause &&
                                                std::binary_search(
                                                    victims.begin(), victims.end(), cell.clause,
                                                    std::less<dpll::Clause const*>());
                                       }),
                        undo_trail_.end());
    }
    // Second pass: erase, then release (which frees the clause).
    for (dpll::Clause const* clause : victims) {
      group.clauses.erase(clause);
      dpll::release_reference(clause);
    }
  }
}

}  // namespace itp
}  // namespace orvo
