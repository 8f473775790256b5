// Debug dump: the partition and each group's atoms, on standard output.
#include <cstdint>
#include <functional>
#include <iostream>
#include <vector>

#include "classifier/atom_classifier.h"
#include "support/sort.h"

namespace orvo {
namespace itp {

void AtomClassifier::debug_dump() {
  std::ostream& out = std::cout;
  out << "BEGIN CLASSIFIER DUMP\n";
  out << "A INDICES: ";
  for (int g : A_groups_)
    out << g << " ";
  out << "\n";
  out << "GROUPS:\n";
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    out << "#" << i << ": ";
    hsh::HashSet<int> const& atoms = groups_[i].atoms;
    if (!atoms.empty()) {
      std::vector<int> sorted(atoms.begin(), atoms.end());
      orvo::sort(sorted.data(), static_cast<std::uint64_t>(sorted.size()), std::less<int>());
      for (int a : sorted)
        out << a << " ";
    }
    out << "\n";
  }
  out << "END CLASSIFIER DUMP";
  out.put('\n');
  out.flush();
}

}  // namespace itp
}  // namespace orvo
