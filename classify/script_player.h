// The script player behind classify_problem(): one SMT-LIB script played on
// one classifier. Commands, assertions and levels are in
// 'script_player.cpp'; queries and their cuts in 'queries.cpp'.
#ifndef ORVO_ITP_CLASSIFY_SCRIPT_PLAYER_H
#define ORVO_ITP_CLASSIFY_SCRIPT_PLAYER_H

#include <z3++.h>

#include <chrono>
#include <iosfwd>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "classifier/atom_classifier.h"
#include "classifier/cut_index.h"
#include "classify/problem.h"
#include "host/host.h"
#include "smtlib/host_terms.h"
#include "smtlib/sexpr.h"
#include "smtlib/z3_reader.h"

namespace orvo {
namespace classify {

using Clock = std::chrono::steady_clock;

inline double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

class ScriptPlayer {
 public:
  using SExpr = smtlib::SExpr;

  ScriptPlayer(std::string file, Options const& options, std::ostream& warnings)
      : file_(std::move(file)), options_(options), warnings_(warnings), terms_(tm_) {
    env_.term_manager = &tm_;
    classifier_.set_env(&env_);
  }

  // Plays every command of `text` up to `exit`, then summarises the groups.
  void run(std::string_view text);
  ProblemReport& report() { return report_; }

 private:
  struct GroupInfo {
    std::string name;
    bool live = true;  // not yet withdrawn by a pop
  };

  // An assert command: its term without the `!` annotation, and its name.
  struct Assertion {
    SExpr const* command = nullptr;
    SExpr const* term = nullptr;
    std::string name;    // the :named name, or #N once the group exists
    bool named = false;  // whether the script gave the name
  };

  // One partition of a query: A is the groups at positions first..last.
  struct Cut {
    std::string node;
    std::vector<int> const& A;  // sorted group indices
    int first;
    int last;
  };

  // ---- Commands, assertions and levels, in 'script_player.cpp'.

  // Runs one command; false after `exit`.
  bool perform(SExpr const& command);
  void assert_command(SExpr const& command);
  // Whether `command` is a well-formed assert; fills `out`.
  bool split_assert(SExpr const& command, Assertion& out) const;
  // Whether `term` uses one of `names`.
  static bool mentions(SExpr const& term, std::unordered_set<std::string> const& names);
  // Opens the assertion's group and registers the atoms and clauses of `formula`.
  void add_assertion(Assertion a, z3::expr const& formula);
  // The atom variable of the atom `e`, made on first sight.
  int atom_of(z3::expr const& e);
  // Walks the Boolean structure; every distinct atom reached is added to
  // `group`, in the order the walk first meets it (left to right).
  void register_atoms(z3::expr const& formula, int group);
  // The literal of `e` (an atom or its negation), or false.
  bool literal(z3::expr const& e, std::vector<unsigned>& out);
  // One clause per top-level conjunct that is a literal or an or of literals.
  void register_clauses(z3::expr const& formula, int group);
  void levels(SExpr const& command, bool push);

  // ---- Queries, in 'queries.cpp'.

  // The groups an assertion name stands for.
  std::vector<int> resolve(SExpr const& name) const;
  void query(SExpr const& command);
  // The names of the A groups: all of them for the JSON document or a short
  // list, else the first five and the last four (the text report's view).
  void name_A_groups(Cut const& cut, PartitionReport& r) const;
  // Every distinct atom some group holds now, by atom variable.
  std::vector<int> held_atoms() const;
  // The uninterpreted ones among `symbols`, by name, sorted.
  void names_of(std::vector<Symbol const*> const& symbols, std::vector<std::string>& out) const;
  void add_name(Symbol const* s, std::vector<std::string>& out) const;
  // The common symbols of every prefix cut of a sequence query, from one
  // sweep instead of one pass over partition A per cut: a symbol is in A
  // from the first position whose groups hold it on, and in B below the
  // last such position (always, when a group at no position holds it).
  std::vector<std::vector<std::string>> prefix_common(
      std::vector<std::vector<int>> const& positions) const;
  // The partition's answers from the cut index; a sequence query passes its
  // prefix counts and common symbols, computed for all cuts at once.
  PartitionReport by_index(itp::CutIndex& index, Cut const& cut,
                           itp::CutIndex::StatusCounts const* prefix,
                           std::vector<std::string>* prefix_common);
  // The same answers from the classifier itself, after choosing the partition.
  PartitionReport by_classifier(Cut const& cut);
  // --check: the index must give exactly the classifier's answers.
  static void compare(PartitionReport const& index, PartitionReport const& classifier,
                      SExpr const& item);
  bool lists() const { return options_.symbol_lists || options_.check; }

  std::string file_;                                         // as named on the command line
  Options options_;                                          // what to report
  std::ostream& warnings_;                                   // skipped commands
  TermManager tm_;                                           // host terms and symbols
  Environment env_;                                          // atom variables <-> terms
  itp::AtomClassifier classifier_;                           // the groups of the script
  smtlib::Z3Reader reader_;                                  // declarations and terms
  smtlib::HostTerms terms_;                                  // z3 terms -> host terms
  std::vector<GroupInfo> groups_;                            // by group index
  std::unordered_map<std::string, std::vector<int>> names_;  // name -> its groups, in order
  std::vector<std::size_t> marks_;                           // groups before each open level
  std::vector<z3::expr> atom_exprs_;                         // atom variable -> z3 term
  std::unordered_set<std::string> warned_;                   // commands warned about
  std::vector<Symbol const*> scratch_;                       // symbol sets of one cut
  int next_clause_ = 0;                                      // number of the next clause
  ProblemReport report_;                                     // what the player found
};

}  // namespace classify
}  // namespace orvo

#endif  // ORVO_ITP_CLASSIFY_SCRIPT_PLAYER_H
