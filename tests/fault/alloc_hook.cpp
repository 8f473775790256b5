#include "fault/alloc_hook.h"

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
  if (countdown == 0 || --countdown > 0) return false;
  fired = true;
  if (keep_failing) countdown = 1;
  return true;
}

// Counted like free; `record` also remembers the pointer for was_freed().
void release(void* p, bool record) noexcept {
  if (p != nullptr) {
    if (record) freed[freed_count++ % ring_size] = p;
    --live;
  }
  __real_free(p);
}

}  // namespace

extern "C" void* __wrap_malloc(std::size_t n) {
  ++calls;
  last_size = n;
  if (should_fail()) return nullptr;
  void* p = __real_malloc(n);
  live += p != nullptr;
  return p;
}

extern "C" void __wrap_free(void* p) {
  release(p, true);
}

namespace orvo {
namespace test {

std::size_t malloc_calls() {
  return calls;
}
std::size_t last_malloc_size() {
  return last_size;
}
bool failure_fired() {
  return fired;
}
long live_allocations() {
  return live;
}
void forget_frees() {
  freed_count = 0;
}

bool was_freed(void const* p) {
  for (std::size_t i = 0; i < freed_count && i < ring_size; ++i)
    if (freed[i] == p) return true;
  return false;
}

void fail_allocation(std::size_t k, bool persistent) {
  countdown = k;
  keep_failing = persistent;
  fired = false;
}

}  // namespace test
}  // namespace orvo

// operator new goes through the same hook, so container growth fails too.
// Every form is replaced, so that none pairs with a sanitizer runtime's own.
void* operator new(std::size_t n) {
  void* p = __wrap_malloc(n == 0 ? 1 : n);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}
void* operator new[](std::size_t n) {
  return operator new(n);
}
void* operator new(std::size_t n, std::nothrow_t const&) noexcept {
  return __wrap_malloc(n ? n : 1);
}
void* operator new[](std::size_t n, std::nothrow_t const&) noexcept {
  return __wrap_malloc(n ? n : 1);
}
void operator delete(void* p) noexcept {
  release(p, false);
}
void operator delete[](void* p) noexcept {
  release(p, false);
}
void operator delete(void* p, std::size_t) noexcept {
  release(p, false);
}
void operator delete[](void* p, std::size_t) noexcept {
  release(p, false);
}
