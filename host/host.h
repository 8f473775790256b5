// Everything the host supplies to the classifier: terms, symbols, sorts, the
// term manager, the generic term visitor, DPLL clauses, the environment
// object and the handler behind Exception::dump_msg_and_raise_assertion().
#ifndef ORVO_ITP_HOST_HOST_H
#define ORVO_ITP_HOST_HOST_H

#include "containers/hash_table.h"
#include "host/clause.h"
#include "host/environment.h"
#include "host/term.h"
#include "host/term_visitor.h"
#include "support/exception.h"

namespace orvo {

using AssertionHandler = void (*)(Exception const&);

// Installs the handler that Exception::dump_msg_and_raise_assertion() calls
// and returns the previous one. A null handler (the default) does nothing.
AssertionHandler set_assertion_handler(AssertionHandler handler) noexcept;

}  // namespace orvo

#endif  // ORVO_ITP_HOST_HOST_H
