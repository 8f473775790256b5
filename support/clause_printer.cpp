#include "support/clause_printer.h"

#include <cstdint>

namespace orvo {
namespace dpll {

std::ostream& operator<<(std::ostream& out, Clause const& c) {
  static char const* const kind_letters[5] = {"A", "N", "I", "L", "D"};
  out << "C" << c.number();
  if (c.is_learnt()) out << "L";
  if (c.has_t_flag()) out << "T";
  out << "(";
  for (std::uint32_t i = 0; i < c.size(); ++i) {
    if (i != 0) out << " ";
    unsigned const lit = c.literal(i);
    if ((lit & 1u) != 0) out << "~";
    out << (static_cast<std::int32_t>(lit) >> 1);
  }
  out << " S:";
  if (!c.is_extended())
    out << "A";
  else if (c.kind() <= 4)
    out << kind_letters[c.kind()];
  out << " L:" << (c.is_extended() ? c.l_value() : -1);
  out << " lrnt:" << c.is_learnt();
  out << ")";
  return out;
}

}  // namespace dpll
}  // namespace orvo
