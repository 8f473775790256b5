#include <cstdint>
#include <functional>
#include <new>
#include <stdexcept>

#include "host/environment.h"
#include "host/term.h"

namespace orvo {

static_assert(sizeof(Term_) == 2 * sizeof(std::uint64_t) && alignof(Term_) == alignof(Term_ const*),
              "children are stored right after the id and the head symbol");

TermManager::TermManager() {
  bool_type_ = make_type("Bool");
  static char const* const names[6] = {"true", "false", "not", "and", "or", "iff"};
  static std::size_t const arities[6] = {0, 0, 1, 2, 2, 2};
  for (std::size_t i = 0; i < 6; ++i)
    reserved_[i] = make_symbol(names[i], arities[i], bool_type_, true);
}

TermManager::~TermManager() {
  for (Term_* t : terms_) {
    t->~Term_();
    ::operator delete(static_cast<void*>(t));
  }
}

Type const* TermManager::make_type(std::string const& name) {
  auto& slot = types_[name];
  if (!slot) slot.reset(new Type(name));
  return slot.get();
}

Symbol const* TermManager::make_symbol(std::string const& name, std::size_t arity,
                                       Type const* output_type, bool interpreted) {
  if (output_type == nullptr)
    throw std::invalid_argument("make_symbol: null output type for " + name);
  auto& slot = symbols_[SymbolKey{name, arity, output_type}];
  if (!slot) slot.reset(new Symbol(name, arity, output_type, interpreted));
  return slot.get();
}

bool TermManager::is_reserved(Symbol const* s) const noexcept {
  for (Symbol const* r : reserved_)
    if (r == s) return true;
  return false;
}

std::size_t TermManager::SymbolKeyHash::operator()(SymbolKey const& key) const noexcept {
  std::size_t const h = std::hash<std::string>()(key.name);
  return h ^ (std::hash<void const*>()(key.type) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2) +
              key.arity);
}

std::uint64_t TermManager::key_hash(Symbol const* head, Term_ const* const* children,
                                    std::size_t n) noexcept {
  // Children by id, so that the probe order does not depend on addresses.
  std::uint64_t h = 0xcbf29ce484222325ULL ^ reinterpret_cast<std::uintptr_t>(head);
  for (std::size_t i = 0; i < n; ++i) {
    h ^= children[i]->get_id();
    h *= 0x100000001b3ULL;
    h ^= h >> 29;
  }
  return h * 0x9e3779b97f4a7c15ULL;
}

void TermManager::grow_index() {
  std::vector<Term_ const*> bigger(index_.empty() ? 64 : 2 * index_.size(), nullptr);
  std::size_t const mask = bigger.size() - 1;
  for (Term_ const* t : index_) {
    if (t == nullptr) continue;
    std::size_t at = key_hash(t->get_symbol(), t->children(), t->get_symbol()->get_arity()) & mask;
    while (bigger[at] != nullptr)
      at = (at + 1) & mask;
    bigger[at] = t;
  }
  index_.swap(bigger);
}

Term_ const* TermManager::make_term(Symbol const* head, std::vector<Term_ const*> const& children) {
  if (head == nullptr) throw std::invalid_argument("make_term: null head symbol");
  if (children.size() != head->get_arity())
    throw std::invalid_argument("make_term: " + head->get_name() + " takes " +
                                std::to_string(head->get_arity()) + " children, got " +
                                std::to_string(children.size()));
  for (Term_ const* c : children)
    if (c == nullptr) throw std::invalid_argument("make_term: null child of " + head->get_name());
  // Room in the index for one more term (load at most 1/2), then the probe.
  if (2 * (terms_.size() + 1) > index_.size()) grow_index();
  std::size_t const mask = index_.size() - 1;
  std::size_t at = key_hash(head, children.data(), children.size()) & mask;
  for (; index_[at] != nullptr; at = (at + 1) & mask) {
    Term_ const* t = index_[at];
    if (t->get_symbol() != head) continue;
    Term_ const* const* c = t->children();
    std::size_t i = 0;
    while (i < children.size() && c[i] == children[i])
      ++i;
    if (i == children.size()) return t;
  }

  // Room for one more term before anything else is made; doubling keeps the
  // building of n terms linear.
  if (terms_.size() == terms_.capacity()) terms_.reserve(2 * terms_.size() + 1);
  // The children are stored as pointers right after the term.
  // NOLINTNEXTLINE(bugprone-sizeof-expression)
  void* block = ::operator new(sizeof(Term_) + children.size() * sizeof(Term_ const*));
  Term_* t = new (block) Term_{static_cast<std::uint64_t>(terms_.size()), head};
  auto* slots = reinterpret_cast<Term_ const**>(t + 1);
  for (std::size_t i = 0; i < children.size(); ++i)
    slots[i] = children[i];
  terms_.push_back(t);  // cannot throw: capacity reserved above
  index_[at] = t;
  return t;
}

int Environment::new_atom(Term_ const* t) {
  if (t != nullptr) {
    auto it = term_atoms.find(t);
    if (it != term_atoms.end() && it->second != -1) return it->second;
  }
  int const variable = static_cast<int>(atom_terms.size());
  atom_terms.push_back(t);
  if (t != nullptr) {
    try {
      term_atoms[t] = variable;
    } catch (...) {
      atom_terms.pop_back();
      throw;
    }
  }
  return variable;
}

}  // namespace orvo
