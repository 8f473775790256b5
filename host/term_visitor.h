// Generic depth-first term walk with per-term visit marks.
//
// The visitor calls its callback once for every distinct subterm it enters,
// root first, then the children from the last to the first (pre-order, right
// to left). With marks enabled it keeps two bits per term id in a borrowed
// bit vector: bit 2*id (finished: the term and all its subterms are done) and
// bit 2*id+1 (entered: the callback ran and the children are scheduled), so a
// subterm shared by many parents is entered once and the walk is linear in
// the number of distinct subterms. Every term whose entered mark the walk set
// is appended to the marked list; the caller clears the marks through that
// list, never by a pass over the whole vector. Without marks the walk is a
// plain tree walk that enters a subterm once per path.
//
// The walk stack and the marked list may be borrowed from the caller, who
// keeps them from walk to walk: once they have grown, a walk allocates
// nothing.
#ifndef ORVO_ITP_HOST_TERM_VISITOR_H
#define ORVO_ITP_HOST_TERM_VISITOR_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "host/term.h"

namespace orvo {

template <class Callback>
class TermVisitor {
 public:
  // `stack` and `marked`, when given, are used instead of the visitor's own
  // vectors; `marked` must be empty.
  TermVisitor(Callback callback, bool use_marks, std::vector<bool>* marks,
              std::vector<Term_ const*>* stack = nullptr,
              std::vector<Term_ const*>* marked = nullptr)
      : callback_(std::move(callback)),
        use_marks_(use_marks),
        marks_(marks),
        stack_(stack != nullptr ? stack : &own_stack_),
        marked_(marked != nullptr ? marked : &own_marked_) {}
  TermVisitor(TermVisitor const&) = delete;
  TermVisitor& operator=(TermVisitor const&) = delete;

  void visit(Term_ const* root);

  std::vector<Term_ const*>& marked() noexcept { return *marked_; }

  // The two mark bits of a term.
  static std::uint64_t finished_bit(Term_ const* t) noexcept { return 2 * t->get_id(); }
  static std::uint64_t entered_bit(Term_ const* t) noexcept { return 2 * t->get_id() + 1; }

  // Clears both marks of every listed term and empties the list. A failed
  // growth of the marks may leave the last listed term without its bits.
  static void clear_marks(std::vector<bool>& marks, std::vector<Term_ const*>& marked) noexcept {
    for (Term_ const* t : marked) {
      if (entered_bit(t) < marks.size()) {
        marks[static_cast<std::size_t>(finished_bit(t))] = false;
        marks[static_cast<std::size_t>(entered_bit(t))] = false;
      }
    }
    marked.clear();
  }

 private:
  bool finished(Term_ const* t) const noexcept { return get(finished_bit(t)); }
  bool entered(Term_ const* t) const noexcept { return get(entered_bit(t)); }
  bool get(std::uint64_t bit) const noexcept { return bit < marks_->size() && (*marks_)[bit]; }
  void set(Term_ const* t, std::uint64_t bit) {
    std::uint64_t const base = finished_bit(t);
    if (marks_->size() <= base)
      marks_->resize(
          static_cast<std::size_t>(std::max<std::uint64_t>(2 * marks_->size(), base + 2)), false);
    (*marks_)[bit] = true;
  }

  Callback callback_;
  bool use_marks_;                        // always set by the classifier
  std::vector<bool>* marks_;              // borrowed two-bit-per-id marks
  std::vector<Term_ const*> own_stack_;   // used unless a stack is lent
  std::vector<Term_ const*> own_marked_;  // used unless a marked list is lent
  std::vector<Term_ const*>* stack_;      // terms still to visit
  std::vector<Term_ const*>* marked_;     // terms whose entered mark this walk set
};

template <class Callback>
void TermVisitor<Callback>::visit(Term_ const* root) {
  std::vector<Term_ const*>& stack = *stack_;
  stack.clear();
  stack.push_back(root);
  if (!use_marks_) {
    while (!stack.empty()) {
      Term_ const* u = stack.back();
      stack.pop_back();
      callback_(u);
      for (std::size_t i = 0; i < u->get_arity(); ++i)
        stack.push_back(u->get_child(i));
    }
    return;
  }
  while (!stack.empty()) {
    Term_ const* u = stack.back();
    if (finished(u)) {
      stack.pop_back();
      continue;
    }
    if (entered(u)) {  // its children are done
      stack.pop_back();
      set(u, finished_bit(u));
      continue;
    }
    callback_(u);
    // The term goes on the marked list before its mark is set, so that a
    // failure between the two leaves no set bit unlisted.
    marked_->push_back(u);
    set(u, entered_bit(u));
    bool pushed = false;
    for (std::size_t i = 0; i < u->get_arity(); ++i) {
      Term_ const* c = u->get_child(i);
      if (finished(c)) continue;
      stack.push_back(c);
      pushed = true;
    }
    if (!pushed) {
      stack.pop_back();
      set(u, finished_bit(u));
    }
  }
}

}  // namespace orvo

#endif  // ORVO_ITP_HOST_TERM_VISITOR_H
