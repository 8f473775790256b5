#include "bench/contenders.h"

#include <z3.h>

#include <chrono>
#include <ostream>
#include <sstream>
#include <stdexcept>

#include "orvo-itp-classify/classify.h"
#include "orvo-itp-classify/report.h"

namespace orvo {
namespace bench {

ProgramPhases run_program(std::string const& path, std::string const& text) {
  auto const start = std::chrono::steady_clock::now();
  std::ostringstream warnings, out;
  classify::Options options;
  options.text_only = true;  // as the program writes its text report
  classify::ProblemReport const report = classify::classify_problem(path, text, options, warnings);
  classify::write_text(out, report, options);
  smtlib::Timing const& t = report.timing;
  return {smtlib::seconds_since(start),
          t.z3,
          t.host_terms + t.classify,
          report.queries_time,
          report.partitions,
          out.str().size()};
}

std::size_t z3_read(std::string const& text) {
  Z3_config const config = Z3_mk_config();
  Z3_context const ctx = Z3_mk_context_rc(config);
  Z3_del_config(config);
  Z3_set_error_handler(ctx, nullptr);
  Z3_ast_vector const v =
      Z3_parse_smtlib2_string(ctx, text.c_str(), 0, nullptr, nullptr, 0, nullptr, nullptr);
  if (Z3_get_error_code(ctx) != Z3_OK) {
    std::string const message = Z3_get_error_msg(ctx, Z3_get_error_code(ctx));
    Z3_del_context(ctx);
    throw std::runtime_error("z3: " + message);
  }
  Z3_ast_vector_inc_ref(ctx, v);
  std::size_t const n = Z3_ast_vector_size(ctx, v);
  Z3_ast_vector_dec_ref(ctx, v);
  Z3_del_context(ctx);
  return n;
}

}  // namespace bench
}  // namespace orvo
