// orvo::itp::CutIndex — every A/B cut of a query answered from one snapshot
// of the classifier's groups, without choosing a partition per cut.
//
// USAGE
//
//   // A sequence query over four items: position i holds the groups of item i.
//   orvo::itp::CutIndex index(classifier, {{0}, {1, 4}, {2}, {3}});
//
//   index.get_term_status(t, 0, 1);         // as the classifier after set_A_groups({0, 1, 4})
//   index.symbol_is_common(x, 1, 2);        // A = groups 1, 4, 2; B = every other group
//   index.get_atom_AB_flags(17, 2, 3);
//
//   auto p = index.prefix_status(t);        // every prefix cut [0, r] at once:
//   bool a_pure = r >= p.a_from;            //   A-pure exactly from r = a_from on,
//   bool b_pure = r < p.b_below;            //   B-pure exactly below r = b_below
//   auto counts = index.prefix_status_counts();  // status counts of all atoms, every r
//
//   // Only the listed groups count: the query's, group 7 (in B under every
//   // cut) and group 5 (background: in A and in B under every cut).
//   orvo::itp::CutIndex live(classifier, {{0}, {1, 4}, {2}, {3}}, {7}, {5});
//
// POSITIONS AND CUTS
//
// The index is built from the classifier and an ordered list of positions;
// each position holds one or more group indices. A cut is a range of
// positions [first, last] with 0 <= first <= last < size(): partition A is
// the set of groups at those positions, partition B every other group. Every
// answer equals the classifier's answer after set_A_groups of the group
// indices at positions first..last, in the same terms (status codes, flag
// bits, interpreted symbols).
//
// - A sequence query over n items: position i holds the groups of item i;
//   its n - 1 interpolants are the prefix cuts [0, r], r = 0 .. n - 2.
// - A tree query: the nodes in post-order, one position each; the subtree of
//   a node is a contiguous range of positions ending at the node's own.
// - A group index that names no group (negative, or not below the number of
//   groups) is skipped, as set_A_groups skips it. A group may stand at several
//   positions: it is in A when any of them is in the range. A group at no
//   position is in B under every cut.
//
// THE GROUPS THAT COUNT
//
// The two-argument constructor counts every group of the classifier: the
// build reads them all, so its cost follows the number of groups ever made
// (groups emptied by pops included). The four-argument constructor counts
// only the groups it is given:
//
// - the groups at the positions;
// - `others`: more groups of B. At no position, such a group is in B under
//   every cut; at a position it is placed as usual;
// - `background`: groups in A and in B of every cut. Their positions, if
//   any, change nothing. A's side of every answer (the A symbol set,
//   A-purity, atom flag 1) is the classifier's after set_A_groups of the
//   range's groups and the background groups; B's side (the B symbol set,
//   B-purity, atom flag 2) is its answer after set_A_groups of the range's
//   groups without them, so the background groups are in B. A term status
//   combines the two sides as get_term_status does.
//
// A caller that keeps a HolderCounts of its live groups can leave the live
// groups outside the query out altogether: the constructor that takes one
// counts the groups at the positions and the background, and stands the
// groups the counts have beyond those in as one group at no position. Its
// answers are those of the four-argument form with those groups as `others`,
// and its build costs only the counted groups: a query over a few groups
// costs those, however many groups are live. prefix_symbols() then leaves out
// the symbols only those other groups hold (only_elsewhere() counts them);
// get_B_symbols and status_counts read the holder counts to list and count
// what only they hold.
//
// Every other group is ignored: the answers are those of a classifier in
// which it is empty, and the build never reads it. The build then costs the
// sizes of the counted groups and the number of positions, whatever the
// number of groups ever made. A caller that tracks its own scopes passes the
// live groups outside the query as `others` (or as `background`); groups
// that pops have emptied may simply be left out. With `others` holding every
// group and no background, the answers are those of the two-argument form.
//
// WHAT IT STORES
//
// One record per symbol of the groups' symbol maps and one per atom of the
// groups' atom sets: the sorted positions of the groups that hold it (it is
// in A when one of them is in the range) and the gaps between those positions
// (it is in B when the range fits inside a gap of one of its groups; a group
// at no position is one gap spanning everything). Each range test is a binary
// search. For prefix cuts each record reduces to two numbers, and a term to
// the extreme of its symbols' numbers, kept per term id once computed.
//
// Term walks mark what they have seen, so a term costs its number of distinct
// subterms, never its number of paths (the classifier's purity walk follows
// every path); terms_entered() counts the steps. After the first queries have grown the scratch
// storage to the largest term id and depth, queries allocate nothing (status_counts, get_A_symbols
// and get_B_symbols write into storage the caller keeps; prefix_status_counts returns a fresh
// vector).
//
// SNAPSHOT RULE
//
// Building reads every group's symbol map and atom set once, in time linear
// in their sizes and the number of positions. The index then describes the
// groups as they were: after any change of group contents (atoms, pops,
// resets, new groups) build a new index; only the counted groups matter, so
// an index of the four-argument form stays good when an ignored group changes
// or a new group appears. Debug builds stop with a message when a query of an
// index that counts every group meets a different number of groups than the
// build saw, and the bulk queries (symbol sets, status counts) also when a
// counted group's table sizes differ (matches_groups); release builds do not
// check. The classifier and its
// environment must outlive the index; the index never changes the classifier
// and never reads its partition, its symbol sets or its flags.
//
// Like the classifier, an index keeps scratch state: no two calls on one
// index may overlap. Memory exhaustion propagates as std::bad_alloc.
#ifndef ORVO_ITP_CLASSIFIER_CUT_INDEX_H
#define ORVO_ITP_CLASSIFIER_CUT_INDEX_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "classifier/atom_classifier.h"
#include "containers/hash_table.h"
#include "host/term.h"

namespace orvo {
namespace itp {

// How many groups hold each symbol and each atom, kept by the owner of a
// set of groups (the live ones, say) as it changes: add(g) once group g is
// filled, remove(g) before it is emptied, with the same contents. Adding a
// group twice or removing one not added changes nothing. atoms() counts the
// held atoms that had a term in the environment when their first holder came
// in. The classifier and its environment must outlive the counts; the
// environment must be set by the first add or remove.
class HolderCounts {
 public:
  explicit HolderCounts(AtomClassifier const& classifier);
  void add(int group);
  void remove(int group);
  bool has(int group) const;  // added and not removed
  unsigned symbol_holders(Symbol const* s) const;
  unsigned atom_holders(int atom) const;
  std::size_t uninterpreted_symbols() const { return uninterpreted_; }  // distinct, held
  std::size_t atoms() const { return atoms_; }                          // distinct, held
  // Held atoms whose terms do not count their symbols in their groups (not
  // Boolean, or headed by a reserved symbol): their status takes a walk.
  hsh::HashSet<int> const& uncounted_atoms() const { return uncounted_; }
  hsh::HashMap<Symbol const*, unsigned> const& symbols() const { return symbols_; }

 private:
  void change(int group, bool add);

  AtomClassifier const& classifier_;
  std::vector<char> in_;                           // by group: added
  hsh::HashMap<Symbol const*, unsigned> symbols_;  // held symbols only
  std::vector<unsigned> atom_holders_;             // by atom
  std::vector<char> termed_;                       // by held atom: counted in atoms_
  std::size_t uninterpreted_ = 0;
  std::size_t atoms_ = 0;
  hsh::HashSet<int> uncounted_;
};

class CutIndex {
 public:
  // positions[i] holds the group indices at position i; the classifier must outlive the index.
  // Every group counts; those at no position are in B under every cut.
  CutIndex(AtomClassifier const& classifier, std::vector<std::vector<int>> const& positions);
  // Only the groups at the positions, `others` (more of B) and `background`
  // (in A and in B of every cut) count; every other group is ignored. Invalid
  // indices in either list are skipped.
  CutIndex(AtomClassifier const& classifier, std::vector<std::vector<int>> const& positions,
           std::vector<int> const& others, std::vector<int> const& background = {});
  // Only the groups at the positions and `background` count, and beyond
  // them the groups that `holders` has and they do not, as more of B; the
  // counts must outlive the index and not change while it is used.
  CutIndex(AtomClassifier const& classifier, std::vector<std::vector<int>> const& positions,
           HolderCounts const& holders, std::vector<int> const& background = {});
  std::size_t size() const;  // number of positions
  // Whether the counted groups still look as they did at the build: every
  // such group's atom and symbol tables the same size, and, when every group
  // counts, the same number of groups. One pass over the counted groups; a
  // cheap test of the snapshot rule.
  bool matches_groups() const;
  // Terms the walks of this index have entered: a range walk enters each
  // distinct subterm once, the prefix walk each term once for the index's
  // lifetime. A measure of work, for tests and tuning.
  std::uint64_t terms_entered() const { return terms_entered_; }

  // ---- Range cuts: A = the groups at positions first..last (inclusive), B = every other group.

  // True for an interpreted symbol unless include_interpreted is set;
  // otherwise whether the symbol is in both the A and the B symbol set.
  bool symbol_is_common(Symbol const* s, int first, int last, bool include_interpreted = false);
  // 0 A-pure and not B-pure, 1 B-pure (A-pure or not), 2 mixed, as the
  // classifier's get_term_status. Interpreted symbols pass. t is not null.
  int get_term_status(Term_ const* t, int first, int last);
  // 0 in no group, 1 A only, 2 B only, 3 both. An atom variable that is
  // negative or not below the environment's number of atoms answers 0.
  unsigned char get_atom_AB_flags(int atom, int first, int last);

  // The classifier's A (B) symbol set after set_A_groups of the groups at positions first..last:
  // every symbol of those groups' symbol maps, interpreted ones included; cleared, then filled, in
  // no particular order.
  void get_A_symbols(int first, int last, std::vector<Symbol const*>& out);
  void get_B_symbols(int first, int last, std::vector<Symbol const*>& out);

  // get_term_status(t, first, last) of the term of every distinct atom that some group holds
  // (atoms whose environment term is null are left out), counted by code.
  struct StatusCounts {
    std::size_t A = 0;      // code 0
    std::size_t B = 0;      // code 1
    std::size_t mixed = 0;  // code 2
  };
  StatusCounts status_counts(int first, int last);

  // ---- Prefix cuts (first = 0).

  // t is A-pure exactly when last >= a_from and B-pure exactly when
  // last < b_below (a_from = size() means never; b_below = 0 means never).
  // One walk per term, kept per term id for later calls.
  struct PrefixStatus {
    int a_from;
    int b_below;
  };
  PrefixStatus prefix_status(Term_ const* t);
  // status_counts(0, r) for r = 0 .. size()-1, from one walk per atom and one sweep.
  std::vector<StatusCounts> prefix_status_counts();
  // Every symbol a counted group holds (interpreted ones too), with its
  // numbers as above: in A exactly for last >= a_from, in B exactly for
  // last < b_below. No walk: read off the placement.
  struct SymbolPrefix {
    Symbol const* symbol;
    PrefixStatus prefix;
  };
  std::vector<SymbolPrefix> prefix_symbols() const;
  // The uninterpreted symbols that only groups outside the counted ones hold
  // (an index built from holder counts; 0 otherwise): prefix_symbols() leaves
  // them out, and they are B-local under every cut.
  std::size_t only_elsewhere() const;

 private:
  // Where each key (a symbol, or an atom) stands: the merged positions of the
  // groups that hold it, and the gaps of those groups, sorted by their left
  // end with the farthest right end reached so far.
  class Placement {
   public:
    // The groups holding key k are key_groups[key_begin[k] .. key_begin[k + 1]);
    // the positions of group g, ascending, group_positions[group_begin[g] ..
    // group_begin[g + 1]).
    // A key is in A under every cut when a group with background[g] set holds it.
    void build(std::vector<int> const& key_begin, std::vector<int> const& key_groups,
               std::vector<int> const& group_begin, std::vector<int> const& group_positions,
               std::vector<char> const& background, int num_positions);
    bool in_A(int key, int first, int last) const;
    bool in_B(int key, int first, int last) const;
    // The prefix cut numbers of one key: in A exactly for last >= a_from, in
    // B exactly for last < b_below.
    PrefixStatus prefix(int key) const { return prefix_[static_cast<std::size_t>(key)]; }

   private:
    std::vector<int> pos_begin_;        // key k's positions: pos_[pos_begin_[k] .. pos_begin_[k+1])
    std::vector<int> pos_;              // sorted, distinct
    std::vector<int> gap_begin_;        // key k's gaps: gap_begin_[k] .. gap_begin_[k+1]
    std::vector<int> gap_left_;         // gap (left, right) excludes both ends; sorted by left
    std::vector<int> gap_reach_;        // largest right end among this gap and those before it
    std::vector<PrefixStatus> prefix_;  // per key: first position, largest first-gap end
    std::vector<char> everywhere_A_;    // per key: held by a background group
  };

  CutIndex(AtomClassifier const& classifier, int num_positions, bool all_groups);
  // The build; the lists are null when every group counts.
  void build(std::vector<std::vector<int>> const& positions, std::vector<int> const* others,
             std::vector<int> const* background);
  // Whether a group outside the counted ones holds a symbol (atom) that no
  // counted group holds: only with holder counts.
  bool elsewhere(Symbol const* s) const;
  bool elsewhere_atom(int atom) const;
  // Visits every atom that only groups outside the counted ones hold and
  // whose term does not count its symbols, with its term; returns how many
  // atoms only they hold in all.
  template <class Visit>
  std::size_t atoms_only_elsewhere(Visit visit) const;

  // Whether the number of groups is still good for this index.
  bool same_groups() const;
  // Debug builds: stops when the number of groups changed since the build;
  // with `full`, also when matches_groups() is false.
  void check_snapshot(char const* operation, bool full) const;
  std::uint64_t group_fingerprint() const;
  // get_term_status without the argument checks.
  int term_status(Term_ const* t, int first, int last);
  void check_range(char const* operation, int first, int last) const;
  // Key of a symbol, -1 when no group holds it.
  int symbol_key(Symbol const* s) const;
  Term_ const* atom_term(int atom) const;
  // Whether registering an atom with term `t` counts t's symbols in its
  // group (a Boolean term not headed by a reserved symbol). Such an atom is
  // B-pure under every cut that puts one of its groups in B, without a walk.
  bool counted(Term_ const* t) const;
  // The prefix cut numbers of a term's head symbol alone.
  PrefixStatus head_prefix(Symbol const* s) const;
  PrefixStatus& memo(Term_ const* t);
  bool seen_before(Term_ const* t);  // marks t for the current walk

  AtomClassifier const& classifier_;
  Environment const* env_;                        // the classifier's environment
  int num_positions_;                             // size()
  std::size_t num_groups_;                        // groups when built
  bool all_groups_;                               // every group counts
  std::vector<int> group_ids_;                    // the counted groups, ascending
  HolderCounts const* holders_ = nullptr;         // the groups elsewhere, as counts
  std::uint64_t fingerprint_;                     // group table sizes when built
  hsh::HashMap<Symbol const*, int> symbol_keys_;  // symbol -> key
  std::vector<Symbol const*> symbols_;            // key -> symbol
  hsh::HashMap<int, int> atom_keys_;              // atom variable -> key
  std::vector<int> atoms_;                        // key -> atom variable
  Placement symbol_place_;                        // by symbol key
  Placement atom_place_;                          // by atom key
  std::vector<PrefixStatus> head_prefix_;      // by symbol key: the numbers of the symbol as a head
  std::vector<PrefixStatus> prefix_memo_;      // a_from < 0: not yet known
  hsh::HashMap<Term_ const*, int> memo_slot_;  // term -> 1 + its entry in prefix_memo_
  hsh::HashMap<Term_ const*, std::uint64_t> seen_;  // term -> the walk that last entered it
  std::uint64_t walk_;                              // number of the current range walk
  std::uint64_t terms_entered_;                     // terms_entered()
  std::vector<Term_ const*> stack_;                 // scratch stack of every walk
};

}  // namespace itp
}  // namespace orvo

#endif  // ORVO_ITP_CLASSIFIER_CUT_INDEX_H
