// Model-based random testing: seeded call sequences over every public
// operation, run against the classifier and its reference model, compared
// after every call; a divergence is shrunk and printed as a replayable test.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fault/alloc_hook.h"
#include "model/model.h"

namespace {

using orvo::model::Driver;

// The driver checks every predicted free through the executable's malloc wrap.
[[maybe_unused]] bool const probes_set = (Driver::was_freed = orvo::test::was_freed,
                                          Driver::forget_frees = orvo::test::forget_frees, true);

std::size_t call_budget() {
  if (char const* calls = std::getenv("ORVO_ITP_MODEL_CALLS"))
    return std::strtoull(calls, nullptr, 10);
#if defined(__SANITIZE_ADDRESS__) || defined(ORVO_ITP_ASAN) || !defined(__OPTIMIZE__)
  return 150000;  // sanitizers and unoptimised builds: keep the run short
#else
  return 1000000;
#endif
}

TEST(ModelDriver, RandomSequencesAgreeWithTheClassifier) {
  std::size_t const budget = call_budget();
  std::size_t calls = 0, sequences = 0;
  for (std::uint32_t seed = 1; calls < budget; ++seed, ++sequences) {
    orvo::model::Outcome const o =
        orvo::model::check_sequence(seed, orvo::model::random_ops(seed), 1);
    ASSERT_TRUE(o.ok) << o.report;
    calls += o.calls;
  }
  std::printf("model: %zu calls compared over %zu sequences\n", calls, sequences);
}

// The tester must notice a wrong iteration order and shrink it: with the
// model's rehash deliberately misordered, some sequence must fail, and the
// report must be a short replay (a rehash needs 23 insertions into one table).
TEST(ModelDriver, NoticesAndShrinksADeliberatelyWrongModel) {
  orvo::model::misorder_rehash = true;
  orvo::model::Outcome o{true, 0, 0, ""};
  for (std::uint32_t seed = 1; o.ok && seed < 40; ++seed)
    o = orvo::model::check_sequence(seed, orvo::model::random_ops(seed), 1);
  orvo::model::misorder_rehash = false;
  ASSERT_FALSE(o.ok);
  EXPECT_LE(o.shrunk, 30u) << o.report;
  EXPECT_NE(o.report.find("ASSERT_TRUE(d.step({orvo::model::Op::"), std::string::npos) << o.report;
  std::printf(
      "model sensitivity check: the deliberately misordered model was caught, as it "
      "must be; its report shrank to %zu calls\n",
      o.shrunk);
}

}  // namespace
