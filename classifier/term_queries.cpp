// Term and symbol queries: purity, partition status, common symbols, compatibility.
#include "classifier/atom_classifier.h"
#include "support/contract.h"

namespace orvo {
namespace itp {

// Tree walk without marks: a shared subterm is examined once per path, and
// the walk stops at the first missing symbol.
template <class SymbolSet>
bool AtomClassifier::term_is_pure(Term_ const* t, SymbolSet const& symbols,
                                  bool include_interpreted) {
  ORVO_ITP_REQUIRE(t != nullptr, "term_is_pure", "null term, address", 0);
  ORVO_ITP_REQUIRE(env_ != nullptr, "term_is_pure", "no environment set, address", 0);
  TermManager const* tm = env_->term_manager;
  try {
    purity_stack_.push_back(t);
    while (!purity_stack_.empty()) {
      Term_ const* u = purity_stack_.back();
      purity_stack_.pop_back();
      Symbol const* s = u->get_symbol();
      if ((include_interpreted || !tm->is_interpreted(s)) && symbols.find(s) == symbols.end()) {
        purity_stack_.clear();
        return false;
      }
      for (std::size_t i = 0; i < u->get_arity(); ++i)
        purity_stack_.push_back(u->get_child(i));
    }
  } catch (...) {
    purity_stack_.clear();
    throw;
  }
  return true;
}

template bool AtomClassifier::term_is_pure<hsh::HashSet<Symbol const*>>(
    Term_ const*, hsh::HashSet<Symbol const*> const&, bool);
template bool AtomClassifier::term_is_pure<hsh::HashMap<Symbol const*, unsigned>>(
    Term_ const*, hsh::HashMap<Symbol const*, unsigned> const&, bool);

bool AtomClassifier::term_is_A_pure(Term_ const* t) {
  return term_is_pure(t, A_symbols_, false);
}

bool AtomClassifier::term_is_B_pure(Term_ const* t) {
  return term_is_pure(t, B_symbols_, false);
}

bool AtomClassifier::term_is_AB_mixed(Term_ const* t) {
  return !term_is_A_pure(t) && !term_is_B_pure(t);
}

int AtomClassifier::get_term_status(Term_ const* t) {
  bool const a = term_is_A_pure(t);
  bool const b = term_is_B_pure(t);
  if (b) return 1;
  return a ? 0 : 2;
}

bool AtomClassifier::symbol_is_common(Symbol const* s, bool include_interpreted) {
  ORVO_ITP_REQUIRE(s != nullptr, "symbol_is_common", "null symbol, address", 0);
  ORVO_ITP_REQUIRE(env_ != nullptr, "symbol_is_common", "no environment set, address", 0);
  if (!include_interpreted && env_->term_manager->is_interpreted(s)) return true;
  bool const in_A = A_symbols_.find(s) != A_symbols_.end();
  bool const in_B = B_symbols_.find(s) != B_symbols_.end();
  return in_A && in_B;
}

bool AtomClassifier::term_is_mixed(Term_ const* t) {
  ORVO_ITP_REQUIRE(t != nullptr, "term_is_mixed", "null term, address", 0);
  if (has_atom(t)) return false;
  int impure = 0;
  for (Group const& g : groups_)
    if (!term_is_pure(t, g.symbols, false) && ++impure == 2) return true;
  return false;
}

std::vector<int> AtomClassifier::get_compatible_groups(Term_ const* t, bool include_interpreted) {
  std::vector<int> result;
  for (std::size_t i = 0; i < groups_.size(); ++i)
    if (term_is_pure(t, groups_[i].symbols, include_interpreted))
      result.push_back(static_cast<int>(i));
  return result;
}

bool AtomClassifier::are_compatible(Term_ const* t1, Term_ const* t2, bool include_interpreted) {
  for (Group const& g : groups_)
    if (term_is_pure(t1, g.symbols, include_interpreted) &&
        term_is_pure(t2, g.symbols, include_interpreted))
      return true;
  return false;
}

}  // namespace itp
}  // namespace orvo
