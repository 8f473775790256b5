#include "orvo-itp-check/obligations.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "smtlib/formula.h"
#include "smtlib/names.h"
#include "smtlib/z3_walk.h"

namespace orvo {
namespace check {

using smtlib::SExpr;

namespace {

// The reason an interpolant could not be read, from the reader's message.
std::string unreadable_reason(std::string message) {
  std::string const prefix = "z3 rejects the command: ";
  if (message.rfind(prefix, 0) == 0) message.erase(0, prefix.size());
  std::string const unknown = "unknown constant ";
  if (message.rfind(unknown, 0) == 0) {
    std::string name = message.substr(unknown.size());
    name = name.substr(0, name.find(' '));
    return "unknown name " + name;
  }
  if (message.find("term is not Boolean") != std::string::npos) return "not a Boolean term";
  return message;
}

bool uses_annotation(SExpr const& e) {
  std::vector<std::string_view> symbols;
  smtlib::collect_symbols(e, symbols);
  return std::find(symbols.begin(), symbols.end(), "!") != symbols.end();
}

// Fills the metrics and the uninterpreted symbols of a readable interpolant.
void describe(smtlib::HostTerms& host, Interpolant& itp) {
  z3::expr const& root = itp.formula;
  host.convert(root);
  std::unordered_set<unsigned> seen;
  std::unordered_set<Symbol const*> symbols;
  smtlib::post_order(
      root, [&](z3::expr const& e) { return seen.count(e.id()) != 0; },
      [&](z3::expr const& e) {
        seen.insert(e.id());
        ++itp.metrics.size;
        if (e.kind() == Z3_QUANTIFIER_AST) {
          ++itp.metrics.quantifiers;
        } else if (e.kind() == Z3_APP_AST && e.decl().decl_kind() == Z3_OP_UNINTERPRETED) {
          Symbol const* s = host.convert(e)->get_symbol();
          if (symbols.insert(s).second) itp.symbols.push_back(s);
        }
      });
  itp.metrics.atoms = smtlib::split_formula(root).atoms.size();
}

}  // namespace

std::vector<Interpolant> read_interpolants(smtlib::Script& script,
                                           std::vector<SExpr const*> const& formulas) {
  smtlib::Z3Reader& reader = script.reader();
  z3::context& ctx = reader.context();
  std::vector<Interpolant> out(formulas.size(), Interpolant(ctx));
  // All in one call of z3's parser when they all read; else each on its own,
  // so that one bad formula costs only itself.
  bool batch = std::none_of(formulas.begin(), formulas.end(),
                            [](SExpr const* f) { return uses_annotation(*f); });
  if (batch && !formulas.empty()) {
    try {
      std::vector<z3::expr> const read = reader.read_assertions(formulas, formulas);
      for (std::size_t i = 0; i < read.size(); ++i) {
        out[i].formula = read[i];
        out[i].readable = true;
      }
    } catch (smtlib::ScriptError const&) {
      batch = false;
    }
  }
  if (!batch) {
    for (std::size_t i = 0; i < formulas.size(); ++i) {
      Interpolant& itp = out[i];
      try {
        itp.formula = reader.read_term(*formulas[i], formulas[i]->where);
        itp.readable = true;
      } catch (smtlib::ScriptError const& e) {
        itp.reason = unreadable_reason(e.what());
      } catch (z3::exception const& e) {
        itp.reason = smtlib::z3_message(e.msg());
      }
      // A failed parse must not be what the next one reports.
      if (Z3_get_error_code(ctx) != Z3_OK) Z3_set_error(ctx, Z3_OK);
    }
  }
  // z3 reads only Boolean assertions: a term of another sort is unreadable
  // by z3's own message (unreadable_reason).
  for (Interpolant& itp : out)
    if (itp.readable) describe(script.host_terms(), itp);
  return out;
}

Vocabulary::Vocabulary(smtlib::Script const& script, smtlib::Query const& q)
    : query_(q), index_(script.cut_index(q)) {
  auto const& groups = script.classifier().get_groups();
  for (int g : q.background)
    for (auto const& entry : groups[static_cast<std::size_t>(g)].symbols)
      if (entry.second > 0) background_.insert(entry.first);
}

Offenders Vocabulary::check(std::size_t item, std::vector<Symbol const*> const& symbols) {
  Offenders out;
  int const first = static_cast<int>(query_.items[item].first);
  int const last = static_cast<int>(item);
  std::unordered_set<Symbol const*> in_A, in_B;
  bool sides = false;  // in_A and in_B filled
  for (Symbol const* s : symbols) {
    if (background_holds(s) || index_.symbol_is_common(s, first, last)) continue;
    if (!sides) {
      index_.get_A_symbols(first, last, scratch_);
      in_A.insert(scratch_.begin(), scratch_.end());
      index_.get_B_symbols(first, last, scratch_);
      in_B.insert(scratch_.begin(), scratch_.end());
      sides = true;
    }
    if (in_A.count(s) != 0)
      out.A_local.push_back(s);
    else if (in_B.count(s) != 0)
      out.B_local.push_back(s);
    else
      out.foreign.push_back(s);
  }
  return out;
}

Implications::Implications(z3::context& ctx, unsigned timeout_ms, std::vector<z3::expr> background,
                           std::string logic)
    : ctx_(ctx), solver_(ctx), background_(std::move(background)), logic_(std::move(logic)) {
  z3::params p(ctx);
  p.set("timeout", timeout_ms);
  solver_.set(p);
  for (z3::expr const& b : background_)
    solver_.add(b);
}

Decision Implications::decide(std::vector<z3::expr> const& premises, z3::expr const& conclusion,
                              std::string const& emit_path) {
  z3::expr const negated = !conclusion;
  if (!emit_path.empty()) emit(premises, negated, emit_path);
  Decision d;
  solver_.push();
  try {
    for (z3::expr const& p : premises)
      solver_.add(p);
    solver_.add(negated);
    switch (solver_.check()) {
      case z3::unsat:
        d.outcome = Outcome::holds;
        break;
      case z3::sat:
        d.outcome = Outcome::fails;
        d.counterexample = counterexample(solver_.get_model(), premises, conclusion);
        break;
      case z3::unknown:
        d.outcome = Outcome::unknown;
        d.reason = smtlib::printable_utf8(smtlib::script_text(solver_.reason_unknown()));
        break;
    }
  } catch (z3::exception const& e) {
    d.outcome = Outcome::unknown;
    d.counterexample.clear();
    d.reason = smtlib::z3_message(e.msg());
  }
  solver_.pop();
  return d;
}

std::vector<std::pair<std::string, std::string>> Implications::counterexample(
    z3::model const& model, std::vector<z3::expr> const& premises,
    z3::expr const& conclusion) const {
  std::unordered_set<unsigned> seen;
  std::vector<std::pair<std::string, z3::expr>> constants;
  auto collect = [&](z3::expr const& root) {
    smtlib::post_order(
        root, [&](z3::expr const& e) { return seen.count(e.id()) != 0; },
        [&](z3::expr const& e) {
          seen.insert(e.id());
          if (e.kind() == Z3_APP_AST && e.num_args() == 0 &&
              e.decl().decl_kind() == Z3_OP_UNINTERPRETED)
            constants.emplace_back(smtlib::script_name(e.decl().name().str()), e);
        });
  };
  for (z3::expr const& b : background_)
    collect(b);
  for (z3::expr const& p : premises)
    collect(p);
  collect(conclusion);
  std::sort(constants.begin(), constants.end(),
            [](auto const& a, auto const& b) { return a.first < b.first; });
  if (constants.size() > counterexample_limit)
    constants.erase(constants.begin() + counterexample_limit, constants.end());
  std::vector<std::pair<std::string, std::string>> out;
  for (auto const& [name, c] : constants) {
    std::string value = smtlib::script_text(model.eval(c, true).to_string());
    std::replace(value.begin(), value.end(), '\n', ' ');
    out.emplace_back(smtlib::printable_utf8(name), smtlib::printable_utf8(value));
  }
  return out;
}

void Implications::emit(std::vector<z3::expr> const& premises, z3::expr const& negated,
                        std::string const& path) const {
  std::vector<Z3_ast> assumptions;
  for (z3::expr const& b : background_)
    assumptions.push_back(b);
  for (z3::expr const& p : premises)
    assumptions.push_back(p);
  std::string const text = Z3_benchmark_to_smtlib_string(
      ctx_, "obligation", logic_.c_str(), "unknown", "", static_cast<unsigned>(assumptions.size()),
      assumptions.data(), negated);
  ctx_.check_error();
  std::ofstream out(path, std::ios::binary);
  out << smtlib::script_text(text);
  if (!out) throw std::runtime_error("cannot write " + smtlib::printable_utf8(path));
}

}  // namespace check
}  // namespace orvo
