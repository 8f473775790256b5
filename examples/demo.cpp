// orvo_itp_demo: plays the host solver on a sequence-interpolation problem and
// prints, for every frontier, what interpolant generation asks the classifier.
//
//   orvo_itp_demo            the default 4-step problem, reported in full
//   orvo_itp_demo chain N    an N-step chain (N = 2..64), summarised above 6 steps
//   orvo_itp_demo --help
//
// Step i is group i. It holds the local symbol a_i between two shared ones,
// x_i < a_i and a_i < x_(i+1); the last group closes the cycle with
// x_N < x_0 + 1, so the whole conjunction is unsatisfiable over the integers.
// Every line printed is independent of addresses, so two runs agree.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "classifier/atom_classifier.h"
#include "host/host.h"
#include "support/clause_printer.h"

namespace {

using orvo::Symbol;
using orvo::Term_;
using orvo::dpll::Clause;
using orvo::dpll::make_literal;

// Names in a stable, readable order: letter prefix first, then the number,
// so that x9 comes before x10.
bool name_less(std::string const& a, std::string const& b) {
  auto split = [](std::string const& s) {
    std::size_t const d = s.find_first_of("0123456789");
    if (d == std::string::npos || s.find_first_not_of("0123456789", d) != std::string::npos)
      return std::make_pair(s, -1L);
    return std::make_pair(s.substr(0, d), std::stol(s.substr(d)));
  };
  return split(a) < split(b);
}

int infix_precedence(Symbol const* s) {
  if (s->get_arity() != 2) return 0;
  return s->get_name() == "<" ? 1 : s->get_name() == "+" ? 2 : 0;
}

// Infix for < and +, prefix application for everything else.
std::string show(Term_ const* t) {
  Symbol const* s = t->get_symbol();
  if (t->get_arity() == 0) return s->get_name();
  int const p = infix_precedence(s);
  std::string out;
  for (std::size_t i = 0; i < t->get_arity(); ++i) {
    if (i != 0) out += p != 0 ? " " + s->get_name() + " " : ", ";
    int const q = infix_precedence(t->get_child(i)->get_symbol());
    bool const paren = q != 0 && q <= p;
    out += (paren ? "(" : "") + show(t->get_child(i)) + (paren ? ")" : "");
  }
  return p != 0 ? out : s->get_name() + "(" + out + ")";
}

std::string clause_text(Clause const* c) {
  std::ostringstream out;
  out << *c;
  return out.str();
}

auto const pos = [](int atom) { return make_literal(atom, false); };
auto const neg = [](int atom) { return make_literal(atom, true); };

struct HostClause {
  Clause* clause;
  bool host_holds;  // the host still owns one reference
  bool freed;       // collected by the classifier; never touched again
};

// The host solver: terms, atom variables, clauses and one classifier.
class Host {
 public:
  explicit Host(int steps) : steps(steps) {
    classifier.set_env(&env);
    env.term_manager = &tm;
    for (int i = 0; i <= steps; ++i)
      x.push_back(var("x" + std::to_string(i)));
    for (int i = 0; i < steps; ++i)
      a.push_back(var("a" + std::to_string(i)));
  }
  // The host gives back its own references first; the classifier's
  // destructor then frees what it alone still holds.
  ~Host() {
    for (HostClause& hc : clauses)
      if (hc.host_holds && !hc.freed) hc.freed = orvo::dpll::release_reference(hc.clause);
  }

  Term_ const* var(std::string const& name) { return tm.make_term(tm.make_symbol(name, 0, ints)); }
  int less(Term_ const* l, Term_ const* r) { return env.new_atom(tm.make_term(lt, {l, r})); }
  Term_ const* plus_one(Term_ const* t) { return tm.make_term(plus, {t, one}); }
  Term_ const* term(int atom) const { return env.atom_terms[static_cast<std::size_t>(atom)]; }
  std::string atom_text(int atom) const {
    return "[" + std::to_string(atom) + "] " + show(term(atom));
  }
  // A new clause on which the host holds one reference; learnt clauses carry
  // a kind code and an L value.
  Clause* make(std::vector<unsigned> const& literals, bool learnt, unsigned kind = 0, int l = 0) {
    int const number = static_cast<int>(clauses.size()) + 1;
    clauses.reserve(clauses.size() + 1);  // the push below cannot fail
    Clause* c = learnt ? orvo::dpll::make_extended_clause(number, literals, 1, kind, l, true)
                       : orvo::dpll::make_clause(number, literals, 1);
    clauses.push_back({c, true, false});
    return c;
  }

  int const steps;
  orvo::TermManager tm;
  orvo::Environment env;
  orvo::itp::AtomClassifier classifier;
  std::vector<HostClause> clauses;
  orvo::Type const* ints = tm.make_type("Int");  // < + 1 are interpreted
  Symbol const* lt = tm.make_symbol("<", 2, tm.get_bool_type(), true);
  Symbol const* plus = tm.make_symbol("+", 2, ints, true);
  Term_ const* one = tm.make_term(tm.make_symbol("1", 0, ints, true));
  std::vector<Term_ const*> x;  // shared x_0 .. x_N
  std::vector<Term_ const*> a;  // a_i, local to group i
};

// Level 0: the input atoms of every step, with one unit clause each.
void build_problem(Host& h, bool full) {
  orvo::itp::AtomClassifier& c = h.classifier;
  std::cout << "== Problem: " << h.steps << " interpolation steps\n";
  for (int i = 0; i < h.steps; ++i) {
    std::vector<int> atoms = {h.less(h.x[i], h.a[i]), h.less(h.a[i], h.x[i + 1])};
    if (i == h.steps - 1) atoms.push_back(h.less(h.x[i + 1], h.plus_one(h.x[0])));
    c.set_current_group(i);
    c.add_atom(atoms[0], -1);  // the default group
    for (std::size_t k = 1; k < atoms.size(); ++k)
      c.pre_add_atom(atoms[k], i);
    for (int atom : atoms)
      c.add_clause(h.make({pos(atom)}, false), i);
    if (!full) continue;
    std::cout << "group " << i << ":";
    for (int atom : atoms)
      std::cout << "  " << h.atom_text(atom);
    std::cout << "\n";
  }
  c.set_current_group(-1);
  std::cout << c.get_groups().size() << " groups, " << h.env.num_atoms() << " atoms, "
            << h.clauses.size() << " input clauses\n";
}

// Two decision levels: what is classified inside them is withdrawn again.
void search(Host& h) {
  orvo::itp::AtomClassifier& c = h.classifier;
  std::cout << "\n== Search: two decision levels, pushed and popped\n";
  c.push_backtrack_point();
  int const decision = h.less(h.x[0], h.a[0]);
  c.add_btpoint_atom(decision);
  int const derived = h.less(h.x[0], h.x[1]);
  c.add_atom(derived, 0);
  Clause* lemma = h.make({neg(decision), neg(h.less(h.a[0], h.x[1])), pos(derived)}, true, 2, 0);
  c.add_clause(lemma, 0);
  int const scratch = c.new_group_index();
  int const bridge = h.less(h.a[0], h.a[1]);
  c.add_atom(bridge, scratch);
  c.add_clause(h.make({pos(bridge)}, true, 3, scratch), scratch);
  std::cout << "level 1: decision " << h.atom_text(decision) << ", " << h.atom_text(derived)
            << " into group 0, " << clause_text(lemma) << ",\n         new group " << scratch
            << " with " << h.atom_text(bridge) << "; trail cells " << c.get_undo_trail().size()
            << "\n";

  c.push_backtrack_point();
  int const step = h.less(h.x[1], h.x[2]);
  c.add_atom(step, 1);
  Clause* conflict = h.make({neg(step), neg(derived)}, true, 3, 1);
  c.add_clause(conflict, 1);
  std::cout << "level 2: " << h.atom_text(step) << " into group 1, " << clause_text(conflict)
            << " (references " << conflict->ref_count() << ")\n";
  c.pop_backtrack_point();
  std::cout << "pop 2:   group 1 holds " << h.atom_text(step) << ": "
            << (c.has_atom(step, 1) ? "yes" : "no") << "; C" << conflict->number() << " references "
            << conflict->ref_count() << " (the host's)\n";
  c.pop_backtrack_point();
  std::cout << "pop 1:   group 0 holds [" << derived
            << "]: " << (c.has_atom(derived, 0) ? "yes" : "no") << "; group " << scratch
            << " kept, atoms " << c.get_groups()[scratch].atoms.size() << "; btpoint atoms "
            << c.get_btpoint_atoms().size() << "; trail cells " << c.get_undo_trail().size()
            << "\n";

  try {
    c.add_atom(bridge, -1);  // no default group is set
  } catch (orvo::Exception const& e) {
    std::cout << "add_atom with no group: \"" << e.what() << "\"\n";
  }
}

// Level 0 learning, then the host forgets some learnt clauses and a full
// collection frees those that only the classifier still holds.
void learn_and_collect(Host& h, bool full) {
  orvo::itp::AtomClassifier& c = h.classifier;
  std::cout << "\n== Learnt clauses and garbage collection\n";
  std::vector<Clause*> dropped;
  for (int i = 0; i < h.steps; ++i) {
    int const step = h.less(h.x[i], h.x[i + 1]);
    int const lower = h.less(h.x[i], h.a[i]);
    c.add_atom_to_same_groups(step, lower);  // group i
    c.add_clause(h.make({neg(lower), neg(h.less(h.a[i], h.x[i + 1])), pos(step)}, true, 2, i), i);
    if (i % 2 == 1) dropped.push_back(h.clauses.back().clause);
  }
  // A transitivity lemma in groups 0 and 1: two memberships, two references.
  Clause* shared = h.make(
      {neg(h.less(h.x[0], h.x[1])), neg(h.less(h.x[1], h.x[2])), pos(h.less(h.x[0], h.x[2]))}, true,
      3, 1);
  c.add_clause(shared, 0);
  c.add_clause(shared, 1);
  dropped.push_back(shared);
  std::cout << "learnt " << h.steps + 1 << " clauses; the host drops " << dropped.size()
            << " of them, among them " << clause_text(shared) << "\n";
  std::vector<HostClause*> doomed;  // only the classifier's reference is left
  for (HostClause& hc : h.clauses) {
    if (std::find(dropped.begin(), dropped.end(), hc.clause) == dropped.end()) continue;
    hc.host_holds = false;
    hc.freed = orvo::dpll::release_reference(hc.clause);
    if (!hc.freed && hc.clause->ref_count() == 1) doomed.push_back(&hc);
  }
  auto held = [&c] {
    std::size_t n = 0;
    for (auto const& g : c.get_groups())
      n += g.clauses.size();
    return n;
  };
  std::size_t const before = held();
  for (HostClause* hc : doomed)
    if (full) std::cout << "collectable: " << clause_text(hc->clause) << "\n";
  c.gc(true);
  for (HostClause* hc : doomed)
    hc->freed = true;
  std::cout << "gc(true) freed " << doomed.size() << " clauses; group memberships " << before
            << " -> " << held() << "\nC" << shared->number() << " stays, with references "
            << shared->ref_count() << " (the classifier's two)\n";
}

// The names of the symbols of `set` that `keep` accepts, in name order.
template <class Keep>
std::string sorted_names(orvo::hsh::HashSet<Symbol const*> const& set, Keep keep) {
  std::vector<std::string> names;
  for (Symbol const* s : set)
    if (keep(s)) names.push_back(s->get_name());
  std::sort(names.begin(), names.end(), name_less);
  std::string out;
  for (std::string const& n : names)
    out += " " + n;
  return out.empty() ? " (none)" : out;
}

char const* const side_names[4] = {"none", "A", "B", "AB"};

std::string status_text(orvo::itp::AtomClassifier& c, Term_ const* t) {
  int const s = c.get_term_status(t);
  if (s == 0) return "A-pure";
  if (s == 2) return "mixed";
  return c.term_is_A_pure(t) ? "A+B-pure" : "B-pure";
}

void report_frontier(Host& h, int k, bool full) {
  orvo::itp::AtomClassifier& c = h.classifier;
  c.set_frontier(k);
  auto interpreted = [&h](Symbol const* s) { return h.tm.is_interpreted(s); };
  auto all = [](Symbol const*) { return true; };
  std::string const common = sorted_names(c.get_A_symbols(), [&](Symbol const* s) {
    return !interpreted(s) && c.symbol_is_common(s, false);
  });
  std::vector<unsigned char> const& flags = c.get_atom_AB_flags();
  int sides[4] = {0, 0, 0, 0}, statuses[3] = {0, 0, 0}, of_A = 0, of_B = 0;
  std::ostringstream atoms, clauses;
  for (std::size_t v = 0; v < flags.size(); ++v) {
    int const atom = static_cast<int>(v);
    ++sides[flags[v] & 3];
    ++statuses[c.get_term_status(h.term(atom))];
    if (!full) continue;
    std::string groups;
    for (int g : c.get_compatible_groups(h.term(atom), false))
      groups += " " + std::to_string(g);
    atoms << "  " << std::left << std::setw(5) << side_names[flags[v] & 3] << std::setw(20)
          << h.atom_text(atom) << std::setw(9) << status_text(c, h.term(atom)) << " groups"
          << (groups.empty() ? " -" : groups) << "\n";
  }
  for (HostClause const& hc : h.clauses) {
    if (hc.freed) continue;
    bool const A = c.is_of_A(hc.clause), B = c.is_of_B(hc.clause);
    of_A += A;
    of_B += B;
    if (full)
      clauses << "  " << std::left << std::setw(32) << clause_text(hc.clause)
              << "of A: " << (A ? "yes" : "no ") << "  of B: " << (B ? "yes" : "no") << "\n";
  }
  if (!full) {
    std::cout << "frontier " << k << ": symbols A " << c.get_A_symbols().size() << " B "
              << c.get_B_symbols().size() << " common" << common << " | atoms A " << sides[1]
              << " B " << sides[2] << " AB " << sides[3] << " none " << sides[0] << " | A-pure "
              << statuses[0] << " B-pure " << statuses[1] << " mixed " << statuses[2]
              << " | clauses A " << of_A << " B " << of_B << "\n";
    return;
  }
  std::cout << "\n== Frontier " << k << ": A = groups 0.." << k << ", B = groups " << k + 1 << ".."
            << c.get_groups().size() - 1 << "\n";
  std::cout << "A symbols:" << sorted_names(c.get_A_symbols(), all) << "\n";
  std::cout << "B symbols:" << sorted_names(c.get_B_symbols(), all) << "\n";
  std::cout << "common symbols:" << common
            << "  (interpreted, common by default:" << sorted_names(c.get_B_symbols(), interpreted)
            << ")\n";
  std::cout << "atoms (side, atom, term status, compatible groups):\n" << atoms.str();
  std::cout << "clauses:\n" << clauses.str();
  c.debug_dump();
}

void usage(std::ostream& out) {
  out << "usage: orvo_itp_demo             the default 4-step problem, in full\n"
         "       orvo_itp_demo chain N     an N-step chain, N from 2 to 64\n"
         "       orvo_itp_demo --help      this text\n";
}

}  // namespace

int main(int argc, char** argv) {
  int steps = 4;
  std::vector<std::string> const args(argv + 1, argv + argc);
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
    usage(std::cout);
    return 0;
  }
  if (args.size() == 2 && args[0] == "chain" && !args[1].empty() && args[1].size() <= 2 &&
      args[1].find_first_not_of("0123456789") == std::string::npos)
    steps = std::stoi(args[1]);
  else if (!args.empty())
    steps = 0;
  if (steps < 2 || steps > 64) {
    usage(std::cerr);
    return 2;
  }
  bool const full = steps <= 6;
  try {
    Host host(steps);
    build_problem(host, full);
    search(host);
    learn_and_collect(host, full);
    if (!full) std::cout << "\n== Frontiers 0.." << steps - 2 << " (summary)\n";
    for (int k = 0; k + 1 < steps; ++k)
      report_frontier(host, k, full);
    std::cout << "\n== Done: " << host.classifier.get_groups().size() << " groups, "
              << host.env.num_atoms() << " atoms, the host releases its clauses\n";
  } catch (std::exception const& e) {
    std::cerr << "orvo_itp_demo: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
