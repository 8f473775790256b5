// Pooled, separately chained hash tables: every set and map of the classifier.
//
// Keys are hashed without mixing (an int is its own hash, a pointer its
// address, a term its id) and spread by prime bucket counts taken from a fixed
// table. A table starts with 31 buckets and grows to the next prime when an
// insertion attempt finds the load above 0.7; it never shrinks. Chain nodes
// come from the table's own MemoryPool, so erasing and clearing recycle nodes
// without calling the C allocator.
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
#include <functional>
#include <iterator>
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

template <class K>
struct GetKey_identity {
  K const& operator()(K const& value) const noexcept { return value; }
};

template <class K, class V>
struct GetKey_pair {
  K const& operator()(std::pair<K, V> const& value) const noexcept { return value.first; }
};

namespace {
// Bucket counts, each roughly twice the one before.
constexpr std::uint64_t primes[28] = {
    31ULL,        73ULL,         151ULL,        313ULL,       643ULL,       1291ULL,
    2593ULL,      5233ULL,       10501ULL,      21013ULL,     42073ULL,     84181ULL,
    168451ULL,    337219ULL,     674701ULL,     1349473ULL,   2699299ULL,   5398891ULL,
    10798093ULL,  21596719ULL,   43193641ULL,   86387383ULL,  172775299ULL, 345550609ULL,
    691101253ULL, 1382202559ULL, 2764405229ULL, 4294867387ULL};
}  // namespace

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
    Iter(std::vector<Bucket*> const* buckets, std::size_t index, Bucket* node) noexcept
        : buckets(buckets), nbuckets(buckets->size()), index(index), node(node) {}

    reference operator*() const noexcept { return node->value; }
    pointer operator->() const noexcept { return &node->value; }
    Iter& operator++() noexcept {
      node = node->next;
      while (node == nullptr && ++index < nbuckets)
        node = (*buckets)[index];
      return *this;
    }
    Iter operator++(int) noexcept {
      Iter old = *this;
      ++*this;
      return old;
    }
    friend bool operator==(Iter const& a, Iter const& b) noexcept { return a.node == b.node; }
    friend bool operator!=(Iter const& a, Iter const& b) noexcept { return a.node != b.node; }

    std::vector<Bucket*> const* buckets = nullptr;  // the table's bucket vector
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

  Hashtable() : buckets_(static_cast<std::size_t>(primes[0]), nullptr) {}
  Hashtable(Hashtable const& other);
  Hashtable& operator=(Hashtable const& other);
  ~Hashtable() = default;  // the pool returns every chunk, the vector its array

  std::size_t size() const noexcept { return static_cast<std::size_t>(size_); }
  bool empty() const noexcept { return size_ == 0; }
  std::size_t bucket_count() const noexcept { return buckets_.size(); }

  Iter begin() const noexcept {
    for (std::size_t i = 0; i < buckets_.size(); ++i)
      if (buckets_[i] != nullptr) return Iter(&buckets_, i, buckets_[i]);
    return end();
  }
  Iter end() const noexcept { return Iter(&buckets_, buckets_.size(), nullptr); }

  // The element with key `key`, or end(). An empty table answers without hashing.
  Iter find(Key const& key) const noexcept {
    if (size_ == 0) return end();
    std::size_t const index = bucket_of(key);
    for (Bucket* b = buckets_[index]; b != nullptr; b = b->next)
      if (Equal()(GetKey()(b->value), key)) return Iter(&buckets_, index, b);
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

  // Drops every element; the bucket array and the pool's chunks stay.
  void clear() noexcept {
    if (size_ == 0) return;
    for (Bucket*& head : buckets_) {
      Bucket* b = head;
      while (b != nullptr) {
        Bucket* next = b->next;
        pool_.deallocate(b);
        b = next;
      }
      head = nullptr;
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
  // of its chain. The growth test runs first, on every call.
  template <class Make>
  Bucket* find_or_insert(Key const& key, Make make, bool& inserted) {
    if (static_cast<double>(static_cast<float>(size_) / static_cast<float>(buckets_.size())) > 0.7)
      rehash(buckets_.size() + 1);
    std::size_t const index = bucket_of(key);
    for (Bucket* b = buckets_[index]; b != nullptr; b = b->next) {
      if (Equal()(GetKey()(b->value), key)) {
        inserted = false;
        return b;
      }
    }
    Bucket* node = new (pool_.allocate()) Bucket{buckets_[index], make()};
    buckets_[index] = node;
    ++size_;
    inserted = true;
    return node;
  }

  Iter iter_at(Bucket* node) const noexcept {
    return Iter(&buckets_, bucket_of(GetKey()(node->value)), node);
  }

  std::size_t bucket_of(Key const& key) const noexcept {
    return static_cast<std::size_t>(Hash()(key) % static_cast<std::uint64_t>(buckets_.size()));
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

  // Replaces every chain with a copy of `other`'s chain at the same index,
  // taking nodes from this table's pool. Chains already here are dropped
  // without returning their nodes to the free list.
  void copy_chains_from(Hashtable const& other);

  Pool pool_;                     // source of every node of this table
  std::vector<Bucket*> buckets_;  // chain heads; null for an empty bucket
  std::uint64_t size_ = 0;        // number of stored elements
};

template <class V, class G, class K, class H, class E>
Hashtable<V, G, K, H, E>::Hashtable(Hashtable const& other)
    : buckets_(other.buckets_.size(), nullptr) {
  // Members are complete here: if the pool throws, their destructors return
  // the chunks and the array already obtained.
  copy_chains_from(other);
  size_ = other.size_;
}

template <class V, class G, class K, class H, class E>
Hashtable<V, G, K, H, E>& Hashtable<V, G, K, H, E>::operator=(Hashtable const& other) {
  if (this == &other) return *this;
  buckets_.resize(other.buckets_.size(), nullptr);
  try {
    copy_chains_from(other);
  } catch (...) {
    // Leave a consistent empty table rather than a half-built one.
    for (Bucket*& head : buckets_)
      head = nullptr;
    size_ = 0;
    throw;
  }
  size_ = other.size_;
  return *this;
}

template <class V, class G, class K, class H, class E>
void Hashtable<V, G, K, H, E>::copy_chains_from(Hashtable const& other) {
  for (std::size_t i = 0; i < other.buckets_.size(); ++i) {
    buckets_[i] = nullptr;
    Bucket** tail = &buckets_[i];
    for (Bucket const* b = other.buckets_[i]; b != nullptr; b = b->next) {
      Bucket* node = new (pool_.allocate()) Bucket{nullptr, b->value};
      *tail = node;
      tail = &node->next;
    }
  }
}

template <class V, class G, class K, class H, class E>
void Hashtable<V, G, K, H, E>::rehash(std::size_t n) {
  if (buckets_.size() >= n) return;
  std::uint64_t count = primes[27];
  for (std::uint64_t p : primes) {
    if (p >= n) {
      count = p;
      break;
    }
  }
  // The new array is obtained before anything moves, so a failure leaves the
  // table as it was.
  std::vector<Bucket*> old(static_cast<std::size_t>(count), nullptr);
  old.swap(buckets_);
  for (Bucket* head : old) {
    Bucket* b = head;
    while (b != nullptr) {
      Bucket* next = b->next;
      std::size_t const index = bucket_of(G()(b->value));
      b->next = buckets_[index];
      buckets_[index] = b;
      b = next;
    }
  }
}

template <class V, class G, class K, class H, class E>
bool Hashtable<V, G, K, H, E>::check_invariants() const {
  bool bucket_count_is_prime = false;
  for (std::uint64_t p : primes)
    bucket_count_is_prime |= (p == buckets_.size());
  if (!bucket_count_is_prime) return false;
  std::uint64_t reachable = 0;
  for (std::size_t i = 0; i < buckets_.size(); ++i) {
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
  for (Bucket* head : buckets_)
    for (Bucket const* b = head; b != nullptr; b = b->next)
      if (std::binary_search(free_nodes.begin(), free_nodes.end(), static_cast<void const*>(b),
                             std::less<void const*>()))
        return false;
  return true;
}

// A set of keys.
template <class K, class Hash = hash<K>, class Equal = std::equal_to<K>>
class HashSet : public Hashtable<K, GetKey_identity<K>, K, Hash, Equal> {
  using Base = Hashtable<K, GetKey_identity<K>, K, Hash, Equal>;

 public:
  // Adds `key` if absent. Returns the element and whether it was added.
  std::pair<typename Base::Iter, bool> insert(K const& key) {
    bool inserted = false;
    auto* node = this->find_or_insert(
        key, [&key] { return key; }, inserted);
    return {this->iter_at(node), inserted};
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
        ->value.second;
  }
};

}  // namespace hsh
}  // namespace orvo

#endif  // ORVO_ITP_CONTAINERS_HASH_TABLE_H
