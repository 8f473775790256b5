// orvo-itp-check on problem and response pairs: its own pairs (a planted
// fault of each kind, named in each problem's comments) and, when the
// shared data set is beside the repository, the real solvers' answers; the
// reading of responses and interpolants; the emitted obligations re-checked
// by a fresh z3.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "orvo-itp-check/check.h"
#include "orvo-itp-check/obligations.h"
#include "programs/program.h"
#include "smtlib/script.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using orvo::check::Options;

std::string slurp(fs::path const& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

Options options_from(std::string const& flags) {
  Options o;
  std::istringstream words(flags);
  for (std::string w; words >> w;) {
    if (w == "--craig") o.craig = true;
    if (w == "--unmentioned=background") o.unmentioned = orvo::smtlib::Unmentioned::background;
    if (w == "--unmentioned=error") o.unmentioned = orvo::smtlib::Unmentioned::error;
  }
  return o;
}

orvo::check::ProblemReport check(std::string const& problem, std::string const& responses,
                                 Options const& o = {}, z3::context* shared = nullptr) {
  std::ostringstream warnings;
  return orvo::check::check_problem("p.smt2", problem, "p.out", responses, o, warnings, shared);
}

// The document with what varies between z3 versions (metrics, model values,
// z3's reasons, the words of messages) left out, as the shared comparison does.
Json comparable(Json doc) {
  doc.erase("file");
  doc.erase("responses");
  for (Json& q : doc["queries"]) {
    if (q.contains("message")) q["message"] = "";
    if (!q.contains("interpolants")) continue;
    for (Json& i : q["interpolants"])
      for (char const* k : {"size", "atoms", "quantifiers", "counterexample", "reason"})
        i.erase(k);
  }
  return doc;
}

// The exit status a pair's expected document implies.
int status_of(Json const& doc) {
  if (doc.contains("error")) return 1;
  auto const& s = doc["summary"];
  bool const count = doc.dump().find("\"count\"") != std::string::npos;
  return s["invalid"] > 0 || s["unreadable"] > 0 || count ? 2
         : s["unknown"] > 0 || s["unanswered"] > 0        ? 3
                                                          : 0;
}

// Every pair under `dir`: the document and the exit status it implies.
// With `ctx`, every pair is checked in that one z3 context.
void check_pairs(fs::path const& dir, z3::context* ctx = nullptr) {
  std::size_t pairs = 0;
  for (auto const& entry : fs::recursive_directory_iterator(dir)) {
    fs::path const& p = entry.path();
    if (p.extension() != ".smt2") continue;
    fs::path const rel = fs::relative(p, dir / "problems").replace_extension();
    bool const shared = fs::exists(dir / "problems");
    auto const at = [&](char const* folder, char const* ext) {
      return shared ? (dir / folder / rel).concat(ext) : fs::path(p).replace_extension(ext);
    };
    SCOPED_TRACE(p.string());
    ++pairs;
    Json const expected = Json::parse(slurp(at("expected", ".json")));
    Options const o =
        options_from(fs::exists(at("expected", ".flags")) ? slurp(at("expected", ".flags")) : "");
    if (expected.contains("error")) {
      EXPECT_THROW(check(slurp(p), slurp(at("responses", ".out")), o, ctx),
                   orvo::smtlib::ScriptError);
      continue;
    }
    orvo::check::ProblemReport const r = check(slurp(p), slurp(at("responses", ".out")), o, ctx);
    std::ostringstream out;
    orvo::check::write_json(out, {{&r, "p.smt2", "p.out", {}}});
    EXPECT_EQ(comparable(Json::parse(out.str())), comparable(expected));
    EXPECT_EQ(orvo::check::exit_status(r), status_of(expected));
  }
  EXPECT_GT(pairs, 0u);
}

TEST(CheckPairs, OwnPairs) {
  check_pairs(fs::path(ORVO_ITP_SOURCE_DIR) / "orvo-itp-check" / "problems");
}

TEST(CheckPairs, SharedPairs) {
  // All in one z3 context, one after another: none may see the others.
  z3::context shared;
  check_pairs(fs::path(ORVO_ITP_SOURCE_DIR) / "orvo-itp-check" / "problems", &shared);
  // Beside the repository, or beside the folder of worktrees it is one of.
  for (char const* up : {"..", "../.."}) {
    fs::path const data = fs::path(ORVO_ITP_SOURCE_DIR) / up / "shared" / "data" / "interpolants";
    if (fs::exists(data / "problems")) return check_pairs(data, &shared);
  }
  GTEST_SKIP() << "no shared interpolant pairs beside " << ORVO_ITP_SOURCE_DIR;
}

TEST(CheckResponses, FaultsOfTheStreamAndErrorMessages) {
  std::string const script =
      "(declare-fun x () Int)(assert (! (> x 0) :named A))"
      "(assert (! (< x 0) :named B))(get-interpolants A B)";
  try {
    check(script, "unsat\n((> x 0)\n");
    ADD_FAILURE() << "an unbalanced stream was accepted";
  } catch (orvo::check::ResponsesError const& e) {
    EXPECT_EQ(e.where().line, 2);
    EXPECT_EQ(e.where().column, 1);
  }
  auto const r = check(script, "success (error \"say \"\"no\"\"\")");
  ASSERT_EQ(r.queries.size(), 1u);
  EXPECT_EQ(r.queries[0].answer, orvo::check::Answer::Kind::error);
  EXPECT_EQ(r.queries[0].message, "say \"no\"");
}

// z3 keeps a failed parse's error in its context: every formula after a bad
// one must read as if it came first.
TEST(CheckReading, AFailedReadLeavesNothingBehind) {
  std::string const script =
      "(declare-fun x () Int)(declare-fun p () Bool)(define-fun big ((v Int)) Bool (> v 9))"
      "(assert (! (big x) :named A))(assert (! (not p) :named B))(get-interpolants A B)";
  std::string const terms =
      "(+ x p) (> x 1) (.mod_1 x) (big x) x (and p (big x)) (= p 1) (or p (> x 2))";
  std::vector<bool> const readable{false, true, false, true, false, true, false, true};
  std::ostringstream warnings;
  orvo::smtlib::Script s("t.smt2", warnings);
  bool queried = false;
  s.run(script, [&](orvo::smtlib::Query const&) {
    queried = true;
    std::vector<orvo::smtlib::SExpr> const all = orvo::smtlib::read_sexprs(terms);
    std::vector<orvo::smtlib::SExpr const*> mixed, good;
    for (std::size_t i = 0; i < all.size(); ++i) {
      mixed.push_back(&all[i]);
      if (readable[i]) good.push_back(&all[i]);
    }
    auto const got = orvo::check::read_interpolants(s, mixed);
    auto const alone = orvo::check::read_interpolants(s, good);
    std::size_t k = 0;
    for (std::size_t i = 0; i < got.size(); ++i) {
      SCOPED_TRACE(all[i].text);
      ASSERT_EQ(got[i].readable, readable[i]) << got[i].reason;
      if (readable[i]) {
        EXPECT_TRUE(z3::eq(got[i].formula, alone[k++].formula));
      }
    }
    EXPECT_EQ(got[2].reason, "unknown name .mod_1");
    EXPECT_EQ(got[4].reason, "not a Boolean term");
    EXPECT_EQ(Z3_get_error_code(s.reader().context()), Z3_OK);
    // and z3 still decides: (big x) implies (> x 2)
    orvo::check::Implications imp(s.reader().context(), 10000, {}, "");
    EXPECT_EQ(imp.decide({got[3].formula}, got[7].formula).outcome, orvo::check::Outcome::holds);
  });
  EXPECT_TRUE(queried);
}

// Every emitted obligation, read by a fresh z3 on its own, is unsat exactly
// when the checker found that step to hold.
TEST(CheckEmit, ObligationsRecheckedByAFreshZ3) {
  fs::path const dir =
      fs::temp_directory_path() / ("orvo-itp-check-emit-" + std::to_string(::getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  Options o;
  o.emit_dir = dir.string();
  fs::path const pairs = fs::path(ORVO_ITP_SOURCE_DIR) / "orvo-itp-check" / "problems";
  auto const r = orvo::check::check_problem("steps.smt2", slurp(pairs / "steps.smt2"), "steps.out",
                                            slurp(pairs / "steps.out"), o, std::cerr);
  std::size_t compared = 0;
  for (std::size_t k = 0; k < r.queries.size(); ++k)
    for (std::size_t j = 0; j + 1 < r.queries[k].interpolants.size();
         ++j) {  // not the root's child
      fs::path const f =
          dir / ("steps-q" + std::to_string(k + 1) + "-" + std::to_string(j) + "-step.smt2");
      SCOPED_TRACE(f.string());
      ASSERT_TRUE(fs::exists(f));
      z3::context ctx;
      z3::solver fresh(ctx);
      fresh.from_string(slurp(f).c_str());
      bool const holds =
          r.queries[k].interpolants[j].implication.outcome == orvo::check::Outcome::holds;
      EXPECT_EQ(fresh.check(), holds ? z3::unsat : z3::sat);
      ++compared;
    }
  EXPECT_EQ(compared, 10u);
  EXPECT_TRUE(fs::exists(dir / "steps-q5-root.smt2"));
  fs::remove_all(dir);
}

}  // namespace

namespace {

ProgramRun check_program(std::string const& args) {
  return run_program(ORVO_ITP_CHECK, args);
}

// The program on its own pairs, with their flags: the documents, and a text
// report that says what the document says, line for line.
TEST(CheckProgram, OwnPairsAsTextAndJson) {
  fs::path const own = fs::path(ORVO_ITP_SOURCE_DIR) / "orvo-itp-check" / "problems";
  for (auto const& entry : fs::directory_iterator(own)) {
    fs::path const& p = entry.path();
    if (p.extension() != ".smt2") continue;
    SCOPED_TRACE(p.string());
    Json const expected = Json::parse(slurp(fs::path(p).replace_extension(".json")));
    fs::path const flags_file = fs::path(p).replace_extension(".flags");
    std::string flags = fs::exists(flags_file) ? slurp(flags_file) : "";
    std::replace(flags.begin(), flags.end(), '\n', ' ');
    std::string const pair = p.string() + " " + fs::path(p).replace_extension(".out").string();
    std::string const args = flags + pair;
    ProgramRun const json = check_program("--json " + args);
    ProgramRun const text = check_program(args);
    EXPECT_EQ(json.status, status_of(expected)) << json.err;
    EXPECT_EQ(text.status, json.status);
    if (expected.contains("error")) {
      EXPECT_EQ(json.out + text.out, "");
      EXPECT_EQ(text.err, (own / expected["error"].get<std::string>()).string() + "\n");
      continue;
    }
    Json const doc = Json::parse(json.out);
    EXPECT_EQ(comparable(doc), comparable(expected));
    std::vector<std::string> want;
    for (Json const& q : doc["queries"]) {
      want.push_back("query at line " + std::to_string(q["line"].get<int>()) + ": ");
      if (!q.contains("interpolants"))
        want.push_back("  " + q["answer"].get<std::string>() + " answer");
      for (Json const& i : q.value("interpolants", Json::array()))
        want.push_back("  " + i["node"].get<std::string>() + ": " +
                       i["verdict"].get<std::string>());
    }
    auto const& s = doc["summary"];
    want.push_back("summary: " + s["valid"].dump() + " valid, " + s["invalid"].dump() +
                   " invalid, " + s["unknown"].dump() + " unknown, " + s["unreadable"].dump() +
                   " unreadable, " + s["unanswered"].dump() + " unanswered");
    std::istringstream lines(text.out);
    std::string line;
    std::getline(lines, line);  // the heading
    std::size_t k = 0;
    for (; std::getline(lines, line) && k < want.size(); ++k)
      EXPECT_EQ(line.substr(0, want[k].size()), want[k]);
    EXPECT_EQ(k, want.size());
    EXPECT_FALSE(std::getline(lines, line)) << line;
  }
}

// What a user meets: the exit status that ranks several pairs, the pairs
// that cannot be read, standard input, the command line and its options.
TEST(CheckProgram, StatusesErrorsAndOptions) {
  fs::path const dir =
      fs::temp_directory_path() / ("orvo-itp-check-program-" + std::to_string(::getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  auto file = [&](std::string const& name, std::string const& text) {
    std::ofstream(dir / name, std::ios::binary) << text;
    return (dir / name).string();
  };
  std::string const valid = file("valid.smt2",
                                 "(set-logic QF_LIA)(declare-fun x () Int)(declare-fun y () Int)"
                                 "(assert (! (= x 1) :named A))(assert (! (= y x) :named B))"
                                 "(assert (! (< y 0) :named C))(get-interpolants A B C)");
  std::string const right = file("right.out", "((= x 1) (> y 0))");
  std::string const none = file("none.out", "");
  std::string const torn = file("torn.out", "(\n(= x 1)");
  std::string const absent = (dir / "absent.smt2").string();
  fs::path const own = fs::path(ORVO_ITP_SOURCE_DIR) / "orvo-itp-check" / "problems";
  std::string const steps = (own / "steps.smt2").string() + " " + (own / "steps.out").string();

  ProgramRun r = check_program(valid + " " + right);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("\nsummary: 2 valid, 0 invalid, 0 unknown"), std::string::npos) << r.out;
  EXPECT_EQ(check_program(valid + " - <" + right).status, 0);
  r = check_program(valid + " " + none);  // nothing wrong, nothing proven
  EXPECT_EQ(r.status, 3);
  EXPECT_NE(r.out.find("\n  missing answer\n"), std::string::npos) << r.out;
  // Several pairs: the first of 1, 2, 3 that any of them gives; every pair
  // is tried, one error line for each that cannot be read (the responses'
  // own fault at their place).
  EXPECT_EQ(check_program(valid + " " + none + " " + steps + " " + valid + " " + right).status, 2);
  r = check_program("--json " + valid + " " + right + " " + absent + " " + right + " " + valid +
                    " " + torn + " " + steps);
  EXPECT_EQ(r.status, 1);
  Json const doc = Json::parse(r.out);
  ASSERT_EQ(doc.size(), 4u);
  EXPECT_EQ(doc[0]["summary"]["valid"], 2);
  EXPECT_EQ(doc[1]["error"].get<std::string>().rfind(absent + ":1:1: error: cannot open", 0), 0u);
  EXPECT_EQ(doc[2]["error"].get<std::string>().rfind(torn + ":1:1: error: ", 0), 0u);
  EXPECT_EQ(doc[3]["summary"]["invalid"], 6);
  EXPECT_EQ(r.err,
            doc[1]["error"].get<std::string>() + "\n" + doc[2]["error"].get<std::string>() + "\n");
  // One pair that cannot be read: no document at all.
  EXPECT_EQ(check_program("--json " + dir.string() + " " + right).out, "");
  // A bad command line checks nothing: status 1, the usage on standard error.
  std::string const pair = " " + valid + " " + right;
  std::string const no_dir = "--emit " + right + "/sub";  // under a file
  for (std::string const& args :
       {valid, "--timeout-ms=" + pair, "--timeout-ms=1e3" + pair, "--unmentioned=all" + pair,
        "--verbose" + pair, pair + " --emit", no_dir + pair}) {
    r = check_program(args);
    EXPECT_EQ(r.status, 1) << args;
    EXPECT_EQ(r.out, "") << args;
    EXPECT_NE(r.err.find("\nusage: orvo-itp-check"), std::string::npos) << args << ": " << r.err;
  }
  r = check_program("--help");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("usage: orvo-itp-check", 0), 0u);
  // Both Craig conditions in the report, the time per pair, every
  // obligation written: per query, 3 steps, the root and 2 x 3 Craig ones.
  r = check_program("--craig --stats --timeout-ms=60000 --emit " + (dir / "emit").string() + " " +
                    steps);
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.out.find("\n  S0: valid: Craig: A implies holds, B inconsistent holds ["),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.err.find("steps.smt2: 15 interpolants; reading "), std::string::npos) << r.err;
  EXPECT_EQ(std::distance(fs::directory_iterator(dir / "emit"), fs::directory_iterator()), 50);
  // An obligation that cannot be written stops its pair with an error.
  fs::create_directories(dir / "taken" / "valid-q1-0-step.smt2");
  r = check_program("--emit=" + (dir / "taken").string() + pair);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(valid + ":1:1: error: cannot write "), std::string::npos) << r.err;
  fs::remove_all(dir);
}

}  // namespace
