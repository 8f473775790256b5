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
  std::string const digits(token.value);
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
  // Reading is what the run spends outside the other phases: declarations,
  // terms (z3's parser included) and the commands' own bookkeeping.
  Timing const at_start = timing_;
  auto const finish = [&] {
    window_.clear();
    ahead_.clear();
    timing_.reading = at_start.reading + seconds_since(start) - (timing_.split - at_start.split) -
                      (timing_.host_terms - at_start.host_terms) -
                      (timing_.classify - at_start.classify) - (timing_.queries - at_start.queries);
    timing_.z3 = std::chrono::duration<double>(reader_.parse_time()).count();
  };
  try {
    play(text, on_query);
  } catch (...) {
    finish();
    throw;
  }
  finish();
}

void Script::play(std::string_view text, QueryHandler const& on_query) {
  auto const start = Clock::now();
  spans_ = scan_commands(text);
  window_.clear();
  window_start_ = 0;
  ahead_.clear();
  std::size_t no_lookahead_before = 0;  // where the last look-ahead ended
  timing_.split += seconds_since(start);
  auto declares = [](std::string_view head) {
    return head == "declare-fun" || head == "declare-const";
  };
  // Runs of declarations and runs of assertions go to z3's parser together:
  // its cost per call dominates small commands.
  std::vector<SExpr const*> run;
  std::vector<Assertion> assertions;
  std::vector<SExpr const*> terms;
  std::unordered_set<std::string_view> named;  // names given in the current run
  for (std::size_t i = 0; i < spans_.size();) {
    release_before(i);
    run.clear();
    if (declares(spans_[i].head)) {
      for (; i < spans_.size() && declares(spans_[i].head); ++i)
        run.push_back(&command(i));
      reader_.declare_funs(run);
      continue;
    }
    Assertion a;
    if (!ahead_.empty() && ahead_.front().first == i) {
      // Read ahead of its turn (below): only its group is made now.
      split_assert(command(i), a);
      z3::expr const formula = ahead_.front().second;
      ahead_.pop_front();
      add_assertion(a, formula);
      ++i;
      continue;
    }
    assertions.clear();
    named.clear();
    while (i < spans_.size() && spans_[i].head == "assert" && split_assert(command(i), a) &&
           !mentions(*a.term, named)) {
      if (a.named) named.insert(a.name);
      run.push_back(&command(i++));
      assertions.push_back(a);
    }
    if (!assertions.empty()) {
      terms.clear();
      for (Assertion const& x : assertions)
        terms.push_back(x.term);
      // The assertions of the next levels too, when what their names mean
      // cannot change before their turn: between them only push, pop (when
      // no pushed level has declared anything), check-sat and queries, and
      // no term uses a name given on the way. z3's fixed cost per call is
      // then paid once for many levels. A rejected look-ahead is not an
      // error: each assertion is read again in its turn.
      std::size_t const prefix = run.size();
      std::vector<std::size_t> later;  // command indices of the assertions read ahead
      if (i >= no_lookahead_before) {
        bool const pops_safe = !reader_.has_local_bindings();
        std::size_t j = i;
        for (; j < spans_.size() && run.size() < lookahead_limit; ++j) {
          std::string_view const h = spans_[j].head;
          if (h == "assert") {
            if (!split_assert(command(j), a) || mentions(*a.term, named)) break;
            if (a.named) named.insert(a.name);
            run.push_back(&command(j));
            terms.push_back(a.term);
            later.push_back(j);
          } else if (!(h == "push" || h == "check-sat" || h == "get-interpolants" ||
                       (h == "pop" && pops_safe))) {
            break;
          }
        }
        if (!later.empty()) no_lookahead_before = j;
      }
      std::vector<z3::expr> formulas;
      if (later.empty() || !reader_.try_read_assertions(run, terms, formulas)) {
        run.resize(prefix);
        terms.resize(prefix);
        formulas = reader_.read_assertions(run, terms);
        later.clear();
      }
      for (std::size_t k = 0; k < later.size(); ++k)
        ahead_.emplace_back(later[k], formulas[prefix + k]);
      for (std::size_t k = 0; k < assertions.size(); ++k)
        add_assertion(assertions[k], formulas[k]);
      continue;
    }
    if (!perform(command(i), i, on_query)) break;
    ++i;
  }
}

SExpr const& Script::command(std::size_t index) {
  if (index >= window_start_ + window_.size()) {
    auto const start = Clock::now();
    while (index >= window_start_ + window_.size())
      window_.push_back(read_command(spans_[window_start_ + window_.size()]));
    timing_.split += seconds_since(start);
  }
  return window_[index - window_start_];
}

void Script::release_before(std::size_t index) {
  while (!window_.empty() && window_start_ < index) {
    window_.pop_front();
    ++window_start_;
  }
  if (window_.empty()) window_start_ = index;
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
    auto const start = Clock::now();
    if (on_query) on_query(q);
    timing_.queries += seconds_since(start);
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
      warnings_ << printable_utf8(file_) << ":" << command.where.line << ":" << command.where.column
                << ": warning: skipping '" << printable_utf8(head) << "' (not supported)\n";
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

bool Script::mentions(SExpr const& term, std::unordered_set<std::string_view> const& names) {
  if (names.empty()) return false;
  std::vector<std::string_view> symbols;
  collect_symbols(term, symbols);
  for (std::string_view v : symbols)
    if (names.count(v) != 0) return true;
  return false;
}

void Script::add_assertion(Assertion const& a, z3::expr const& formula) {
  if (!formula.is_bool()) throw ScriptError(a.command->where, "an assertion is a Boolean term");
  auto start = Clock::now();
  Formula const parts = split_formula(formula);
  std::vector<Term_ const*> host;
  host.reserve(parts.atoms.size());
  for (z3::expr const& atom : parts.atoms)
    host.push_back(terms_.convert(atom));
  timing_.host_terms += seconds_since(start);
  start = Clock::now();
  int const group = classifier_.new_group_index();
  std::string name = a.named ? std::string(a.name) : "#" + std::to_string(group);
  groups_.push_back(Group{name, a.named, a.command->where, formula});
  group_names_.push_back(name);
  NamedGroups& named = names_[name];
  named.live.push_back(group);
  named.last = group;
  scopes_.add_group(group);
  std::vector<int> variables;
  variables.reserve(host.size());
  for (std::size_t k = 0; k < host.size(); ++k) {
    int const atom = env_.new_atom(host[k]);
    auto const index = static_cast<std::size_t>(atom);
    if (index >= atom_exprs_.size()) atom_exprs_.resize(index + 1);
    if (!atom_exprs_[index]) {  // new, or released by a pop
      atom_exprs_[index].emplace(parts.atoms[k]);
      filled_atoms_.push_back(atom);
    }
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
  scopes_.count_group(group);
  timing_.classify += seconds_since(start);
  ++timing_.assertions;
  if (a.named) reader_.name_term(groups_.back().name, formula);
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
    if (n > 0) marks_.push_back(Mark{terms_.mark(), filled_atoms_.size()});
  } else {
    scopes_.pop(n, command.items.size() == 2 ? command.items[1].where : command.where);
    release_levels();
    // The withdrawn groups are the newest live ones, so each is the last
    // live group of its name when they are taken newest first.
    for (int g : scopes_.withdrawn())
      names_[group_names_[static_cast<std::size_t>(g)]].live.pop_back();
  }
  timing_.classify += seconds_since(start);
}

void Script::release_levels() {
  // What the closed levels made z3 hold goes back to it: their assertions,
  // the z3 terms of their new atoms and what was converted for them. The
  // host terms, atoms and (empty) groups stay, as the classifier keeps them.
  // A released term is replaced by `true`, copied from a named handle:
  // z3++'s move assignment would keep the old term's reference.
  z3::expr const none = reader_.context().bool_val(true);
  std::size_t const kept = scopes_.kept_levels();
  if (kept < marks_.size()) {
    Mark const m = marks_[kept];
    terms_.release_since(m.terms);
    // An atom's term was filled in at the level that first held it since
    // its last release: no group outside that level holds it.
    for (std::size_t k = m.filled; k < filled_atoms_.size(); ++k)
      atom_exprs_[static_cast<std::size_t>(filled_atoms_[k])].reset();
    filled_atoms_.resize(m.filled);
    marks_.resize(kept);
  }
  for (int g : scopes_.withdrawn())
    groups_[static_cast<std::size_t>(g)].formula = none;
  // A pop that closes part of a push leaves a new level open.
  while (marks_.size() < scopes_.real_levels())
    marks_.push_back(Mark{terms_.mark(), filled_atoms_.size()});
}

std::vector<int> Script::held_atoms() const {
  // What the live groups hold, not every atom the script ever made: a query
  // costs its live groups, not the script's history.
  std::vector<int> out;
  for (int g : scopes_.live()) {
    for (int a : classifier_.get_groups()[static_cast<std::size_t>(g)].atoms)
      out.push_back(a);
  }
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

std::string Script::atom_text(int atom) const {
  return printable_utf8(Z3Reader::text_of(*atom_exprs_[static_cast<std::size_t>(atom)]));
}

itp::CutIndex Script::cut_index(Query const& q) const {
  std::vector<std::vector<int>> positions;
  positions.reserve(q.items.size());
  for (QueryItem const& item : q.items)
    positions.push_back(item.groups);
  // The index reads only the query's groups and the background; the other
  // live groups (B of every cut) it knows from the running holder counts,
  // so a query costs its own groups, however many are live.
  return itp::CutIndex(classifier_, positions, scopes_.holders(), q.background);
}

}  // namespace smtlib
}  // namespace orvo
