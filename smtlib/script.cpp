#include "smtlib/script.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "smtlib/formula.h"
#include "smtlib/names.h"

namespace orvo {
namespace smtlib {

using Clock = std::chrono::steady_clock;

namespace {

// The value of a numeral token, or throws at it when it is no numeral or
// does not fit (levels are counted in 62 bits).
std::uint64_t count_of(SExpr const& token, char const* what) {
  if (token.kind != SExpr::Kind::numeral)
    throw ScriptError(token.where, std::string(what) + " takes an optional number of levels");
  std::string const& digits = token.value;
  std::size_t i = 0;
  while (i + 1 < digits.size() && digits[i] == '0')
    ++i;
  if (digits.size() - i > 18)
    throw ScriptError(token.where, "the number of levels " + digits + " is out of range");
  return std::stoull(digits.substr(i));
}

}  // namespace

Script::Script(std::string file, std::ostream& warnings, Unmentioned rule, z3::context* shared)
    : file_(std::move(file)),
      warnings_(warnings),
      rule_(rule),
      reader_(file_, warnings, shared),
      terms_(tm_),
      scopes_(reader_, classifier_) {
  env_.term_manager = &tm_;
  classifier_.set_env(&env_);
}

void Script::run(std::string_view text, QueryHandler const& on_query) {
  auto const start = Clock::now();
  commands_ = read_commands(text);
  timing_.split += seconds_since(start);
  // Runs of declarations and runs of assertions go to z3's parser together:
  // its cost per call dominates small commands.
  std::vector<SExpr const*> run;
  std::vector<Assertion> assertions;
  std::vector<SExpr const*> terms;
  for (std::size_t i = 0; i < commands_.size();) {
    std::string_view const head = commands_[i].head();
    run.clear();
    if (head == "declare-fun" || head == "declare-const") {
      for (; i < commands_.size() &&
             (commands_[i].head() == "declare-fun" || commands_[i].head() == "declare-const");
           ++i)
        run.push_back(&commands_[i]);
      auto const read_start = Clock::now();
      reader_.declare_funs(run);
      timing_.reading += seconds_since(read_start);
      continue;
    }
    assertions.clear();
    std::unordered_set<std::string> named;  // names given in this run
    Assertion a;
    while (i < commands_.size() && split_assert(commands_[i], a) && !mentions(*a.term, named)) {
      if (a.named) named.insert(a.name);
      run.push_back(&commands_[i++]);
      assertions.push_back(a);
    }
    if (!assertions.empty()) {
      terms.clear();
      for (Assertion const& x : assertions)
        terms.push_back(x.term);
      auto const read_start = Clock::now();
      std::vector<z3::expr> const formulas = reader_.read_assertions(run, terms);
      timing_.reading += seconds_since(read_start);
      for (std::size_t k = 0; k < assertions.size(); ++k)
        add_assertion(assertions[k], formulas[k]);
      continue;
    }
    auto const read_start = Clock::now();
    bool const reads = commands_[i].head() != "get-interpolants";
    double const before = timing_.host_terms + timing_.classify;
    bool const more = perform(commands_[i], i, on_query);
    if (reads)
      timing_.reading += seconds_since(read_start) - (timing_.host_terms + timing_.classify - before);
    if (!more) break;
    ++i;
  }
  timing_.z3 = std::chrono::duration<double>(reader_.parse_time()).count();
}

bool Script::perform(SExpr const& command, std::size_t index, QueryHandler const& on_query) {
  std::string_view const head = command.head();
  if (head.empty()) throw ScriptError(command.where, "a command starts with its name");
  if (head == "assert") {
    Assertion a;
    if (!split_assert(command, a)) throw ScriptError(command.where, "malformed 'assert' command");
    add_assertion(a, reader_.read_term(*a.term, command.where));
  } else if (head == "push" || head == "pop") {
    levels(command, head == "push");
  } else if (head == "get-interpolants") {
    QueryContext const context{names_, group_names_, scopes_.live(), scopes_.live_flags(), rule_};
    Query q = resolve_query(command, context);
    q.command = index;
    if (on_query) on_query(q);
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
      warnings_ << printable_utf8(file_) << ":" << command.where.line << ":"
                << command.where.column << ": warning: skipping '" << printable_utf8(head)
                << "' (not supported)\n";
  }
  return true;
}

bool Script::split_assert(SExpr const& command, Assertion& out) {
  if (command.head() != "assert" || command.items.size() != 2) return false;
  out.command = &command;
  out.term = &command.items[1];
  out.named = false;
  if (out.term->head() == "!") {
    SExpr const& annotated = *out.term;
    if (annotated.items.size() < 2) return false;
    for (std::size_t i = 2; i + 1 < annotated.items.size(); ++i)
      if (annotated.items[i].kind == SExpr::Kind::keyword && annotated.items[i].value == ":named" &&
          annotated.items[i + 1].is_symbol()) {
        out.name = annotated.items[i + 1].value;
        out.named = true;
      }
    out.term = &annotated.items[1];
  }
  return true;
}

bool Script::mentions(SExpr const& term, std::unordered_set<std::string> const& names) {
  if (names.empty()) return false;
  std::vector<std::string_view> symbols;
  collect_symbols(term, symbols);
  std::string name;
  for (std::string_view v : symbols) {
    name.assign(v);
    if (names.count(name) != 0) return true;
  }
  return false;
}

void Script::add_assertion(Assertion const& a, z3::expr const& formula) {
  if (!formula.is_bool())
    throw ScriptError(a.command->where, "an assertion is a Boolean term");
  auto start = Clock::now();
  Formula const parts = split_formula(formula);
  std::vector<Term_ const*> host;
  host.reserve(parts.atoms.size());
  for (z3::expr const& atom : parts.atoms)
    host.push_back(terms_.convert(atom));
  timing_.host_terms += seconds_since(start);
  start = Clock::now();
  int const group = classifier_.new_group_index();
  std::string name = a.named ? a.name : "#" + std::to_string(group);
  groups_.push_back(Group{name, a.named, a.command->where, formula});
  group_names_.push_back(name);
  names_[name].push_back(group);
  scopes_.add_group(group);
  std::vector<int> variables;
  variables.reserve(host.size());
  for (std::size_t k = 0; k < host.size(); ++k) {
    int const atom = env_.new_atom(host[k]);
    if (static_cast<std::size_t>(atom) >= atom_exprs_.size())
      atom_exprs_.resize(static_cast<std::size_t>(atom) + 1, parts.atoms[k]);
    variables.push_back(atom);
    classifier_.add_atom(atom, group);
  }
  std::vector<unsigned> literals;
  for (std::vector<Literal> const& clause : parts.clauses) {
    literals.clear();
    for (Literal const& l : clause)
      literals.push_back(dpll::make_literal(variables[l.atom], l.negated));
    dpll::Clause* c = dpll::make_clause(next_clause_++, literals, 1);
    try {
      classifier_.add_clause(c, group);
    } catch (...) {
      dpll::release_reference(c);
      throw;
    }
    dpll::release_reference(c);
  }
  timing_.classify += seconds_since(start);
  ++timing_.assertions;
  if (a.named) reader_.name_term(a.name, formula);
}

void Script::levels(SExpr const& command, bool push) {
  if (command.items.size() > 2)
    throw ScriptError(command.items[2].where, std::string("'") + std::string(command.head()) +
                                                  "' takes an optional number of levels");
  std::uint64_t const n =
      command.items.size() == 2 ? count_of(command.items[1], push ? "'push'" : "'pop'") : 1;
  auto const start = Clock::now();
  if (push) {
    if (n > (std::uint64_t{1} << 62) - scopes_.depth())
      throw ScriptError(command.items[1].where, "too many levels");
    scopes_.push(n);
  } else {
    scopes_.pop(n, command.items.size() == 2 ? command.items[1].where : command.where);
  }
  timing_.classify += seconds_since(start);
}

std::vector<int> Script::held_atoms() const {
  std::vector<char> held(env_.num_atoms(), 0);
  for (int g : scopes_.live())
    for (int a : classifier_.get_groups()[static_cast<std::size_t>(g)].atoms)
      held[static_cast<std::size_t>(a)] = 1;
  std::vector<int> out;
  for (std::size_t a = 0; a < held.size(); ++a)
    if (held[a] != 0) out.push_back(static_cast<int>(a));
  return out;
}

std::string Script::atom_text(int atom) const {
  return printable_utf8(Z3Reader::text_of(atom_exprs_[static_cast<std::size_t>(atom)]));
}

itp::CutIndex Script::cut_index(Query const& q) const {
  std::vector<std::vector<int>> positions;
  positions.reserve(q.items.size());
  for (QueryItem const& item : q.items)
    positions.push_back(item.groups);
  // The index reads only the groups that count: the query's, the other live
  // ones (B of every cut) and the background; popped groups are empty.
  std::vector<char> placed(groups_.size(), 0);
  for (QueryItem const& item : q.items)
    for (int g : item.groups)
      placed[static_cast<std::size_t>(g)] = 1;
  for (int g : q.background)
    placed[static_cast<std::size_t>(g)] = 1;
  std::vector<int> others;
  for (int g : scopes_.live())
    if (placed[static_cast<std::size_t>(g)] == 0) others.push_back(g);
  return itp::CutIndex(classifier_, positions, others, q.background);
}

}  // namespace smtlib
}  // namespace orvo
