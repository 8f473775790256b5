// Host DPLL clauses: 32-bit words in `malloc` storage.
//
//   word 0              bits 0-23: size, the number of literals
//   words 1 .. size     one literal each: 2 * variable + 1 if negated
//   word size + 1       id word: bit 0 `extended`, bits 1-31 the clause number
//   word size + 2       reference word: bits 0-29 reference count,
//                       bit 30 `learnt`, bit 31 the T flag
//   words size + 3 ..   only when extended: a spare word, the kind (bits 0-29)
//                       and the L value (signed)
//
// The reference count is shared by the host and the classifier; whoever
// drops it from 1 to 0 frees the clause with std::free. take_reference and
// release_reference below are the one implementation of that protocol.
#ifndef ORVO_ITP_HOST_CLAUSE_H
#define ORVO_ITP_HOST_CLAUSE_H

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace orvo {
namespace dpll {

class Clause {
 public:
  static constexpr std::uint32_t count_mask = 0x3FFFFFFFu;
  static constexpr std::uint32_t flag_mask = 0xC0000000u;

  std::uint32_t size() const noexcept { return words()[0] & 0xFFFFFFu; }
  unsigned literal(std::size_t i) const noexcept { return words()[1 + i]; }
  int number() const noexcept { return static_cast<std::int32_t>(id_word()) >> 1; }
  bool is_extended() const noexcept { return (id_word() & 1u) != 0; }
  // The kind code (0 to 4 are named), 0 when the clause is not extended.
  unsigned kind() const noexcept { return is_extended() ? words()[size() + 4] & count_mask : 0u; }
  // The L value, -1 when the clause is not extended.
  int l_value() const noexcept {
    return is_extended() ? static_cast<std::int32_t>(words()[size() + 5]) : -1;
  }
  bool is_learnt() const noexcept { return ((reference_word() >> 30) & 1u) != 0; }
  bool has_t_flag() const noexcept { return (reference_word() >> 31) != 0; }
  unsigned ref_count() const noexcept { return reference_word() & count_mask; }
  std::uint32_t reference_word() const noexcept { return words()[size() + 2]; }
  std::uint32_t& reference_word() noexcept { return words()[size() + 2]; }

  // `word` with its count replaced by `count` (taken modulo 2^30), flags kept.
  static constexpr std::uint32_t with_count(std::uint32_t word, std::uint32_t count) noexcept {
    return (word & flag_mask) | (count & count_mask);
  }

  std::uint32_t const* words() const noexcept { return &header_; }
  std::uint32_t* words() noexcept { return &header_; }

 private:
  std::uint32_t id_word() const noexcept { return words()[size() + 1]; }
  std::uint32_t header_;
};

// One more reference on `clause`; the flag bits are kept. The count is shared
// state outside the clause's value, hence the const pointer.
inline void take_reference(Clause const* clause) noexcept {
  std::uint32_t& word = const_cast<Clause*>(clause)->reference_word();
  word = Clause::with_count(word, (word & Clause::count_mask) + 1);
}

// Gives back a reference just taken, without ever freeing the clause.
inline void untake_reference(Clause const* clause) noexcept {
  std::uint32_t& word = const_cast<Clause*>(clause)->reference_word();
  assert((word & Clause::count_mask) != 0 && "reference given back at count 0");
  word = Clause::with_count(word, (word & Clause::count_mask) - 1);
}

// Gives back one reference; the holder that drops the count from 1 to 0 frees
// the clause. Returns whether it did.
inline bool release_reference(Clause const* clause) noexcept {
  std::uint32_t& word = const_cast<Clause*>(clause)->reference_word();
  std::uint32_t const old = word & Clause::count_mask;
  assert(old != 0 && "clause reference released at count 0");
  word = Clause::with_count(word, old - 1);
  if (old != 1) return false;
  std::free(const_cast<Clause*>(clause));
  return true;
}

// 2 * variable + negated.
unsigned make_literal(int variable, bool negated);

// A new clause in malloc storage. Throws std::invalid_argument for more than
// 2^24 - 1 literals or a reference count above 2^30 - 1, std::bad_alloc when
// malloc fails.
Clause* make_clause(int number, std::vector<unsigned> const& literals, unsigned ref_count,
                    bool learnt = false, bool t_flag = false);
Clause* make_extended_clause(int number, std::vector<unsigned> const& literals, unsigned ref_count,
                             unsigned kind, int l_value, bool learnt = false, bool t_flag = false);

}  // namespace dpll
}  // namespace orvo

#endif  // ORVO_ITP_HOST_CLAUSE_H
