// Partition choice: which groups form partition A.
#include "classifier/atom_classifier.h"
#include "support/contract.h"

namespace orvo {
namespace itp {

void AtomClassifier::set_A_groups(std::vector<int> const& groups) {
  set_A_groups(groups.cbegin(), groups.cend());
}

void AtomClassifier::set_frontier(int frontier) {
  ORVO_ITP_REQUIRE(frontier < (1 << 30), "set_frontier",
                   "frontier beyond the group index range:", frontier);
  A_groups_ = hsh::HashSet<int>();
  if (frontier >= 0) {
    // Groups first, appended directly (no new-group cell): if that runs out of
    // memory, A_groups_ names no group that does not exist.
    ensure_group(frontier, "set_frontier");
    for (int g = 0; g <= frontier; ++g)
      A_groups_.insert(g);
  }
  build_symbols_sets();
}

}  // namespace itp
}  // namespace orvo
