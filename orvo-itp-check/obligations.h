// What an interpolant is checked for: it is read in the scope of its query,
// its symbols are held against the query's cuts (one cut index answers every
// cut), and its implications are decided by z3.
//
// The vocabulary: for item j, A is the groups of j's subtree and B every
// other live group; every uninterpreted symbol of I_j must be in both.
// Interpreted symbols and bound variables are free.
//
// The implications: with F_j the live assertions of item j and c_1 .. c_m
// its children, I_c1 and .. and I_cm and F_j imply I_j; for the root,
// I_c1 and .. and I_cm and F_root imply false. One z3 solver per query
// decides them, each inside its own push and pop, with a time limit.
#ifndef ORVO_ITP_CHECK_OBLIGATIONS_H
#define ORVO_ITP_CHECK_OBLIGATIONS_H

#include <z3++.h>

#include <cstddef>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "classifier/cut_index.h"
#include "host/term.h"
#include "smtlib/script.h"

namespace orvo {
namespace check {

struct Metrics {
  std::size_t size = 0;         // distinct subterms
  std::size_t atoms = 0;        // distinct atoms under the Boolean connectives
  std::size_t quantifiers = 0;  // distinct quantified subterms
};

struct Interpolant {
  bool readable = false;
  std::string reason;                  // unreadable: why
  z3::expr formula;                    // readable: definitions expanded
  std::vector<Symbol const*> symbols;  // its uninterpreted symbols, distinct
  Metrics metrics;

  explicit Interpolant(z3::context& ctx) : formula(ctx) {}
};

// Reads every formula in the script's current scope. One that cannot be
// read (syntax, an undeclared name, a sort error, not Boolean) is
// unreadable with its reason; it leaves nothing behind in z3's context that
// could fail a later read.
std::vector<Interpolant> read_interpolants(smtlib::Script& script,
                                           std::vector<smtlib::SExpr const*> const& formulas);

// The symbols of an interpolant that break the vocabulary condition.
struct Offenders {
  std::vector<Symbol const*> A_local;  // held by A only
  std::vector<Symbol const*> B_local;  // held by B only
  std::vector<Symbol const*> foreign;  // held by no live group
  bool empty() const noexcept { return A_local.empty() && B_local.empty() && foreign.empty(); }
};

class Vocabulary {
 public:
  // The script must stand at the query and outlive the object.
  Vocabulary(smtlib::Script const& script, smtlib::Query const& q);

  // The symbols of `symbols` that are not common to A and B of item's cut.
  Offenders check(std::size_t item, std::vector<Symbol const*> const& symbols);

 private:
  bool background_holds(Symbol const* s) const { return background_.count(s) != 0; }

  smtlib::Query const& query_;
  itp::CutIndex index_;
  // Symbols of the background groups: in A and in B of every cut. (The cut
  // index is built from the query's items alone, so a background group
  // stands at no position and is already in B; holding it puts a symbol in A
  // as well.)
  std::unordered_set<Symbol const*> background_;
  std::vector<Symbol const*> scratch_;
};

enum class Outcome { holds, fails, unknown, not_checked };

struct Decision {
  Outcome outcome = Outcome::not_checked;
  // fails: the values of the obligation's uninterpreted constants in z3's
  // model, by name (as declared), at most counterexample_limit of them.
  std::vector<std::pair<std::string, std::string>> counterexample;
  std::string reason;  // unknown: z3's reason; not checked: why
};

inline constexpr std::size_t counterexample_limit = 20;

class Implications {
 public:
  // `background` holds in every obligation. `logic` is the script's logic
  // ("" when it sets none), written into emitted obligations.
  Implications(z3::context& ctx, unsigned timeout_ms, std::vector<z3::expr> background,
               std::string logic);
  Implications(Implications const&) = delete;
  Implications& operator=(Implications const&) = delete;

  // Whether the premises imply `conclusion`. With `emit_path`, the
  // obligation is also written there as a standalone script.
  Decision decide(std::vector<z3::expr> const& premises, z3::expr const& conclusion,
                  std::string const& emit_path = {});

 private:
  void emit(std::vector<z3::expr> const& premises, z3::expr const& negated,
            std::string const& path) const;
  std::vector<std::pair<std::string, std::string>> counterexample(
      z3::model const& model, std::vector<z3::expr> const& premises,
      z3::expr const& conclusion) const;

  z3::context& ctx_;
  z3::solver solver_;
  std::vector<z3::expr> background_;
  std::string logic_;
};

}  // namespace check
}  // namespace orvo

#endif  // ORVO_ITP_CHECK_OBLIGATIONS_H
