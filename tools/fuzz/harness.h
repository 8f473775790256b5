// What the SMT-LIB fuzz targets share: the z3 context the inputs are played
// in, and the output contract they hold the programs to besides not
// crashing. A bad input ends in one error line FILE:LINE:COL: error: MESSAGE
// at a place in the text it names, every warning is one line
// FILE:LINE:COL: warning: MESSAGE, and a report is printable lines (the JSON
// document's strings printable before the JSON writer sees them). A break
// is printed with the offending text and the process aborts, so that
// libFuzzer keeps the input.
#ifndef ORVO_ITP_TOOLS_FUZZ_HARNESS_H
#define ORVO_ITP_TOOLS_FUZZ_HARNESS_H

#include <z3++.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "smtlib/names.h"
#include "smtlib/sexpr.h"

namespace orvo {
namespace fuzz {

// The context for the next input: one for many inputs, since making one
// costs more than most inputs. The reader names every definition's
// placeholder afresh by its context's counter, and z3 keeps every name for
// the life of the process: one context forever would grow by every input,
// so it is renewed every 1000 inputs, the names repeat, memory stays flat
// and libFuzzer's leak check after an input keeps its meaning.
inline z3::context& next_context() {
  static std::unique_ptr<z3::context> ctx;
  static unsigned inputs = 0;
  if (inputs++ % 1000 == 0) ctx = std::make_unique<z3::context>();
  return *ctx;
}

[[noreturn]] inline void broken(char const* what, std::string_view detail) {
  std::fprintf(stderr, "contract broken: %s: [%.*s]\n", what, static_cast<int>(detail.size()),
               detail.data());
  std::abort();
}

// The fuzz input as text.
inline std::string_view as_text(std::uint8_t const* data, std::size_t size) {
  return {reinterpret_cast<char const*>(data), size};
}

// Non-empty, one line, and printed as it is: no control byte, valid UTF-8.
inline bool printable_line(std::string_view line) {
  return !line.empty() && smtlib::printable_utf8(line) == line;
}

// Lines of `text` as the script reader counts them: LF, CRLF and a lone CR
// each end one.
inline int line_count(std::string_view text) {
  int lines = 1;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] == '\n' || (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n')))
      ++lines;
  return lines;
}

// The line a program prints for `e`, a fault of `text` named `file`; checks
// that it is one printable line at a place inside the text.
inline std::string error_line(std::string const& file, smtlib::ScriptError const& e,
                              std::string_view text) {
  std::string const message = e.what();
  if (!printable_line(message)) broken("error message not one printable line", message);
  smtlib::Position const at = e.where();
  if (at.line < 1 || at.column < 1 || at.line > line_count(text))
    broken("error outside the text",
           std::to_string(at.line) + ":" + std::to_string(at.column) + ": " + message);
  std::string line = file + ":" + std::to_string(at.line) + ":" + std::to_string(at.column) +
                     ": error: " + message;
  if (!printable_line(line)) broken("error line not printable", line);
  return line;
}

// Every line of `warnings` is "FILE:LINE:COL: warning: MESSAGE" with a place
// inside `text`.
inline void check_warnings(std::string const& file, std::string_view warnings,
                           std::string_view text) {
  std::string_view rest = warnings;
  if (!rest.empty() && rest.back() != '\n') broken("warning without its line end", warnings);
  std::string const prefix = file + ":";
  while (!rest.empty()) {
    std::string_view const line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(line.size() + 1);
    int l = 0;
    int c = 0;
    int n = 0;
    std::string const tail(line.substr(std::min(prefix.size(), line.size())));
    if (line.substr(0, prefix.size()) != prefix ||
        std::sscanf(tail.c_str(), "%d:%d: warning: %n", &l, &c, &n) != 2 || n == 0 ||
        static_cast<std::size_t>(n) == tail.size() || !printable_line(line) || l < 1 || c < 1 ||
        l > line_count(text))
      broken("malformed warning line", line);
  }
}

// A report: printable lines, each ended.
inline void check_report_text(std::string_view report) {
  if (!report.empty() && report.back() != '\n') broken("report without its line end", report);
  for (std::size_t at = 0; at < report.size();) {
    std::size_t const end = report.find('\n', at);
    std::string_view const line = report.substr(at, end - at);
    if (!line.empty() && !printable_line(line)) broken("report line not printable", line);
    at = end + 1;
  }
}

// The JSON writer replaces a byte that is not UTF-8 by U+FFFD: every name
// must have been made printable before, so none may appear that the input
// did not hold.
inline void check_json(std::string_view document, std::string_view input) {
  std::string_view const replacement = "\xef\xbf\xbd";
  if (document.find(replacement) != std::string_view::npos &&
      input.find(replacement) == std::string_view::npos)
    broken("bytes replaced in the JSON document", document);
}

}  // namespace fuzz
}  // namespace orvo

#endif  // ORVO_ITP_TOOLS_FUZZ_HARNESS_H
