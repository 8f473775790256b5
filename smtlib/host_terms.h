// z3 terms as hash-consed host terms.
//
// One host symbol per z3 function declaration (a numeral's value is part of
// its declaration). A symbol the script declared is uninterpreted and carries
// the script's own name; the term manager tells two declarations of one name
// apart by arity and sort. Every built-in and every datatype constructor,
// selector and tester is interpreted, under a name of its own that is never
// shown. A quantified formula becomes a term
// whose head is a symbol of its own and whose one child is its body: atom
// identity stays z3's term identity (patterns included), while the symbols
// collected from it are those of the body alone. A bound variable is an
// interpreted constant, so it never counts as a symbol of any group.
#ifndef ORVO_ITP_SMTLIB_HOST_TERMS_H
#define ORVO_ITP_SMTLIB_HOST_TERMS_H

#include <z3++.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/term.h"

namespace orvo {
namespace smtlib {

class HostTerms {
 public:
  explicit HostTerms(TermManager& tm) : tm_(tm) {}

  // The host term of `e`; equal z3 terms give the same host term.
  Term_ const* convert(z3::expr const& e);
  // Where the conversions stand; release_since(mark) forgets the z3 terms
  // converted after it (their host terms stay: converting them again gives
  // the same host terms), so that z3 may free them.
  std::size_t mark() const noexcept { return alive_.size(); }
  void release_since(std::size_t mark);
  // The number of distinct z3 terms converted and not released.
  std::size_t size() const noexcept { return alive_.size(); }

 private:
  Symbol const* symbol_of(z3::expr const& e);
  // The head of `a` (an application's with n arguments looked up without
  // building a handle), made by symbol_of the first time.
  Symbol const* head_of(z3::context& ctx, Z3_ast a, unsigned n);
  Symbol const* make_symbol(std::string const& name, std::size_t arity, z3::sort const& sort,
                            bool interpreted);

  TermManager& tm_;
  std::vector<Term_ const*> terms_;                           // z3 ast id -> host term, or null
  std::vector<std::pair<Z3_ast, bool>> stack_;                // convert's walk: term, children scheduled
  std::vector<Term_ const*> children_;                        // convert's scratch
  std::unordered_map<std::uint64_t, Symbol const*> symbols_;  // (decl id, arity) -> symbol
  std::unordered_map<std::string, Symbol const*> binders_;    // quantifiers, bound variables
  std::vector<z3::expr> alive_;             // every converted term: z3 never reuses their ids
  std::vector<z3::func_decl> decls_alive_;  // likewise for the declarations
};

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_HOST_TERMS_H
