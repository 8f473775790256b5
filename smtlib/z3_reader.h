// Turns the declarations and terms of an SMT-LIB script into z3 terms.
//
// z3's parser reads one text at a time, knows nothing of the script's earlier
// commands and does not report `:named` names or accept interpolation
// commands. So the script is split into commands here, and each command that
// z3 should read is given to it alone, together with just the sorts and
// functions the command mentions: reading stays linear in the script's size.
//
// What z3 cannot be handed as an object is kept here: a `define-fun` becomes
// a fresh placeholder function that z3 parses under the definition's name,
// and every application of it is replaced by the body (z3's own expansion,
// bottom-up, with z3's substitution), so a definition's name never reaches
// the terms. Sorts with parameters (`declare-sort S n`, `define-sort` with
// parameters) are handed over as text. Scopes
// follow `push` and `pop`: what a level declares or defines goes with it.
#ifndef ORVO_ITP_SMTLIB_Z3_READER_H
#define ORVO_ITP_SMTLIB_Z3_READER_H

#include <z3++.h>

#include <chrono>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "smtlib/sexpr.h"

namespace orvo {
namespace smtlib {

class Z3Reader {
 public:
  Z3Reader();
  Z3Reader(Z3Reader const&) = delete;
  Z3Reader& operator=(Z3Reader const&) = delete;

  z3::context& context() noexcept { return ctx_; }

  // One method per command; each throws ScriptError at the command when z3
  // rejects it or a rule of the script is broken.
  void set_logic(SExpr const& command);
  void declare_sort(SExpr const& command);
  void define_sort(SExpr const& command);
  void declare_fun(SExpr const& command);  // declare-fun and declare-const
  // Consecutive declare-fun and declare-const commands in one call of z3's
  // parser, whose fixed cost dominates a small command; when z3 rejects one,
  // the error names that command.
  void declare_funs(std::vector<SExpr const*> const& commands);
  void define_fun(SExpr const& command);
  void declare_datatypes(SExpr const& command);  // declare-datatype and declare-datatypes
  void push();
  void pop();

  // The Boolean term `term` of the assertion `command`, every definition
  // expanded.
  z3::expr read_assertion(SExpr const& command, SExpr const& term);
  // Consecutive assertions (terms[i] of commands[i]) in one call of z3's
  // parser. None of the terms may use a name that an earlier one of them
  // gives (the caller ends the run there).
  std::vector<z3::expr> read_assertions(std::vector<SExpr const*> const& commands,
                                        std::vector<SExpr const*> const& terms);
  // A `:named` assertion's name stands for its term in later commands.
  void name_term(std::string const& name, z3::expr const& term);

  // Time spent inside z3's parser so far.
  std::chrono::nanoseconds parse_time() const noexcept { return parse_time_; }

 private:
  struct Definition {
    z3::func_decl placeholder;  // what z3 parses the name as
    z3::expr body;              // expanded; parameter i is variable arity-1-i
    unsigned arity;
  };
  // One visible meaning of a name, with the scope that introduced it.
  struct Entry {
    enum class Kind { sort, sort_macro, function, definition } kind;
    std::size_t scope;
    std::size_t index;  // into sorts_, sort_macros_, functions_ or definitions_
  };

  // Runs z3's parser on `script` with the sorts in scope and the functions
  // among `mentioned`; returns the assertions it read or throws at `at`.
  z3::expr_vector parse(std::string const& script, std::vector<std::string_view> mentioned,
                        std::string_view exclude, SExpr const& at);
  // The prelude every parse starts with: the logic and the parametric sorts.
  std::string prelude() const;
  Entry const* visible(std::unordered_map<std::string, std::vector<Entry>> const& table,
                       std::string const& name) const;
  // Makes `name` mean `entry` in the innermost scope; throws when the same
  // scope already gave the name another meaning.
  void bind(std::unordered_map<std::string, std::vector<Entry>>& table, std::string const& name,
            Entry entry, SExpr const& at, bool same_meaning);
  // The probe that follows a declaration: an assertion whose term names the
  // new function; empty for a malformed command.
  std::string declaration_probe(SExpr const& command) const;
  // Binds the function that `probe`, z3's reading of the probe, names.
  void bind_function(SExpr const& command, z3::expr const& probe);
  bool mentions_definition(std::vector<std::string_view> const& mentioned) const;
  // Replaces every placeholder application in `e` by its definition's body.
  z3::expr expand(z3::expr const& e);
  void check_arity(SExpr const& command, std::size_t min_items, std::size_t max_items) const;

  struct Quiet {
    Quiet();
  };
  Quiet quiet_;  // silences z3's warnings before the context exists
  z3::context ctx_;
  std::string logic_;                                         // "(set-logic L)" or empty
  std::vector<z3::sort> sorts_;                               // every sort ever bound
  std::vector<std::string> sort_macros_;                      // sort commands with parameters
  std::vector<z3::func_decl> functions_;                      // every declared function
  std::vector<Definition> definitions_;                       // every definition
  std::unordered_map<unsigned, std::size_t> placeholder_of_;  // placeholder decl id -> definition
  std::unordered_map<std::string, std::vector<Entry>> sort_names_;  // innermost last
  std::unordered_map<std::string, std::vector<Entry>> fun_names_;   // innermost last
  // Names bound per open scope, innermost last: (is a sort name, name).
  std::vector<std::vector<std::pair<bool, std::string>>> scopes_;
  std::chrono::nanoseconds parse_time_{0};
};

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_Z3_READER_H
