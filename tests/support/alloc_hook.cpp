#include "alloc_hook.h"

#include <cstdlib>
#include <new>

extern "C" void* __real_malloc(std::size_t);
extern "C" void __real_free(void*);

namespace {

std::size_t calls = 0;
std::size_t last_size = 0;
std::size_t countdown = 0;  // 0: disarmed
bool keep_failing = false;
bool fired = false;
long live = 0;  // successful allocations minus releases of non-null blocks

// Freed pointers since forget_frees(); a fixed ring, since free may not allocate.
constexpr std::size_t ring_size = 1 << 14;
void const* freed[ring_size];
std::size_t freed_count = 0;

bool should_fail() {
  if (countdown == 0) return false;
  if (countdown > 1) {
    --countdown;
    return false;
  }
  fired = true;
  if (!keep_failing) countdown = 0;
  return true;
}

}  // namespace

extern "C" void* __wrap_malloc(std::size_t n) {
  ++calls;
  last_size = n;
  if (should_fail()) return nullptr;
  void* p = __real_malloc(n);
  if (p != nullptr) ++live;
  return p;
}

extern "C" void __wrap_free(void* p) {
  if (p != nullptr) {
    freed[freed_count++ % ring_size] = p;
    --live;
  }
  __real_free(p);
}

namespace orvo {
namespace test {

std::size_t malloc_calls() {
  return calls;
}
std::size_t last_malloc_size() {
  return last_size;
}

bool was_freed(void const* p) {
  std::size_t const n = freed_count < ring_size ? freed_count : ring_size;
  for (std::size_t i = 0; i < n; ++i)
    if (freed[i] == p) return true;
  return false;
}

void forget_frees() {
  freed_count = 0;
}

void fail_allocation(std::size_t k, bool persistent) {
  countdown = k;
  keep_failing = persistent;
  fired = false;
}

bool failure_fired() {
  return fired;
}

long live_allocations() {
  return live;
}

}  // namespace test
}  // namespace orvo

namespace {
// operator delete: counted like free, but not recorded for was_freed().
void release(void* p) noexcept {
  if (p != nullptr) --live;
  __real_free(p);
}
}  // namespace

// operator new goes through the same hook, so container growth fails too.
void* operator new(std::size_t n) {
  void* p = __wrap_malloc(n == 0 ? 1 : n);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void* operator new[](std::size_t n) {
  return operator new(n);
}
void* operator new(std::size_t n, std::nothrow_t const&) noexcept {
  return __wrap_malloc(n == 0 ? 1 : n);
}
void* operator new[](std::size_t n, std::nothrow_t const&) noexcept {
  return __wrap_malloc(n == 0 ? 1 : n);
}
void operator delete(void* p) noexcept {
  release(p);
}
void operator delete[](void* p) noexcept {
  release(p);
}
void operator delete(void* p, std::size_t) noexcept {
  release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  release(p);
}
