// Host terms, symbols, sorts and the term manager that makes them.
//
// This is the stand-in for the solver's own term layer. It keeps exactly what
// the classifier relies on: a term is a 64-bit id (also its hash in the
// classifier's tables), a head symbol and as many children as the head's arity; a symbol
// knows its name, arity and output sort; the term manager knows the Boolean
// sort, which symbols are interpreted and which six symbols are reserved.
#ifndef ORVO_ITP_HOST_TERM_H
#define ORVO_ITP_HOST_TERM_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvo {

class TermManager;

// A sort. Sorts are compared by address; the term manager makes one per name.
class Type {
 public:
  std::string const& get_name() const noexcept { return name_; }

 private:
  friend class TermManager;
  explicit Type(std::string name) : name_(std::move(name)) {}
  std::string name_;
};

// A function symbol: every term headed by it has get_arity() children.
class Symbol {
 public:
  std::string const& get_name() const noexcept { return name_; }
  std::size_t get_arity() const noexcept { return arity_; }
  Type const* get_output_type() const noexcept { return output_type_; }

 private:
  friend class TermManager;
  Symbol(std::string name, std::size_t arity, Type const* output_type, bool interpreted)
      : name_(std::move(name)),
        arity_(arity),
        output_type_(output_type),
        interpreted_(interpreted) {}
  std::string name_;
  std::size_t arity_;
  Type const* output_type_;
  bool interpreted_;
};

// An immutable, hash-consed term. The children are stored right after the
// two fields, in the same allocation.
struct Term_ {
  std::uint64_t get_id() const noexcept { return id_; }
  Symbol const* get_symbol() const noexcept { return symbol_; }
  std::size_t get_arity() const noexcept { return symbol_->get_arity(); }
  Term_ const* get_child(std::size_t i) const noexcept { return children()[i]; }

  std::uint64_t id_;      // dense, in creation order; the term's hash
  Symbol const* symbol_;  // head symbol

 private:
  friend class TermManager;
  Term_ const* const* children() const noexcept {
    return reinterpret_cast<Term_ const* const*>(this + 1);
  }
};

namespace hsh {
template <class K>
struct hash;

// Tables of terms hash a term by its id, so that iteration orders do not
// depend on where the terms were allocated.
template <>
struct hash<Term_ const*> {
  std::uint64_t operator()(Term_ const* term) const noexcept { return term->get_id(); }
};
}  // namespace hsh

// Makes and owns sorts, symbols and terms. Asking again for a sort name
// already made returns the sort made first; a symbol is told apart by its
// name, arity and output sort together (two declarations of one name with
// other sorts are two symbols); asking again for a term with the same head
// and children returns the same term.
class TermManager {
 public:
  TermManager();
  ~TermManager();
  TermManager(TermManager const&) = delete;
  TermManager& operator=(TermManager const&) = delete;

  Type const* get_bool_type() const noexcept { return bool_type_; }
  Type const* make_type(std::string const& name);
  // Throws std::invalid_argument when output_type is null.
  Symbol const* make_symbol(std::string const& name, std::size_t arity, Type const* output_type,
                            bool interpreted = false);
  // Throws std::invalid_argument when the head is null, a child is null or
  // the number of children differs from the head's arity.
  Term_ const* make_term(Symbol const* head, std::vector<Term_ const*> const& children = {});

  bool is_interpreted(Symbol const* s) const noexcept { return s->interpreted_; }
  bool is_reserved(Symbol const* s) const noexcept;
  // true, false, not, and, or, iff: Boolean and interpreted.
  std::array<Symbol const*, 6> const& get_reserved_symbols() const noexcept { return reserved_; }

  // Number of terms made so far; ids run from 0 to num_terms() - 1.
  std::size_t num_terms() const noexcept { return terms_.size(); }

 private:
  static std::uint64_t key_hash(Symbol const* head, Term_ const* const* children,
                                std::size_t n) noexcept;
  // Doubles the term index and places every term again.
  void grow_index();

  std::unordered_map<std::string, std::unique_ptr<Type>> types_;
  struct SymbolKey {
    std::string name;
    std::size_t arity;
    Type const* type;
    bool operator==(SymbolKey const& o) const noexcept {
      return arity == o.arity && type == o.type && name == o.name;
    }
  };
  struct SymbolKeyHash {
    std::size_t operator()(SymbolKey const& key) const noexcept;
  };

  std::unordered_map<SymbolKey, std::unique_ptr<Symbol>, SymbolKeyHash> symbols_;
  std::vector<Term_*> terms_;  // by id
  // Every term by its head and children: open addressing with linear
  // probing, a power of two slots, at most half of them used.
  std::vector<Term_ const*> index_;
  Type const* bool_type_ = nullptr;
  std::array<Symbol const*, 6> reserved_{};
};

}  // namespace orvo

#endif  // ORVO_ITP_HOST_TERM_H
