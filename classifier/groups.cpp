// Classifier state: construction, destruction, groups and the clause
// reference protocol shared with the host.
#include <cstdlib>

#include "classifier/atom_classifier.h"
#include "support/contract.h"

namespace orvo {
namespace itp {

AtomClassifier::error::~error() noexcept = default;

AtomClassifier::AtomClassifier() : current_group_(-1), symbols_sets_valid_(false), env_(nullptr) {}

AtomClassifier::~AtomClassifier() {
  for (Group& group : groups_)
    for (dpll::Clause const* clause : group.clauses)
      release_clause_reference(clause);
}

int AtomClassifier::new_group_index() {
  int const n = static_cast<int>(groups_.size());
  groups_.emplace_back();
  record(UndoCell::make_atom(-1, static_cast<std::uint32_t>(n) | UndoCell::atom_bit));
  return n;
}

void AtomClassifier::reset_group(int group) {
  ORVO_REQUIRE(group >= 0 && static_cast<std::size_t>(group) < groups_.size(), "reset_group",
               "group index outside the existing groups:", group);
  Group& g = groups_[static_cast<std::size_t>(group)];
  // The only step that can run out of memory comes first: once a reference
  // is released, the group must lose the membership that held it.
  Group const empty;
  for (dpll::Clause const* clause : g.clauses)
    if (clause != nullptr) release_clause_reference(clause);
  g.atoms = empty.atoms;
  g.clauses = empty.clauses;
  g.symbols = empty.symbols;
  symbols_sets_valid_ = false;
}

void AtomClassifier::ensure_group(int group) {
  if (static_cast<std::size_t>(group) >= groups_.size())
    groups_.resize(static_cast<std::size_t>(group) + 1);
}

// Cells other than markers are recorded only while a backtrack point is open.
void AtomClassifier::record(UndoCell cell) {
  if (!undo_trail_.empty()) undo_trail_.push_back(cell);
}

namespace {
std::uint32_t& reference_word(dpll::Clause const* clause) noexcept {
  auto* words = const_cast<dpll::Clause*>(clause)->words();
  return words[clause->size() + 2];
}
}  // namespace

void AtomClassifier::take_clause_reference(dpll::Clause const* clause) noexcept {
  std::uint32_t& word = reference_word(clause);
  word = (word & dpll::Clause::flag_mask) | ((word + 1) & dpll::Clause::count_mask);
}

void AtomClassifier::untake_clause_reference(dpll::Clause const* clause) noexcept {
  std::uint32_t& word = reference_word(clause);
  word = (word & dpll::Clause::flag_mask) | ((word - 1) & dpll::Clause::count_mask);
}

void AtomClassifier::release_clause_reference(dpll::Clause const* clause) noexcept {
  std::uint32_t& word = reference_word(clause);
  std::uint32_t const old = word & dpll::Clause::count_mask;
  word = (word & dpll::Clause::flag_mask) | ((old - 1) & dpll::Clause::count_mask);
  if (old == 1) std::free(const_cast<dpll::Clause*>(clause));
}

bool AtomClassifier::check_invariants() const {
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
      if (cell.tag != 0xFFFFFFFFu) return false;
    } else if (static_cast<std::size_t>(cell.group()) >= groups_.size()) {
      return false;
    }
  }
  for (bool mark : visit_marks_)
    if (mark) return false;
  return purity_stack_.empty() && visit_marks_.size() % 2 == 0;
}

}  // namespace itp
}  // namespace orvo
