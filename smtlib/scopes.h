// The levels of a script: one push or pop moves the reader's declarations,
// the live groups and the classifier's backtrack points together.
//
// `(push n)` costs what `(push 1)` costs: a push of n levels is one real
// level (a reader scope and a classifier backtrack point) with n - 1 empty
// levels beneath it, which hold nothing until a pop uncovers them. A pop of
// m levels closes at most one real level per push it reaches, so a script's
// levels cost its number of push and pop commands, whatever their counts.
#ifndef ORVO_ITP_SMTLIB_SCOPES_H
#define ORVO_ITP_SMTLIB_SCOPES_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "classifier/atom_classifier.h"
#include "classifier/cut_index.h"
#include "smtlib/sexpr.h"
#include "smtlib/z3_reader.h"

namespace orvo {
namespace smtlib {

class Scopes {
 public:
  // Both must outlive the scopes.
  Scopes(Z3Reader& reader, itp::AtomClassifier& classifier)
      : reader_(reader), classifier_(classifier), holders_(classifier) {}

  // Opens n levels (n >= 1).
  void push(std::uint64_t n);
  // Closes n levels: what they declared goes out of scope, the groups they
  // opened are withdrawn (they stay, empty). Throws ScriptError at `at` when
  // fewer than n are open.
  void pop(std::uint64_t n, Position at);
  // Group g was opened at the innermost level.
  void add_group(int g);
  // Live group g is filled: holders() counts it until a pop withdraws it.
  void count_group(int g) { holders_.add(g); }
  // How many of the filled live groups hold each symbol and atom.
  itp::HolderCounts const& holders() const noexcept { return holders_; }

  std::uint64_t depth() const noexcept { return depth_; }  // open levels
  // The groups not withdrawn by a pop, in the order they were opened.
  std::vector<int> const& live() const noexcept { return live_; }
  bool is_live(int g) const noexcept {
    return g >= 0 && static_cast<std::size_t>(g) < is_live_.size() && is_live_[g] != 0;
  }
  // By group index: 1 when live.
  std::vector<char> const& live_flags() const noexcept { return is_live_; }
  // The real levels the last pop left untouched (those below the first it
  // closed); a pop that closes part of a push opens one after them.
  std::size_t kept_levels() const noexcept { return kept_; }
  // The groups the last pop withdrew, newest first.
  std::vector<int> const& withdrawn() const noexcept { return withdrawn_; }
  // Real levels (reader scopes and classifier backtrack points) open now.
  std::size_t real_levels() const noexcept { return frames_.size(); }

 private:
  struct Frame {
    std::uint64_t empty_below;  // empty levels pushed with this one
    std::size_t live_mark;      // live_.size() when it was opened
  };
  void open_real(std::uint64_t empty_below);
  void close_real();

  Z3Reader& reader_;
  itp::AtomClassifier& classifier_;
  itp::HolderCounts holders_;   // of the counted live groups
  std::vector<Frame> frames_;   // real levels, innermost last
  std::uint64_t depth_ = 0;     // levels, empty ones included
  std::vector<int> live_;       // live groups in order
  std::vector<char> is_live_;   // by group index
  std::vector<int> withdrawn_;  // by the last pop
  std::size_t kept_ = 0;        // real levels the last pop left
};

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_SCOPES_H
