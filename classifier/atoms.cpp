// Atom registration: atoms of groups, backtrack-point atoms, temporary atoms.
#include "classifier/atom_classifier.h"
#include "support/contract.h"

namespace orvo {
namespace itp {

void AtomClassifier::add_atom(int atom, int group) {
  do_add_atom(atom, group, false);
}

void AtomClassifier::pre_add_atom(int atom, int group) {
  do_add_atom(atom, group, true);
}

void AtomClassifier::do_add_atom(int atom, int group, bool permanent) {
  char const* const operation = permanent ? "pre_add_atom" : "add_atom";
  ORVO_ITP_REQUIRE(atom != -1, operation, "atom", atom);
  int const g = group >= 0 ? group : current_group_;
  // The hook sees only the prefix; what propagates is the orvo::Exception copy.
  if (g < 0) throw error("No interpolation group for atom: ") << atom;
  ensure_group(g, operation);
  groups_[static_cast<std::size_t>(g)].atoms.insert(atom);
  update_symbols(static_cast<unsigned long>(g), atom, true);
  symbols_sets_valid_ = false;
  if (!permanent)
    record(UndoCell::make_atom(atom, static_cast<std::uint32_t>(g) | UndoCell::atom_bit));
}

void AtomClassifier::add_atom_to_same_groups(int atom, int other) {
  ORVO_ITP_REQUIRE(atom != -1, "add_atom_to_same_groups", "atom", atom);
  for (std::size_t g = 0; g < groups_.size(); ++g) {
    hsh::HashSet<int> const& atoms = groups_[g].atoms;
    if (atoms.contains(other)) do_add_atom(atom, static_cast<int>(g), false);
  }
  symbols_sets_valid_ = false;
}

bool AtomClassifier::has_atom(int atom) const {
  if (atom == -1) return false;
  for (Group const& g : groups_)
    if (g.atoms.contains(atom)) return true;
  return false;
}

bool AtomClassifier::has_atom(int atom, int group) const {
  ORVO_ITP_REQUIRE(group >= 0 && static_cast<std::size_t>(group) < groups_.size(), "has_atom",
                   "group index outside the existing groups:", group);
  if (atom == -1) return false;
  hsh::HashSet<int> const& atoms = groups_[static_cast<std::size_t>(group)].atoms;
  return atoms.contains(atom);
}

bool AtomClassifier::has_atom(Term_ const* term) const {
  ORVO_ITP_REQUIRE(term != nullptr, "has_atom", "null term, address", 0);
  ORVO_ITP_REQUIRE(env_ != nullptr, "has_atom", "no environment set, address", 0);
  auto const& map = env_->term_atoms;
  auto it = map.find(term);
  if (it == map.end() || it->second == -1) return false;
  return has_atom(it->second);
}

void AtomClassifier::add_btpoint_atom(int atom) {
  ORVO_ITP_REQUIRE(atom != -1, "add_btpoint_atom", "atom", atom);
  btpoint_atoms_.insert(atom);
  record(UndoCell::make_atom(atom, UndoCell::marker_tag));
}

void AtomClassifier::add_temporary_A_atom(int atom) {
  temporary_A_atoms_.insert(atom);
}

void AtomClassifier::add_temporary_B_atom(int atom) {
  temporary_B_atoms_.insert(atom);
}

void AtomClassifier::clear_temporary_atoms() {
  temporary_A_atoms_.clear();
  temporary_B_atoms_.clear();
}

}  // namespace itp
}  // namespace orvo
