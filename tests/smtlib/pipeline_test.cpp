// The pipeline's units, each once: the text reader, the names z3 is given,
// the formula rules, the query structure, the scopes, and scripts one after
// another in one z3 context.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "classifier/atom_classifier.h"
#include "smtlib/formula.h"
#include "smtlib/names.h"
#include "smtlib/query.h"
#include "smtlib/scopes.h"
#include "smtlib/script.h"
#include "smtlib/sexpr.h"
#include "smtlib/z3_reader.h"

namespace {

using namespace orvo::smtlib;

std::string where(std::string const& text) {
  try {
    read_commands(text);
  } catch (ScriptError const& e) {
    return std::to_string(e.where().line) + ":" + std::to_string(e.where().column);
  }
  return "no error";
}

TEST(Text, PositionsLineEndsNestingAndBytes) {
  // LF, CRLF and a lone CR each end a line; a comment ends at either.
  EXPECT_EQ(where("(a)\r\n(b)\r(c) ; x\r  )"), "4:3");
  EXPECT_EQ(where("(a |b\nc| \"d\"\"e\")\n\n  (f"), "4:3");
  // Simple symbols are ASCII; quoted ones hold any byte.
  EXPECT_EQ(where("(assert p\xc3\xa9)"), "1:10");
  EXPECT_EQ(where("(assert \xc3\xa9)"), "1:9");
  EXPECT_EQ(where("(assert |p\xc3\xa9\xff|)"), "no error");
  // A million levels deep: read and destroyed without recursion.
  std::string deep(1000000, '(');
  deep += std::string(1000000, ')');
  EXPECT_EQ(read_commands(deep).size(), 1u);
}

TEST(Names, RenamedSymbolsGoBackExactly) {
  EXPECT_EQ(z3_symbol("List"), "|List @|");
  EXPECT_EQ(script_text("(= |List @| (cons |x @| |a b @|) \"|y @|\" |q|)"),
            "(= List (cons x |a b|) \"|y @|\" |q|)");
  // A name the script itself ends in " @" survives the round trip.
  EXPECT_EQ(script_text(z3_symbol("z @")), "|z @|");
  EXPECT_EQ(z3_message("(error \"line 1 column 95: unknown constant |f @|\nsecond line\")"),
            "unknown constant f; second line");
  EXPECT_EQ(printable_utf8("a\xc3\xa9\xff\n\xe2\x82"), "a\xc3\xa9\\xff\\x0a\\xe2\\x82");
}

TEST(Formula, AtomsClausesAndSharedSubtermsOnce) {
  std::ostringstream warnings;
  Z3Reader reader("t", warnings);
  std::vector<SExpr> decls = read_commands(
      "(declare-fun p () Bool)(declare-fun q () Bool)(declare-fun x () Int)(declare-fun y () "
      "Int)");
  std::vector<SExpr const*> run;
  run.reserve(decls.size());
  for (SExpr const& d : decls)
    run.push_back(&d);
  reader.declare_funs(run);
  auto split = [&](std::string const& text) {
    std::string const command = "(assert (" + text + "))";  // the nodes point into it
    std::vector<SExpr> t = read_commands(command);
    return split_formula(reader.read_term(t[0].items[1], Position{}));
  };
  // Chained <= is two atoms; = over Bool and Bool ite are walked into; an
  // Int ite stays inside its atom; a quantifier is one atom.
  Formula f = split("and (<= x y 0) (= p q) (ite p (> x 0) (< (ite q x y) 0)) (forall ((v Int)) (> v x))");
  EXPECT_EQ(f.atoms.size(), 7u);
  EXPECT_EQ(f.clauses.size(), 3u);  // the two <= and the quantifier: = and ite are no clauses
  // Literals, a negation, an or of literals, the same literal twice (one
  // clause), a one-literal or; => and an or with true give no clause.
  f = split("and p (not q) (or p (not (> x 0))) p (or q) (=> p q) (or p true) true");
  EXPECT_EQ(f.atoms.size(), 3u);
  ASSERT_EQ(f.clauses.size(), 4u);
  EXPECT_TRUE(f.clauses[1][0].negated);
  EXPECT_EQ(f.clauses[2].size(), 2u);
  // (and p p) doubled 60 times: 61 distinct subterms, never 2^60 paths.
  std::string dag = "p";
  for (int i = 0; i < 60; ++i) {
    std::string const d = "d" + std::to_string(i);
    dag = std::string("(let ((").append(d).append(" ").append(dag).append(")) (and ");
    dag.append(d).append(" ").append(d).append("))");
  }
  f = split("and " + dag + " q");
  EXPECT_EQ(f.atoms.size(), 2u);
  EXPECT_EQ(f.clauses.size(), 2u);
  EXPECT_LE(f.visits, 2u * 64u);
}

TEST(Query, ItemsSubtreesChildrenAndUnmentioned) {
  std::unordered_map<std::string, NamedGroups> names{{"a", {{0}, 0}},
                                                     {"b", {{1}, 1}},
                                                     {"c", {{2}, 2}},
                                                     {"d", {{3, 5}, 5}},
                                                     {"e", {{}, 4}}};
  std::vector<std::string> group_names{"a", "b", "c", "d", "e", "d", "#6"};
  std::vector<int> live{0, 1, 2, 3, 5, 6};  // e (group 4) was popped
  std::vector<char> is_live{1, 1, 1, 1, 0, 1, 1};
  auto resolve = [&](std::string const& text, Unmentioned rule) {
    std::vector<SExpr> c = read_commands(text);
    return resolve_query(c[0], QueryContext{names, group_names, live, is_live, rule});
  };
  // (A (B C) D) E: post-order A B C D E.
  Query q = resolve("(get-interpolants (a (b c) (and d e)) c)", Unmentioned::root);
  ASSERT_EQ(q.items.size(), 5u);
  EXPECT_FALSE(q.sequence);
  std::size_t const first[] = {0, 1, 1, 0, 0};
  std::vector<std::size_t> const children[] = {{}, {}, {1}, {0, 2}, {3}};
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(q.items[i].first, first[i]) << i;
    EXPECT_EQ(q.items[i].children, children[i]) << i;
  }
  EXPECT_EQ(q.items[3].groups, (std::vector<int>{3, 4, 5}));  // live d's; popped e kept
  EXPECT_EQ(q.subtree_groups(3), (std::vector<int>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(q.unmentioned, std::vector<int>{6});
  EXPECT_TRUE(q.background.empty());
  EXPECT_EQ(resolve("(get-interpolants a b)", Unmentioned::background).background,
            (std::vector<int>{2, 3, 5, 6}));
  // No items: every live group, each its own item, as a sequence.
  q = resolve("(get-interpolants)", Unmentioned::error);
  ASSERT_EQ(q.items.size(), 6u);
  EXPECT_TRUE(q.sequence);
  EXPECT_EQ(q.items[5].text, "#6");
  EXPECT_EQ(q.items[4].groups, std::vector<int>{5});
  EXPECT_EQ(q.items[4].children, std::vector<std::size_t>{3});
  // Faults at their token; an unmentioned live group under the error rule at the command.
  char const* const bad[][2] = {{"(get-interpolants a zz)", "1:21"},
                                {"(get-interpolants a (and))", "1:21"},
                                {"(get-interpolants a ())", "1:21"},
                                {"(get-interpolants a \"s\")", "1:21"},
                                {"\n (get-interpolants a b)", "2:2"}};
  for (auto const& [text, at] : bad) {
    std::string got = "no error";
    try {
      resolve(text, Unmentioned::error);
    } catch (ScriptError const& e) {
      got = std::to_string(e.where().line) + ":" + std::to_string(e.where().column);
    }
    EXPECT_EQ(got, at) << text;
  }
}

TEST(Scopes, ManyLevelsCostOneAndPopsWithdrawWhatTheyHeld) {
  std::ostringstream warnings;
  Z3Reader reader("t", warnings);
  orvo::itp::AtomClassifier classifier;
  Scopes scopes(reader, classifier);
  scopes.add_group(0);
  scopes.push(100000000);
  EXPECT_EQ(scopes.depth(), 100000000u);
  EXPECT_EQ(scopes.real_levels(), 1u);
  scopes.add_group(1);
  scopes.pop(1, Position{});  // the innermost level held group 1
  EXPECT_FALSE(scopes.is_live(1));
  EXPECT_EQ(scopes.real_levels(), 1u);
  scopes.add_group(2);
  scopes.push(2);
  scopes.add_group(3);
  scopes.pop(2, Position{});
  EXPECT_EQ(scopes.live(), (std::vector<int>{0, 2}));
  scopes.pop(99999998, Position{});
  EXPECT_EQ(scopes.live(), std::vector<int>{0});
  EXPECT_EQ(scopes.depth(), 1u);
  scopes.pop(1, Position{});
  EXPECT_EQ(scopes.real_levels(), 0u);
  EXPECT_THROW(scopes.pop(1, Position{}), ScriptError);
}

// Plays `text`; "ok" or the first fault's line:column.
std::string play(std::string const& text, Script* out = nullptr) {
  std::ostringstream warnings;
  Script own("t", warnings);
  Script& script = out != nullptr ? *out : own;
  try {
    script.run(text, nullptr);
  } catch (ScriptError const& e) {
    return std::to_string(e.where().line) + ":" + std::to_string(e.where().column);
  }
  return "ok";
}

TEST(Script, AssertionsReadAheadMeanWhatTheyMeanInTheirTurn) {
  std::string const x = "(declare-fun x () Int)(declare-fun p () Bool)\n";
  // A level that declared something is popped: what it declared is gone.
  EXPECT_EQ(play(x + "(push)(declare-fun y () Int)(assert (> y 0))(pop)\n(assert (> y 1))"), "3:1");
  // A name given on the way is not yet, or no longer, there.
  EXPECT_EQ(play(x + "(push)(assert (! p :named a))(pop)\n(assert (=> a p))"), "3:1");
  EXPECT_EQ(play(x + "(assert (! p :named a))(push)(assert (=> a p))(pop)(assert a)"), "ok");
  // Faults come in the script's order: the pop before the bad term.
  EXPECT_EQ(play(x + "(assert p)(pop)\n(assert (> z 0))"), "2:11");
  EXPECT_EQ(play(x + "(assert p)(push)(check-sat)(pop)\n(assert (> z 0))"), "3:1");
  // Many levels read ahead, then one that is not Boolean.
  std::string loop = x;
  for (int t = 0; t < 40; ++t)
    loop += "(push)(assert (! (> x " + std::to_string(t) + ") :named s))(check-sat)(pop)\n";
  EXPECT_EQ(play(loop + "(assert x)"), "42:1");
  // What a pop gives back to z3 is made again when the same atom returns:
  // the same atom variable, its text readable.
  std::ostringstream warnings;
  Script script("t", warnings);
  EXPECT_EQ(play(loop + "(assert (> x 39))", &script), "ok");
  std::vector<int> const held = script.held_atoms();
  ASSERT_EQ(held.size(), 1u);
  EXPECT_EQ(held[0], 39);
  EXPECT_EQ(script.atom_text(held[0]), "(> x 39)");
  EXPECT_EQ(script.environment().num_atoms(), 40u);
}

TEST(Script, APoppedLevelGivesItsTermsBackToZ3) {
  // Named assertions over new terms in levels that are popped: what z3
  // holds while the script stands at its end must not grow with the levels
  // (measured by z3's own count of its allocated bytes).
  auto held_after = [](int levels) {
    std::string text = "(declare-fun x () Int)(declare-fun y () Int)\n";
    for (int t = 0; t < levels; ++t) {
      text += "(push 1)";
      for (int k = 0; k < 20; ++k)
        text += "(assert (! (> (+ x (* " + std::to_string(t) + " y)) " + std::to_string(k) +
                ") :named s" + std::to_string(k) + "))";
      text += "(pop 1)\n";
    }
    std::ostringstream warnings;
    Script script("t", warnings);
    EXPECT_EQ(play(text, &script), "ok");
    EXPECT_EQ(script.host_terms().size(), 0u);  // every conversion was released
    return Z3_get_estimated_alloc_size();
  };
  std::uint64_t const few = held_after(100);
  std::uint64_t const many = held_after(500);
  EXPECT_LT(many, few + 200 * 1024) << "z3 bytes after 100 levels " << few << ", after 500 " << many;
}

TEST(SharedContext, AScriptSeesNothingOfTheOnesBefore) {
  z3::context ctx;
  std::ostringstream warnings;
  auto play = [&](std::string const& text) {
    Script script("t", warnings, Unmentioned::root, &ctx);
    script.run(text, [](Query const&) {});
  };
  play(
      "(declare-fun x () Int)(declare-sort S 0)(define-sort I () Int)(define-fun d () Bool true)"
      "(declare-datatypes ((D 0)) (((c (f Int)))))(assert (! (> x 0) :named a))"
      "(get-interpolants a)");
  for (char const* use : {"(assert (> x 0))", "(declare-fun y () S)", "(declare-fun y () I)",
                          "(assert d)", "(assert (= (f c) 0))", "(get-interpolants a)"})
    EXPECT_THROW(play(use), ScriptError) << use;
  play("(declare-fun x () Bool)(assert x)");  // the same name anew, of another sort
}

}  // namespace
