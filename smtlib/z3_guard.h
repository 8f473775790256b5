// z3 ends the process by itself when it runs out of memory inside a call
// (exit status 101, nothing said). While a guard lives, such an exit is
// turned into the program's own: one line FILE:LINE:COL: error: ... on
// standard error and exit status 1.
#ifndef ORVO_ITP_SMTLIB_Z3_GUARD_H
#define ORVO_ITP_SMTLIB_Z3_GUARD_H

#include <string>

#include "smtlib/sexpr.h"

namespace orvo {
namespace smtlib {

class Z3ExitGuard {
 public:
  // `file` and `where` name the input z3 is working on.
  Z3ExitGuard(std::string const& file, Position where);
  Z3ExitGuard(Z3ExitGuard const&) = delete;
  Z3ExitGuard& operator=(Z3ExitGuard const&) = delete;
  ~Z3ExitGuard();

 private:
  bool outer_;  // guards nest: the outermost one clears the state
};

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_Z3_GUARD_H
