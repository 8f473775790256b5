// libFuzzer target: the input is a host seed and a call sequence (see
// decode_ops), run against the classifier and its reference model with the
// whole state compared after every call. A divergence is shrunk and printed
// as a replayable test before the process aborts; memory errors are left to
// the sanitizers.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "model/model.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  auto const [seed, ops] = orvo::model::decode_ops(data, size);
  orvo::model::Outcome const outcome = orvo::model::check_sequence(seed, ops, 1);
  if (outcome.ok) return 0;
  std::fprintf(stderr, "%s", outcome.report.c_str());
  std::abort();
}
