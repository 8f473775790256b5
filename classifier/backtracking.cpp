// Backtracking: the undo trail follows the host's decision levels.
#include "classifier/atom_classifier.h"

namespace orvo {
namespace itp {

void AtomClassifier::push_backtrack_point() {
  undo_trail_.push_back(UndoCell::make_atom(-1, UndoCell::marker_tag));
}

void AtomClassifier::pop_backtrack_point() {
  using Kind = UndoCell::Kind;
  // Groups created inside the level: they are emptied wholesale, and their
  // atom and clause cells are passed over below. Nothing has changed yet if
  // this set cannot get memory.
  hsh::HashSet<int> created;
  for (std::size_t i = undo_trail_.size(); i-- > 0;) {
    UndoCell const& cell = undo_trail_[i];
    Kind const kind = cell.kind();
    if (kind == Kind::marker) break;
    if (kind == Kind::new_group) created.insert(cell.group());
  }
  for (int g : created)
    reset_group(g);
  symbols_sets_valid_ = false;

  auto was_created = [&created](int g) { return created.contains(g); };
  while (!undo_trail_.empty()) {
    UndoCell const cell = undo_trail_.back();
    undo_trail_.pop_back();
    Kind const kind = cell.kind();
    if (kind == Kind::marker) break;
    int const g = cell.group();
    switch (kind) {
      case Kind::btpoint_atom:
        btpoint_atoms_.erase(cell.atom);
        break;
      case Kind::atom:
        if (was_created(g)) break;
        groups_[static_cast<std::size_t>(g)].atoms.erase(cell.atom);
        update_symbols(static_cast<unsigned long>(g), cell.atom, false);
        break;
      case Kind::clause:
        if (was_created(g)) break;
        groups_[static_cast<std::size_t>(g)].clauses.erase(cell.clause);
        dpll::release_reference(cell.clause);
        break;
      default:  // a new group: already reset above (a marker ended the loop)
        break;
    }
  }
}

}  // namespace itp
}  // namespace orvo
