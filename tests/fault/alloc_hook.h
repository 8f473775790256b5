// Test-only view of the C allocator and operator new, through the linker's
// --wrap of malloc and free: counts calls, records freed pointers, and fails
// the k-th allocation on request (once, or from then on).
#ifndef ORVO_ITP_TESTS_ALLOC_HOOK_H
#define ORVO_ITP_TESTS_ALLOC_HOOK_H

#include <cstddef>

namespace orvo {
namespace test {

// malloc calls (including operator new) since the start of the process.
std::size_t malloc_calls();
// Size of the most recent malloc request.
std::size_t last_malloc_size();
// Whether `p` was passed to free since the last forget_frees().
bool was_freed(void const* p);
void forget_frees();
// Blocks obtained through malloc or operator new and not yet given back with
// free or operator delete. Only differences between two readings mean
// anything: compare before and after a scope to find what it leaked.
long live_allocations();

// Makes the k-th allocation from now (k >= 1) fail; with `persistent`, every
// later one fails too. k = 0 disarms. Failures of malloc return null, those of
// operator new throw std::bad_alloc.
void fail_allocation(std::size_t k, bool persistent = false);
// Whether an armed failure has fired since the last fail_allocation().
bool failure_fired();

// Disarms on destruction, so that an assertion failing mid-test cannot leave
// the allocator failing for the rest of the suite.
struct FailureScope {
  FailureScope(std::size_t k, bool persistent = false) { fail_allocation(k, persistent); }
  ~FailureScope() { fail_allocation(0); }
  FailureScope(FailureScope const&) = delete;
  FailureScope& operator=(FailureScope const&) = delete;
};

}  // namespace test
}  // namespace orvo

#endif  // ORVO_ITP_TESTS_ALLOC_HOOK_H
