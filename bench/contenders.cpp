#include "bench/contenders.h"

#include <z3.h>

#include <ostream>
#include <sstream>
#include <stdexcept>
#include <streambuf>

#include "classify/problem.h"
#include "classify/report.h"

namespace orvo {
namespace bench {

ProgramPhases run_program(std::string const& path, std::string const& text, std::ostream& out) {
  std::ostringstream warnings;
  classify::Options const options;
  classify::ProblemReport const report = classify::classify_problem(path, text, options, warnings);
  classify::write_text(out, report, options);
  classify::Timing const& t = report.timing;
  return {t.total, t.z3, t.classify, t.queries, t.partitions};
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

namespace {

class CountingBuf : public std::streambuf {
 public:
  std::size_t bytes = 0;

 protected:
  int_type overflow(int_type c) override {
    if (!traits_type::eq_int_type(c, traits_type::eof())) ++bytes;
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(char const*, std::streamsize n) override {
    bytes += static_cast<std::size_t>(n);
    return n;
  }
};

CountingBuf& counting_buf() {
  static CountingBuf buf;
  return buf;
}

}  // namespace

std::ostream& null_stream() {
  static std::ostream out(&counting_buf());
  return out;
}

std::size_t null_stream_bytes() {
  return counting_buf().bytes;
}

}  // namespace bench
}  // namespace orvo
