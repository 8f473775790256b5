// orvo-itp-classify: the atom classifier run over SMT-LIB interpolation
// problems. For every file: its assertions become groups of atoms and
// clauses, its push/pop levels are played on the classifier, and at every
// get-interpolants each partition's symbols and the status of every atom are
// reported.
//
//   orvo-itp-classify [options] FILE...      (FILE - reads standard input)
//
// Every file is tried. A file that cannot be read gets one line
// FILE:LINE:COL: error: ... on standard error (and, with --json and several
// files, an entry {"file", "error"} in the array). Exit status 0 when every
// file was read, 1 when one was not, 2 on a bad command line.
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "orvo-itp-classify/classify.h"
#include "orvo-itp-classify/report.h"
#include "smtlib/input.h"
#include "smtlib/names.h"

namespace {

char const usage[] =
    "usage: orvo-itp-classify [options] FILE...   (FILE - reads standard input)\n"
    "Reads SMT-LIB v2 interpolation problems (named assertions, push/pop,\n"
    "get-interpolants) and reports, for every partition of every query, the\n"
    "A groups, the A-local, B-local and common symbols and the atoms by status.\n"
    "\n"
    "  --json     one JSON document per file (a JSON array for several files)\n"
    "  --atoms    every atom with its status\n"
    "  --groups   every group: its atoms, clauses and symbols (text report)\n"
    "  --dump     the classifier's debug dump of every partition (text report)\n"
    "  --check    answer every partition by both the cut index and the classifier\n"
    "             and stop with an error where they differ\n"
    "  --unmentioned=root|background|error\n"
    "             live assertions no query item names: in B of every cut (root,\n"
    "             the default), in A and B of every cut (background), or an error\n"
    "  --stats    where the time went, per file, on standard error\n"
    "  --help     this text\n";

}  // namespace

int main(int argc, char** argv) {
  using Clock = std::chrono::steady_clock;
  orvo::classify::Options options;
  bool stats = false;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    std::string const arg = argv[i];
    if (arg == "--json") {
      options.json = true;
    } else if (arg == "--atoms") {
      options.atoms = true;
    } else if (arg == "--groups") {
      options.groups = true;
    } else if (arg == "--dump") {
      options.dump = true;
    } else if (arg == "--check") {
      options.check = true;
    } else if (arg == "--stats") {
      stats = true;
    } else if (arg.rfind("--unmentioned=", 0) == 0) {
      std::string const rule = arg.substr(14);
      if (rule == "root") {
        options.unmentioned = orvo::smtlib::Unmentioned::root;
      } else if (rule == "background") {
        options.unmentioned = orvo::smtlib::Unmentioned::background;
      } else if (rule == "error") {
        options.unmentioned = orvo::smtlib::Unmentioned::error;
      } else {
        std::cerr << "orvo-itp-classify: --unmentioned takes root, background or error\n";
        return 2;
      }
    } else if (arg == "--help" || arg == "-h") {
      std::cout << usage;
      return 0;
    } else if (arg.size() > 1 && arg[0] == '-') {  // "-" alone is standard input
      std::cerr << "orvo-itp-classify: unknown option '" << orvo::smtlib::printable_utf8(arg)
                << "'\n"
                << usage;
      return 2;
    } else {
      files.push_back(arg);
    }
  }
  if (files.empty()) {
    std::cerr << "orvo-itp-classify: no input file\n" << usage;
    return 2;
  }

  options.text_only = !options.json;
  std::vector<std::unique_ptr<orvo::classify::ProblemReport>> reports;
  std::vector<orvo::classify::JsonEntry> entries;
  bool failed = false;
  std::string stats_lines;  // after the output, with its time
  for (std::string const& path : files) {
    auto const start = Clock::now();
    std::string const shown = orvo::smtlib::printable_utf8(path);
    std::string error;
    double read = 0;
    try {
      std::string const text = orvo::smtlib::read_input(path);
      read = orvo::smtlib::seconds_since(start);
      reports.push_back(std::make_unique<orvo::classify::ProblemReport>(
          orvo::classify::classify_problem(path, text, options, std::cerr)));
    } catch (orvo::smtlib::ScriptError const& e) {
      error = shown + ":" + std::to_string(e.where().line) + ":" +
              std::to_string(e.where().column) + ": error: " + e.what();
    } catch (std::bad_alloc const&) {
      error = shown + ":1:1: error: out of memory";
    } catch (std::exception const& e) {
      error = shown + ":1:1: error: " + orvo::smtlib::z3_message(e.what());
    }
    if (!error.empty()) {
      std::cerr << error << "\n";
      failed = true;
      entries.push_back(orvo::classify::JsonEntry{nullptr, shown, error});
      continue;
    }
    orvo::classify::ProblemReport& r = *reports.back();
    entries.push_back(orvo::classify::JsonEntry{&r, shown, {}});
    if (stats) {
      auto const& t = r.timing;
      double const total = orvo::smtlib::seconds_since(start);
      double const known = read + r.setup_time + t.split + t.reading + t.host_terms + t.classify +
                           r.queries_time + r.groups_time + r.teardown_time;
      std::ostringstream line;
      line << shown << ": " << t.assertions << " assertions, " << r.partitions << " partitions; "
           << total * 1e3 << " ms: reading " << read * 1e3 << ", setup " << r.setup_time * 1e3
           << ", splitting " << t.split * 1e3 << ", declarations and terms " << t.reading * 1e3
           << " (z3's parser " << t.z3 * 1e3 << "), host terms " << t.host_terms * 1e3
           << ", classifier " << t.classify * 1e3 << ", queries " << r.queries_time * 1e3
           << ", groups " << r.groups_time * 1e3 << ", teardown " << r.teardown_time * 1e3
           << ", other " << (total - known) * 1e3 << " ms\n";
      stats_lines += line.str();
    }
  }
  auto const output_start = Clock::now();
  if (options.json) {
    if (files.size() > 1 || !failed) orvo::classify::write_json(std::cout, entries, options);
  } else {
    bool first = true;
    for (auto const& r : reports) {
      if (!first) std::cout << "\n";
      first = false;
      orvo::classify::write_text(std::cout, *r, options);
    }
  }
  std::cout.flush();
  if (stats)
    std::cerr << stats_lines << "output: " << orvo::smtlib::seconds_since(output_start) * 1e3
              << " ms\n";
  if (!std::cout) {
    std::cerr << "orvo-itp-classify: cannot write the report: " << std::strerror(errno) << "\n";
    return 1;
  }
  return failed ? 1 : 0;
}
