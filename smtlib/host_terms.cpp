#include "smtlib/host_terms.h"

#include "smtlib/names.h"
#include "smtlib/z3_walk.h"

#include <utility>

namespace orvo {
namespace smtlib {

Symbol const* HostTerms::make_symbol(std::string const& name, std::size_t arity,
                                     z3::sort const& sort, bool interpreted) {
  Type const* type = tm_.make_type(script_text(Z3_sort_to_string(sort.ctx(), sort)));
  return tm_.make_symbol(name, arity, type, interpreted);
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
      it->second = make_symbol(std::string(kind) + " " + key, 1, e.get_sort(), true);
    }
    return it->second;
  }
  if (e.kind() == Z3_VAR_AST) {
    unsigned const index = Z3_get_index_value(c, e);
    std::string const key =
        ":var/" + std::to_string(index) + "/" + Z3_sort_to_string(c, e.get_sort());
    auto [it, fresh] = binders_.emplace(key, nullptr);
    if (fresh)
      it->second = make_symbol(key, 0, e.get_sort(), true);
    return it->second;
  }
  z3::func_decl const d = e.decl();
  unsigned const n = e.num_args();
  std::uint64_t const key = (static_cast<std::uint64_t>(d.id()) << 32) | n;
  auto [it, fresh] = symbols_.emplace(key, nullptr);
  if (!fresh) return it->second;
  bool const interpreted = d.decl_kind() != Z3_OP_UNINTERPRETED;
  // Built-ins are overloaded (- of one or two arguments, + of any number,
  // = on every sort) and may share a name with a reserved symbol of the
  // manager: their names carry the declaration's identity.
  std::string const name = interpreted ? d.name().str() + "/" + std::to_string(n) + "/" +
                                             std::to_string(d.id())
                                       : script_name(d.name().str());
  it->second = make_symbol(name, n, e.get_sort(), interpreted);
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
