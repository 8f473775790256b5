// libFuzzer target: the input is an SMT-LIB script and a solver's responses
// to it, split at the first line that is exactly `;;;` (none: no
// responses), checked by orvo-itp-check's core with a short time limit per
// implication, its text and JSON reports written. A first line holding
// `--craig`, `--unmentioned=background` or `--unmentioned=error` (a comment,
// say) sets that option. Besides crashes and sanitizer reports, an exception
// other than smtlib::ScriptError (check::ResponsesError for the responses),
// or a break of the output contract (harness.h) aborts.
#include <z3++.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <typeinfo>

#include "orvo-itp-check/check.h"
#include "orvo-itp-check/report.h"
#include "tools/fuzz/harness.h"

namespace {

using orvo::check::Options;
using orvo::check::ProblemReport;
using orvo::fuzz::broken;

Options options_of(std::string_view text) {
  Options o;
  o.json = true;
  o.timeout_ms = 200;
  std::string_view const first = text.substr(0, text.find('\n'));
  o.craig = first.find("--craig") != std::string_view::npos;
  if (first.find("--unmentioned=background") != std::string_view::npos)
    o.unmentioned = orvo::smtlib::Unmentioned::background;
  else if (first.find("--unmentioned=error") != std::string_view::npos)
    o.unmentioned = orvo::smtlib::Unmentioned::error;
  return o;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const input = orvo::fuzz::as_text(data, size);
  std::string_view const mark = ";;;\n";
  std::size_t split = input.substr(0, mark.size()) == mark ? 0 : input.find("\n;;;\n");
  if (split != std::string_view::npos && split != 0) ++split;
  std::string_view const problem = input.substr(0, split);
  std::string_view const responses =
      split == std::string_view::npos ? std::string_view() : input.substr(split + mark.size());
  std::string const file = "problem.smt2";
  std::string const responses_file = "responses.out";
  Options const options = options_of(input);
  std::ostringstream warnings;
  std::unique_ptr<ProblemReport> report;
  try {
    report = std::make_unique<ProblemReport>(orvo::check::check_problem(
        file, problem, responses_file, responses, options, warnings, &orvo::fuzz::next_context()));
  } catch (orvo::check::ResponsesError const& e) {
    orvo::fuzz::error_line(responses_file, e, responses);
  } catch (orvo::smtlib::ScriptError const& e) {
    orvo::fuzz::error_line(file, e, problem);
  } catch (std::exception const& e) {
    broken(typeid(e).name(), e.what());
  } catch (...) {
    broken("unknown exception", "");
  }
  orvo::fuzz::check_warnings(file, warnings.str(), problem);
  if (report == nullptr) return 0;
  std::ostringstream out;
  orvo::check::write_text(out, *report);
  orvo::fuzz::check_report_text(out.str());
  out.str("");
  orvo::check::write_json(out, {orvo::check::JsonEntry{report.get(), file, responses_file, {}}});
  orvo::fuzz::check_json(out.str(), input);
  return 0;
}
