#include "smtlib/scopes.h"

#include <string>

namespace orvo {
namespace smtlib {

void Scopes::open_real(std::uint64_t empty_below) {
  classifier_.push_backtrack_point();
  reader_.push();
  frames_.push_back(Frame{empty_below, live_.size()});
}

void Scopes::close_real() {
  Frame const f = frames_.back();
  frames_.pop_back();
  for (std::size_t i = f.live_mark; i < live_.size(); ++i)  // before the pop empties them
    holders_.remove(live_[i]);
  classifier_.pop_backtrack_point();
  reader_.pop();
  for (std::size_t i = f.live_mark; i < live_.size(); ++i)
    is_live_[static_cast<std::size_t>(live_[i])] = 0;
  for (std::size_t i = live_.size(); i-- > f.live_mark;)
    withdrawn_.push_back(live_[i]);
  live_.resize(f.live_mark);
}

void Scopes::push(std::uint64_t n) {
  if (n == 0) return;
  open_real(n - 1);
  depth_ += n;
}

void Scopes::pop(std::uint64_t n, Position at) {
  if (n > depth_)
    throw ScriptError(at, "pop of " + std::to_string(n) + " levels below level 0 (" +
                              std::to_string(depth_) + " open)");
  depth_ -= n;
  withdrawn_.clear();
  kept_ = frames_.size();
  while (n > 0) {
    std::uint64_t const levels = frames_.back().empty_below + 1;
    close_real();
    kept_ = frames_.size();
    if (n < levels) {
      // Part of this push stays open: its innermost remaining level becomes
      // the real one that the next commands fill.
      open_real(levels - n - 1);
      return;
    }
    n -= levels;
  }
}

void Scopes::add_group(int g) {
  auto const index = static_cast<std::size_t>(g);
  if (index >= is_live_.size()) is_live_.resize(index + 1, 0);
  is_live_[index] = 1;
  live_.push_back(g);
}

}  // namespace smtlib
}  // namespace orvo
