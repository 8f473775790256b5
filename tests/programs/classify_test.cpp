// orvo-itp-classify end to end: the rules on tiny scripts, the errors, the
// command line as a user meets it, hostile inputs with a bound on the work,
// and the golden documents of the bundled problems (and of the shared
// problem set, when it is beside the repository).
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "orvo-itp-classify/classify.h"
#include "programs/program.h"
#include "smtlib/script.h"

namespace {

using orvo::classify::Options;
using orvo::classify::ProblemReport;
namespace fs = std::filesystem;

// Every partition is answered by the cut index and by the classifier, and
// the two must agree.
Options checked() {
  Options o;
  o.json = true;
  o.check = true;
  return o;
}

ProblemReport run(std::string const& script, Options options = checked()) {
  std::ostringstream warnings;
  return orvo::classify::classify_problem("t.smt2", script, options, warnings);
}

// "line:column: message" of the error the script stops at.
std::string error_of(std::string const& script) {
  try {
    run(script);
  } catch (orvo::smtlib::ScriptError const& e) {
    return std::to_string(e.where().line) + ":" + std::to_string(e.where().column) + ": " +
           e.what();
  }
  return "no error";
}

std::string const ints = "(declare-fun x () Int)(declare-fun y () Int)(declare-fun z () Int)\n";

TEST(ClassifyRules, DefinitionsDialectsAndScopes) {
  ProblemReport r = run(
      ints +
      "(define-fun inc ((v Int)) Int (+ v 1))\n"
      "(define-sort I () Int)(declare-datatypes ((T 0)) (((leaf) (node (val I)))))\n"
      "(declare-sort P 1)(declare-fun u () (P Int))(declare-fun v () (P Int))\n"
      "(push 1)(declare-fun w () Real)(assert (! (> w (to_real (inc x))) :named a))\n"
      "(pop 1)(declare-fun w () Bool)(assert (! (and w (= (val (node y)) z) (= u v)) :named b))\n"
      "(assert (! (> (inc (inc x)) 0) :named c))\n"
      // What z3 predefines, declared by the script: its names, as written.
      "(declare-datatypes ((List 0)) (((nil) (cons (head Int) (tail List)))))\n"
      "(declare-sort Real 0)(declare-fun |l @| () List)(declare-fun r () Real)\n"
      "(assert (! (and (is-cons |l @|) (= (head |l @|) x) ((_ is nil) (tail |l @|))) :named d))\n"
      "(get-interpolants a b c d)");
  ASSERT_EQ(r.groups.size(), 4u);
  EXPECT_EQ(r.groups[0].atoms, 0u);  // popped: empty, name kept
  EXPECT_EQ(r.groups[0].name, "a");
  EXPECT_EQ(r.groups[1].symbols, (std::vector<std::string>{"u", "v", "w", "y", "z"}));
  EXPECT_EQ(r.groups[2].symbols, std::vector<std::string>{"x"});  // inc is no symbol
  EXPECT_EQ(r.groups[3].symbols, (std::vector<std::string>{"l @", "x"}));
  auto const& p = r.queries.at(0).partitions;
  ASSERT_EQ(p.size(), 3u);
  EXPECT_TRUE(p[0].A_symbols.empty());
  EXPECT_EQ(p[1].common, std::vector<std::string>{});
  EXPECT_EQ(p[2].common, std::vector<std::string>{"x"});

  // A name overloaded by its sort, as z3 allows; a level's declarations end with it.
  EXPECT_EQ(error_of(ints + "(declare-fun x () Real)(assert (> x 0))").substr(0, 28),
            "2:24: z3 rejects the command");
  EXPECT_EQ(error_of(ints + "(push 1)(declare-fun w () Int)(pop 1)(assert (> w 0))").substr(0, 5),
            "2:38:");
  EXPECT_EQ(error_of(ints + "(define-fun x () Int 1)").substr(0, 4), "2:1:");
}

TEST(ClassifyRules, ErrorsStopAtTheirPlace) {
  struct Case {
    std::string script, where, words;
  } const cases[] = {
      {"(assert true)\n  (assert (> x 0))", "2:3:", "z3 rejects the command: unknown constant x"},
      {"(assert (! true :named a))(get-interpolants a (and a b))", "1:54:", "unknown assertion"},
      {"(push 2)(pop 1)\n(pop 2)", "2:6:", "pop of 2 levels below level 0"},
      {"(push 99999999999999999999)", "1:7:", "out of range"},
      {"(push x)", "1:7:", "takes an optional number"},
      {"(assert true))", "1:14:", "unexpected ')'"},
      {"(assert true)\n(assert (> 1 0)", "2:1:", "unbalanced"},
      {"(echo \"unterminated)", "1:7:", "unterminated string"},
      {"assert", "1:1:", "expected '('"},
      {"(declare-fun f () Int)(define-fun f () Int 0)", "1:23:", "'f' is already declared"},
      {"(declare-datatypes ((L 1)) ((par (X) ((n)))))", "1:21:", "parameters"},
      {"(declare-fun |x @| () Int)(assert (> |y| 0))", "1:27:", "unknown constant y"},
  };
  for (Case const& c : cases) {
    std::string const got = error_of(c.script);
    EXPECT_EQ(got.substr(0, c.where.size()), c.where) << got;
    EXPECT_NE(got.find(c.words), std::string::npos) << got;
    EXPECT_EQ(got.find('\n'), std::string::npos) << got;
    EXPECT_EQ(got.find(" @"), std::string::npos) << got;  // no internal names
  }
}

TEST(ClassifyRules, HostileInputsCostTheirSize) {
  // 8,000 declared sorts and 2,000 parametric ones, each used once: z3 is
  // handed text linear in the script, not every sort in scope each time.
  std::string sorts;
  for (int i = 0; i < 8000; ++i)
    sorts += "(declare-sort S" + std::to_string(i) + " 0)(declare-fun c" + std::to_string(i) +
             " () S" + std::to_string(i) + ")(assert (= c" + std::to_string(i) + " c" +
             std::to_string(i) + "))\n";
  for (int i = 0; i < 2000; ++i)
    sorts += "(define-sort M" + std::to_string(i) + " (X) (Array X S" + std::to_string(i) +
             "))(declare-fun m" + std::to_string(i) + " () (M" + std::to_string(i) + " Int))\n";
  std::ostringstream warnings;
  orvo::smtlib::Script script("t", warnings);
  script.run(
      sorts +
          "(push 100000000)(assert (= c1 c1))(pop 99999999)(assert (= c2 c2))(get-interpolants)",
      [](orvo::smtlib::Query const& q) { EXPECT_EQ(q.items.size(), 8001u); });
  EXPECT_LE(script.reader().handed(), 4 * sorts.size());
  EXPECT_EQ(warnings.str(), "");
}

ProgramRun program(std::string const& args) {
  return run_program(ORVO_ITP_CLASSIFY, args);
}

TEST(ClassifyProgram, EveryFileTriedOneErrorLineEach) {
  fs::path const dir = fs::temp_directory_path() / "orvo-classify-test";
  fs::create_directories(dir);
  auto write = [&](std::string const& name, std::string const& text) {
    std::ofstream(dir / name, std::ios::binary) << text;
    return (dir / name).string();
  };
  std::string const good = write("good.smt2",
                                 "(set-logic Heap)(declare-fun |x\xff| () Bool)(declare-fun y () "
                                 "Bool)(assert (! |x\xff| :named a))(assert (! (and y |x\xff|) "
                                 ":named b))(get-interpolants a b)");
  std::string const bad = write("bad.smt2", "(assert true)\r(assert (> q 0))");
  ProgramRun r = program("--json " + bad + " " + good + " " + dir.string());
  EXPECT_EQ(r.status, 1);
  nlohmann::json const doc = nlohmann::json::parse(r.out);
  ASSERT_EQ(doc.size(), 3u);
  EXPECT_EQ(doc[0]["error"].get<std::string>().find(bad + ":2:1: error: z3 rejects"), 0u);
  EXPECT_EQ(doc[1]["queries"][0]["partitions"][0]["common"], nlohmann::json{"x\\xff"});
  EXPECT_TRUE(doc[2].contains("error"));
  // One error line per bad file, one warning line for the logic z3 lacks.
  std::istringstream lines(r.err);
  int errors = 0, warnings = 0;
  for (std::string line; std::getline(lines, line);) {
    errors += line.find(": error: ") != std::string::npos;
    warnings += line.find(": warning: ") != std::string::npos;
  }
  EXPECT_EQ(errors, 2) << r.err;
  EXPECT_EQ(warnings, 1) << r.err;
  r = program(bad);  // one file: nothing on standard output
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  r = program("--atoms " + good);
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("0 A-local, 1 B-local, 1 common: x\\xff\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\n      B     |x\\xff|\n"), std::string::npos) << r.out;
  fs::remove_all(dir);
}

TEST(ClassifyProgram, OptionsAndBadCommandLines) {
  std::string const counter =
      (fs::path(ORVO_ITP_SOURCE_DIR) / "orvo-itp-classify" / "problems" / "counter.smt2").string();
  // A bad command line reads no file: status 2, one complaint, no report.
  for (std::string const& args :
       {std::string(), "--unmentioned=all " + counter, "--verbose " + counter}) {
    ProgramRun const r = program(args);
    EXPECT_EQ(r.status, 2) << args;
    EXPECT_EQ(r.out, "") << args;
    EXPECT_EQ(r.err.rfind("orvo-itp-classify: ", 0), 0u) << args << ": " << r.err;
  }
  ProgramRun r = program("--help");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("usage: orvo-itp-classify", 0), 0u);
  // k, which the query leaves out, is on both sides of every cut under the
  // background rule (and the classifier, asked too, agrees), in B under the default.
  fs::path const file = fs::temp_directory_path() /
                        ("orvo-classify-background-" + std::to_string(::getpid()) + ".smt2");
  std::ofstream(file) << ints
                      << "(assert (! (> x y) :named a))(assert (! (> y z) :named b))"
                         "(assert (! (> z x) :named k))(get-interpolants a b)";
  r = program("--json --check --unmentioned=background " + file.string());
  ASSERT_EQ(r.status, 0) << r.err;
  nlohmann::json const p = nlohmann::json::parse(r.out)["queries"][0]["partitions"][0];
  EXPECT_EQ(p["background"], nlohmann::json{"k"});
  EXPECT_EQ(p["common"], (nlohmann::json{"x", "y", "z"}));
  r = program("--json " + file.string());
  EXPECT_EQ(nlohmann::json::parse(r.out)["queries"][0]["partitions"][0]["common"],
            (nlohmann::json{"x", "y"}));
  fs::remove(file);
  // Every group (a popped one empty), the classifier's dump of every
  // partition with the partition's A groups, and where the time went.
  r = program("--groups --dump --stats " + counter);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("\n  group 4 probe: 0 atoms, 0 clauses; symbols -\n"), std::string::npos)
      << r.out;
  auto count = [&](std::string const& what) {
    std::size_t n = 0;
    for (std::size_t at = 0; (at = r.out.find(what, at)) != std::string::npos; ++at)
      ++n;
    return n;
  };
  EXPECT_EQ(count("\n    A groups:"), 9u);
  EXPECT_EQ(count("BEGIN CLASSIFIER DUMP\n"), 9u);
  EXPECT_NE(r.out.find("  S1\n    A groups:   S0 S1\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("END CLASSIFIER DUMP\n  S1\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("BEGIN CLASSIFIER DUMP\nA INDICES: 0 1 \n"), std::string::npos) << r.out;
  EXPECT_NE(r.err.find(": 5 assertions, 9 partitions; "), std::string::npos) << r.err;
}

// Every problem under `problems` against its document under `expected`
// (mirrored): the same JSON, or an error at the same place. With `shared`,
// every problem is played in that one z3 context.
void check_goldens(fs::path const& problems, fs::path const& expected,
                   z3::context* shared = nullptr) {
  std::size_t count = 0;
  for (auto const& entry : fs::recursive_directory_iterator(problems)) {
    if (entry.path().extension() != ".smt2") continue;
    fs::path const doc = expected / fs::relative(entry.path(), problems).replace_extension(".json");
    std::ifstream in(entry.path(), std::ios::binary), want_in(doc);
    ASSERT_TRUE(want_in) << doc;
    std::stringstream text;
    text << in.rdbuf();
    nlohmann::json const want = nlohmann::json::parse(want_in);
    std::string const name = entry.path().filename().string();
    std::ostringstream warnings, out;
    try {
      ProblemReport const r =
          orvo::classify::classify_problem(name, text.str(), checked(), warnings, shared);
      orvo::classify::write_json(out, {{&r, name, ""}}, checked());
      EXPECT_EQ(nlohmann::json::parse(out.str()), want) << entry.path();
      // The text report is the same whether the partitions are kept as
      // lists or as their text (the program's way when it writes text).
      Options lists = checked();
      lists.json = false;
      lists.atoms = true;
      Options early = lists;
      early.text_only = true;
      std::ostringstream from_lists, from_text;
      orvo::classify::write_text(
          from_lists, orvo::classify::classify_problem(name, text.str(), lists, warnings, shared),
          lists);
      orvo::classify::write_text(
          from_text, orvo::classify::classify_problem(name, text.str(), early, warnings, shared),
          early);
      EXPECT_EQ(from_text.str(), from_lists.str()) << entry.path();
    } catch (orvo::smtlib::ScriptError const& e) {
      ASSERT_TRUE(want.contains("error")) << entry.path() << ": " << e.what();
      std::string const where = name + ":" + std::to_string(e.where().line) + ":" +
                                std::to_string(e.where().column) + ":";
      EXPECT_EQ(want["error"].get<std::string>().substr(0, where.size()), where);
    }
    ++count;
  }
  EXPECT_GT(count, 0u) << problems;
}

TEST(ClassifyGolden, BundledAndSharedProblems) {
  fs::path const dir = fs::path(ORVO_ITP_SOURCE_DIR) / "orvo-itp-classify" / "problems";
  check_goldens(dir, dir);
  // Then all in one context, one after another: none may see the others.
  z3::context shared;
  check_goldens(dir, dir, &shared);
  // Beside the repository, or beside the folder of worktrees it is one of.
  for (char const* up : {"..", "../.."}) {
    fs::path const data = fs::path(ORVO_ITP_SOURCE_DIR) / up / "shared" / "data" / "smtlib";
    if (fs::exists(data / "problems"))
      return check_goldens(data / "problems", data / "expected", &shared);
  }
  GTEST_SKIP() << "no shared problem set beside " << ORVO_ITP_SOURCE_DIR
               << ": checked the bundled problems only";
}

}  // namespace
