// Reference model of the atom classifier and its pooled tables, on standard
// containers, and the driver that runs one call sequence against the model
// and the real classifier side by side, comparing the whole observable state
// (contents, bucket counts, iteration orders, undo trail, clause reference
// words, answers, exception texts, debug dump) after every call.
#ifndef ORVO_ITP_TESTS_MODEL_MODEL_H
#define ORVO_ITP_TESTS_MODEL_MODEL_H

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "classifier/atom_classifier.h"
#include "host/host.h"

namespace orvo::model {

inline std::string S(long long v) {
  return std::to_string(v);
}
// What the assertion hook saw during the current call (the model adds what it would see).
inline std::string hook_log;
// Test hook: a rehash that puts moved nodes at the back of their new chains,
// wrong on purpose, to check that the driver notices and shrinks the failure.
inline bool misorder_rehash = false;

// A pooled table as chains of (key, value) nodes, front = chain head: predicts
// contents, bucket count and iteration order. A set leaves the value unused.
template <class K, class V = bool>
struct Table {
  std::vector<std::vector<std::pair<K, V>>> chains = decltype(chains)(31);
  std::size_t size = 0;

  static std::uint64_t hash(int k) { return static_cast<std::uint64_t>(std::int64_t{k}); }
  static std::uint64_t hash(void const* k) { return reinterpret_cast<std::uintptr_t>(k); }
  std::size_t bucket_count() const { return chains.size(); }
  std::size_t bucket(K k) const { return hash(k) % chains.size(); }
  bool has(K k) const {
    for (auto const& e : chains[bucket(k)])
      if (e.first == k) return true;
    return false;
  }
  // Find or insert (with value 0, at the chain head). The growth test comes
  // first, on every call, also when the key is present.
  V& operator[](K k) {
    if (static_cast<double>(static_cast<float>(size) / static_cast<float>(chains.size())) > 0.7)
      rehash(chains.size() + 1);
    auto& c = chains[bucket(k)];
    for (auto& e : c)
      if (e.first == k) return e.second;
    ++size;
    return c.insert(c.begin(), {k, V()})->second;
  }
  void insert(K k) { (*this)[k]; }
  void erase(K k) {
    auto& c = chains[bucket(k)];
    auto it = std::find_if(c.begin(), c.end(), [k](auto const& e) { return e.first == k; });
    if (it != c.end()) c.erase(it), --size;
  }
  void clear() {
    for (auto& c : chains)
      c.clear();
    size = 0;
  }
  // Old buckets in index order, each chain from its head; every moved node
  // goes to the front of its new chain.
  void rehash(std::size_t n) {
    static std::uint64_t const primes[] = {
        31,       73,        151,       313,       643,        1291,       2593,
        5233,     10501,     21013,     42073,     84181,      168451,     337219,
        674701,   1349473,   2699299,   5398891,   10798093,   21596719,   43193641,
        86387383, 172775299, 345550609, 691101253, 1382202559, 2764405229, 4294867387};
    if (chains.size() >= n) return;
    auto const old = std::move(chains);
    chains.assign(*std::find_if(primes, primes + 27, [n](std::uint64_t p) { return p >= n; }), {});
    for (auto const& c : old)
      for (auto const& e : c) {
        auto& d = chains[bucket(e.first)];
        d.insert(misorder_rehash ? d.end() : d.begin(), e);
      }
  }
  std::vector<K> keys() const {
    std::vector<K> out;
    for (auto const& c : chains)
      for (auto const& e : c)
        out.push_back(e.first);
    return out;
  }
};

// The classifier written plainly: a member per field, a method per operation,
// named as the classifier's, so that the driver writes each call once for
// both. Missing groups throw orvo::Exception with the expected text.
struct Model {
  using Clause = dpll::Clause;
  struct Group {
    Table<int> atoms;
    Table<Clause const*> clauses;
    Table<Symbol const*, unsigned> symbols;
  };
  struct Cell {  // an undo cell, its tag encoded as the classifier encodes it
    int atom;
    Clause const* clause;
    std::uint32_t tag;
  };
  static constexpr std::uint32_t mask = 0x3FFFFFFFu, atom_bit = 0x80000000u, marker = ~0u;

  Environment const* env = nullptr;
  std::map<Term_ const*, int> atom_of;  // the host's term -> atom entries, -1 for none
  std::vector<Group> groups;
  Table<int> btpoint_atoms, temporary_A, temporary_B, A_groups;
  int current_group = -1;
  bool valid = false;
  Table<Symbol const*> A_symbols, B_symbols, term_symbols;
  std::vector<unsigned char> flags;
  std::vector<Cell> trail;
  std::map<Clause const*, std::uint32_t> words;  // reference word of every live clause
  std::map<Clause const*, std::string> texts;    // text form of every clause
  std::vector<Clause const*> freed;              // freed since the driver last looked

  std::vector<Group> const& get_groups() const { return groups; }
  std::vector<Cell> const& get_undo_trail() const { return trail; }
  Table<int> const& get_btpoint_atoms() const { return btpoint_atoms; }
  Table<int> const& get_temporary_A_atoms() const { return temporary_A; }
  Table<int> const& get_temporary_B_atoms() const { return temporary_B; }
  Table<int> const& get_A_groups() const { return A_groups; }
  Table<Symbol const*> const& get_A_symbols() const { return A_symbols; }
  Table<Symbol const*> const& get_B_symbols() const { return B_symbols; }
  std::vector<unsigned char> const& get_atom_AB_flags() const { return flags; }
  bool symbols_sets_valid() const { return valid; }
  int get_current_group() const { return current_group; }
  void set_current_group(int g) { current_group = g; }
  bool check_invariants() const { return true; }

  TermManager const& tm() const { return *env->term_manager; }
  void record(Cell c) {
    if (!trail.empty()) trail.push_back(c);
  }
  int resolve(int group, char const* what, std::string const& detail) {
    int const g = group >= 0 ? group : current_group;
    std::string const head = std::string("No interpolation group for ") + what + ": ";
    if (g < 0) {
      hook_log += head;  // the hook sees the text before the detail is added
      throw Exception(head + detail, false);
    }
    groups.resize(std::max<std::size_t>(groups.size(), g + 1));
    return g;
  }
  void release(Clause const* c) {
    std::uint32_t const old = words.at(c) & mask;
    words[c] = Clause::with_count(words[c], old - 1);
    if (old == 1) words.erase(c), freed.push_back(c);
  }

  int new_group_index() {
    groups.emplace_back();
    record({-1, nullptr, static_cast<std::uint32_t>(groups.size() - 1) | atom_bit});
    return static_cast<int>(groups.size()) - 1;
  }
  void reset_group(int g) {
    for (Clause const* c : groups[g].clauses.keys())
      release(c);
    groups[g] = Group(), valid = false;
  }
  void add_atom(int atom, int group) { do_add_atom(atom, group, false); }
  void pre_add_atom(int atom, int group) { do_add_atom(atom, group, true); }
  void do_add_atom(int atom, int group, bool permanent) {
    int const g = resolve(group, "atom", S(atom));
    groups[g].atoms.insert(atom);
    update_symbols(g, atom, true);
    valid = false;
    if (!permanent) record({atom, nullptr, g | atom_bit});
  }
  void add_atom_to_same_groups(int atom, int other) {
    for (std::size_t g = 0; g < groups.size(); ++g)
      if (groups[g].atoms.has(other)) do_add_atom(atom, static_cast<int>(g), false);
    valid = false;
  }
  bool has_atom(int atom, int g) const { return atom != -1 && groups[g].atoms.has(atom); }
  bool has_atom(int atom) const {
    for (std::size_t g = 0; g < groups.size(); ++g)
      if (has_atom(atom, static_cast<int>(g))) return true;
    return false;
  }
  bool has_atom(Term_ const* t) const { return atom_of.count(t) && has_atom(atom_of.at(t)); }
  void add_btpoint_atom(int atom) { btpoint_atoms.insert(atom), record({atom, nullptr, marker}); }
  void add_temporary_A_atom(int atom) { temporary_A.insert(atom); }
  void add_temporary_B_atom(int atom) { temporary_B.insert(atom); }
  void clear_temporary_atoms() { temporary_A.clear(), temporary_B.clear(); }
  void add_clause(Clause const* c, int group) {
    int const g = resolve(group, "clause", texts.at(c));
    words[c] = Clause::with_count(words[c], words[c] + 1);
    groups[g].clauses.insert(c);
    valid = false;
    record({0, c, static_cast<std::uint32_t>(g)});
  }
  bool is_of(Clause const* c, bool A) const {
    for (std::size_t g = 0; g < groups.size(); ++g)
      if (A_groups.has(static_cast<int>(g)) == A && groups[g].clauses.has(c)) return true;
    return false;
  }
  bool is_of_A(Clause const* c) const { return is_of(c, true); }
  bool is_of_B(Clause const* c) const { return is_of(c, false); }
  template <class It>
  void set_A_groups(It first, It last) {
    A_groups = Table<int>();
    for (; first != last; ++first)
      if (*first >= 0 && static_cast<std::size_t>(*first) < groups.size()) A_groups.insert(*first);
    build_symbols_sets();
  }
  void set_A_groups(std::vector<int> const& v) { set_A_groups(v.begin(), v.end()); }
  void set_frontier(int f) {
    A_groups = Table<int>();
    for (int g = 0; g <= f; ++g)
      A_groups.insert(g);
    if (f >= 0) groups.resize(std::max<std::size_t>(groups.size(), f + 1));
    build_symbols_sets();
  }
  void push_backtrack_point() { trail.push_back({-1, nullptr, marker}); }
  // Groups made inside the level are reset whole and their cells passed over;
  // the other cells are undone from the top.
  void pop_backtrack_point() {
    auto is_marker = [](Cell x) { return x.atom == -1 && x.tag >> 30 == 3; };
    Table<int> made;
    for (std::size_t i = trail.size(); i-- > 0 && !is_marker(trail[i]);)
      if (trail[i].atom == -1 && trail[i].tag >> 30 == 2) made.insert(trail[i].tag & mask);
    for (int g : made.keys())
      reset_group(g);
    valid = false;
    while (!trail.empty()) {
      Cell const x = trail.back();
      trail.pop_back();
      int const g = static_cast<int>(x.tag & (x.tag >> 31 ? mask : ~atom_bit));
      if (is_marker(x)) break;
      if (x.tag >> 30 == 3) {
        btpoint_atoms.erase(x.atom);
      } else if (made.has(g) || x.atom == -1) {
      } else if (x.tag >> 31 == 0) {
        groups[g].clauses.erase(x.clause), release(x.clause);
      } else {
        groups[g].atoms.erase(x.atom), update_symbols(g, x.atom, false);
      }
    }
  }
  // A clause that a full collection frees takes its cells off the trail.
  void gc(bool full) {
    A_symbols.clear(), B_symbols.clear(), flags.clear(), valid = false;
    for (std::size_t g = 0; full && g < groups.size(); ++g) {
      std::set<Clause const*> victims;
      for (Clause const* c : groups[g].clauses.keys())
        if ((words.at(c) & mask) == 1) victims.insert(c);
      trail.erase(
          std::remove_if(trail.begin(), trail.end(),
                         [&](Cell x) { return x.tag >> 31 == 0 && victims.count(x.clause); }),
          trail.end());
      for (Clause const* c : victims)
        groups[g].clauses.erase(c), release(c);
    }
  }
  void destroy() {
    for (Group const& g : groups)
      for (Clause const* c : g.clauses.keys())
        release(c);
  }
  void debug_dump() const {
    std::cout << "BEGIN CLASSIFIER DUMP\nA INDICES: ";
    for (int g : A_groups.keys())
      std::cout << g << " ";
    std::cout << "\nGROUPS:\n";
    for (std::size_t i = 0; i < groups.size(); ++i) {
      std::vector<int> atoms = groups[i].atoms.keys();
      std::sort(atoms.begin(), atoms.end());
      std::cout << "#" << i << ": ";
      for (int a : atoms)
        std::cout << a << " ";
      std::cout << "\n";
    }
    std::cout << "END CLASSIFIER DUMP\n";
  }
  // The walk enters the root, then the children from the last to the first,
  // each distinct subterm once.
  void collect(Term_ const* t, std::set<Term_ const*>& seen) {
    if (!seen.insert(t).second) return;
    term_symbols.insert(t->get_symbol());
    for (std::size_t i = t->get_arity(); i-- > 0;)
      collect(t->get_child(i), seen);
  }
  Table<Symbol const*> const& get_term_symbols(Term_ const* t) {
    std::set<Term_ const*> seen;
    term_symbols.clear();
    collect(t, seen);
    return term_symbols;
  }
  // A withdrawal of a symbol without an entry is ignored: the entry made at 0
  // by the inserting access goes again (its growth test has run).
  void update_symbols(int g, int atom, bool add) {
    std::size_t const a = static_cast<unsigned>(atom);
    Term_ const* t = a < env->atom_terms.size() ? env->atom_terms[a] : nullptr;
    Symbol const* head = t ? t->get_symbol() : nullptr;
    if (!t || head->get_output_type() != tm().get_bool_type() || tm().is_reserved(head)) return;
    for (Symbol const* s : get_term_symbols(t).keys()) {
      unsigned& n = groups[g].symbols[s];
      n = add ? n + 1 : n - (n > 0);
      if (n == 0) groups[g].symbols.erase(s);
    }
  }
  void build_symbols_sets() {
    A_symbols.clear(), B_symbols.clear();
    for (int g : A_groups.keys())
      for (Symbol const* s : groups[g].symbols.keys())
        A_symbols.insert(s);
    for (std::size_t i = 0; i < groups.size(); ++i)
      for (Symbol const* s : groups[i].symbols.keys())
        if (!A_groups.has(static_cast<int>(i))) B_symbols.insert(s);
    flags.assign(env->num_atoms(), 0);
    for (std::size_t i = 0; i < groups.size(); ++i)
      for (int a : groups[i].atoms.keys())
        if (a >= 0 && static_cast<std::size_t>(a) < flags.size())
          flags[a] |= A_groups.has(static_cast<int>(i)) ? 1 : 2;
    temporary_A.clear(), temporary_B.clear(), valid = true;
  }
  template <class V>
  bool term_is_pure(Term_ const* t, Table<Symbol const*, V> const& set, bool with_interpreted) {
    Symbol const* s = t->get_symbol();
    if ((with_interpreted || !tm().is_interpreted(s)) && !set.has(s)) return false;
    for (std::size_t i = 0; i < t->get_arity(); ++i)
      if (!term_is_pure(t->get_child(i), set, with_interpreted)) return false;
    return true;
  }
  bool term_is_A_pure(Term_ const* t) { return term_is_pure(t, A_symbols, false); }
  bool term_is_B_pure(Term_ const* t) { return term_is_pure(t, B_symbols, false); }
  bool term_is_AB_mixed(Term_ const* t) { return get_term_status(t) == 2; }
  int get_term_status(Term_ const* t) { return term_is_B_pure(t) ? 1 : term_is_A_pure(t) ? 0 : 2; }
  bool symbol_is_common(Symbol const* s, bool with_interpreted) {
    return (!with_interpreted && tm().is_interpreted(s)) || (A_symbols.has(s) && B_symbols.has(s));
  }
  bool term_is_mixed(Term_ const* t) {
    int impure = 0;
    for (Group const& g : groups)
      impure += !term_is_pure(t, g.symbols, false);
    return !has_atom(t) && impure >= 2;
  }
  std::vector<int> get_compatible_groups(Term_ const* t, bool with_interpreted,
                                         Term_ const* u = 0) {
    std::vector<int> out;
    for (std::size_t i = 0; i < groups.size(); ++i)
      if (term_is_pure(t, groups[i].symbols, with_interpreted) &&
          term_is_pure(u ? u : t, groups[i].symbols, with_interpreted))
        out.push_back(static_cast<int>(i));
    return out;
  }
  bool are_compatible(Term_ const* t, Term_ const* u, bool with_interpreted) {
    return !get_compatible_groups(t, with_interpreted, u).empty();
  }
};

// One call of a sequence. The arguments are raw numbers that the driver maps
// onto the state at the time (atom = a mod atoms, group = b mod 67 - 3, ...),
// so that any numbers, drawn at random or read from fuzzer bytes, are valid.
struct Op {
// clang-format off
#define ORVO_ITP_MODEL_CALL_KINDS(X)                                                                  \
  X(new_group_index) X(reset_group) X(add_atom) X(pre_add_atom) X(add_atom_to_same_groups)        \
  X(add_btpoint_atom) X(add_temporary_A_atom) X(add_temporary_B_atom) X(clear_temporary_atoms)    \
  X(new_clause) X(add_clause) X(drop_host_reference) X(push_backtrack_point)                      \
  X(pop_backtrack_point) X(gc) X(set_A_groups) X(set_A_groups_range) X(set_frontier)              \
  X(set_current_group) X(debug_dump) X(has_atom) X(has_atom_in_group) X(has_atom_term) X(is_of_A) \
  X(is_of_B) X(term_is_A_pure) X(term_is_B_pure) X(term_is_AB_mixed) X(get_term_status)           \
  X(term_is_pure_set) X(term_is_pure_map) X(symbol_is_common) X(term_is_mixed)                    \
  X(get_compatible_groups) X(are_compatible) X(get_term_symbols)
// clang-format on
#define ORVO_ITP_MODEL_ENUMERATOR(name) name,
  enum Kind : std::uint8_t { ORVO_ITP_MODEL_CALL_KINDS(ORVO_ITP_MODEL_ENUMERATOR) kinds };
#undef ORVO_ITP_MODEL_ENUMERATOR
  Kind kind;
  unsigned a, b, c;
};

// A host (terms, atoms and clauses made from a seed), a classifier and its
// model, run in step. After a divergence nothing more runs.
class Driver {
 public:
  explicit Driver(std::uint32_t seed);
  ~Driver();
  // Makes the call on both sides and compares; false once they diverged.
  bool step(Op const& op);
  // Compares, destroys the classifier and frees what the host still owns.
  bool finish();
  std::string const& failure() const { return failure_; }
  std::size_t calls() const { return calls_; }  // classifier calls, host actions left out

  unsigned compare_every = 1;  // period of the full-state comparison
  // Optional probes of the C allocator (the test executable wraps malloc/free).
  static inline bool (*was_freed)(void const*) = nullptr;
  static inline void (*forget_frees)() = nullptr;

 private:
  template <class C>
  std::string call(C& x, Op const& op);
  template <class C>
  void state(C const& x, std::string& out) const;
  void host(Op const& op);
  bool compare();
  bool check_frees();
  bool fail(std::string const& what, bool clauses_untrusted = false);

  std::unique_ptr<TermManager> tm_;
  Environment env_;
  std::unique_ptr<itp::AtomClassifier> c_;
  Model m_;
  std::vector<Term_ const*> terms_;  // the query terms
  std::vector<Symbol const*> syms_;  // the query symbols
  dpll::Clause* slots_[8] = {};      // the host's clause handles
  std::map<dpll::Clause const*, unsigned> host_refs_;
  std::map<dpll::Clause const*, std::string> names_;
  int clauses_made_ = 0;
  std::size_t steps_ = 0, calls_ = 0;  // steps taken; calls made on the classifier
  std::string failure_, op_name_;
  bool finished_ = false, trusted_ = true;  // trusted_: both sides agree on live clauses
  AssertionHandler previous_handler_;
};

std::vector<Op> random_ops(std::uint32_t seed);
// A seed (2 bytes, little endian), then 4 bytes per call: kind, a, b, c.
std::pair<std::uint32_t, std::vector<Op>> decode_ops(std::uint8_t const* data, std::size_t size);

struct Outcome {
  bool ok;
  std::size_t calls, shrunk;  // calls made; calls left after shrinking a failure
  std::string report;         // the divergence and a replayable test body
};
// Runs the sequence; on a divergence shrinks it and writes a replayable test.
Outcome check_sequence(std::uint32_t seed, std::vector<Op> const& ops, unsigned compare_every = 1);

}  // namespace orvo::model

#endif  // ORVO_ITP_TESTS_MODEL_MODEL_H
