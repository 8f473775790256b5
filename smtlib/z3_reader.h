// Turns the declarations and terms of an SMT-LIB script into z3 terms.
//
// z3's parser reads one text at a time, knows nothing of the script's earlier
// commands and does not report `:named` names or accept interpolation
// commands. So the script is split into commands here, and each command that
// z3 should read is given to it alone, together with just the sorts and
// functions the command mentions: reading stays linear in the script's size.
//
// Every name the script declares reaches z3 renamed (names.h), so that a
// script may declare what z3 predefines. What z3 cannot be handed as an
// object is kept here: a `define-fun` becomes a fresh placeholder function
// that z3 parses under the definition's name, and every application of it is
// replaced by the body (bottom-up, with z3's substitution), so a definition's
// name never reaches the terms. Sorts with parameters (`declare-sort S n`,
// `define-sort` with parameters) are handed over as text, with the other
// parametric sorts they use. Scopes follow `push` and `pop`: what a level
// declares or defines goes with it.
//
// Every fault throws ScriptError at the start of the command: z3's own words
// with the position it gives (one of the text handed to it) left out.
#ifndef ORVO_ITP_SMTLIB_Z3_READER_H
#define ORVO_ITP_SMTLIB_Z3_READER_H

#include <z3++.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "smtlib/sexpr.h"

namespace orvo {
namespace smtlib {

class Z3Reader {
 public:
  // Warnings (a logic z3 does not know) go to `warnings` as
  // "FILE:LINE:COL: warning: ..." lines. Terms live in `shared` when given
  // (it must outlive the reader; declarations never reach it, so readers
  // one after another on it see nothing of each other), else in a context
  // of the reader's own.
  Z3Reader(std::string file, std::ostream& warnings, z3::context* shared = nullptr);
  Z3Reader(Z3Reader const&) = delete;
  Z3Reader& operator=(Z3Reader const&) = delete;

  z3::context& context() noexcept { return ctx_; }

  // One method per command.
  void set_logic(SExpr const& command);
  void declare_sort(SExpr const& command);
  void define_sort(SExpr const& command);
  // Consecutive declare-fun and declare-const commands in one call of z3's
  // parser, whose fixed cost dominates a small command; when z3 rejects one,
  // the error names that command.
  void declare_funs(std::vector<SExpr const*> const& commands);
  void define_fun(SExpr const& command);
  void declare_datatypes(SExpr const& command);  // declare-datatype and declare-datatypes
  // One scope more or less; the caller keeps count (a pop below the first
  // scope does nothing).
  void push();
  void pop();

  // The term `term` of `command` (an assertion, or any text read in the
  // scope of the script) with every definition expanded. Throws ScriptError
  // at `at`.
  z3::expr read_term(SExpr const& term, Position at);
  // Consecutive assertions (terms[i] of commands[i]) in one call of z3's
  // parser. None of the terms may use a name that an earlier one of them
  // gives (the caller ends the run there).
  std::vector<z3::expr> read_assertions(std::vector<SExpr const*> const& commands,
                                        std::vector<SExpr const*> const& terms);
  // The same in one call, or false (nothing read) when z3 rejects the text.
  bool try_read_assertions(std::vector<SExpr const*> const& commands,
                           std::vector<SExpr const*> const& terms, std::vector<z3::expr>& out);
  // Whether a scope opened by push has bound a name (that a pop would unbind).
  bool has_local_bindings() const noexcept { return local_bindings_ != 0; }
  // A `:named` assertion's name stands for its term in later commands.
  void name_term(std::string const& name, z3::expr const& term);

  // The script's name of a function or sort z3 stores as `z3_name`.
  static std::string script_name(std::string_view z3_name);
  // z3's printing of `e` with the script's names.
  static std::string text_of(z3::expr const& e);

  // Time spent inside z3's parser so far.
  std::chrono::nanoseconds parse_time() const noexcept { return parse_time_; }
  // What z3's parser was handed so far: bytes of text plus sorts and
  // functions passed. Reading is linear when this is linear in the script.
  std::size_t handed() const noexcept { return handed_; }

 private:
  struct Definition {
    z3::func_decl placeholder;  // what z3 parses the name as
    z3::expr body;              // expanded; parameter i is variable arity-1-i
    unsigned arity;
  };
  struct SortMacro {
    std::string text;                   // the command as z3 reads it
    std::vector<std::string> mentions;  // the names it uses
  };
  // One visible meaning of a name, with the scope that introduced it.
  struct Entry {
    // constructor: constructors, selectors and testers of a datatype, whose
    // sort (index into sorts_) brings them into z3's parser.
    enum class Kind { sort, sort_macro, function, definition, constructor } kind;
    std::size_t scope;
    std::size_t index;  // into sorts_, sort_macros_, functions_ or definitions_
  };
  // Every name the script has declared, once: its meanings as a sort and as
  // a function (innermost last), and the marks one parse or one declaration
  // puts on it, so that a command's names are looked up once per occurrence
  // and never sorted.
  struct Name {
    std::string text;
    std::vector<Entry> sorts;
    std::vector<Entry> funs;
    Z3_symbol symbol = nullptr;  // the renamed symbol, made when first handed to z3
    bool declaring = false;      // the command being read declares it
    std::uint64_t met = 0;       // the last parse that met it
    std::uint64_t sort_met = 0;  // the last parse that looked it up as a sort
  };

  Name* find(std::string_view name) const;
  Name& intern(std::string_view name);
  Z3_symbol symbol_of(Name& name);
  std::vector<Entry>& meanings(Name& name, bool sort) { return sort ? name.sorts : name.funs; }
  // Marks `name` as declared by the command being read; false when it was already.
  bool mark_declaring(std::string_view name);
  void clear_declaring();
  // Binds `name` in the innermost scope's list, for its pop.
  void record(bool sort, Name* name);

  // Runs z3's parser on `commands` (each written for z3 in turn, `extra`
  // appended) with what the names mentioned in them mean; returns the
  // assertions it read or throws at `at`.
  z3::expr_vector parse(std::vector<SExpr const*> const& commands, std::string const& extra,
                        Position at);
  z3::expr_vector parse_text(std::string const& body, std::vector<std::string_view> const& mentioned,
                             Position at);
  // `e` as z3 reads it: every declared name, and every name `declaring`
  // holds, renamed.
  void write(SExpr const& e, std::string& out) const;
  bool renamed(std::string_view name) const;
  Entry const* visible(bool sort, std::string_view name) const;
  // Makes `name` mean `entry` in the innermost scope; throws when the same
  // scope already gave the name another meaning.
  void bind(bool sort, std::string_view name, Entry entry, SExpr const& at, bool same_meaning);
  // The probe that follows a declaration: an assertion whose term names the
  // new function; empty for a malformed command.
  std::string declaration_probe(SExpr const& command) const;
  // Binds the function that `probe`, z3's reading of the probe, names.
  void bind_function(SExpr const& command, z3::expr const& probe);
  void declare_fun(SExpr const& command);
  bool mentions_definition(std::vector<std::string_view> const& mentioned, std::size_t from,
                           std::size_t to) const;
  // Replaces every placeholder application in `e` by its definition's body.
  z3::expr expand(z3::expr const& e);
  void check_arity(SExpr const& command, std::size_t min_items, std::size_t max_items) const;

  std::string file_;
  std::ostream& warnings_;
  std::unique_ptr<z3::context> own_;  // null when the context is borrowed
  z3::context& ctx_;
  std::string logic_;                                         // what z3 reads of set-logic
  std::vector<z3::sort> sorts_;                               // every sort ever bound
  std::vector<SortMacro> sort_macros_;                        // sort commands with parameters
  std::vector<z3::func_decl> functions_;                      // every declared function
  std::vector<Definition> definitions_;                       // every definition
  std::unordered_map<unsigned, std::size_t> placeholder_of_;  // placeholder decl id -> definition
  // Popped constant definitions by sort id, ready for the next name.
  std::unordered_map<unsigned, std::vector<std::size_t>> spare_names_;
  std::deque<Name> names_;                                    // stable: ids_ points into it
  std::unordered_map<std::string_view, Name*> ids_;           // text -> its Name
  std::vector<Name*> declaring_;  // names the command being read declares
  std::uint64_t parses_ = 0;      // parses so far: the marks of Name
  std::size_t local_bindings_ = 0;  // bindings in the scopes above the first
  // Clears declaring_ when the command has been read, or has failed.
  struct Declaring {
    Z3Reader& reader;
    ~Declaring() { reader.clear_declaring(); }
  };
  // Names bound per open scope, innermost last: (is a sort name, name).
  std::vector<std::vector<std::pair<bool, Name*>>> scopes_;
  std::chrono::nanoseconds parse_time_{0};
  std::size_t handed_ = 0;
};

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_Z3_READER_H
