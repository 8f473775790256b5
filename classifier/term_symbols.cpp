// Term symbol collection: the head symbols of a term and all its subterms.
#include "classifier/atom_classifier.h"
#include "host/term_visitor.h"
#include "support/contract.h"

namespace orvo {
namespace itp {
namespace {

struct SymbolCollectorCallback {
  hsh::HashSet<Symbol const*>* result;
  std::uint64_t* entered;  // counts the calls
  void operator()(Term_ const* t) const {
    ++*entered;
    result->insert(t->get_symbol());
  }
};

// Clears the visit marks of every term the walk entered, on every exit from
// the walk, exceptions included, so that all marks are clear between walks.
class CacheCleaner {
 public:
  CacheCleaner(std::vector<bool>* marks, std::vector<Term_ const*>* marked) noexcept
      : marks_(marks), marked_(marked) {}
  CacheCleaner(CacheCleaner const&) = delete;
  CacheCleaner& operator=(CacheCleaner const&) = delete;
  ~CacheCleaner() { TermVisitor<SymbolCollectorCallback>::clear_marks(*marks_, *marked_); }

 private:
  std::vector<bool>* marks_;
  std::vector<Term_ const*>* marked_;
};

}  // namespace

hsh::HashSet<Symbol const*> const& AtomClassifier::get_term_symbols(Term_ const* t) {
  ORVO_ITP_REQUIRE(t != nullptr, "get_term_symbols", "null term, address", 0);
  term_symbols_.clear();
  // The walk borrows its stack and marked list from the classifier, so that
  // collecting the symbols of a term allocates nothing once they have grown.
  symbol_marked_.clear();
  TermVisitor<SymbolCollectorCallback> visitor(
      SymbolCollectorCallback{&term_symbols_, &terms_entered_}, true, &visit_marks_, &symbol_stack_,
      &symbol_marked_);
  CacheCleaner cleaner(&visit_marks_, &visitor.marked());
  visitor.visit(t);
  return term_symbols_;
}

}  // namespace itp
}  // namespace orvo
