// The two readers of one script, as the end-to-end measurements call them.
#ifndef ORVO_ITP_BENCH_CONTENDERS_H
#define ORVO_ITP_BENCH_CONTENDERS_H

#include <cstddef>
#include <iosfwd>
#include <string>

namespace orvo {
namespace bench {

// What the program said about its own phases, in seconds (zero where it
// does not say).
struct ProgramPhases {
  double total = 0;
  double z3 = 0;
  double classifier = 0;
  double queries = 0;
  std::size_t partitions = 0;
  std::size_t report_bytes = 0;  // the text report's size
};

// orvo-itp-classify on one script, as it runs for one file: everything but
// reading the file, the text report written. Throws on a script error. The
// one place that names the program's entry point.
ProgramPhases run_program(std::string const& path, std::string const& text);

// z3's own parser on `text` (a script in z3_form()): a fresh context, the
// whole parse, the context deleted. Returns the number of assertions left
// at the end; throws std::runtime_error with z3's message when it rejects
// the text.
std::size_t z3_read(std::string const& text);

}  // namespace bench
}  // namespace orvo

#endif  // ORVO_ITP_BENCH_CONTENDERS_H
