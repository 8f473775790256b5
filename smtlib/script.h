// One SMT-LIB interpolation script played on the atom classifier: the
// pipeline every program that reads such scripts stands on.
//
//   smtlib::Script script("p.smt2", std::cerr);
//   script.run(text, [&](smtlib::Query const& q) {
//     itp::CutIndex index = script.cut_index(q);  // every cut of the query
//     ...
//   });
//
// Every `assert` opens one group, named by its `:named` name or "#N" (N its
// group index); its atoms and clauses (formula.h) are registered in it, one
// atom variable per distinct host term across the script. `push` and `pop`
// move declarations, groups and backtrack points together (scopes.h): what
// an abandoned level asserted leaves the classifier again (its groups stay,
// empty) and what it declared goes out of scope. At every `get-interpolants`
// the query is resolved (query.h) and handed to the caller while the script
// stands at that command. Unsupported commands are skipped with one warning
// per command name.
//
// A fault of the script throws ScriptError at its place; nothing after it is
// run.
#ifndef ORVO_ITP_SMTLIB_SCRIPT_H
#define ORVO_ITP_SMTLIB_SCRIPT_H

#include <z3++.h>

#include <chrono>
#include <deque>
#include <optional>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "classifier/atom_classifier.h"
#include "classifier/cut_index.h"
#include "host/host.h"
#include "smtlib/host_terms.h"
#include "smtlib/query.h"
#include "smtlib/scopes.h"
#include "smtlib/sexpr.h"
#include "smtlib/z3_reader.h"

namespace orvo {
namespace smtlib {

struct Group {
  std::string name;  // the :named name, or "#N"
  bool named;        // whether the script gave the name
  Position where;    // the assert command
  z3::expr formula;  // the assertion, definitions expanded
};

// Where the time went, in seconds.
struct Timing {
  double split = 0;       // the text split into commands
  double reading = 0;     // declarations, terms (z3's parser included), the commands' upkeep
  double z3 = 0;          // inside z3's parser
  double host_terms = 0;  // z3 terms made host terms
  double classify = 0;    // atoms, clauses and levels on the classifier
  double queries = 0;     // inside the query handler
  std::size_t assertions = 0;
};

class Script {
 public:
  using QueryHandler = std::function<void(Query const&)>;

  // `file` names the script in warnings; `warnings` receives them. With
  // `shared`, z3's terms live in that context (see Z3Reader).
  Script(std::string file, std::ostream& warnings, Unmentioned rule = Unmentioned::root,
         z3::context* shared = nullptr);
  Script(Script const&) = delete;
  Script& operator=(Script const&) = delete;

  // Plays every command of `text` up to `exit`, calling `on_query` at every
  // get-interpolants.
  void run(std::string_view text, QueryHandler const& on_query);

  // ---- The script as it stands (during a query: at that command).
  // Its commands, pointing into the text given to run (which must outlive
  // their use); a command's tree is built while it is played and dropped
  // after, so read_command(commands()[i]) builds it again.
  std::vector<CommandSpan> const& commands() const noexcept { return spans_; }
  // Every group; a popped group's formula is released (it reads `true`).
  std::vector<Group> const& groups() const noexcept { return groups_; }
  bool is_live(int group) const noexcept { return scopes_.is_live(group); }
  std::vector<int> const& live_groups() const noexcept { return scopes_.live(); }
  itp::AtomClassifier& classifier() noexcept { return classifier_; }
  itp::AtomClassifier const& classifier() const noexcept { return classifier_; }
  Environment const& environment() const noexcept { return env_; }
  TermManager& term_manager() noexcept { return tm_; }
  Z3Reader& reader() noexcept { return reader_; }
  HostTerms& host_terms() noexcept { return terms_; }
  // Every distinct atom some group holds now, ascending.
  std::vector<int> held_atoms() const;
  // The atom's term as the script writes it.
  std::string atom_text(int atom) const;
  // One index for every cut of `q`, built from the query's groups, its
  // background groups and the live groups.
  itp::CutIndex cut_index(Query const& q) const;
  Timing const& timing() const noexcept { return timing_; }

 private:
  // An assert command: its term without the `!` annotation, and its name.
  struct Assertion {
    SExpr const* command = nullptr;
    SExpr const* term = nullptr;
    std::string_view name;
    bool named = false;
  };

  void play(std::string_view text, QueryHandler const& on_query);
  // Runs one command; false after `exit`.
  bool perform(SExpr const& command, std::size_t index, QueryHandler const& on_query);
  // Whether `command` is a well-formed assert; fills `out`.
  static bool split_assert(SExpr const& command, Assertion& out);
  // Whether `term` uses one of `names`.
  static bool mentions(SExpr const& term, std::unordered_set<std::string_view> const& names);
  // Command `index`, built when first asked for; it stays until
  // release_before moves past it.
  SExpr const& command(std::size_t index);
  void release_before(std::size_t index);
  // Opens the assertion's group and registers the atoms and clauses of `formula`.
  void add_assertion(Assertion const& a, z3::expr const& formula);
  void levels(SExpr const& command, bool push);
  // After a pop: releases what the closed levels held of z3.
  void release_levels();

  std::string file_;                                         // as named on the command line
  std::ostream& warnings_;                                   // skipped commands
  Unmentioned rule_;                                         // where unmentioned groups go
  TermManager tm_;                                           // host terms and symbols
  Environment env_;                                          // atom variables <-> terms
  itp::AtomClassifier classifier_;                           // the groups of the script
  Z3Reader reader_;                                          // declarations and terms
  HostTerms terms_;                                          // z3 terms -> host terms
  Scopes scopes_;                                            // levels and live groups
  std::vector<CommandSpan> spans_;                           // the script's commands
  std::deque<SExpr> window_;                                 // commands being played
  std::size_t window_start_ = 0;                             // index of window_.front()
  std::deque<std::pair<std::size_t, z3::expr>> ahead_;       // assertions read ahead, by command
  // Assertions read ahead in one call at most; their commands are held.
  static constexpr std::size_t lookahead_limit = 1024;
  std::vector<Group> groups_;                                // by group index
  std::vector<std::string> group_names_;                     // by group index
  std::unordered_map<std::string, NamedGroups> names_;       // name -> its groups
  std::vector<std::optional<z3::expr>> atom_exprs_;          // atom variable -> z3 term (none: popped)
  std::vector<int> filled_atoms_;                            // atoms whose term was set, in order
  // Per open real level: the conversions and filled atoms before it opened.
  struct Mark {
    std::size_t terms;
    std::size_t filled;
  };
  std::vector<Mark> marks_;
  std::unordered_set<std::string> warned_;                   // commands warned about
  int next_clause_ = 0;                                      // number of the next clause
  Timing timing_;
};

// The seconds since `start`.
inline double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_SCRIPT_H
