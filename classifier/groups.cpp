// Classifier state: construction, destruction, groups and the clause
// reference protocol shared with the host.
#include <algorithm>
#include <map>
#include <type_traits>
#include <utility>

#include "classifier/atom_classifier.h"
#include "support/contract.h"

namespace orvo {
namespace itp {

AtomClassifier::error::~error() noexcept = default;

// groups_ grows by moving its groups (their tables' nodes stay where they
// are), not by copying every table of every group.
static_assert(std::is_nothrow_move_constructible<AtomClassifier::Group>::value,
              "a group moves without throwing");

AtomClassifier::AtomClassifier() : current_group_(-1), symbols_sets_valid_(false), env_(nullptr) {}

AtomClassifier::~AtomClassifier() {
  for (Group& group : groups_)
    for (dpll::Clause const* clause : group.clauses)
      dpll::release_reference(clause);
}

int AtomClassifier::new_group_index() {
  int const n = static_cast<int>(groups_.size());
  ORVO_ITP_REQUIRE(n < (1 << 30), "new_group_index", "group index at or above 2^30:", n);
  groups_.emplace_back();
  record(UndoCell::make_atom(-1, static_cast<std::uint32_t>(n) | UndoCell::atom_bit));
  return n;
}

void AtomClassifier::reset_group(int group) {
  ORVO_ITP_REQUIRE(group >= 0 && static_cast<std::size_t>(group) < groups_.size(), "reset_group",
                   "group index outside the existing groups:", group);
  Group& g = groups_[static_cast<std::size_t>(group)];
  // The only step that can run out of memory comes first: once a reference
  // is released, the group must lose the membership that held it.
  Group const empty;
  for (dpll::Clause const* clause : g.clauses)  // never null: add_clause refuses it
    dpll::release_reference(clause);
  g.atoms = empty.atoms;
  g.clauses = empty.clauses;
  g.symbols = empty.symbols;
  symbols_sets_valid_ = false;
}

void AtomClassifier::ensure_group(int group, char const* operation) {
  ORVO_ITP_REQUIRE(group < (1 << 30), operation, "group index at or above 2^30:", group);
  if (static_cast<std::size_t>(group) >= groups_.size())
    groups_.resize(static_cast<std::size_t>(group) + 1);
}

// Cells other than markers are recorded only while a backtrack point is open.
void AtomClassifier::record(UndoCell cell) {
  if (!undo_trail_.empty()) undo_trail_.push_back(cell);
}

// The tests' oracle: its failure branches are taken only on a broken
// classifier, so coverage counts its lines, not its branches.
bool AtomClassifier::check_invariants() const {
  // GCOVR_EXCL_BR_START
  for (Group const& g : groups_)
    if (!g.atoms.check_invariants() || !g.clauses.check_invariants() ||
        !g.symbols.check_invariants())
      return false;
  for (auto const* set : {&btpoint_atoms_, &temporary_A_atoms_, &temporary_B_atoms_, &A_groups_})
    if (!set->check_invariants()) return false;
  for (auto const* set : {&A_symbols_, &B_symbols_, &term_symbols_})
    if (!set->check_invariants()) return false;
  for (int g : A_groups_)
    if (g < 0 || static_cast<std::size_t>(g) >= groups_.size()) return false;
  if (!undo_trail_.empty() && undo_trail_.front().kind() != UndoCell::Kind::marker) return false;
  for (UndoCell const& cell : undo_trail_) {
    UndoCell::Kind const kind = cell.kind();
    if (kind == UndoCell::Kind::marker || kind == UndoCell::Kind::btpoint_atom) {
      if (cell.tag != UndoCell::marker_tag) return false;
    } else if (static_cast<std::size_t>(cell.group()) >= groups_.size()) {
      return false;
    }
  }
  for (bool mark : visit_marks_)
    if (mark) return false;
  if (!purity_stack_.empty() || visit_marks_.size() % 2 != 0) return false;

  // Cells of a group that no longer holds their clause are left out: after a
  // pop that ran out of memory, the cells of the groups it emptied may name
  // clauses that were freed.
  std::map<std::pair<dpll::Clause const*, int>, unsigned> cells;  // (clause, group) -> cells
  for (UndoCell const& cell : undo_trail_)
    if (cell.kind() == UndoCell::Kind::clause) ++cells[{cell.clause, cell.group()}];
  std::map<dpll::Clause const*, unsigned> held;
  for (std::size_t g = 0; g < groups_.size(); ++g) {
    for (dpll::Clause const* clause : groups_[g].clauses) {
      auto const it = cells.find({clause, static_cast<int>(g)});
      held[clause] += it == cells.end() ? 1 : std::max(1u, it->second);
    }
  }
  for (auto const& entry : held)
    if (entry.first->ref_count() < entry.second) return false;
  return true;
  // GCOVR_EXCL_BR_STOP
}

}  // namespace itp
}  // namespace orvo
