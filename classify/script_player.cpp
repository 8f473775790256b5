#include "classify/script_player.h"

#include <algorithm>
#include <utility>

namespace orvo {
namespace classify {

using smtlib::ScriptError;
using smtlib::SExpr;

namespace {

bool is_bool(z3::expr const& e) {
  return e.get_sort().sort_kind() == Z3_BOOL_SORT;
}

// Whether the assertion walk goes through `e` (a Boolean connective).
bool is_connective(z3::expr const& e) {
  if (!e.is_app()) return false;
  switch (e.decl().decl_kind()) {
    case Z3_OP_NOT:
    case Z3_OP_AND:
    case Z3_OP_OR:
    case Z3_OP_IMPLIES:
    case Z3_OP_XOR:
    case Z3_OP_IFF:
      return true;
    case Z3_OP_ITE:
      return is_bool(e);
    case Z3_OP_EQ:
    case Z3_OP_DISTINCT:
      return e.num_args() > 0 && is_bool(e.arg(0));
    default:
      return false;
  }
}

bool is_constant(z3::expr const& e) {
  return e.is_app() && (e.decl().decl_kind() == Z3_OP_TRUE || e.decl().decl_kind() == Z3_OP_FALSE);
}

bool is_atom(z3::expr const& e) {
  return is_bool(e) && !is_connective(e) && !is_constant(e);
}

bool has_kind(z3::expr const& e, Z3_decl_kind kind) {
  return e.is_app() && e.decl().decl_kind() == kind;
}

}  // namespace

void ScriptPlayer::run(std::string_view text) {
  std::vector<SExpr> const commands = smtlib::read_commands(text);
  // Runs of declarations and runs of assertions go to z3's parser together:
  // its cost per call dominates small commands.
  std::vector<SExpr const*> run;
  std::vector<Assertion> assertions;
  for (std::size_t i = 0; i < commands.size();) {
    std::string_view const head = commands[i].head();
    run.clear();
    if (head == "declare-fun" || head == "declare-const") {
      for (; i < commands.size() &&
             (commands[i].head() == "declare-fun" || commands[i].head() == "declare-const");
           ++i)
        run.push_back(&commands[i]);
      reader_.declare_funs(run);
      continue;
    }
    assertions.clear();
    std::unordered_set<std::string> named;  // names given in this run
    Assertion a;
    while (i < commands.size() && split_assert(commands[i], a) && !mentions(*a.term, named)) {
      if (a.named) named.insert(a.name);
      run.push_back(&commands[i++]);
      assertions.push_back(a);
    }
    if (!assertions.empty()) {
      std::vector<SExpr const*> terms;
      terms.reserve(assertions.size());
      for (Assertion const& x : assertions)
        terms.push_back(x.term);
      std::vector<z3::expr> const formulas = reader_.read_assertions(run, terms);
      for (std::size_t k = 0; k < assertions.size(); ++k)
        add_assertion(assertions[k], formulas[k]);
      continue;
    }
    if (!perform(commands[i++])) break;
  }
  for (std::size_t g = 0; g < groups_.size(); ++g) {
    auto const& group = classifier_.get_groups()[g];
    GroupReport r;
    r.name = groups_[g].name;
    r.atoms = group.atoms.size();
    r.clauses = group.clauses.size();
    for (auto const& entry : group.symbols)
      add_name(entry.first, r.symbols);
    std::sort(r.symbols.begin(), r.symbols.end());
    report_.groups.push_back(std::move(r));
  }
  report_.timing.z3 = std::chrono::duration<double>(reader_.parse_time()).count();
}

bool ScriptPlayer::perform(SExpr const& command) {
  std::string_view const head = command.head();
  if (head.empty()) throw ScriptError(command.where, "a command starts with its name");
  if (head == "assert") {
    assert_command(command);
  } else if (head == "push" || head == "pop") {
    levels(command, head == "push");
  } else if (head == "get-interpolants") {
    query(command);
  } else if (head == "declare-fun" || head == "declare-const") {
    reader_.declare_fun(command);
  } else if (head == "define-fun") {
    reader_.define_fun(command);
  } else if (head == "declare-sort") {
    reader_.declare_sort(command);
  } else if (head == "define-sort") {
    reader_.define_sort(command);
  } else if (head == "declare-datatypes" || head == "declare-datatype") {
    reader_.declare_datatypes(command);
  } else if (head == "set-logic") {
    reader_.set_logic(command);
  } else if (head == "exit") {
    return false;
  } else if (head != "set-option" && head != "set-info" && head != "check-sat") {
    if (warned_.insert(std::string(head)).second)
      warnings_ << file_ << ":" << command.where.line << ":" << command.where.column
                << ": warning: skipping '" << head << "' (not supported)\n";
  }
  return true;
}

bool ScriptPlayer::split_assert(SExpr const& command, Assertion& out) const {
  if (command.head() != "assert" || command.items.size() != 2) return false;
  out.command = &command;
  out.term = &command.items[1];
  out.named = false;
  if (out.term->head() == "!") {
    SExpr const& annotated = *out.term;
    if (annotated.items.size() < 2) return false;
    for (std::size_t i = 2; i + 1 < annotated.items.size(); ++i)
      if (annotated.items[i].kind == SExpr::Kind::keyword && annotated.items[i].value == ":named") {
        out.name = annotated.items[i + 1].value;
        out.named = true;
      }
    out.term = &annotated.items[1];
  }
  return true;
}

bool ScriptPlayer::mentions(SExpr const& term, std::unordered_set<std::string> const& names) {
  if (names.empty()) return false;
  std::vector<std::string_view> symbols;
  smtlib::collect_symbols(term, symbols);
  std::string name;
  for (std::string_view v : symbols) {
    name.assign(v);
    if (names.count(name) != 0) return true;
  }
  return false;
}

void ScriptPlayer::assert_command(SExpr const& command) {
  Assertion a;
  if (!split_assert(command, a)) throw ScriptError(command.where, "malformed 'assert' command");
  add_assertion(a, reader_.read_assertion(command, *a.term));
}

void ScriptPlayer::add_assertion(Assertion a, z3::expr const& formula) {
  auto const start = Clock::now();
  int const group = classifier_.new_group_index();
  if (!a.named) a.name = "#" + std::to_string(group);
  groups_.push_back(GroupInfo{a.name, true});
  names_[a.name].push_back(group);
  register_atoms(formula, group);
  register_clauses(formula, group);
  report_.timing.classify += seconds_since(start);
  ++report_.timing.assertions;
  if (a.named) reader_.name_term(a.name, formula);
}

int ScriptPlayer::atom_of(z3::expr const& e) {
  Term_ const* t = terms_.convert(e);
  int const atom = env_.new_atom(t);
  if (static_cast<std::size_t>(atom) >= atom_exprs_.size()) atom_exprs_.resize(atom + 1, e);
  return atom;
}

void ScriptPlayer::register_atoms(z3::expr const& formula, int group) {
  std::unordered_set<unsigned> seen;
  std::vector<z3::expr> stack{formula};
  while (!stack.empty()) {
    z3::expr const e = stack.back();
    stack.pop_back();
    if (!seen.insert(e.id()).second) continue;
    if (is_connective(e)) {
      for (unsigned i = e.num_args(); i-- > 0;)
        stack.push_back(e.arg(i));
    } else if (is_atom(e)) {
      classifier_.add_atom(atom_of(e), group);
    }
  }
}

bool ScriptPlayer::literal(z3::expr const& e, std::vector<unsigned>& out) {
  bool const negated = has_kind(e, Z3_OP_NOT);
  z3::expr const atom = negated ? e.arg(0) : e;
  if (!is_atom(atom)) return false;
  out.push_back(dpll::make_literal(atom_of(atom), negated));
  return true;
}

void ScriptPlayer::register_clauses(z3::expr const& formula, int group) {
  std::vector<z3::expr> stack{formula};
  std::vector<unsigned> literals;
  while (!stack.empty()) {
    z3::expr const e = stack.back();
    stack.pop_back();
    if (has_kind(e, Z3_OP_AND)) {
      for (unsigned i = e.num_args(); i-- > 0;)
        stack.push_back(e.arg(i));
      continue;
    }
    literals.clear();
    bool clause = literal(e, literals);
    if (!clause && has_kind(e, Z3_OP_OR)) {
      clause = true;
      for (unsigned i = 0; clause && i < e.num_args(); ++i)
        clause = literal(e.arg(i), literals);
    }
    if (!clause) continue;
    dpll::Clause* c = dpll::make_clause(next_clause_++, literals, 1);
    try {
      classifier_.add_clause(c, group);
    } catch (...) {
      dpll::release_reference(c);
      throw;
    }
    dpll::release_reference(c);
  }
}

void ScriptPlayer::levels(SExpr const& command, bool push) {
  std::size_t n = 1;
  if (command.items.size() > 2 ||
      (command.items.size() == 2 && command.items[1].kind != SExpr::Kind::numeral))
    throw ScriptError(command.where, std::string("'") + std::string(command.head()) +
                                         "' takes an optional number of levels");
  if (command.items.size() == 2) n = std::stoul(command.items[1].value);
  auto const start = Clock::now();
  if (!push && n > marks_.size())
    throw ScriptError(command.where, "pop of " + std::to_string(n) + " levels below level 0 (" +
                                         std::to_string(marks_.size()) + " open)");
  for (std::size_t i = 0; i < n; ++i) {
    if (push) {
      classifier_.push_backtrack_point();
      reader_.push();
      marks_.push_back(groups_.size());
    } else {
      classifier_.pop_backtrack_point();
      reader_.pop();
      for (std::size_t g = marks_.back(); g < groups_.size(); ++g)
        groups_[g].live = false;
      marks_.pop_back();
    }
  }
  report_.timing.classify += seconds_since(start);
}

ProblemReport classify_problem(std::string const& path, std::string_view text,
                               Options const& options, std::ostream& warnings) {
  auto const start = Clock::now();
  std::string const file =
      path.substr(path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/') + 1);
  ScriptPlayer problem(path, options, warnings);
  problem.run(text);
  ProblemReport report = std::move(problem.report());
  report.file = file;
  report.timing.total = seconds_since(start);
  return report;
}

}  // namespace classify
}  // namespace orvo
