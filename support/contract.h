// Contract checks for calls outside an operation's contract. In debug builds
// a violated check prints the operation and the offending value to stderr
// and aborts; with NDEBUG defined the checks compile to nothing.
#ifndef ORVO_ITP_SUPPORT_CONTRACT_H
#define ORVO_ITP_SUPPORT_CONTRACT_H

#include <cstdio>
#include <cstdlib>

#ifdef NDEBUG
// The operands are named but not evaluated, so that variables used only in
// checks do not draw unused warnings.
#define ORVO_ITP_REQUIRE(cond, operation, what, value) \
  ((void)sizeof(cond), (void)sizeof(operation), (void)sizeof(value))
#else
#define ORVO_ITP_REQUIRE(cond, operation, what, value)                              \
  do {                                                                              \
    if (!(cond)) {                                                                  \
      std::fprintf(stderr, "invalid API usage of '%s': %s %lld\n", operation, what, \
                   static_cast<long long>(value));                                  \
      std::abort();                                                                 \
    }                                                                               \
  } while (0)
#endif

#endif  // ORVO_ITP_SUPPORT_CONTRACT_H
