#include "smtlib/host_terms.h"

#include "smtlib/names.h"
#include "smtlib/z3_walk.h"

#include <algorithm>
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

Symbol const* HostTerms::head_of(z3::context& ctx, Z3_ast a, unsigned n) {
  Z3_context const c = ctx;
  if (Z3_get_ast_kind(c, a) == Z3_APP_AST) {
    Z3_func_decl const d = Z3_get_app_decl(c, Z3_to_app(c, a));
    std::uint64_t const key = (static_cast<std::uint64_t>(Z3_get_func_decl_id(c, d)) << 32) | n;
    auto const it = symbols_.find(key);
    if (it != symbols_.end()) return it->second;
  }
  return symbol_of(z3::expr(ctx, a));
}

void HostTerms::release_since(std::size_t mark) {
  for (std::size_t k = mark; k < alive_.size(); ++k)
    terms_[alive_[k].id()] = nullptr;
  alive_.erase(alive_.begin() + static_cast<std::ptrdiff_t>(mark), alive_.end());
}

Term_ const* HostTerms::convert(z3::expr const& root) {
  z3::context& ctx = root.ctx();
  Z3_context const c = ctx;
  auto known = [&](Z3_ast a) {
    unsigned const id = Z3_get_ast_id(c, a);
    return id < terms_.size() && terms_[id] != nullptr;
  };
  auto arity = [&](Z3_ast a) -> unsigned {
    switch (Z3_get_ast_kind(c, a)) {
      case Z3_QUANTIFIER_AST:
        return 1;
      case Z3_APP_AST:
        return Z3_get_app_num_args(c, Z3_to_app(c, a));
      default:
        return 0;
    }
  };
  auto child_of = [&](Z3_ast a, unsigned i) {
    return Z3_get_ast_kind(c, a) == Z3_QUANTIFIER_AST ? Z3_get_quantifier_body(c, a)
                                                      : Z3_get_app_arg(c, Z3_to_app(c, a), i);
  };
  // Post-order over the distinct subterms not converted yet. The terms are
  // borrowed: `root` holds its subterms while the walk runs.
  stack_.clear();
  stack_.emplace_back(root, false);
  while (!stack_.empty()) {
    Z3_ast const a = stack_.back().first;
    if (known(a)) {
      stack_.pop_back();
      continue;
    }
    unsigned const n = arity(a);
    if (!stack_.back().second && n > 0) {
      stack_.back().second = true;
      for (unsigned i = n; i-- > 0;)
        stack_.emplace_back(child_of(a, i), false);
      continue;
    }
    stack_.pop_back();
    children_.clear();
    for (unsigned i = 0; i < n; ++i)
      children_.push_back(terms_[Z3_get_ast_id(c, child_of(a, i))]);
    Term_ const* t = tm_.make_term(head_of(ctx, a, n), children_);
    unsigned const id = Z3_get_ast_id(c, a);
    if (id >= terms_.size()) terms_.resize(std::max<std::size_t>(id + 1, 2 * terms_.size()), nullptr);
    terms_[id] = t;
    alive_.push_back(z3::expr(ctx, a));
  }
  return terms_[Z3_get_ast_id(c, root)];
}

}  // namespace smtlib
}  // namespace orvo
