// Pooled, separately chained hash tables: every set and map of the classifier.
//
// Keys are hashed without mixing (an int is its own hash, a pointer its
// address, a term its id) and spread by prime bucket counts taken from a fixed
// table. A table starts with 31 buckets and grows to the next prime when an
// insertion attempt finds the load above 0.7; it never shrinks. Chain nodes
// come from the table's own MemoryPool, so erasing and clearing recycle nodes
// without calling the C allocator.
//
// The bucket of a key is its hash modulo the bucket count, computed from a
// precomputed reciprocal of the count instead of a division (see
// detail::reduce). Behind the chain heads, in the same array, sits a two-level
// occupancy bitmap: one bit per bucket, set when a node is linked into it and
// left set by erasure, and one summary bit per 64-bucket word. clear() and
// iteration follow the bits, so clearing costs what the table holds, not its
// bucket count, and a grown table that has been emptied is cheap to scan.
//
// Iteration visits buckets in index order and each chain from its head; new
// nodes are linked at the head, so inside a bucket the newest element comes
// first (a rehash may reorder chains). The order is part of the observable
// behaviour: the classifier's debug dump prints it.
//
// Stored values must be trivially destructible and trivially copyable: nodes
// are recycled and copied without running constructors or destructors.
#ifndef ORVO_ITP_CONTAINERS_HASH_TABLE_H
#define ORVO_ITP_CONTAINERS_HASH_TABLE_H

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "containers/memory_pool.h"

namespace orvo {

struct Term_;

namespace hsh {

// Identity hashes: an int is its own hash, a pointer its address. Host terms
// are hashed by their id, not their address; that specialisation is defined
// next to the term type (host/term.h) and only declared here, so that a table
// of terms cannot silently fall back to the address hash.
template <class K>
struct hash;

template <>
struct hash<int> {
  std::uint64_t operator()(int key) const noexcept {
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(key));
  }
};

template <class T>
struct hash<T*> {
  std::uint64_t operator()(T* key) const noexcept {
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(key));
  }
};

template <>
struct hash<Term_ const*>;

namespace detail {

__extension__ typedef unsigned __int128 uint128;  // g++ and clang++ both have it

// The reciprocal of a bucket count d >= 2 for reduce(): floor((2^64 - 1) / d).
inline std::uint64_t reciprocal(std::uint64_t d) noexcept {
  return std::numeric_limits<std::uint64_t>::max() / d;
}

// h mod d, for every 64-bit h, given m = reciprocal(d). Since
// 2^64 / d - 1 <= m <= 2^64 / d, the high word of h * m undershoots the
// quotient h / d by less than 2, so h minus that estimate times d lies in
// [0, 2d) and one conditional subtraction leaves the remainder. Two
// multiplications instead of a 64-bit division.
inline std::uint64_t reduce(std::uint64_t h, std::uint64_t m, std::uint64_t d) noexcept {
  auto const q = static_cast<std::uint64_t>((static_cast<uint128>(h) * m) >> 64);
  std::uint64_t const r = h - q * d;
  return r >= d ? r - d : r;
}

inline std::uint64_t load_word(void const* slot) noexcept {
  std::uint64_t w;
  std::memcpy(&w, slot, sizeof w);
  return w;
}
inline void store_word(void* slot, std::uint64_t w) noexcept {
  std::memcpy(slot, &w, sizeof w);
}
inline unsigned lowest_bit(std::uint64_t w) noexcept {
  return static_cast<unsigned>(__builtin_ctzll(w));
}

// Length of the slot array for `nbuckets` buckets: the chain heads, one
// occupancy word per 64 buckets, one summary word per 64 occupancy words.
constexpr std::size_t slots_for(std::size_t nbuckets) noexcept {
  return nbuckets + (nbuckets + 63) / 64 + ((nbuckets + 63) / 64 + 63) / 64;
}

static_assert(sizeof(void*) == sizeof(std::uint64_t),
              "an occupancy word takes the place of one chain head");

}  // namespace detail

template <class K>
struct GetKey_identity {
  K const& operator()(K const& value) const noexcept { return value; }
};

template <class K, class V>
struct GetKey_pair {
  K const& operator()(std::pair<K, V> const& value) const noexcept { return value.first; }
};

// Bucket counts, each roughly twice the one before; one array for the whole
// program (an inline variable), not one per translation unit.
inline constexpr std::uint64_t primes[28] = {
    31ULL,        73ULL,         151ULL,        313ULL,       643ULL,       1291ULL,
    2593ULL,      5233ULL,       10501ULL,      21013ULL,     42073ULL,     84181ULL,
    168451ULL,    337219ULL,     674701ULL,     1349473ULL,   2699299ULL,   5398891ULL,
    10798093ULL,  21596719ULL,   43193641ULL,   86387383ULL,  172775299ULL, 345550609ULL,
    691101253ULL, 1382202559ULL, 2764405229ULL, 4294867387ULL};

template <class Value, class GetKey, class Key, class Hash, class Equal>
class Hashtable {
  static_assert(std::is_trivially_destructible<Value>::value &&
                    std::is_trivially_copy_constructible<Value>::value,
                "pooled nodes are recycled without constructors or destructors");

 public:
  // Chain node; while the node is free, `next` links the pool's free list.
  struct Bucket {
    Bucket* next;
    Value value;
  };

  // Forward iterator over the stored values, in bucket order.
  class Iter {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Value;
    using difference_type = std::ptrdiff_t;
    using pointer = Value const*;
    using reference = Value const&;

    Iter() noexcept = default;
    Iter(std::vector<Bucket*> const* buckets, std::size_t nbuckets, std::size_t index,
         Bucket* node) noexcept
        : buckets(buckets), nbuckets(nbuckets), index(index), node(node) {}

    reference operator*() const noexcept { return node->value; }
    pointer operator->() const noexcept { return &node->value; }
    // In a well-filled table the next chain is a few buckets away: those are
    // looked at one by one, farther ones through the occupancy bitmap.
    Iter& operator++() noexcept {
      node = node->next;
      if (node != nullptr) return *this;
      Bucket* const* const slots = buckets->data();
      std::size_t const near = nbuckets - index > 8 ? index + 8 : nbuckets;
      while (++index < near)
        if ((node = slots[index]) != nullptr) return *this;
      if (index < nbuckets) {
        index = next_occupied(slots, nbuckets, index);
        if (index < nbuckets) node = slots[index];
      }
      return *this;
    }
    Iter operator++(int) noexcept {
      Iter old = *this;
      ++*this;
      return old;
    }
    friend bool operator==(Iter const& a, Iter const& b) noexcept { return a.node == b.node; }
    friend bool operator!=(Iter const& a, Iter const& b) noexcept { return a.node != b.node; }

    std::vector<Bucket*> const* buckets = nullptr;  // the table's slot array
    std::size_t nbuckets = 0;                       // bucket count when the iterator was made
    std::size_t index = 0;                          // bucket of `node`
    Bucket* node = nullptr;                         // current node, null at the end
  };

  using value_type = Value;
  using key_type = Key;
  using size_type = std::size_t;
  using iterator = Iter;
  using const_iterator = Iter;
  using Pool = MemoryPool<sizeof(Bucket), false>;

  Hashtable() : buckets_(detail::slots_for(static_cast<std::size_t>(primes[0])), nullptr) {
    set_bucket_count(static_cast<std::size_t>(primes[0]));
  }
  Hashtable(Hashtable const& other);
  // Takes over the other table's nodes and array without touching them, so
  // that a vector of tables grows by moving; the other table may then only
  // be destroyed or assigned to.
  Hashtable(Hashtable&& other) noexcept
      : pool_(std::move(other.pool_)),
        buckets_(std::move(other.buckets_)),
        nbuckets_(other.nbuckets_),
        summary_at_(other.summary_at_),
        reciprocal_(other.reciprocal_),
        size_(other.size_) {
    other.buckets_.clear();
    other.nbuckets_ = 0;
    other.size_ = 0;
  }
  Hashtable& operator=(Hashtable const& other);
  ~Hashtable() = default;  // the pool returns every chunk, the vector its array

  std::size_t size() const noexcept { return static_cast<std::size_t>(size_); }
  bool empty() const noexcept { return size_ == 0; }
  std::size_t bucket_count() const noexcept { return nbuckets_; }

  // An empty table answers without looking at its buckets.
  Iter begin() const noexcept {
    if (size_ == 0) return end();
    std::size_t const i = next_occupied(buckets_.data(), nbuckets_, 0);
    return Iter(&buckets_, nbuckets_, i, buckets_[i]);
  }
  Iter end() const noexcept { return Iter(&buckets_, nbuckets_, nbuckets_, nullptr); }

  // The element with key `key`, or end(). An empty table answers without hashing.
  Iter find(Key const& key) const noexcept {
    if (size_ == 0) return end();
    std::size_t const index = bucket_of(key);
    for (Bucket* b = buckets_[index]; b != nullptr; b = b->next)
      if (Equal()(GetKey()(b->value), key)) return Iter(&buckets_, nbuckets_, index, b);
    return end();
  }

  // Whether the table holds `key`.
  bool contains(Key const& key) const noexcept { return find(key) != end(); }

  // Removes the element with key `key` if there is one; returns how many went.
  std::size_t erase(Key const& key) noexcept {
    std::size_t const index = bucket_of(key);
    Bucket* previous = nullptr;
    for (Bucket* b = buckets_[index]; b != nullptr; previous = b, b = b->next) {
      if (Equal()(GetKey()(b->value), key)) {
        unlink(index, previous, b);
        return 1;
      }
    }
    return 0;
  }

  // Removes the element `it` designates. PRECONDITION: `it` is not end().
  void erase(Iter it) noexcept {
    assert(it.node != nullptr && "erase(end())");
    Bucket* previous = nullptr;
    for (Bucket* b = buckets_[it.index]; b != it.node; b = b->next)
      previous = b;
    unlink(it.index, previous, it.node);
  }

  // Drops every element; the bucket array and the pool's chunks stay. The
  // marked buckets are emptied in index order, each chain from its head, so
  // nodes reach the free list in the same order as with a walk over every
  // bucket; the unmarked ones are skipped 64 or 4096 at a time.
  void clear() noexcept {
    if (size_ == 0) return;
    Bucket** const slots = buckets_.data();
    std::size_t const nwords = summary_at_ - nbuckets_;
    for (std::size_t s = 0; s * 64 < nwords; ++s) {
      std::uint64_t summary = detail::load_word(slots + summary_at_ + s);
      if (summary == 0) continue;
      detail::store_word(slots + summary_at_ + s, 0);
      for (; summary != 0; summary &= summary - 1) {
        std::size_t const w = s * 64 + detail::lowest_bit(summary);
        std::uint64_t bits = detail::load_word(slots + nbuckets_ + w);
        detail::store_word(slots + nbuckets_ + w, 0);
        for (; bits != 0; bits &= bits - 1) {
          Bucket*& head = slots[w * 64 + detail::lowest_bit(bits)];
          for (Bucket* b = head; b != nullptr;) {
            Bucket* next = b->next;
            pool_.deallocate(b);
            b = next;
          }
          head = nullptr;
        }
      }
    }
    size_ = 0;
  }

  // Grows the bucket array to the first prime not below `n` (the largest
  // prime if none is). Does nothing when there are already `n` buckets.
  void rehash(std::size_t n);

  // Consistency check, for tests and debugging (it walks every chain and the
  // free list): the bucket count is one of the primes, every node sits in the
  // bucket its key selects, keys are unique, size() counts the reachable
  // nodes, the pool has handed out at least those nodes and no free node is
  // reachable from a bucket. Returns false on the first violation.
  bool check_invariants() const;

  // The node pool, for checks and tests.
  Pool const& pool() const noexcept { return pool_; }

 protected:
  // Finds the node for `key` or links a new one holding `make()` at the head
  // of its chain, and returns it with its bucket. The growth test runs first,
  // on every call.
  template <class Make>
  Iter find_or_insert(Key const& key, Make make, bool& inserted) {
    if (static_cast<double>(static_cast<float>(size_) / static_cast<float>(nbuckets_)) > 0.7)
      rehash(nbuckets_ + 1);
    std::size_t const index = bucket_of(key);
    for (Bucket* b = buckets_[index]; b != nullptr; b = b->next) {
      if (Equal()(GetKey()(b->value), key)) {
        inserted = false;
        return Iter(&buckets_, nbuckets_, index, b);
      }
    }
    Bucket* node = new (pool_.allocate()) Bucket{buckets_[index], make()};
    buckets_[index] = node;
    mark(index);
    ++size_;
    inserted = true;
    return Iter(&buckets_, nbuckets_, index, node);
  }

  std::size_t bucket_of(Key const& key) const noexcept {
    return static_cast<std::size_t>(
        detail::reduce(Hash()(key), reciprocal_, static_cast<std::uint64_t>(nbuckets_)));
  }

 private:
  void unlink(std::size_t index, Bucket* previous, Bucket* node) noexcept {
    if (previous == nullptr)
      buckets_[index] = node->next;
    else
      previous->next = node->next;
    --size_;
    pool_.deallocate(node);
  }

  // The first bucket from `from` on whose chain is not empty, or nbuckets.
  // Only marked buckets are looked at.
  static std::size_t next_occupied(Bucket* const* slots, std::size_t nbuckets,
                                   std::size_t from) noexcept {
    for (std::size_t i = from; i < nbuckets;) {
      std::uint64_t const bits = detail::load_word(slots + nbuckets + i / 64) >> (i % 64);
      if (bits == 0) {
        i = (i / 64 + 1) * 64;
        continue;
      }
      i += detail::lowest_bit(bits);
      if (slots[i] != nullptr) return i;
      ++i;
    }
    return nbuckets;
  }

  // Records that bucket `index` may hold nodes.
  // The summary word is written only when its occupancy word was empty, so
  // that a run of insertions is not serialised on one summary word.
  void mark(std::size_t index) noexcept {
    Bucket** const slots = buckets_.data();
    std::size_t const w = index / 64;
    std::uint64_t const bits = detail::load_word(slots + nbuckets_ + w);
    detail::store_word(slots + nbuckets_ + w, bits | std::uint64_t{1} << (index % 64));
    if (bits == 0)
      detail::store_word(
          slots + summary_at_ + w / 64,
          detail::load_word(slots + summary_at_ + w / 64) | std::uint64_t{1} << (w % 64));
  }

  // Marks exactly the non-empty buckets, in one pass over the heads.
  void mark_all() noexcept {
    Bucket** const slots = buckets_.data();
    for (std::size_t w = 0; w * 64 < nbuckets_; ++w) {
      std::uint64_t bits = 0;
      std::size_t const end = nbuckets_ - w * 64 < 64 ? nbuckets_ - w * 64 : 64;
      for (std::size_t j = 0; j < end; ++j)
        bits |= static_cast<std::uint64_t>(slots[w * 64 + j] != nullptr) << j;
      detail::store_word(slots + nbuckets_ + w, bits);
      if (bits != 0)
        detail::store_word(
            slots + summary_at_ + w / 64,
            detail::load_word(slots + summary_at_ + w / 64) | std::uint64_t{1} << (w % 64));
    }
  }

  // Takes `n` as the bucket count of the current slot array.
  void set_bucket_count(std::size_t n) noexcept {
    nbuckets_ = n;
    summary_at_ = n + (n + 63) / 64;
    reciprocal_ = detail::reciprocal(static_cast<std::uint64_t>(n));
  }

  // Replaces every chain with a copy of `other`'s chain at the same index,
  // taking nodes from this table's pool, and marks the buckets anew. Chains
  // already here are dropped without returning their nodes to the free list.
  void copy_chains_from(Hashtable const& other);

  Pool pool_;  // source of every node of this table
  // Chain heads (null for an empty bucket), then the occupancy words, then
  // the summary words: detail::slots_for(nbuckets_) slots in all.
  std::vector<Bucket*> buckets_;
  std::size_t nbuckets_ = 0;      // bucket count
  std::size_t summary_at_ = 0;    // index of the first summary word in buckets_
  std::uint64_t reciprocal_ = 0;  // detail::reciprocal(nbuckets_)
  std::uint64_t size_ = 0;        // number of stored elements
};

template <class V, class G, class K, class H, class E>
Hashtable<V, G, K, H, E>::Hashtable(Hashtable const& other)
    : buckets_(other.buckets_.size(), nullptr) {
  set_bucket_count(other.nbuckets_);
  // Members are complete here: if the pool throws, their destructors return
  // the chunks and the array already obtained.
  copy_chains_from(other);
  size_ = other.size_;
}

template <class V, class G, class K, class H, class E>
Hashtable<V, G, K, H, E>& Hashtable<V, G, K, H, E>::operator=(Hashtable const& other) {
  if (this == &other) return *this;
  buckets_.resize(other.buckets_.size(), nullptr);
  set_bucket_count(other.nbuckets_);
  try {
    copy_chains_from(other);
  } catch (...) {
    // Leave a consistent empty table rather than a half-built one.
    for (Bucket*& slot : buckets_)
      slot = nullptr;
    size_ = 0;
    throw;
  }
  size_ = other.size_;
  return *this;
}

template <class V, class G, class K, class H, class E>
void Hashtable<V, G, K, H, E>::copy_chains_from(Hashtable const& other) {
  for (std::size_t i = nbuckets_; i < buckets_.size(); ++i)
    buckets_[i] = nullptr;
  for (std::size_t i = 0; i < nbuckets_; ++i) {
    buckets_[i] = nullptr;
    Bucket** tail = &buckets_[i];
    for (Bucket const* b = other.buckets_[i]; b != nullptr; b = b->next) {
      Bucket* node = new (pool_.allocate()) Bucket{nullptr, b->value};
      *tail = node;
      tail = &node->next;
    }
    if (buckets_[i] != nullptr) mark(i);
  }
}

template <class V, class G, class K, class H, class E>
void Hashtable<V, G, K, H, E>::rehash(std::size_t n) {
  if (nbuckets_ >= n) return;
  // The first prime not below n among all but the last, else the last.
  std::uint64_t const count =
      *std::lower_bound(std::begin(primes), std::end(primes) - 1, static_cast<std::uint64_t>(n));
  // The new array is obtained before anything moves, so a failure leaves the
  // table as it was.
  std::vector<Bucket*> old(detail::slots_for(static_cast<std::size_t>(count)), nullptr);
  old.swap(buckets_);
  std::size_t const old_count = nbuckets_;
  set_bucket_count(static_cast<std::size_t>(count));
  for (std::size_t i = 0; i < old_count; ++i) {
    Bucket* b = old[i];
    while (b != nullptr) {
      Bucket* next = b->next;
      std::size_t const index = bucket_of(G()(b->value));
      b->next = buckets_[index];
      buckets_[index] = b;
      b = next;
    }
  }
  mark_all();
}

// The tests' oracle: its failure branches are taken only on a broken table,
// so coverage counts its lines, not its branches.
template <class V, class G, class K, class H, class E>
bool Hashtable<V, G, K, H, E>::check_invariants() const {
  // GCOVR_EXCL_BR_START
  bool bucket_count_is_prime = false;
  for (std::uint64_t p : primes)
    bucket_count_is_prime |= (p == nbuckets_);
  if (!bucket_count_is_prime || buckets_.size() != detail::slots_for(nbuckets_)) return false;
  Bucket* const* const slots = buckets_.data();
  std::uint64_t reachable = 0;
  for (std::size_t i = 0; i < nbuckets_; ++i) {
    // A non-empty bucket is marked, and so is its occupancy word.
    std::size_t const w = i / 64;
    if (buckets_[i] != nullptr &&
        (((detail::load_word(slots + nbuckets_ + w) >> (i % 64)) & 1) == 0 ||
         ((detail::load_word(slots + summary_at_ + w / 64) >> (w % 64)) & 1) == 0))
      return false;
    for (Bucket const* b = buckets_[i]; b != nullptr; b = b->next) {
      if (bucket_of(G()(b->value)) != i) return false;
      for (Bucket const* c = b->next; c != nullptr; c = c->next)
        if (E()(G()(c->value), G()(b->value))) return false;
      ++reachable;
    }
  }
  // Assignment drops the target's old nodes without returning them to the
  // free list, so the pool may have handed out more nodes than are reachable.
  if (reachable != size_ || pool_.handed_out() < size_) return false;
  std::vector<void const*> free_nodes;
  pool_.for_each_free([&free_nodes](void const* node) { free_nodes.push_back(node); });
  std::sort(free_nodes.begin(), free_nodes.end(), std::less<void const*>());
  for (std::size_t i = 0; i < nbuckets_; ++i)
    for (Bucket const* b = buckets_[i]; b != nullptr; b = b->next)
      if (std::binary_search(free_nodes.begin(), free_nodes.end(), static_cast<void const*>(b),
                             std::less<void const*>()))
        return false;
  return true;
  // GCOVR_EXCL_BR_STOP
}

// A set of keys.
template <class K, class Hash = hash<K>, class Equal = std::equal_to<K>>
class HashSet : public Hashtable<K, GetKey_identity<K>, K, Hash, Equal> {
  using Base = Hashtable<K, GetKey_identity<K>, K, Hash, Equal>;

 public:
  // Adds `key` if absent. Returns the element and whether it was added.
  std::pair<typename Base::Iter, bool> insert(K const& key) {
    bool inserted = false;
    auto it = this->find_or_insert(
        key, [&key] { return key; }, inserted);
    return {it, inserted};
  }
};

// A map from keys to values; a missing key reads as a new entry holding 0.
template <class K, class V, class Hash = hash<K>, class Equal = std::equal_to<K>>
class HashMap : public Hashtable<std::pair<K, V>, GetKey_pair<K, V>, K, Hash, Equal> {
 public:
  // The value stored for `key`; an absent key is first inserted with value 0.
  V& operator[](K const& key) {
    bool inserted = false;
    return this
        ->find_or_insert(
            key, [&key] { return std::pair<K, V>(key, V(0)); }, inserted)
        .node->value.second;
  }
};

}  // namespace hsh
}  // namespace orvo

#endif  // ORVO_ITP_CONTAINERS_HASH_TABLE_H
