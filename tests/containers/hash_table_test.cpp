// Pooled hash tables: exact bucket counts at the growth thresholds, bucket
// placement and iteration order, pool chunk sizes seen at the C allocator,
// node recycling, copy and assignment; the reciprocal bucket index against
// division. The model-based test checks contents and iteration orders after
// every operation, so the occupancy marks behind clear() and iteration are
// proved there.
// Allocation failures are covered by the fault-injection test.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <type_traits>
#include <vector>

#include "containers/hash_table.h"
#include "fault/alloc_hook.h"
#include "host/term.h"

namespace {

using namespace orvo::hsh;
using namespace orvo::test;
using orvo::Symbol;

alignas(16) char arena[4096];  // its addresses serve as symbol keys; never dereferenced

template <class T>
typename T::key_type key_at(std::size_t i) {
  if constexpr (std::is_same<typename T::key_type, int>::value)
    return static_cast<int>(i) * 7 - 300;
  else
    return reinterpret_cast<Symbol const*>(arena + 16 * i);
}
template <class T>
void add(T& t, typename T::key_type k) {
  if constexpr (std::is_same<typename T::value_type, typename T::key_type>::value)
    t.insert(k);
  else
    ++t[k];
}
template <class T>
std::vector<typename T::value_type> contents(T const& t) {
  return {t.begin(), t.end()};  // the range constructor
}

template <class T>
class PooledTable : public ::testing::Test {};
using Tables =
    ::testing::Types<HashSet<int>, HashSet<Symbol const*>, HashMap<Symbol const*, unsigned>>;
struct TableNames {
  template <class T>
  static std::string GetName(int i) {
    return i == 0 ? "IntSet" : i == 1 ? "SymbolSet" : "SymbolMap";
  }
};
TYPED_TEST_SUITE(PooledTable, Tables, TableNames);

TYPED_TEST(PooledTable, GrowthChunksRecyclingCopyAndAssignment) {
  using T = TypeParam;
  // A chunk is a link word and n nodes of 16 bytes (sets) or 24 (maps with a pointer key).
  std::size_t const node =
      std::is_same<typename T::key_type, typename T::value_type>::value ? 16 : 24;
  auto fill = [](T& t, std::size_t n) {
    while (t.size() < n)
      add(t, key_at<T>(t.size()));
  };
  T t;
  EXPECT_TRUE(t.find(key_at<T>(0)) == t.end());  // 31 buckets: see the growth steps below
  std::size_t calls = malloc_calls();
  fill(t, 16);
  EXPECT_EQ(malloc_calls() - calls, 1u);
  EXPECT_EQ(last_malloc_size(), sizeof(void*) + 16 * node);
  // Erased nodes go back to the pool: erasing everything and refilling takes
  // no new chunk.
  t.erase(t.find(key_at<T>(0)));  // through an iterator, then by key
  std::size_t erased = 0;
  for (std::size_t i = 1; i < 16; ++i)
    erased += t.erase(key_at<T>(i));
  EXPECT_EQ(erased, 15u);
  EXPECT_EQ(t.pool().handed_out(), 0u);
  EXPECT_TRUE(t.check_invariants());
  calls = malloc_calls();
  fill(t, 16);
  EXPECT_EQ(malloc_calls(), calls);

  // The insertion attempt that finds `size` elements grows the table, even for a present key.
  std::size_t const steps[4][3] = {{22, 31, 73}, {52, 73, 151}, {106, 151, 313}, {220, 313, 643}};
  for (auto const& step : steps) {  // size, buckets before, buckets after
    fill(t, step[0]);
    EXPECT_EQ(t.bucket_count(), step[1]);
    add(t, key_at<T>(0));
    EXPECT_EQ(t.size(), step[0]);
    EXPECT_EQ(t.bucket_count(), step[2]);
  }
  T copy(t);
  EXPECT_EQ(copy.bucket_count(), 643u);
  EXPECT_EQ(contents(copy), contents(t));
  t.clear();  // through the occupancy marks only
  EXPECT_EQ(t.bucket_count(), 643u);
  calls = malloc_calls();
  fill(t, 220);
  EXPECT_EQ(malloc_calls(), calls);  // buckets and chunks were kept
  T fresh;                           // and the refill iterates as in a fresh table
  fresh.rehash(643);
  fill(fresh, 220);
  EXPECT_EQ(contents(t), contents(fresh));

  T a, b;
  fill(a, 16);
  fill(b, 16);
  calls = malloc_calls();
  a = b;  // a's old nodes are not recycled, so its pool takes a new chunk
  EXPECT_EQ(malloc_calls() - calls, 1u);
  EXPECT_EQ(last_malloc_size(), sizeof(void*) + 32 * node);
  EXPECT_TRUE(a.check_invariants());
  a = static_cast<T const&>(a);  // keeps the contents
  EXPECT_EQ(contents(a), contents(b));
  copy = T();
  EXPECT_EQ(copy.bucket_count(), 31u);
  EXPECT_TRUE(copy.begin() == copy.end());
  // A move takes nodes and array as they are, allocating nothing; the
  // moved-from table can be assigned again.
  auto const before = contents(b);
  calls = malloc_calls();
  T moved(std::move(b));
  EXPECT_EQ(malloc_calls(), calls);
  EXPECT_EQ(contents(moved), before);
  EXPECT_TRUE(moved.check_invariants());
  EXPECT_EQ(moved.pool().handed_out(), 16u);
  b = a;
  EXPECT_EQ(contents(b), before);
  static_assert(std::is_nothrow_move_constructible<T>::value, "a vector of tables moves them");
}

TEST(PooledTableIndex, ReciprocalReductionEqualsDivision) {
  std::vector<std::uint64_t> hashes = {
      0, 1, 2, 0xffffffffULL, 0x100000000ULL, 1ULL << 63, (1ULL << 63) - 1, ~0ULL, ~0ULL - 1};
  for (int k = -1000; k < 1000; ++k)  // int keys, negative ones near 2^64
    hashes.push_back(hash<int>()(k));
  std::uint64_t x = 0x9e3779b97f4a7c15ULL;
  for (int i = 0; i < 20000; ++i) {  // splitmix64
    std::uint64_t z = (x += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    hashes.push_back(z ^ (z >> 31));
    hashes.push_back(static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&x)) + 16 * i);
  }
  std::size_t wrong = 0, tried = 0;
  for (std::uint64_t p : primes) {
    std::uint64_t const m = detail::reciprocal(p);
    std::vector<std::uint64_t> near = {p - 1, p, p + 1, ~0ULL / p * p, ~0ULL / p * p - 1};
    for (std::uint64_t h : hashes)
      near.push_back(h);
    for (std::uint64_t h : near) {
      wrong += detail::reduce(h, m, p) != h % p;
      ++tried;
    }
  }
  EXPECT_EQ(wrong, 0u) << "of " << tried;
}

TEST(PooledTableChunks, SizesDoubleUpTo8192Nodes) {
  std::vector<std::size_t> seen, expected;
  orvo::MemoryPool<16, false> pool;
  for (std::size_t n = 16; expected.size() < 12; n = std::min<std::size_t>(2 * n, 8192)) {
    expected.push_back(sizeof(void*) + n * 16);
    for (std::size_t i = 0, calls = malloc_calls(); i < n; ++i, calls = malloc_calls()) {
      pool.allocate();
      if (malloc_calls() != calls) seen.push_back(last_malloc_size());
    }
  }
  EXPECT_EQ(seen, expected);
}

TEST(PooledTableOrder, IntBucketsIterationOrderAndRehash) {
  HashSet<int> s;
  for (int k : {1, 32, 2})
    s.insert(k);
  EXPECT_EQ(contents(s), (std::vector<int>{32, 1, 2}));
  s.insert(74);  // bucket 12 of 31, bucket 1 of 73
  s.insert(-1);  // 2^64-1: bucket 15 of 31, bucket 1 of 73
  EXPECT_EQ(s.find(-1).index, 15u);
  s.rehash(31);
  EXPECT_EQ(contents(s), (std::vector<int>{32, 1, 2, 74, -1}));
  s.rehash(32);  // visits 32, 1, 2, 74, -1 and links each at the front of its new chain
  EXPECT_EQ(s.bucket_count(), 73u);
  EXPECT_EQ(s.find(-1).index, 1u);
  EXPECT_EQ(contents(s), (std::vector<int>{-1, 74, 1, 2, 32}));
  HashSet<int> copy(s);
  copy.erase(copy.find(74));  // middle of a chain
  copy.erase(copy.begin());   // head of a chain
  EXPECT_EQ(contents(copy), (std::vector<int>{1, 2, 32}));
  s.rehash(151);  // a prime count is taken as is
  EXPECT_EQ(s.bucket_count(), 151u);
  s.rehash(5000);  // 5233 buckets, two summary words; the elements sit under the first
  s.clear();
  EXPECT_TRUE(s.begin() == s.end());
}

TEST(PooledTableOrder, TermKeysHashByIdAndMissingMapKeysReadZero) {
  orvo::TermManager tm;
  std::vector<orvo::Term_ const*> terms;
  for (int i = 0; i < 70; ++i)
    terms.push_back(tm.make_term(tm.make_symbol("c" + std::to_string(i), 0, tm.get_bool_type())));
  HashMap<orvo::Term_ const*, int> m;
  for (std::uint64_t id : {0, 31, 62, 5, 36, 67, 30}) {
    EXPECT_EQ(m[terms[id]], 0);
    m[terms[id]] = static_cast<int>(id);
    EXPECT_EQ(m.find(terms[id]).index, id % 31);
  }
  EXPECT_EQ(m.size(), 7u);
  EXPECT_EQ(m[terms[62]], 62);
}

}  // namespace
