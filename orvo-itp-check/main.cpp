// orvo-itp-check: whether a solver's sequence or tree interpolants are right.
//
//   orvo-itp-check [options] PROBLEM.smt2 RESPONSES [PROBLEM RESPONSES ...]
//   solver problem.smt2 | orvo-itp-check problem.smt2 -
//
// RESPONSES is the solver's standard output for PROBLEM ("-": standard
// input). Every pair is tried. A pair that cannot be read gets one line
// FILE:LINE:COL: error: ... on standard error (and, with --json and several
// pairs, an entry {"file", "responses", "error"} in the array).
//
// Exit status: 0 every interpolant valid; 1 bad input or command line; 2
// something proven wrong (an invalid or unreadable interpolant, a wrong
// number of them); 3 nothing wrong but not everything proven (unknown, a
// missing or error answer). With several pairs the first of 1, 2, 3 that
// any pair gives.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "orvo-itp-check/check.h"
#include "smtlib/input.h"
#include "smtlib/names.h"

namespace {

char const usage[] =
    "usage: orvo-itp-check [options] PROBLEM.smt2 RESPONSES [PROBLEM RESPONSES ...]\n"
    "Checks a solver's answers to the get-interpolants commands of an SMT-LIB\n"
    "interpolation problem: RESPONSES is the solver's standard output for it (- reads\n"
    "standard input). Every interpolant must be readable in its query's scope, use\n"
    "only symbols its cut shares, and follow from its children's interpolants and\n"
    "its own assertions (the root's children: imply false with the root's).\n"
    "\n"
    "  --json            one JSON document per pair (a JSON array for several)\n"
    "  --craig           also A implies I and I and B unsat, per interpolant\n"
    "  --timeout-ms=N    z3's time limit per implication (default 10000)\n"
    "  --emit DIR        write every implication as a standalone SMT-LIB script\n"
    "  --unmentioned=root|background|error\n"
    "                    live assertions no query item names: the root's (default),\n"
    "                    every partition's, or an error\n"
    "  --stats           where the time went, per pair, on standard error\n"
    "  --help            this text\n"
    "Exit status: 0 all valid, 1 bad input, 2 something wrong, 3 something unproven.\n";

int bad_command_line(std::string const& what) {
  std::cerr << "orvo-itp-check: " << orvo::smtlib::printable_utf8(what) << "\n" << usage;
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  orvo::check::Options options;
  bool stats = false;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    std::string const arg = argv[i];
    if (arg == "--json") {
      options.json = true;
    } else if (arg == "--stats") {
      stats = true;
    } else if (arg == "--craig") {
      options.craig = true;
    } else if (arg.rfind("--timeout-ms=", 0) == 0) {
      std::string const n = arg.substr(13);
      if (n.empty() || n.size() > 9 || n.find_first_not_of("0123456789") != std::string::npos)
        return bad_command_line("--timeout-ms takes a number of milliseconds below 10^9");
      options.timeout_ms = static_cast<unsigned>(std::stoul(n));
    } else if (arg == "--emit" || arg.rfind("--emit=", 0) == 0) {
      if (arg == "--emit" && i + 1 == argc) return bad_command_line("--emit takes a directory");
      options.emit_dir = arg == "--emit" ? argv[++i] : arg.substr(7);
      std::error_code ec;
      std::filesystem::create_directories(options.emit_dir, ec);
      if (ec || !std::filesystem::is_directory(options.emit_dir))
        return bad_command_line("cannot make the directory '" + options.emit_dir + "'");
    } else if (arg.rfind("--unmentioned=", 0) == 0) {
      std::string const rule = arg.substr(14);
      if (rule == "root") {
        options.unmentioned = orvo::smtlib::Unmentioned::root;
      } else if (rule == "background") {
        options.unmentioned = orvo::smtlib::Unmentioned::background;
      } else if (rule == "error") {
        options.unmentioned = orvo::smtlib::Unmentioned::error;
      } else {
        return bad_command_line("--unmentioned takes root, background or error");
      }
    } else if (arg == "--help" || arg == "-h") {
      std::cout << usage;
      return 0;
    } else if (arg.size() > 1 && arg[0] == '-') {  // "-" alone is standard input
      return bad_command_line("unknown option '" + arg + "'");
    } else {
      files.push_back(arg);
    }
  }
  if (files.empty() || files.size() % 2 != 0)
    return bad_command_line("expected pairs of a problem and its responses");

  std::vector<std::unique_ptr<orvo::check::ProblemReport>> reports;
  std::vector<orvo::check::JsonEntry> entries;
  int status = 0;
  auto worse = [&status](int s) {
    if (s != 0 && (status == 0 || s < status)) status = s;
  };
  for (std::size_t k = 0; k < files.size(); k += 2) {
    std::string const& problem = files[k];
    std::string const& responses = files[k + 1];
    std::string const shown = orvo::smtlib::printable_utf8(problem);
    std::string const shown_responses = orvo::smtlib::printable_utf8(responses);
    std::string error;
    auto at = [](std::string const& file, orvo::smtlib::ScriptError const& e) {
      return file + ":" + std::to_string(e.where().line) + ":" + std::to_string(e.where().column) +
             ": error: " + e.what();
    };
    try {
      std::string const text = orvo::smtlib::read_input(problem);
      std::string answers;
      try {
        answers = orvo::smtlib::read_input(responses);
      } catch (orvo::smtlib::ScriptError const& e) {
        throw orvo::check::ResponsesError(e.where(), e.what());
      }
      reports.push_back(std::make_unique<orvo::check::ProblemReport>(
          orvo::check::check_problem(problem, text, responses, answers, options, std::cerr)));
    } catch (orvo::check::ResponsesError const& e) {
      error = at(shown_responses, e);
    } catch (orvo::smtlib::ScriptError const& e) {
      error = at(shown, e);
    } catch (std::bad_alloc const&) {
      error = shown + ":1:1: error: out of memory";
    } catch (z3::exception const& e) {
      error = shown + ":1:1: error: " + orvo::smtlib::z3_message(e.msg());
    } catch (std::exception const& e) {
      error = shown + ":1:1: error: " + orvo::smtlib::z3_message(e.what());
    }
    if (!error.empty()) {
      std::cerr << error << "\n";
      worse(1);
      entries.push_back(orvo::check::JsonEntry{nullptr, shown, shown_responses, error});
      continue;
    }
    worse(orvo::check::exit_status(*reports.back()));
    if (stats) {
      orvo::check::CheckTiming const& t = reports.back()->timing;
      std::cerr << shown << ": " << t.interpolants << " interpolants; reading " << t.reading * 1e3
                << " ms, vocabulary " << t.vocabulary * 1e3 << " ms, z3 " << t.z3 * 1e3 << " ms\n";
    }
    entries.push_back(orvo::check::JsonEntry{reports.back().get(), shown, shown_responses, {}});
  }
  if (options.json) {
    if (files.size() > 2 || status != 1) orvo::check::write_json(std::cout, entries);
  } else {
    bool first = true;
    for (auto const& r : reports) {
      if (!first) std::cout << "\n";
      first = false;
      orvo::check::write_text(std::cout, *r);
    }
  }
  std::cout.flush();
  if (!std::cout) {
    std::cerr << "orvo-itp-check: cannot write the report: " << std::strerror(errno) << "\n";
    return 1;
  }
  return status;
}
