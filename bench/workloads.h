// Scripts for the end-to-end measurements of orvo-itp-classify against z3's
// own reading of the same text.
//
// A workload is named by a short text:
//   loop/T             a model checker's loop: T traces of 50 steps, each
//                      trace pushed, its steps asserted by name, one sequence
//                      query over them, popped
//   loop/T/L           the same with L steps per trace
//   sequence/N         one trace of N steps through let-shared terms, 100
//                      window queries of 100 steps and one over all N
//   quasigroup         the real quasigroup trace of the shared benchmark data
//                      (ORVO_ITP_BENCH_DATA, or shared/data/bench beside the
//                      main checkout), when present
#ifndef ORVO_ITP_BENCH_WORKLOADS_H
#define ORVO_ITP_BENCH_WORKLOADS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvo {
namespace bench {

// T traces of L steps. Every trace is a bounded unrolling of one counter
// program: step i relates the state (x_i, y_i, pc_i) to (x_(i+1), y_(i+1),
// pc_(i+1)) through a guard that depends on the trace (its bound and
// increment), so consecutive steps share the symbols of one state and every
// trace brings new atoms. The state symbols and f are declared once, before
// the first trace.
std::string loop_script(int traces, int steps);

// N steps; step i relates x_i and x_(i+1) through a let-shared term of depth
// 6 (64 paths through 13 distinct subterms), then 100 queries of 100 steps
// spread over the trace and one over all N steps.
std::string sequence_script(int steps);

// The script of a named workload (see above); nullopt when it names nothing
// known or its file is absent (`why` then says so).
std::optional<std::string> workload_script(std::string const& name, std::string& why);

// The names of the workloads measured by default.
std::vector<std::string> default_workloads();

// The script as z3's own parser takes it: every command kept in order but
// `get-interpolants` and the interpolation option, which z3 does not know.
// Comments and the text between commands are dropped.
std::string z3_form(std::string_view script);

}  // namespace bench
}  // namespace orvo

#endif  // ORVO_ITP_BENCH_WORKLOADS_H
