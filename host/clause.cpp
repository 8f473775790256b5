#include <cstdlib>
#include <new>
#include <stdexcept>

#include "host/clause.h"

namespace orvo {
namespace dpll {

unsigned make_literal(int variable, bool negated) {
  return 2u * static_cast<unsigned>(variable) + (negated ? 1u : 0u);
}

namespace {

Clause* build(int number, std::vector<unsigned> const& literals, unsigned ref_count, bool extended,
              unsigned kind, int l_value, bool learnt, bool t_flag) {
  if (literals.size() > 0xFFFFFFu) throw std::invalid_argument("make_clause: too many literals");
  if (ref_count > Clause::count_mask)
    throw std::invalid_argument("make_clause: reference count above 2^30 - 1");
  std::size_t const n = literals.size();
  std::size_t const words = n + 3 + (extended ? 3 : 0);
  auto* w = static_cast<std::uint32_t*>(std::malloc(words * sizeof(std::uint32_t)));
  if (w == nullptr) throw std::bad_alloc();
  w[0] = static_cast<std::uint32_t>(n);
  for (std::size_t i = 0; i < n; ++i)
    w[1 + i] = literals[i];
  w[n + 1] = (static_cast<std::uint32_t>(number) << 1) | (extended ? 1u : 0u);
  w[n + 2] = ref_count | (learnt ? 1u << 30 : 0u) | (t_flag ? 1u << 31 : 0u);
  if (extended) {
    w[n + 3] = 0;
    w[n + 4] = kind & Clause::count_mask;
    w[n + 5] = static_cast<std::uint32_t>(l_value);
  }
  return reinterpret_cast<Clause*>(w);
}

}  // namespace

Clause* make_clause(int number, std::vector<unsigned> const& literals, unsigned ref_count,
                    bool learnt, bool t_flag) {
  return build(number, literals, ref_count, false, 0, -1, learnt, t_flag);
}

Clause* make_extended_clause(int number, std::vector<unsigned> const& literals, unsigned ref_count,
                             unsigned kind, int l_value, bool learnt, bool t_flag) {
  return build(number, literals, ref_count, true, kind, l_value, learnt, t_flag);
}

}  // namespace dpll
}  // namespace orvo
