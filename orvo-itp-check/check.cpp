#include "orvo-itp-check/check.h"

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "orvo-itp-check/obligations.h"
#include "orvo-itp-check/responses.h"
#include "orvo-itp-check/verdicts.h"
#include "smtlib/names.h"
#include "smtlib/partition.h"
#include "smtlib/script.h"
#include "smtlib/z3_guard.h"

namespace orvo {
namespace check {

namespace {

using Clock = std::chrono::steady_clock;
using smtlib::Query;
using smtlib::Script;

// The logic the script set before command `command`, "" when none.
std::string logic_at(Script const& script, std::size_t command) {
  std::string logic;
  for (std::size_t i = 0; i < command; ++i) {
    smtlib::CommandSpan const& span = script.commands()[i];
    if (span.head != "set-logic") continue;
    smtlib::SExpr const c = smtlib::read_command(span);
    if (c.items.size() == 2) logic = c.items[1].value;
  }
  return logic;
}

// Checks one answered query: reads the interpolants, holds their symbols
// against the cuts and decides the implications.
class QueryCheck {
 public:
  QueryCheck(Script& script, Query const& q, Options const& options, std::string emit_prefix,
             CheckTiming& timing)
      : timing_(timing),
        script_(script),
        q_(q),
        options_(options),
        emit_prefix_(std::move(emit_prefix)),
        implications_(script.reader().context(), options.timeout_ms, background(),
                      logic_at(script, q.command)) {}

  std::vector<InterpolantReport> run(std::vector<smtlib::SExpr const*> const& formulas) {
    std::size_t const n = formulas.size();  // every item but the root
    auto start = Clock::now();
    itps_ = read_interpolants(script_, formulas);
    timing_.reading += smtlib::seconds_since(start);
    timing_.interpolants += n;
    start = Clock::now();
    std::vector<InterpolantReport> out(n);
    Vocabulary vocabulary(script_, q_);
    for (std::size_t j = 0; j < n; ++j) {
      InterpolantReport& r = out[j];
      Interpolant const& itp = itps_[j];
      r.node = q_.items[j].text;
      if (!itp.readable) {
        r.reason = itp.reason;
        continue;
      }
      Offenders const bad = vocabulary.check(j, itp.symbols);
      r.A_local = smtlib::symbol_names(bad.A_local);
      r.B_local = smtlib::symbol_names(bad.B_local);
      r.foreign = smtlib::symbol_names(bad.foreign);
      r.symbols = smtlib::symbol_names(itp.symbols);
      r.metrics = itp.metrics;
    }
    timing_.vocabulary += smtlib::seconds_since(start);
    start = Clock::now();
    // The steps: each item's own obligation, then the root's.
    std::vector<Decision> steps(n);
    for (std::size_t j = 0; j < n; ++j)
      steps[j] = step(j, itps_[j].readable ? &itps_[j].formula : nullptr, name(j, "step"));
    z3::expr const falsity = script_.reader().context().bool_val(false);
    Decision const root = step(q_.root(), &falsity, name(q_.root(), "root"));
    for (std::size_t c : q_.items[q_.root()].children)
      steps[c] = join_root(std::move(steps[c]), root);
    for (std::size_t j = 0; j < n; ++j) {
      InterpolantReport& r = out[j];
      bool const readable = itps_[j].readable;
      if (readable) {
        r.implication = std::move(steps[j]);
        if (r.implication.outcome == Outcome::unknown ||
            r.implication.outcome == Outcome::not_checked)
          r.reason = r.implication.reason;
      }
      r.verdict = verdict_of(readable, r.A_local.empty() && r.B_local.empty() && r.foreign.empty(),
                             r.implication.outcome);
      if (options_.craig) craig(j, r);
    }
    timing_.z3 += smtlib::seconds_since(start);
    return out;
  }

 private:
  // The formulas of the live groups among `groups`.
  std::vector<z3::expr> live_formulas(std::vector<int> const& groups) const {
    std::vector<z3::expr> out;
    for (int g : groups)
      if (script_.is_live(g)) out.push_back(script_.groups()[static_cast<std::size_t>(g)].formula);
    return out;
  }

  std::vector<z3::expr> background() const {
    return q_.background.empty() ? std::vector<z3::expr>() : live_formulas(q_.background);
  }

  std::string name(std::size_t item, char const* kind) const {
    if (emit_prefix_.empty()) return {};
    return emit_prefix_ + (std::string(kind) == "root" ? "" : std::to_string(item) + "-") + kind +
           ".smt2";
  }

  // The obligation of item j: its children's interpolants and its own live
  // assertions (the root's: also the unmentioned ones under the root rule)
  // imply `conclusion` (null: unreadable).
  Decision step(std::size_t j, z3::expr const* conclusion, std::string const& emit_path) {
    Decision d;
    if (conclusion == nullptr) {
      d.reason = "the interpolant is unreadable";
      return d;
    }
    std::vector<z3::expr> premises;
    for (std::size_t c : q_.items[j].children) {
      if (!itps_[c].readable) {
        d.reason = "the interpolant of " + q_.items[c].text + " is unreadable";
        return d;
      }
      premises.push_back(itps_[c].formula);
    }
    for (z3::expr const& f : live_formulas(q_.items[j].groups))
      premises.push_back(f);
    if (j == q_.root() && options_.unmentioned == smtlib::Unmentioned::root)
      for (z3::expr const& f : live_formulas(q_.unmentioned))
        premises.push_back(f);
    return implications_.decide(premises, *conclusion, emit_path);
  }

  // A_j implies I_j, and I_j and B_j are inconsistent: A_j the live
  // assertions of j's subtree, B_j every other live one (background
  // assertions are premises of both).
  void craig(std::size_t j, InterpolantReport& r) {
    r.craig = true;
    if (!itps_[j].readable) return;
    std::vector<int> const a = q_.subtree_groups(j);
    std::vector<int> b;
    for (int g : script_.live_groups())
      if (!std::binary_search(a.begin(), a.end(), g)) b.push_back(g);
    r.A_implies =
        implications_.decide(live_formulas(a), itps_[j].formula, name(j, "craig-A")).outcome;
    std::vector<z3::expr> premises = live_formulas(b);
    premises.push_back(itps_[j].formula);
    z3::expr const falsity = script_.reader().context().bool_val(false);
    r.B_inconsistent = implications_.decide(premises, falsity, name(j, "craig-B")).outcome;
  }

  CheckTiming& timing_;
  Script& script_;
  Query const& q_;
  Options const& options_;
  std::string emit_prefix_;
  Implications implications_;
  std::vector<Interpolant> itps_;
};

}  // namespace

ProblemReport check_problem(std::string const& problem_path, std::string_view problem,
                            std::string const& responses_path, std::string_view responses,
                            Options const& options, std::ostream& warnings, z3::context* shared) {
  std::unique_ptr<Responses> answers;
  try {
    answers = std::make_unique<Responses>(responses);
  } catch (smtlib::ScriptError const& e) {
    throw ResponsesError(e.where(), e.what());
  }
  ProblemReport report;
  report.file = smtlib::printable_utf8(problem_path);
  report.responses = smtlib::printable_utf8(responses_path);
  report.unmentioned = options.unmentioned;
  std::string stem;
  if (!options.emit_dir.empty()) {
    stem = std::filesystem::path(problem_path).stem().string();
    if (stem.empty() || stem == "-") stem = "stdin";
  }
  Script script(problem_path, warnings, options.unmentioned, shared);
  std::vector<smtlib::SExpr const*> matched;
  bool is_matched = false;
  script.run(problem, [&](Query const& q) {
    if (!is_matched) {
      matched = answers->match(script.commands());
      is_matched = true;
    }
    QueryReport r;
    r.line = q.where.line;
    r.text = q.text;
    std::size_t const expected = q.items.empty() ? 0 : q.items.size() - 1;
    Answer const a = read_answer(matched[q.command], expected);
    r.answer = a.kind;
    r.message = a.message;
    if (a.kind == Answer::Kind::interpolants && expected > 0) {
      std::string prefix;
      if (!options.emit_dir.empty())
        prefix = (std::filesystem::path(options.emit_dir) /
                  (stem + "-q" + std::to_string(report.queries.size() + 1) + "-"))
                     .string();
      // z3 running out of memory while it decides is one error line at the query.
      smtlib::Z3ExitGuard const guard(report.file, q.where);
      r.interpolants = QueryCheck(script, q, options, prefix, report.timing).run(a.formulas);
    }
    report.queries.push_back(std::move(r));
  });
  report.timing.playing = script.timing();
  return report;
}

}  // namespace check
}  // namespace orvo
