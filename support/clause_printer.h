// One-line text form of a DPLL clause, for instance "C12L(3 ~7 10 S:L L:4 lrnt:1)":
// number, "L" when learnt, "T" when the T flag is set, the literals ("~" for a
// negated one), the kind letter, the L value and the learnt flag.
#ifndef ORVO_ITP_SUPPORT_CLAUSE_PRINTER_H
#define ORVO_ITP_SUPPORT_CLAUSE_PRINTER_H

#include <ostream>

#include "host/clause.h"

namespace orvo {
namespace dpll {

std::ostream& operator<<(std::ostream& out, Clause const& c);

}  // namespace dpll
}  // namespace orvo

#endif  // ORVO_ITP_SUPPORT_CLAUSE_PRINTER_H
