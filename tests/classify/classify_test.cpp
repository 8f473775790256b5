// orvo-itp-classify on tiny scripts, one grouped test per rule, the error
// cases, and the golden documents of the bundled problems (and of the shared
// problem set, when it is beside the repository).
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "classify/problem.h"
#include "classify/report.h"
#include "smtlib/sexpr.h"

namespace {

using orvo::classify::Options;
using orvo::classify::ProblemReport;
namespace fs = std::filesystem;

// Every partition is answered by the cut index and by the classifier, and
// the two must agree.
Options const checked{false, false, false, true, true};  // check, symbol_lists

ProblemReport run(std::string const& script, Options options = checked) {
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

TEST(ClassifyRules, AtomsAreTheBooleanLeavesAndClausesTheLiteralConjuncts) {
  ProblemReport r =
      run("(declare-fun p () Bool)(declare-fun q () Bool)" + ints +
          // chained <= becomes two atoms; (= p q) over Bool is walked into; ite of
          // sort Bool is a connective and its Int-sorted sibling is inside an atom
          "(assert (and (<= x y z) (= p q) (ite p (> x 0) (< (ite q x y) 0))))\n"
          // literals, a negation, an or of literals, the same literal twice, a
          // one-literal or; (=> p q) and (or p true) give atoms but no clause
          "(assert (and p (not q) (or p (not (> x 0))) p (or q) (=> p q) (or p true) true))\n"
          "(assert (forall ((v Int)) (> v x)))");
  ASSERT_EQ(r.groups.size(), 3u);
  EXPECT_EQ(r.groups[0].atoms, 6u);  // <= twice, p, q, > x 0, < (ite ..) 0
  EXPECT_EQ(r.groups[0].clauses, 2u);
  EXPECT_EQ(r.groups[0].symbols, (std::vector<std::string>{"p", "q", "x", "y", "z"}));
  EXPECT_EQ(r.groups[1].atoms, 3u);  // p, q, (> x 0)
  EXPECT_EQ(r.groups[1].clauses, 5u);
  // A quantified formula is one atom; its bound variable is no symbol.
  EXPECT_TRUE(r.groups[2].atoms == 1 && r.groups[2].clauses == 1);
  EXPECT_EQ(r.groups[2].symbols, std::vector<std::string>{"x"});
}

TEST(ClassifyRules, DefinitionsExpandAndScopesFollowPushAndPop) {
  ProblemReport r = run(
      ints +
      "(define-fun inc ((v Int)) Int (+ v 1))\n"
      "(define-sort I () Int)(declare-datatypes ((T 0)) (((leaf) (node (val I)))))\n"
      "(declare-sort P 1)(declare-fun u () (P Int))(declare-fun v () (P Int))\n"
      "(push 1)(declare-fun w () Real)(assert (! (> w (to_real (inc x))) :named a))\n"
      "(pop 1)(declare-fun w () Bool)(assert (! (and w (= (val (node y)) z) (= u v)) :named b))\n"
      "(assert (! (> (inc (inc x)) 0) :named c))\n"
      "(get-interpolants a b c)");
  ASSERT_EQ(r.groups.size(), 3u);
  EXPECT_EQ(r.groups[0].atoms, 0u);  // popped: empty, name kept
  EXPECT_EQ(r.groups[0].name, "a");
  EXPECT_EQ(r.groups[1].symbols, (std::vector<std::string>{"u", "v", "w", "y", "z"}));
  EXPECT_EQ(r.groups[2].symbols, std::vector<std::string>{"x"});  // inc is no symbol
  // a names the popped, empty group: A has no symbols, and the Bool w of b
  // is the live one.
  auto const& p = r.queries.at(0).partitions;
  ASSERT_EQ(p.size(), 2u);
  EXPECT_TRUE(p[0].A_symbols.empty());
  EXPECT_EQ(p[1].A_symbols, (std::vector<std::string>{"u", "v", "w", "y", "z"}));
  EXPECT_EQ(p[1].B_symbols, std::vector<std::string>{"x"});
  EXPECT_TRUE(p[1].atoms.A == 3 && p[1].atoms.B == 1 && p[1].atoms.mixed == 0);

  EXPECT_EQ(error_of(ints + "(declare-fun x () Real)").substr(0, 4), "2:1:");
  EXPECT_EQ(error_of(ints + "(push 1)(declare-fun x () Real)(pop 1)(assert (> x 0.5))"),
            "no error");
  EXPECT_EQ(error_of(ints + "(declare-fun x () Int)(assert (> x 0))"), "no error");
}

TEST(ClassifyRules, QueriesNameGroupsAndSubtreesInPostOrder) {
  std::string const s = ints +
                        "(assert (! (> x 0) :named P0))(assert (! (> y 0) :named P1))\n"
                        "(assert (! (> z 0) :named P2))(assert (! (> x y) :named P3))\n"
                        "(assert (! (> y z) :named P4))(assert (> z x))\n"
                        "(assert (! (= x 1) :named P4))\n"
                        "(get-interpolants P0 (P1) P2 (P3 (P4) (and P3 P0)) |#5|)\n"
                        "(get-interpolants P0 P1)(get-interpolants P0)\n";
  ProblemReport r = run(s);
  ASSERT_EQ(r.queries.size(), 3u);
  auto const& tree = r.queries[0].partitions;
  ASSERT_EQ(tree.size(), 6u);
  // Group names of each A; both live groups named P4 count.
  char const* const A[] = {"P0", "P1", "P0 P1 P2", "P3", "P4 P4", "P0 P3 P4 P4"};
  for (std::size_t i = 0; i < 6; ++i) {
    std::string names;
    for (std::string const& n : tree[i].A)
      names += (names.empty() ? "" : " ") + n;
    EXPECT_EQ(names, A[i]) << i;
  }
  EXPECT_EQ(tree[5].node, "(and P3 P0)");
  EXPECT_EQ(tree[4].common, (std::vector<std::string>{"x", "y", "z"}));
  EXPECT_EQ(r.queries[0].line, 6);
  EXPECT_EQ(r.queries[1].partitions.size(), 1u);
  EXPECT_EQ(r.queries[1].partitions[0].atoms.A + r.queries[1].partitions[0].atoms.B, 7u);
  EXPECT_TRUE(r.queries[2].partitions.empty());
}

TEST(ClassifyRules, ErrorsStopAtTheirPlace) {
  struct Case {
    std::string script, where, words;
  } const cases[] = {
      {"(assert true)\n  (assert (> x 0))", "2:3:", "z3 rejects the command"},
      {"(declare-sort Int 0)", "1:1:", "z3 4.8 predefines 'Int'"},
      {"(declare-datatypes ((List 0)) (((nil))))", "1:1:", "predefines 'List' as a datatype"},
      {"(push 2)(pop 1)\n(pop 2)", "2:1:", "pop of 2 levels below level 0"},
      {"(assert (! true :named a))(get-interpolants a (and a b))", "1:54:", "unknown assertion"},
      {"(assert true))", "1:14:", "unexpected ')'"},
      {"(assert true)\n(assert (> 1 0)", "2:1:", "unbalanced"},
      {"(echo \"unterminated)", "1:7:", "unterminated string"},
      {"assert", "1:1:", "expected '('"},
      {"(declare-fun f (Int) Int)(declare-fun f (Bool) Int)", "1:26:", "'f' is already declared"},
  };
  for (Case const& c : cases) {
    std::string const got = error_of(c.script);
    EXPECT_TRUE(got.rfind(c.where, 0) == 0 && got.find(c.words) != std::string::npos) << got;
  }
  // Windows line ends read like any other; a comment may hold anything.
  EXPECT_EQ(error_of("; ( \" |\r\n(assert true)\r\n  (pop 1)"),
            "3:3: pop of 1 levels below level 0 (0 open)");
}

// Every problem under `dir` against its document (FILE.json beside FILE.smt2,
// or under `expected` mirrored): the same JSON, or an error at the same place.
void check_goldens(fs::path const& problems, fs::path const& expected) {
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
      orvo::classify::write_json(
          out, {orvo::classify::classify_problem(name, text.str(), checked, warnings)});
      EXPECT_EQ(nlohmann::json::parse(out.str()), want) << entry.path();
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
  fs::path const dir = fs::path(ORVO_ITP_SOURCE_DIR) / "classify" / "problems";
  check_goldens(dir, dir);
  fs::path const data = fs::path(ORVO_ITP_SOURCE_DIR) / ".." / "shared" / "data" / "smtlib";
  if (!fs::exists(data / "problems")) GTEST_SKIP() << "no shared problem set at " << data;
  check_goldens(data / "problems", data / "expected");
}

}  // namespace
