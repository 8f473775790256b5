// orvo-itp-classify: the atom classifier run over SMT-LIB interpolation
// problems. For every file: its assertions become groups of atoms and
// clauses, its push/pop levels are played on the classifier, and at every
// get-interpolants each partition's symbols and the status of every atom are
// reported.
//
//   orvo-itp-classify [--json] [--atoms] [--groups] [--dump] [--check] [--stats] FILE...
//
// A FILE named "-" is read from standard input.
//
// Exit status 0 when every file was read, 1 after an error (one line
// FILE:LINE:COL: error: ... on standard error, nothing on standard output),
// 2 on a bad command line.
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "classify/problem.h"
#include "classify/report.h"
#include "smtlib/sexpr.h"

namespace {

char const usage[] =
    "usage: orvo-itp-classify [options] FILE...   (FILE - reads standard input)\n"
    "Reads SMT-LIB v2 interpolation problems (named assertions, push/pop,\n"
    "get-interpolants) and reports, for every partition of every query, the\n"
    "A groups, the A, B and common symbols and the atoms by status.\n"
    "\n"
    "  --json    one JSON document per file (a JSON array for several files)\n"
    "  --atoms   list every atom with its status (text report)\n"
    "  --groups  list every group: its atoms, clauses and symbols (text report)\n"
    "  --dump    add the classifier's debug dump of every partition (text report)\n"
    "  --check   answer every partition by both the cut index and the classifier\n"
    "            and stop with an error where they differ\n"
    "  --stats   time spent reading, classifying and answering, on standard error\n"
    "  --help    this text\n";

}  // namespace

int main(int argc, char** argv) {
  orvo::classify::Options options;
  bool json = false;
  bool stats = false;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    std::string const arg = argv[i];
    if (arg == "--json") {
      json = true;
      options.symbol_lists = true;
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
    } else if (arg == "--help" || arg == "-h") {
      std::cout << usage;
      return 0;
    } else if (arg.size() > 1 && arg[0] == '-') {  // "-" alone is standard input
      std::cerr << "orvo-itp-classify: unknown option '" << arg << "'\n" << usage;
      return 2;
    } else {
      files.push_back(arg);
    }
  }
  if (files.empty()) {
    std::cerr << "orvo-itp-classify: no input file\n" << usage;
    return 2;
  }

  std::vector<orvo::classify::ProblemReport> reports;
  bool failed = false;
  for (std::string const& path : files) {
    std::ostringstream text;
    if (path == "-") {
      text << std::cin.rdbuf();
    } else {
      std::ifstream in(path, std::ios::binary);
      if (!in) {
        std::cerr << path << ":1:1: error: cannot open the file: " << std::strerror(errno) << "\n";
        failed = true;
        continue;
      }
      text << in.rdbuf();
    }
    try {
      reports.push_back(orvo::classify::classify_problem(path, text.str(), options, std::cerr));
    } catch (orvo::smtlib::ScriptError const& e) {
      std::cerr << path << ":" << e.where().line << ":" << e.where().column
                << ": error: " << e.what() << "\n";
      failed = true;
      continue;
    } catch (std::exception const& e) {
      std::cerr << path << ":1:1: error: " << e.what() << "\n";
      failed = true;
      continue;
    }
    if (stats) {
      auto const& t = reports.back().timing;
      std::cerr << path << ": " << t.assertions << " assertions, " << t.partitions
                << " partitions; total " << t.total * 1e3 << " ms: z3 parser " << t.z3 * 1e3
                << " ms, classifier " << t.classify * 1e3 << " ms, queries " << t.queries * 1e3
                << " ms\n";
    }
  }
  if (failed) return 1;
  if (json) {
    orvo::classify::write_json(std::cout, reports);
  } else {
    for (std::size_t i = 0; i < reports.size(); ++i) {
      if (i > 0) std::cout << "\n";
      orvo::classify::write_text(std::cout, reports[i], options);
    }
  }
  return 0;
}
