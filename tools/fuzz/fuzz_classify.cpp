// libFuzzer target: the input is an SMT-LIB script, played by
// orvo-itp-classify's core with every partition answered by both the cut
// index and the classifier, and its text and JSON reports written. A first
// line holding `--unmentioned=background` or `--unmentioned=error` (a
// comment, say) picks that rule. Besides crashes and sanitizer reports, the
// cut index disagreeing with the classifier, an exception other than
// smtlib::ScriptError, or a break of the output contract (harness.h)
// aborts; so does a different outcome when one input in 32 is played again
// in a z3 context of its own instead of the one inputs share, or a
// different text report when another one in 32 is played as the program
// plays it for a text report (each query's partitions kept as text).
#include <z3++.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <sstream>
#include <string>
#include <string_view>
#include <typeinfo>

#include "orvo-itp-classify/classify.h"
#include "orvo-itp-classify/report.h"
#include "tools/fuzz/harness.h"

namespace {

using orvo::classify::Options;
using orvo::fuzz::broken;

Options options_of(std::string_view text) {
  Options o;
  o.json = true;
  o.atoms = true;
  o.groups = true;
  o.dump = true;
  o.check = true;
  std::string_view const first = text.substr(0, text.find('\n'));
  if (first.find("--unmentioned=background") != std::string_view::npos)
    o.unmentioned = orvo::smtlib::Unmentioned::background;
  else if (first.find("--unmentioned=error") != std::string_view::npos)
    o.unmentioned = orvo::smtlib::Unmentioned::error;
  return o;
}

// What the program prints for the script: the error line or both reports
// (the text report alone with `text_only`), and the warnings; each checked
// against the contract.
std::string play(std::string_view text, z3::context* shared, bool text_only = false) {
  std::string const file = "input.smt2";
  Options options = options_of(text);
  options.text_only = text_only;
  std::ostringstream warnings, out;
  try {
    orvo::classify::ProblemReport const report =
        orvo::classify::classify_problem(file, text, options, warnings, shared);
    orvo::classify::write_text(out, report, options);
    orvo::fuzz::check_report_text(out.str());
    if (text_only) return warnings.str() + out.str();
    std::size_t const json = out.str().size();
    orvo::classify::write_json(out, {orvo::classify::JsonEntry{&report, file, {}}}, options);
    orvo::fuzz::check_json(std::string_view(out.str()).substr(json), text);
  } catch (orvo::smtlib::ScriptError const& e) {
    if (std::string_view(e.what()).rfind("the cut index and the classifier differ", 0) == 0)
      broken("cut index against classifier", e.what());
    out << orvo::fuzz::error_line(file, e, text) << "\n";
  } catch (std::exception const& e) {
    broken(typeid(e).name(), e.what());
  } catch (...) {
    broken("unknown exception", "");
  }
  orvo::fuzz::check_warnings(file, warnings.str(), text);
  return warnings.str() + out.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text = orvo::fuzz::as_text(data, size);
  std::string const shared = play(text, &orvo::fuzz::next_context());
  std::uint32_t hash = 2166136261u;  // FNV-1a picks the inputs played again
  for (std::size_t i = 0; i < size; ++i)
    hash = (hash ^ data[i]) * 16777619u;
  if (hash % 32 == 0 && play(text, nullptr) != shared)
    broken("the outcome in a context of its own differs from the shared context's", shared);
  if (hash % 32 == 1) {
    // The same text report, followed in `shared` by the JSON document.
    std::string const lean = play(text, nullptr, true);
    std::string_view const rest =
        std::string_view(shared).substr(std::min(lean.size(), shared.size()));
    if (shared.compare(0, lean.size(), lean) != 0 || (!rest.empty() && rest.front() != '{'))
      broken("the text report kept as text differs from the one kept as lists", lean);
  }
  return 0;
}
