#include "smtlib/z3_guard.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace orvo {
namespace smtlib {

namespace {

// What the exit handler reports; written before z3 runs, read only at exit.
struct GuardState {
  bool active = false;
  char line[512] = {};
};
GuardState state;

void on_exit() {
  if (!state.active) return;
  std::fflush(stdout);
  std::fputs(state.line, stderr);
  std::fflush(stderr);
  ::_exit(1);
}

}  // namespace

Z3ExitGuard::Z3ExitGuard(std::string const& file, Position where) : outer_(!state.active) {
  static bool const registered = std::atexit(on_exit) == 0;
  (void)registered;
  if (!outer_) return;
  std::snprintf(state.line, sizeof state.line, "%s:%d:%d: error: z3 ran out of memory\n",
                file.c_str(), where.line, where.column);
  state.active = true;
}

Z3ExitGuard::~Z3ExitGuard() {
  if (outer_) state.active = false;
}

}  // namespace smtlib
}  // namespace orvo
