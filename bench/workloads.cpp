#include "bench/workloads.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace orvo {
namespace bench {

std::string loop_script(int traces, int steps) {
  std::ostringstream s;
  s << "(set-option :produce-interpolants true)\n(set-logic QF_UFLIA)\n"
       "(declare-fun f (Int Int) Int)\n";
  for (int i = 0; i <= steps; ++i)
    s << "(declare-fun x" << i << " () Int)\n(declare-fun y" << i << " () Int)\n(declare-fun pc"
      << i << " () Int)\n";
  for (int t = 0; t < traces; ++t) {
    int const bound = 10 + t;
    int const inc = 1 + t % 7;
    s << "(push 1)\n";
    for (int i = 0; i < steps; ++i) {
      int const j = i + 1;
      s << "(assert (! (and";
      if (i == 0) s << " (= x0 0) (= y0 " << t << ") (= pc0 0)";
      s << " (= pc" << j << " (ite (< x" << i << " " << bound << ") pc" << i << " (+ pc" << i
        << " 1))) (= x" << j << " (+ x" << i << " " << inc << ")) (or (< y" << i << " x" << j
        << ") (= y" << j << " (f y" << i << " x" << i << "))) (=> (= pc" << i << " 2) (<= y" << j
        << " " << bound << "))";
      if (j == steps) s << " (> x" << j << " (+ y" << j << " " << bound << "))";
      s << ") :named s" << j << "))\n";
    }
    s << "(check-sat)\n(get-interpolants";
    for (int j = 1; j <= steps; ++j)
      s << " s" << j;
    s << ")\n(pop 1)\n";
  }
  return s.str();
}

std::string sequence_script(int n) {
  std::ostringstream s;
  s << "(set-logic QF_UFLIA)\n(declare-fun f (Int) Int)\n(declare-fun g (Int Int) Int)\n";
  for (int i = 0; i <= n; ++i)
    s << "(declare-fun x" << i << " () Int)\n";
  for (int i = 0; i < n; ++i) {
    s << "(assert (! (let ((a0 (g x" << i << " x" << i + 1 << ")))";
    for (int d = 1; d <= 6; ++d)
      s << " (let ((a" << d << " (f (g a" << d - 1 << " a" << d - 1 << "))))";
    s << " (and (< x" << i << " a6) (or (= a6 x" << i + 1 << ") (> a3 x" << i << ")) (<= a1 (+ x"
      << i + 1 << " 1)))" << std::string(7, ')') << " :named P" << i << "))\n";
  }
  // 100 queries of 100 steps spread over the trace (overlapping below
  // 10,000 steps), then one over every step.
  for (int q = 0; q < 100 && n >= 100; ++q) {
    int const first = static_cast<int>(static_cast<long long>(q) * (n - 100) / 99);
    s << "(get-interpolants";
    for (int i = first; i < first + 100; ++i)
      s << " P" << i;
    s << ")\n";
  }
  s << "(get-interpolants";
  for (int i = 0; i < n; ++i)
    s << " P" << i;
  s << ")\n";
  return s.str();
}

namespace {

// A positive count from the text after `prefix`, or 0.
int count_after(std::string const& name, std::string const& prefix, std::size_t& end) {
  if (name.compare(0, prefix.size(), prefix) != 0) return 0;
  char* stop = nullptr;
  long const v = std::strtol(name.c_str() + prefix.size(), &stop, 10);
  end = static_cast<std::size_t>(stop - name.c_str());
  return v > 0 && v <= 1000000 ? static_cast<int>(v) : 0;
}

// The shared benchmark data lives beside the main checkout; a worktree one
// level further down finds it one level further up.
std::string data_dir() {
  if (char const* dir = std::getenv("ORVO_ITP_BENCH_DATA")) return dir;
  std::string const root = ORVO_ITP_SOURCE_DIR;
  for (char const* up : {"/../shared/data/bench", "/../../shared/data/bench"}) {
    std::ifstream probe(root + up + "/SOURCES");
    if (probe) return root + up;
  }
  return root + "/../shared/data/bench";
}

}  // namespace

std::optional<std::string> workload_script(std::string const& name, std::string& why) {
  std::size_t end = 0;
  if (int const t = count_after(name, "loop/", end)) {
    int steps = 50;
    if (end < name.size()) {
      std::size_t end2 = 0;
      steps = count_after(name.substr(end), "/", end2);
      if (steps == 0 || end + end2 != name.size()) {
        why = "loop/T or loop/T/L with positive counts";
        return std::nullopt;
      }
    }
    return loop_script(t, steps);
  }
  if (int const n = count_after(name, "sequence/", end); n && end == name.size())
    return sequence_script(n);
  if (name == "quasigroup") {
    std::string const path = data_dir() + "/gensys_icl_sk003_itptest_eufexps.smt2";
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      why = path + " is absent (set ORVO_ITP_BENCH_DATA to its folder)";
      return std::nullopt;
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }
  why = "unknown workload (loop/T, loop/T/L, sequence/N, quasigroup)";
  return std::nullopt;
}

std::vector<std::string> default_workloads() {
  return {"quasigroup", "loop/100",  "loop/200",      "loop/400",
          "loop/800",   "loop/2000", "sequence/10000"};
}

namespace {

// The end of the top-level command that starts at text[i] == '(' (one past
// its closing parenthesis), or npos when it is not closed. Strings ("..."
// with "" inside), quoted symbols (|...|) and comments are skipped.
std::size_t command_end(std::string_view text, std::size_t i) {
  int depth = 0;
  for (; i < text.size(); ++i) {
    char const c = text[i];
    if (c == '(') {
      ++depth;
    } else if (c == ')') {
      if (--depth == 0) return i + 1;
    } else if (c == ';') {
      while (i < text.size() && text[i] != '\n')
        ++i;
    } else if (c == '|') {
      i = text.find('|', i + 1);
      if (i == std::string_view::npos) return i;
    } else if (c == '"') {  // a string; "" inside it is one quote
      for (++i; i < text.size(); ++i) {
        if (text[i] != '"') continue;
        if (i + 1 < text.size() && text[i + 1] == '"') {
          ++i;
          continue;
        }
        break;
      }
    }
  }
  return std::string_view::npos;
}

// The command's head symbol and, for set-option, its option.
bool starts_with_words(std::string_view command, std::string_view a, std::string_view b = {}) {
  std::size_t i = 1;
  auto word = [&]() {
    while (i < command.size() &&
           (command[i] == ' ' || command[i] == '\t' || command[i] == '\n' || command[i] == '\r'))
      ++i;
    std::size_t const start = i;
    while (i < command.size() && command[i] != ' ' && command[i] != '\t' && command[i] != '\n' &&
           command[i] != '\r' && command[i] != '(' && command[i] != ')')
      ++i;
    return command.substr(start, i - start);
  };
  if (word() != a) return false;
  return b.empty() || word() == b;
}

}  // namespace

std::string z3_form(std::string_view script) {
  std::string out;
  out.reserve(script.size());
  for (std::size_t i = 0; i < script.size();) {
    char const c = script[i];
    if (c == ';') {
      while (i < script.size() && script[i] != '\n')
        ++i;
      continue;
    }
    if (c != '(') {
      ++i;
      continue;
    }
    std::size_t const end = command_end(script, i);
    std::string_view const command =
        script.substr(i, end == std::string_view::npos ? std::string_view::npos : end - i);
    if (!starts_with_words(command, "get-interpolants") &&
        !starts_with_words(command, "set-option", ":produce-interpolants")) {
      out.append(command);
      out.push_back('\n');
    }
    if (end == std::string_view::npos) break;
    i = end;
  }
  return out;
}

}  // namespace bench
}  // namespace orvo
