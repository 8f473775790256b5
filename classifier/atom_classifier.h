// orvo::itp::AtomClassifier — which atoms and clauses belong to which
// interpolation group, and on which side of the A/B partition a term lies.
//
// USAGE
//
//   orvo::Environment env;                 // the host's term tables
//   env.term_manager = &tm;
//   orvo::itp::AtomClassifier c;
//   c.set_env(&env);                       // before anything reaches the host
//   c.set_current_group(0);                // optional default group
//
//   c.add_atom(env.new_atom(x_lt_y), 0);   // group 0 (created on demand)
//   c.add_atom(env.new_atom(y_lt_z), 1);
//   c.add_clause(clause, 1);               // takes one reference on `clause`
//
//   c.push_backtrack_point();              // a decision level opens
//   c.add_atom(a, 1);                      // recorded: undone by the pop
//   c.pop_backtrack_point();               // a is gone from group 1 again
//
//   c.set_frontier(0);                     // A = {0}, B = every other group
//   c.get_term_status(t);                  // 0 A-pure, 1 B-pure, 2 mixed
//   c.symbol_is_common(y, false);
//
// LIFECYCLE
//
// 1. Construct, then set_env() (and, if wanted, set_current_group()). The
//    environment is borrowed: it must outlive the classifier's last call that
//    reaches the host and is never freed here.
// 2. Register atoms (add_atom, pre_add_atom, add_atom_to_same_groups) and
//    clauses (add_clause). Naming a group past the last one creates the
//    groups in between, empty. A negative group means the default group; with
//    no default group set, registration throws orvo::Exception ("No
//    interpolation group for atom: 17") before changing anything.
// 3. Bracket decision levels with push_backtrack_point/pop_backtrack_point.
// 4. Choose partition A with set_A_groups or set_frontier. Both rebuild the
//    partition symbol sets and the per-atom flags; that snapshot is what the
//    partition queries (term_is_A_pure, get_term_status, symbol_is_common)
//    read. Every later change of group contents makes it stale
//    (symbols_sets_valid() turns false) until the next partition choice.
// 5. Ask the queries; call gc() between operations when memory matters.
// 6. Destroy: one clause reference is released per group membership.
//
// CLAUSE REFERENCES
//
// A clause carries a 30-bit reference count (bits 0-29 of its reference word;
// bits 30-31 are host flags, always kept). add_clause takes one reference
// per call, also for a clause already in the group. The classifier gives one
// back when it drops a group membership (reset_group, the destructor, a full
// gc) or undoes a clause cell (pop_backtrack_point). Whoever drops the count
// from 1 to 0 frees the clause with std::free, and the classifier does so
// itself. Note the consequence: the same clause added twice to one group at
// level 0 takes two references for one membership, and only one comes back.
//
// THE UNDO TRAIL
//
// While at least one backtrack point is open, add_atom, add_atom_to_same_groups,
// add_clause, add_btpoint_atom and new_group_index append a cell to the undo
// trail; at level 0 nothing is recorded and the change is permanent, as is
// pre_add_atom at any level. A pop first empties the groups created inside
// the level (they stay as empty groups: indices are never reused), then undoes
// the other cells top down: an atom leaves its group and its symbol counts are
// withdrawn, a clause leaves its group and its reference is returned, a
// btpoint atom leaves btpoint_atoms. An atom or clause that was in the group
// before the level and was added again inside it leaves with the pop.
// Partition choice, temporary atoms and gc are never undone.
//
// WHAT THE OWNER READS
//
// symbols_sets_valid(), get_atom_AB_flags() (per atom variable: 0 no group,
// 1 A only, 2 B only, 3 both), get_btpoint_atoms(), get_temporary_A_atoms(),
// get_temporary_B_atoms(), and for inspection the groups, the trail and the
// partition sets. The classifier itself never reads the validity flag, the
// flags or the temporary atoms.
//
// OUTSIDE THE CONTRACT
//
// Atom -1 is never registered (it would decode as a marker or new-group cell).
// Group indices stay below 2^30. reset_group and has_atom(atom, group) take an
// existing group; term, symbol and clause arguments are never null; set_env
// comes before any call that reaches the host (registration of atoms, the
// partition choice and the term and symbol queries). Builds without NDEBUG
// stop with a message naming the operation and the value on these
// violations; builds with NDEBUG do not check. Calling
// reset_group on a group whose clauses were added inside a still-open level
// returns their references twice (once now, once at the pop). No two calls on
// one classifier may overlap, not even two queries: they share scratch state.
//
// Memory exhaustion propagates as std::bad_alloc (vector overflow as
// std::length_error); what was done before the failing step stays done.
#ifndef ORVO_ITP_CLASSIFIER_ATOM_CLASSIFIER_H
#define ORVO_ITP_CLASSIFIER_ATOM_CLASSIFIER_H

#include <cstdint>
#include <string>
#include <vector>

#include "containers/hash_table.h"
#include "host/clause.h"
#include "host/environment.h"
#include "host/term.h"
#include "support/exception.h"

namespace orvo {
namespace itp {

class AtomClassifier {
 public:
  // One interpolation group. Copying copies the three tables and touches no
  // reference count; destroying releases none (whoever drops memberships
  // releases their references first).
  struct Group {
    hsh::HashSet<int> atoms;                        // atoms of the group
    hsh::HashSet<dpll::Clause const*> clauses;      // one held reference each
    hsh::HashMap<Symbol const*, unsigned> symbols;  // symbol -> occurrence count
  };

  // One cell of the undo trail. Decoding: tag bit 31 clear is a clause cell
  // (group in bits 0-30). With bit 31 set and bit 30 set: marker cell when
  // atom is -1, btpoint-atom cell otherwise. With bit 31 set and bit 30 clear:
  // new-group cell when atom is -1, atom cell otherwise (group in bits 0-29).
  struct UndoCell {
    union {
      std::int64_t raw;  // keeps the union 64 bits wide; atom cells zero it first
      int atom;
      dpll::Clause const* clause;
    };
    std::uint32_t tag;

    static constexpr std::uint32_t atom_bit = 0x80000000u;
    static constexpr std::uint32_t btpoint_bit = 0x40000000u;
    static constexpr std::uint32_t atom_group_mask = 0x3FFFFFFFu;
    static constexpr std::uint32_t clause_group_mask = 0x7FFFFFFFu;
    // Tag of marker and btpoint-atom cells: both bits set, and no group.
    static constexpr std::uint32_t marker_tag = 0xFFFFFFFFu;
    enum class Kind { marker, btpoint_atom, atom, new_group, clause };

    static UndoCell make_atom(int a, std::uint32_t tag) noexcept {
      UndoCell cell;
      cell.raw = 0;
      cell.atom = a;
      cell.tag = tag;
      return cell;
    }
    static UndoCell make_clause(dpll::Clause const* c, std::uint32_t group) noexcept {
      UndoCell cell;
      cell.clause = c;
      cell.tag = group;
      return cell;
    }
    Kind kind() const noexcept {
      if ((tag & atom_bit) == 0) return Kind::clause;
      if ((tag & btpoint_bit) != 0) return atom == -1 ? Kind::marker : Kind::btpoint_atom;
      return atom == -1 ? Kind::new_group : Kind::atom;
    }
    int group() const noexcept {
      return static_cast<int>(tag & (kind() == Kind::clause ? clause_group_mask : atom_group_mask));
    }
  };

  // The classifier's own exception. What its two throw sites let escape is a
  // copy made as orvo::Exception, so handlers must catch orvo::Exception.
  class error : public Exception {
   public:
    explicit error(std::string const& msg) : Exception(msg, true) {}
    ~error() noexcept override;
  };

  // ---- State, groups and clause references, in 'groups.cpp'. ----

  AtomClassifier();
  // Releases one clause reference per group membership; cells still on the
  // trail release nothing.
  ~AtomClassifier();
  AtomClassifier(AtomClassifier const&) = delete;
  AtomClassifier& operator=(AtomClassifier const&) = delete;

  // Appends an empty group and returns its index (the number of groups
  // before the call). Recorded while a backtrack point is open.
  int new_group_index();
  // Releases the references of the group's clauses and empties its three
  // tables (back to 31 buckets). The group keeps its index. Not recorded.
  void reset_group(int group);

  // Owner's accessors.
  void set_env(Environment* env) noexcept { env_ = env; }
  Environment* get_env() const noexcept { return env_; }
  void set_current_group(int group) noexcept { current_group_ = group; }
  int get_current_group() const noexcept { return current_group_; }
  bool symbols_sets_valid() const noexcept { return symbols_sets_valid_; }
  std::vector<Group> const& get_groups() const noexcept { return groups_; }
  std::vector<UndoCell> const& get_undo_trail() const noexcept { return undo_trail_; }
  hsh::HashSet<int> const& get_A_groups() const noexcept { return A_groups_; }
  hsh::HashSet<Symbol const*> const& get_A_symbols() const noexcept { return A_symbols_; }
  hsh::HashSet<Symbol const*> const& get_B_symbols() const noexcept { return B_symbols_; }
  std::vector<unsigned char> const& get_atom_AB_flags() const noexcept { return atom_AB_flags_; }
  hsh::HashSet<int> const& get_btpoint_atoms() const noexcept { return btpoint_atoms_; }
  hsh::HashSet<int> const& get_temporary_A_atoms() const noexcept { return temporary_A_atoms_; }
  hsh::HashSet<int> const& get_temporary_B_atoms() const noexcept { return temporary_B_atoms_; }

  // Consistency check of the whole classifier, for tests and debugging (it
  // walks every table and the trail): every table's own invariants, trail
  // cells that decode to a kind with a group that exists, a marker at the
  // bottom of a non-empty trail, all visit marks clear, an empty purity
  // stack, and clause counts that cover what the classifier holds: for each
  // group holding a clause, one reference, or one per cell of the clause in
  // that group if there are more (a cell and the membership it made share
  // one reference). Returns false on the first violation.
  bool check_invariants() const;

  // ---- Atom registration, in 'atoms.cpp'. ----

  // Adds `atom` to `group` (negative: the default group) and counts the
  // symbols of its term, also when the atom is already there. add_atom is
  // recorded while a backtrack point is open; pre_add_atom never is.
  void add_atom(int atom, int group);
  void pre_add_atom(int atom, int group);
  void do_add_atom(int atom, int group, bool permanent);
  // Adds `atom` (recorded) to every group holding `other`, in index order.
  void add_atom_to_same_groups(int atom, int other);
  bool has_atom(int atom) const;
  bool has_atom(int atom, int group) const;  // `group` must exist
  // Whether the term has an atom variable and some group holds it.
  bool has_atom(Term_ const* term) const;
  // Recorded while a backtrack point is open; no group changes.
  void add_btpoint_atom(int atom);
  // Kept for the owner until clear_temporary_atoms or the next partition choice.
  void add_temporary_A_atom(int atom);
  void add_temporary_B_atom(int atom);
  void clear_temporary_atoms();

  // ---- Clause classification, in 'clauses.cpp'. ----

  // Puts `clause` into `group` (negative: the default group) and takes one
  // reference on it. Recorded while a backtrack point is open.
  void add_clause(dpll::Clause const* clause, int group);
  // Whether some A group, respectively some group outside A, holds `clause`.
  // Both compare pointers only and never read the clause.
  bool is_of_A(dpll::Clause const* clause) const;
  bool is_of_B(dpll::Clause const* clause) const;

  // ---- Partition choice, in 'partition.cpp'. ----

  // A becomes exactly the indices of the range that name existing groups
  // (negative and too large ones are skipped); then the symbol sets are rebuilt.
  void set_A_groups(std::vector<int> const& groups);
  template <class Iterator>
  void set_A_groups(Iterator first, Iterator last);
  // A becomes groups 0..frontier (none for a negative frontier); missing
  // groups up to the frontier are created, unrecorded. Then the sets are rebuilt.
  void set_frontier(int frontier);

  // ---- Backtracking, in 'backtracking.cpp'. ----

  void push_backtrack_point();
  // Undoes everything recorded since the matching push. With no open point
  // it only clears the validity flag.
  void pop_backtrack_point();

  // ---- Garbage collection, in 'garbage_collection.cpp'. ----

  // Drops the partition symbol sets and atom flags. With `full`, also frees
  // every clause whose only reference is the classifier's, erasing it from its
  // group. A freed clause that a cell of a still-open level names is also
  // struck from the trail, so the later pop never touches freed memory.
  void gc(bool full);

  // ---- Debug dump, in 'debug_dump.cpp'. ----

  // Writes the partition and each group's sorted atoms to std::cout.
  void debug_dump();

  // ---- Term symbols, in 'term_symbols.cpp'. ----

  // The head symbols of `t` and all its subterms (interpreted ones too). The
  // result is scratch storage, replaced by the next call.
  hsh::HashSet<Symbol const*> const& get_term_symbols(Term_ const* t);
  // Terms the walks of get_term_symbols have entered since construction (a
  // shared subterm counts once per walk): a measure of work, for tests and tuning.
  std::uint64_t terms_entered() const noexcept { return terms_entered_; }

  // ---- Group symbol counts, in 'symbol_counts.cpp'. ----

  // Adds (or withdraws) the symbols of `atom`'s term to (from) the counts of
  // `group`. Atoms with no term, a non-Boolean term or a term headed by a
  // reserved symbol contribute nothing. A withdrawal of a symbol that has no
  // entry is ignored, so counts never wrap around below zero.
  void update_symbols(unsigned long group, int atom, bool add);

  // ---- Partition symbol sets, in 'symbol_sets.cpp'. ----

  // Rebuilds the A and B symbol sets and the atom flags, empties the
  // temporary atoms and sets the validity flag, in that order.
  void build_symbols_sets();

  // ---- Term and symbol queries, in 'term_queries.cpp'. ----

  // Whether every subterm's head symbol is in `symbols` (for a map: among its
  // keys). Interpreted symbols pass unless `include_interpreted` is set.
  template <class SymbolSet>
  bool term_is_pure(Term_ const* t, SymbolSet const& symbols, bool include_interpreted);
  bool term_is_A_pure(Term_ const* t);
  bool term_is_B_pure(Term_ const* t);
  bool term_is_AB_mixed(Term_ const* t);
  // 0 A-pure only, 1 B-pure (whether A-pure or not), 2 mixed.
  int get_term_status(Term_ const* t);
  bool symbol_is_common(Symbol const* s, bool include_interpreted);
  // Impure for at least two groups, unless the term is a registered atom.
  bool term_is_mixed(Term_ const* t);
  std::vector<int> get_compatible_groups(Term_ const* t, bool include_interpreted);
  bool are_compatible(Term_ const* t1, Term_ const* t2, bool include_interpreted);

 private:
  // Grows groups_ so that `group` exists; `operation` names the caller in
  // the contract check.
  void ensure_group(int group, char const* operation);
  void record(UndoCell cell);

  std::vector<Group> groups_;                 // group i is element i
  hsh::HashSet<int> btpoint_atoms_;           // atoms registered at backtrack points
  hsh::HashSet<int> temporary_A_atoms_;       // owner's temporary A atoms
  hsh::HashSet<int> temporary_B_atoms_;       // owner's temporary B atoms
  hsh::HashSet<int> A_groups_;                // group indices of partition A
  int current_group_;                         // default group, -1 for none
  bool symbols_sets_valid_;                   // A/B symbol sets match the groups
  hsh::HashSet<Symbol const*> A_symbols_;     // symbols of partition A
  hsh::HashSet<Symbol const*> B_symbols_;     // symbols of partition B
  std::vector<unsigned char> atom_AB_flags_;  // per atom: bit 0 in A, bit 1 in B
  std::vector<Term_ const*> purity_stack_;    // scratch stack of the purity walk
  hsh::HashSet<Symbol const*> term_symbols_;  // scratch result of get_term_symbols
  std::vector<Term_ const*> symbol_stack_;    // scratch stack of get_term_symbols
  std::vector<Term_ const*> symbol_marked_;   // scratch: terms get_term_symbols marked
  std::vector<bool> visit_marks_;             // two visit bits per term id
  std::uint64_t terms_entered_ = 0;           // terms_entered()
  Environment* env_;                          // borrowed host environment
  std::vector<UndoCell> undo_trail_;          // cells of the open levels
};

template <class Iterator>
void AtomClassifier::set_A_groups(Iterator first, Iterator last) {
  A_groups_ = hsh::HashSet<int>();
  for (; first != last; ++first) {
    int const g = *first;
    if (g < 0 || static_cast<std::size_t>(g) >= groups_.size()) continue;
    A_groups_.insert(g);
  }
  build_symbols_sets();
}

}  // namespace itp
}  // namespace orvo

#endif  // ORVO_ITP_CLASSIFIER_ATOM_CLASSIFIER_H
