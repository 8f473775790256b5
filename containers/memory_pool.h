// Fixed-size node pool behind every hash table.
//
// A pool hands out blocks of N bytes carved from chunks obtained with
// `malloc`. Chunks start at 16 nodes and double up to 8192 nodes; they are
// chained through their first word and returned to the C allocator only when
// the pool is destroyed. Released nodes go on a free list threaded through
// their first word, so a table that erases and refills never touches the C
// allocator.
//
// Under AddressSanitizer (or with ORVO_ITP_VALGRIND defined, under valgrind's
// memcheck) nodes on the free list are poisoned whole, so a read or write of
// an erased element is reported instead of silently hitting recycled memory.
#ifndef ORVO_ITP_CONTAINERS_MEMORY_POOL_H
#define ORVO_ITP_CONTAINERS_MEMORY_POOL_H

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORVO_ITP_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(ORVO_ITP_ASAN)
#define ORVO_ITP_ASAN 1
#endif

#if defined(ORVO_ITP_ASAN)
#include <sanitizer/asan_interface.h>
#endif
#if defined(ORVO_ITP_VALGRIND)
#include <valgrind/memcheck.h>
#endif

namespace orvo {

namespace pool_detail {

// Marks a free node as off limits for the memory checkers.
inline void poison(void* p, std::size_t n) noexcept {
#if defined(ORVO_ITP_ASAN)
  ASAN_POISON_MEMORY_REGION(p, n);
#endif
#if defined(ORVO_ITP_VALGRIND)
  VALGRIND_MAKE_MEM_NOACCESS(p, n);
#endif
  (void)p;
  (void)n;
}

// Makes a node accessible again. Its bytes count as defined: the free-list
// link in its first word is read right after, and the rest is overwritten by
// the table before use.
inline void unpoison(void* p, std::size_t n) noexcept {
#if defined(ORVO_ITP_ASAN)
  ASAN_UNPOISON_MEMORY_REGION(p, n);
#endif
#if defined(ORVO_ITP_VALGRIND)
  VALGRIND_MAKE_MEM_DEFINED(p, n);
#endif
  (void)p;
  (void)n;
}

inline void* next_of(void* node) noexcept {
  return *static_cast<void**>(node);
}
inline void set_next(void* node, void* next) noexcept {
  *static_cast<void**>(node) = next;
}

}  // namespace pool_detail

// `flag` selects a variant that no part of the system uses; both values
// behave the same here.
template <std::size_t N, bool flag>
class MemoryPool {
  static_assert(N >= sizeof(void*), "a node must hold the free-list link");
  static_assert(N % alignof(void*) == 0, "nodes are laid out pointer-aligned");

 public:
  static constexpr std::size_t node_size = N;

  MemoryPool() noexcept = default;
  // Takes over the other pool's chunks and nodes; the other is left empty.
  MemoryPool(MemoryPool&& other) noexcept
      : chunk_size_(other.chunk_size_),
        growth_(other.growth_),
        max_chunk_size_(other.max_chunk_size_),
        chunks_(other.chunks_),
        free_list_(other.free_list_),
        handed_out_(other.handed_out_) {
    other.chunks_ = nullptr;
    other.free_list_ = nullptr;
    other.handed_out_ = 0;
  }
  MemoryPool(MemoryPool const&) = delete;
  MemoryPool& operator=(MemoryPool const&) = delete;
  ~MemoryPool() { release_chunks(); }

  // An uninitialised N-byte node. Throws std::bad_alloc, with the pool
  // unchanged, when a new chunk cannot be obtained.
  void* allocate() {
    if (free_list_ == nullptr) refill();
    void* node = free_list_;
    pool_detail::unpoison(node, N);
    free_list_ = pool_detail::next_of(node);
    // The next allocation reads the new head's link: fetch it now, so that a
    // free list scattered over the chunks (as clear() leaves it) is not a
    // chain of cache misses, one per insertion.
    __builtin_prefetch(free_list_);
    ++handed_out_;
    return node;
  }

  // Puts a node obtained from this pool back on the free list.
  void deallocate(void* node) noexcept {
    assert(handed_out_ > 0 && "pool count below zero: a node given back twice or to another pool");
    pool_detail::set_next(node, free_list_);
    pool_detail::poison(node, N);
    free_list_ = node;
    --handed_out_;
  }

  // Nodes currently handed out (allocated and not yet deallocated).
  std::size_t handed_out() const noexcept { return handed_out_; }
  // Nodes in the next chunk to be allocated.
  std::uint64_t next_chunk_size() const noexcept { return chunk_size_; }
  // Calls `f` on every node of the free list; for checks and tests only.
  template <class F>
  void for_each_free(F&& f) const {
    for (void* p = free_list_; p != nullptr;) {
      pool_detail::unpoison(p, sizeof(void*));
      void* next = pool_detail::next_of(p);
      pool_detail::poison(p, N);
      f(static_cast<void const*>(p));
      p = next;
    }
  }
  // Length of the free list; walks it, so for checks and tests only.
  std::size_t free_count() const noexcept {
    std::size_t n = 0;
    for_each_free([&n](void const*) { ++n; });
    return n;
  }

 private:
  void refill();
  void release_chunks() noexcept;

  std::uint64_t chunk_size_ = 16;        // nodes in the next chunk
  float growth_ = 2.0f;                  // factor applied after each chunk
  std::uint64_t max_chunk_size_ = 8192;  // cap on chunk_size_
  void* chunks_ = nullptr;               // newest chunk; older ones chained by first word
  void* free_list_ = nullptr;            // first free node
  std::size_t handed_out_ = 0;           // bookkeeping for the invariant checks
};

// Allocates one chunk of chunk_size_ nodes, threads them in address order and
// makes them the free list (which is empty on entry).
template <std::size_t N, bool flag>
#if defined(__GNUC__)
__attribute__((noinline))
#endif
void MemoryPool<N, flag>::refill() {
  std::uint64_t const c = chunk_size_;
  void* block = std::malloc(sizeof(void*) + static_cast<std::size_t>(c) * N);
  if (block == nullptr) throw std::bad_alloc();
  pool_detail::set_next(block, chunks_);
  chunks_ = block;

  auto next = static_cast<std::uint64_t>(static_cast<float>(c) * growth_);
  if (max_chunk_size_ < next) next = max_chunk_size_;
  chunk_size_ = next;

  char* first = static_cast<char*>(block) + sizeof(void*);
  for (std::uint64_t i = 0; i < c; ++i) {
    char* node = first + i * N;
    pool_detail::set_next(node, i + 1 < c ? node + N : nullptr);
    pool_detail::poison(node, N);
  }
  free_list_ = first;
}

template <std::size_t N, bool flag>
void MemoryPool<N, flag>::release_chunks() noexcept {
  void* chunk = chunks_;
  while (chunk != nullptr) {
    void* previous = pool_detail::next_of(chunk);
    std::free(chunk);
    chunk = previous;
  }
  chunks_ = nullptr;
  free_list_ = nullptr;
}

}  // namespace orvo

#endif  // ORVO_ITP_CONTAINERS_MEMORY_POOL_H
