// Group symbol counts: how often each symbol occurs among a group's atoms.
#include "classifier/atom_classifier.h"
#include "support/contract.h"

namespace orvo {
namespace itp {

void AtomClassifier::update_symbols(unsigned long group, int atom, bool add) {
  ORVO_ITP_REQUIRE(group < groups_.size(), "update_symbols",
                   "group index outside the existing groups:", group);
  ORVO_ITP_REQUIRE(env_ != nullptr, "update_symbols", "no environment set, address", 0);
  std::vector<Term_ const*> const& terms = env_->atom_terms;
  // A negative atom becomes an index past the end.
  auto const index = static_cast<std::size_t>(static_cast<unsigned>(atom));
  if (index >= terms.size() || terms[index] == nullptr) return;
  Term_ const* term = terms[index];
  Symbol const* head = term->get_symbol();
  TermManager const* tm = env_->term_manager;
  if (head->get_output_type() != tm->get_bool_type()) return;
  for (Symbol const* reserved : tm->get_reserved_symbols())
    if (head == reserved) return;

  hsh::HashSet<Symbol const*> const& symbols = get_term_symbols(term);
  hsh::HashMap<Symbol const*, unsigned>& counts = groups_[group].symbols;
  if (add) {
    for (Symbol const* s : symbols)
      ++counts[s];
    return;
  }
  // The inserting access runs the growth test before each decrement too. A
  // symbol without an entry (a withdrawal that undoes no addition) is
  // ignored: the entry made at 0 is dropped again instead of wrapping.
  for (Symbol const* s : symbols) {
    unsigned& n = counts[s];
    if (n == 0 || --n == 0) counts.erase(s);
  }
}

}  // namespace itp
}  // namespace orvo
