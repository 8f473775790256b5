// Support layer: the exception type and its diagnostic hook, the in-place
// sort, and the one-line text form of a clause.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <sstream>

#include "host/host.h"
#include "support/clause_printer.h"
#include "support/sort.h"

namespace {

using orvo::Exception;

int hook_calls = 0;
std::string hook_saw;
void record(Exception const& e) {
  ++hook_calls;
  hook_saw = e.what();
}

TEST(SupportException, TextHookAndCopies) {
  orvo::AssertionHandler const previous = orvo::set_assertion_handler(&record);
  Exception plain("abc", false);
  EXPECT_STREQ(plain.what(), "abc");
  EXPECT_STREQ((plain << 12).what(), "abc12");
  Exception source("No interpolation group for atom: ", true);
  Exception copy(source << 17);
  copy << 2;
  source << 3;
  EXPECT_STREQ(copy.what(), "No interpolation group for atom: 172");
  EXPECT_STREQ(source.what(), "No interpolation group for atom: 173");
  EXPECT_EQ(hook_calls, 1);  // only for `source`: not without the flag, never for a copy
  EXPECT_EQ(hook_saw, "No interpolation group for atom: ");
  EXPECT_EQ(orvo::set_assertion_handler(previous), &record);
}

TEST(SupportSort, AgreesWithStdSortOnEverySmallSizeAndLargeShapes) {
  std::mt19937 rng(42);
  for (int n = 0; n <= 5000; n = n < 40 ? n + 1 : n + 2480) {         // 0..40, 2520, 5000
    std::vector<std::vector<int>> shapes(6, std::vector<int>(n, 7));  // the last all equal
    for (int i = 0; i < n; ++i) {
      shapes[0][i] = static_cast<int>(rng() % 11) - 5;  // duplicates and negatives
      shapes[1][i] = static_cast<int>(rng());
      shapes[2][i] = i - n / 2;
      shapes[3][i] = n / 2 - i;
      shapes[4][i] = std::min(i, n - 1 - i);  // organ pipe
    }
    for (std::vector<int>& v : shapes) {
      std::vector<int> expected = v;
      std::sort(expected.begin(), expected.end());
      orvo::sort(v.data(), std::uint64_t(n), std::less<int>());
      EXPECT_EQ(v, expected) << "size " << n;
    }
  }
}

TEST(SupportSort, DepthLimitKeepsAMedianOfThreeKillerNLogN) {
  // Musser's median-of-3 killer: 1 k+1 3 k+3 ... 2k-1 (first half), 2 4 ... 2k (second half).
  int const n = 4000, k = n / 2;
  std::vector<int> killer(n);
  for (int i = 1; i <= k; ++i) {
    killer[i - 1] = i % 2 == 1 ? i : k + i - 1;
    killer[k + i - 1] = 2 * i;
  }
  std::uint64_t unlimited = 0, limited = 0;
  std::vector<int> v = killer;
  orvo::sortimpl::do_sort(
      v.data(), std::uint64_t(n), [&](int a, int b) { return ++unlimited, a < b; }, 1 << 30);
  EXPECT_GT(double(unlimited), double(n) * n / 8);  // quadratic without the depth limit
  v = killer;
  orvo::sort(v.data(), std::uint64_t(n), [&](int a, int b) { return ++limited, a < b; });
  std::sort(killer.begin(), killer.end());
  EXPECT_EQ(v, killer);
  // 32 partition levels, a heap sort and one insertion pass over short stretches.
  EXPECT_LT(double(limited), n * (48 + 3 * std::log2(double(n))));
}

using Owned = std::unique_ptr<orvo::dpll::Clause, void (*)(void*)>;
Owned own(orvo::dpll::Clause* c) {
  return Owned(c, &std::free);
}
std::string text(Owned const& c, bool boolalpha = false) {
  std::ostringstream out;
  out << (boolalpha ? std::boolalpha : std::noboolalpha) << *c << '|';  // chains
  return out.str();
}

// The model-based test checks the text of every kind and flag; here the
// negative numbers, the boolalpha form and the word layout.
TEST(SupportClauseText, NegativeNumbersBooleansAndWordLayout) {
  using namespace orvo::dpll;
  Owned const c12 = own(make_extended_clause(12, {6, make_literal(7, true), 20}, 1, 3, 4, true));
  EXPECT_EQ(text(c12), "C12L(3 ~7 10 S:L L:4 lrnt:1)|");
  EXPECT_EQ(text(c12, true), "C12L(3 ~7 10 S:L L:4 lrnt:true)|");
  EXPECT_EQ(text(own(make_extended_clause(-70000, {9}, 1, 5, -2))), "C-70000(~4 S: L:-2 lrnt:0)|");

  // Reference word: count in bits 0-29, learnt bit 30, T bit 31; the count is not printed.
  Owned const c = own(make_clause(-3, {4, 11}, 0x3FFFFFFF, true, true));
  std::uint32_t const* w = c->words();
  EXPECT_EQ(std::vector<std::uint32_t>(w, w + 5),
            (std::vector<std::uint32_t>{2, 4, 11, static_cast<std::uint32_t>(-6), 0xFFFFFFFFu}));
  EXPECT_EQ(text(c), "C-3LT(2 ~5 S:A L:-1 lrnt:1)|");
  EXPECT_EQ(own(make_clause(1, {}, 5, true))->reference_word(), (1u << 30) | 5u);
  EXPECT_EQ(own(make_clause(1, {}, 5, false, true))->reference_word(), (1u << 31) | 5u);
  EXPECT_THROW(make_clause(1, {}, 0x40000000), std::invalid_argument);
}

}  // namespace
