#include "smtlib/host_terms.h"

#include "smtlib/z3_walk.h"

#include <utility>

namespace orvo {
namespace smtlib {

Symbol const* HostTerms::make_symbol(std::string const& shown, std::string const& wanted,
                                     std::size_t arity, z3::sort const& sort, bool interpreted) {
  // The manager knows a symbol by its name alone, and its six reserved
  // Boolean symbols are taken from the start: a name in use gets a suffix.
  std::string name = wanted;
  for (unsigned k = 2; taken_.count(name) != 0 || name == "true" || name == "false" ||
                       name == "not" || name == "and" || name == "or" || name == "iff";
       ++k)
    name = wanted + "#" + std::to_string(k);
  taken_.insert(name);
  Type const* type = tm_.make_type(Z3_sort_to_string(sort.ctx(), sort));
  Symbol const* s = tm_.make_symbol(name, arity, type, interpreted);
  names_.emplace(s, shown);
  return s;
}

Symbol const* HostTerms::symbol_of(z3::expr const& e) {
  Z3_context const c = e.ctx();
  if (e.kind() == Z3_QUANTIFIER_AST) {
    // One head per quantified formula: two of them that differ anywhere,
    // patterns included, are two atoms.
    std::string const key = "quantifier/" + std::to_string(e.id());
    auto [it, fresh] = binders_.emplace(key, nullptr);
    if (fresh) {
      char const* kind = e.is_forall() ? "forall" : e.is_exists() ? "exists" : "lambda";
      it->second = make_symbol(kind, key, 1, e.get_sort(), true);
    }
    return it->second;
  }
  if (e.kind() == Z3_VAR_AST) {
    unsigned const index = Z3_get_index_value(c, e);
    std::string const key =
        ":var/" + std::to_string(index) + "/" + Z3_sort_to_string(c, e.get_sort());
    auto [it, fresh] = binders_.emplace(key, nullptr);
    if (fresh)
      it->second = make_symbol("(:var " + std::to_string(index) + ")", key, 0, e.get_sort(), true);
    return it->second;
  }
  z3::func_decl const d = e.decl();
  unsigned const n = e.num_args();
  std::uint64_t const key = (static_cast<std::uint64_t>(d.id()) << 32) | n;
  auto [it, fresh] = symbols_.emplace(key, nullptr);
  if (!fresh) return it->second;
  bool const interpreted = d.decl_kind() != Z3_OP_UNINTERPRETED;
  std::string const shown = d.name().str();
  // Built-ins are overloaded (- of one or two arguments, + of any number,
  // = on every sort); their manager names tell the overloads apart.
  std::string const wanted =
      interpreted ? shown + "/" + std::to_string(n) + "/" + std::to_string(d.id()) : shown;
  it->second = make_symbol(shown, wanted, n, e.get_sort(), interpreted);
  decls_alive_.push_back(d);
  return it->second;
}

Term_ const* HostTerms::convert(z3::expr const& root) {
  std::vector<Term_ const*> children;
  post_order(
      root, [this](z3::expr const& e) { return terms_.count(e.id()) != 0; },
      [&](z3::expr const& e) {
        children.clear();
        for (unsigned i = 0, n = num_children(e); i < n; ++i)
          children.push_back(terms_.at(child(e, i).id()));
        terms_.emplace(e.id(), tm_.make_term(symbol_of(e), children));
        alive_.push_back(e);
      });
  return terms_.at(root.id());
}

}  // namespace smtlib
}  // namespace orvo
