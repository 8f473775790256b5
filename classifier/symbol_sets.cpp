// Partition symbol sets: the snapshot of A's and B's symbols and atom sides.
#include "classifier/atom_classifier.h"
#include "support/contract.h"

namespace orvo {
namespace itp {

void AtomClassifier::build_symbols_sets() {
  ORVO_ITP_REQUIRE(env_ != nullptr, "build_symbols_sets", "no environment set, address", 0);
  auto is_A = [this](std::size_t g) { return A_groups_.contains(static_cast<int>(g)); };

  A_symbols_.clear();
  for (int g : A_groups_)
    for (auto const& entry : groups_[static_cast<std::size_t>(g)].symbols)
      A_symbols_.insert(entry.first);

  B_symbols_.clear();
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    if (is_A(i)) continue;
    for (auto const& entry : groups_[i].symbols)
      B_symbols_.insert(entry.first);
  }

  atom_AB_flags_.clear();
  atom_AB_flags_.resize(env_->num_atoms(), 0);
  // Atoms outside the host's variables (which the host never registers) are
  // skipped; a negative one would become an index past the end.
  auto flag = [this](int atom, unsigned char bit) {
    auto const index = static_cast<std::size_t>(static_cast<unsigned>(atom));
    if (index < atom_AB_flags_.size()) atom_AB_flags_[index] |= bit;
  };
  for (int g : A_groups_)
    for (int atom : groups_[static_cast<std::size_t>(g)].atoms)
      flag(atom, 1);
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    if (is_A(i)) continue;
    for (int atom : groups_[i].atoms)
      flag(atom, 2);
  }

  temporary_A_atoms_.clear();
  temporary_B_atoms_.clear();
  symbols_sets_valid_ = true;
}

}  // namespace itp
}  // namespace orvo
