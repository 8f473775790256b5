#include "classify/problem.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <sstream>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "classifier/atom_classifier.h"
#include "classifier/cut_index.h"
#include "host/host.h"
#include "smtlib/host_terms.h"
#include "smtlib/sexpr.h"
#include "smtlib/z3_reader.h"

namespace orvo {
namespace classify {

namespace {

using smtlib::ScriptError;
using smtlib::SExpr;
using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

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

// Gives back the program's own reference on a clause the classifier holds.
void release(dpll::Clause* clause) {
  dpll::release_reference(clause);
}

// One item of a query: a name or (and n1 n2 ...), with the first position
// of its subtree.
struct Item {
  SExpr const* node;
  std::size_t first;
};

class Problem {
 public:
  Problem(std::string file, Options const& options, std::ostream& warnings)
      : file_(std::move(file)), options_(options), warnings_(warnings), terms_(tm_) {
    env_.term_manager = &tm_;
    classifier_.set_env(&env_);
  }

  void run(std::string_view text) {
    std::vector<SExpr> const commands = smtlib::read_commands(text);
    for (SExpr const& command : commands) {
      if (!perform(command)) break;
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

  ProblemReport& report() { return report_; }

 private:
  struct GroupInfo {
    std::string name;
    bool live = true;
  };

  // Runs one command; false after `exit`.
  bool perform(SExpr const& command) {
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

  void assert_command(SExpr const& command) {
    if (command.items.size() != 2) throw ScriptError(command.where, "'assert' takes one term");
    SExpr const* term = &command.items[1];
    std::string name;
    if (term->head() == "!") {
      SExpr const& annotated = *term;
      for (std::size_t i = 2; i + 1 < annotated.items.size(); ++i)
        if (annotated.items[i].kind == SExpr::Kind::keyword && annotated.items[i].value == ":named")
          name = annotated.items[i + 1].value;
      if (annotated.items.size() < 2) throw ScriptError(annotated.where, "malformed '!' term");
      term = &annotated.items[1];
    }
    z3::expr const formula = reader_.read_assertion(command, *term);
    auto const start = Clock::now();
    int const group = classifier_.new_group_index();
    if (name.empty()) name = "#" + std::to_string(group);
    groups_.push_back(GroupInfo{name, true});
    names_[name].push_back(group);
    register_atoms(formula, group);
    register_clauses(formula, group);
    report_.timing.classify += seconds_since(start);
    ++report_.timing.assertions;
    if (!groups_.back().name.empty() && groups_.back().name[0] != '#')
      reader_.name_term(name, formula);
  }

  int atom_of(z3::expr const& e) {
    Term_ const* t = terms_.convert(e);
    int const atom = env_.new_atom(t);
    if (static_cast<std::size_t>(atom) >= atom_exprs_.size()) atom_exprs_.resize(atom + 1, e);
    return atom;
  }

  // Walks the Boolean structure; every distinct atom reached is added to
  // `group`, in the order the walk first meets it (left to right).
  void register_atoms(z3::expr const& formula, int group) {
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

  // The literal of `e` (an atom or its negation), or false.
  bool literal(z3::expr const& e, std::vector<unsigned>& out) {
    bool const negated = has_kind(e, Z3_OP_NOT);
    z3::expr const atom = negated ? e.arg(0) : e;
    if (!is_atom(atom)) return false;
    out.push_back(dpll::make_literal(atom_of(atom), negated));
    return true;
  }

  void register_clauses(z3::expr const& formula, int group) {
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
        release(c);
        throw;
      }
      release(c);
    }
  }

  void levels(SExpr const& command, bool push) {
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

  // The groups an assertion name stands for.
  std::vector<int> resolve(SExpr const& name) const {
    if (!name.is_symbol()) throw ScriptError(name.where, "expected an assertion name");
    auto it = names_.find(name.value);
    if (it == names_.end())
      throw ScriptError(name.where, "unknown assertion name '" + name.value + "'");
    std::vector<int> live;
    for (int g : it->second)
      if (groups_[g].live) live.push_back(g);
    if (live.empty()) live.push_back(it->second.back());
    return live;
  }

  void query(SExpr const& command) {
    auto const start = Clock::now();
    // Items in post-order, each with the first position of its subtree.
    std::vector<Item> items;
    struct Frame {
      SExpr const* list;
      std::size_t next;
      std::size_t first;
    };
    std::vector<Frame> stack{{&command, 1, 0}};
    while (!stack.empty()) {
      Frame& f = stack.back();
      if (f.next == f.list->items.size()) {
        stack.pop_back();
        continue;
      }
      SExpr const& e = f.list->items[f.next++];
      if (e.is_symbol() || e.head() == "and") {
        items.push_back(Item{&e, f.first});
      } else if (e.is_list() && !e.items.empty()) {
        stack.push_back(Frame{&e, 0, items.size()});
      } else {
        throw ScriptError(e.where, "expected an assertion name, (and ...) or a subtree");
      }
    }
    std::vector<std::vector<int>> positions;
    for (Item const& item : items) {
      std::vector<int> groups;
      if (item.node->is_symbol()) {
        groups = resolve(*item.node);
      } else {
        if (item.node->items.size() < 2)
          throw ScriptError(item.node->where, "(and ...) names at least one assertion");
        for (std::size_t i = 1; i < item.node->items.size(); ++i)
          for (int g : resolve(item.node->items[i]))
            groups.push_back(g);
      }
      positions.push_back(std::move(groups));
    }
    QueryReport q;
    q.line = command.where.line;
    if (items.size() >= 2) {
      // One index answers every cut of the query; a sequence query (every
      // subtree starts at position 0) gets all its status counts at once.
      itp::CutIndex index(classifier_, positions);
      bool const sequence =
          std::all_of(items.begin(), items.end(), [](Item const& it) { return it.first == 0; });
      std::vector<itp::CutIndex::StatusCounts> prefix;
      std::vector<std::vector<std::string>> common;
      if (sequence) {
        prefix = index.prefix_status_counts();
        common = prefix_common(positions);
      }
      std::vector<int> A;  // the A groups of the cut, sorted; grown cut by cut for a sequence
      for (std::size_t i = 0; i + 1 < items.size(); ++i) {
        if (!sequence) A.clear();
        for (std::size_t p = sequence ? i : items[i].first; p <= i; ++p)
          for (int g : positions[p])
            A.insert(std::lower_bound(A.begin(), A.end(), g), g);
        A.erase(std::unique(A.begin(), A.end()), A.end());
        Cut const cut{smtlib::flat_text(*items[i].node), A, static_cast<int>(items[i].first),
                      static_cast<int>(i)};
        PartitionReport r =
            by_index(index, cut, sequence ? &prefix[i] : nullptr, sequence ? &common[i] : nullptr);
        if (options_.check || options_.dump) {
          PartitionReport c = by_classifier(cut);
          if (options_.check) compare(r, c, *items[i].node);
          r.dump = std::move(c.dump);
        }
        q.partitions.push_back(std::move(r));
      }
    }
    report_.timing.partitions += q.partitions.size();
    report_.queries.push_back(std::move(q));
    report_.timing.queries += seconds_since(start);
  }

  // One partition of a query: A is the groups at positions first..last.
  struct Cut {
    std::string node;
    std::vector<int> const& A;  // sorted group indices
    int first;
    int last;
  };

  // The names of the A groups: all of them for the JSON document or a short
  // list, else the first five and the last four (the text report's view).
  void name_A_groups(Cut const& cut, PartitionReport& r) const {
    std::size_t const n = cut.A.size();
    r.A_count = n;
    for (std::size_t i = 0; i < n; ++i) {
      if (!lists() && n > 12 && i == 5) i = n - 4;
      r.A.push_back(groups_[cut.A[i]].name);
    }
  }

  bool lists() const { return options_.symbol_lists || options_.check; }

  // Every distinct atom some group holds now, by atom variable.
  std::vector<int> held_atoms() const {
    std::vector<char> held(env_.num_atoms(), 0);
    for (auto const& group : classifier_.get_groups())
      for (int a : group.atoms)
        held[a] = 1;
    std::vector<int> out;
    for (std::size_t a = 0; a < held.size(); ++a)
      if (held[a]) out.push_back(static_cast<int>(a));
    return out;
  }

  void names_of(std::vector<Symbol const*> const& symbols, std::vector<std::string>& out) const {
    for (Symbol const* s : symbols)
      add_name(s, out);
    std::sort(out.begin(), out.end());
  }

  // The common symbols of every prefix cut of a sequence query, from one
  // sweep instead of one pass over partition A per cut: a symbol is in A
  // from the first position whose groups hold it on, and in B below the
  // last such position (always, when a group at no position holds it).
  std::vector<std::vector<std::string>> prefix_common(
      std::vector<std::vector<int>> const& positions) const {
    int const n = static_cast<int>(positions.size());
    auto const& groups = classifier_.get_groups();
    std::vector<int> enters(groups.size(), n);  // first position of each group; n: none
    for (int p = n; p-- > 0;)
      for (int g : positions[p])
        if (g >= 0 && static_cast<std::size_t>(g) < groups.size()) enters[g] = p;
    std::unordered_map<Symbol const*, std::pair<int, int>> span;  // [in A from, in B below)
    for (std::size_t g = 0; g < groups.size(); ++g)
      for (auto const& entry : groups[g].symbols) {
        if (tm_.is_interpreted(entry.first)) continue;
        auto [it, fresh] = span.emplace(entry.first, std::make_pair(enters[g], enters[g]));
        if (!fresh) {
          it->second.first = std::min(it->second.first, enters[g]);
          it->second.second = std::max(it->second.second, enters[g]);
        }
      }
    std::vector<std::vector<Symbol const*>> starts(n + 1), stops(n + 1);
    for (auto const& [symbol, range] : span) {
      if (range.first >= range.second) continue;
      starts[range.first].push_back(symbol);
      stops[range.second].push_back(symbol);
    }
    std::vector<std::vector<std::string>> out(n);
    std::unordered_set<Symbol const*> active;
    for (int r = 0; r < n; ++r) {
      for (Symbol const* s : starts[r])
        active.insert(s);
      for (Symbol const* s : stops[r])
        active.erase(s);
      for (Symbol const* s : active)
        out[r].push_back(terms_.name_of(s));
      std::sort(out[r].begin(), out[r].end());
    }
    return out;
  }

  PartitionReport by_index(itp::CutIndex& index, Cut const& cut,
                           itp::CutIndex::StatusCounts const* prefix,
                           std::vector<std::string>* prefix_common) {
    PartitionReport r;
    r.node = cut.node;
    name_A_groups(cut, r);
    if (prefix_common != nullptr) {
      r.common = std::move(*prefix_common);
    } else {
      index.get_A_symbols(cut.first, cut.last, scratch_);
      for (Symbol const* s : scratch_)
        if (!tm_.is_interpreted(s) && index.symbol_is_common(s, cut.first, cut.last, true))
          r.common.push_back(terms_.name_of(s));
      std::sort(r.common.begin(), r.common.end());
    }
    if (lists()) {
      index.get_A_symbols(cut.first, cut.last, scratch_);
      names_of(scratch_, r.A_symbols);
      index.get_B_symbols(cut.first, cut.last, scratch_);
      names_of(scratch_, r.B_symbols);
    }
    itp::CutIndex::StatusCounts const n =
        prefix != nullptr ? *prefix : index.status_counts(cut.first, cut.last);
    r.atoms = StatusCounts{n.A, n.B, n.mixed};
    if (options_.atoms || options_.check)
      for (int a : held_atoms())
        r.atom_list.push_back(
            AtomStatus{atom_exprs_[a].to_string(),
                       index.get_term_status(env_.atom_terms[a], cut.first, cut.last)});
    return r;
  }

  // The same answers from the classifier itself, after choosing the partition.
  PartitionReport by_classifier(Cut const& cut) {
    PartitionReport r;
    r.node = cut.node;
    name_A_groups(cut, r);
    std::vector<int> const& A = cut.A;
    if (!A.empty() && A.front() == 0 && A.back() == static_cast<int>(A.size()) - 1)
      classifier_.set_frontier(A.back());
    else
      classifier_.set_A_groups(A);
    auto const& B_set = classifier_.get_B_symbols();
    scratch_.assign(classifier_.get_A_symbols().begin(), classifier_.get_A_symbols().end());
    for (Symbol const* s : scratch_)
      if (!tm_.is_interpreted(s) && B_set.find(s) != B_set.end())
        r.common.push_back(terms_.name_of(s));
    std::sort(r.common.begin(), r.common.end());
    names_of(scratch_, r.A_symbols);
    scratch_.assign(B_set.begin(), B_set.end());
    names_of(scratch_, r.B_symbols);
    for (int a : held_atoms()) {
      int const status = classifier_.get_term_status(env_.atom_terms[a]);
      (status == 0 ? r.atoms.A : status == 1 ? r.atoms.B : r.atoms.mixed) += 1;
      r.atom_list.push_back(AtomStatus{atom_exprs_[a].to_string(), status});
    }
    if (options_.dump) {
      std::ostringstream text;
      std::streambuf* const old = std::cout.rdbuf(text.rdbuf());
      try {
        classifier_.debug_dump();
      } catch (...) {
        std::cout.rdbuf(old);
        throw;
      }
      std::cout.rdbuf(old);
      r.dump = text.str();
    }
    return r;
  }

  // --check: the index must give exactly the classifier's answers.
  static void compare(PartitionReport const& index, PartitionReport const& classifier,
                      SExpr const& item) {
    char const* field = index.A_symbols != classifier.A_symbols   ? "the A symbols"
                        : index.B_symbols != classifier.B_symbols ? "the B symbols"
                        : index.common != classifier.common       ? "the common symbols"
                        : index.atoms.A != classifier.atoms.A ||
                                index.atoms.B != classifier.atoms.B ||
                                index.atoms.mixed != classifier.atoms.mixed
                            ? "the atom counts"
                            : nullptr;
    for (std::size_t a = 0; field == nullptr && a < index.atom_list.size(); ++a)
      if (index.atom_list[a].status != classifier.atom_list[a].status) field = "an atom's status";
    if (field != nullptr)
      throw ScriptError(item.where, std::string("the cut index and the classifier differ on ") +
                                        field + " of partition " + index.node);
  }

  void add_name(Symbol const* s, std::vector<std::string>& out) const {
    if (!tm_.is_interpreted(s)) out.push_back(terms_.name_of(s));
  }

  std::string file_;
  Options options_;
  std::ostream& warnings_;
  TermManager tm_;
  Environment env_;
  itp::AtomClassifier classifier_;
  smtlib::Z3Reader reader_;
  smtlib::HostTerms terms_;
  std::vector<GroupInfo> groups_;                            // by group index
  std::unordered_map<std::string, std::vector<int>> names_;  // name -> its groups, in order
  std::vector<std::size_t> marks_;                           // groups before each open level
  std::vector<z3::expr> atom_exprs_;                         // atom variable -> z3 term
  std::unordered_set<std::string> warned_;                   // commands warned about
  std::vector<Symbol const*> scratch_;                       // symbol sets of one cut
  int next_clause_ = 0;
  ProblemReport report_;
};

}  // namespace

ProblemReport classify_problem(std::string const& path, std::string_view text,
                               Options const& options, std::ostream& warnings) {
  auto const start = Clock::now();
  std::string const file =
      path.substr(path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/') + 1);
  Problem problem(path, options, warnings);
  problem.run(text);
  ProblemReport report = std::move(problem.report());
  report.file = file;
  report.timing.total = seconds_since(start);
  return report;
}

}  // namespace classify
}  // namespace orvo
