// The names z3 is given for the script's own names, and the way back.
//
// z3's parser predefines names of its own (the datatype List with its
// constructors and selectors, the theory sorts of every logic) and refuses to
// declare them again, although a script may. So every name a script declares
// (sorts, functions, constants, datatypes with their constructors, selectors
// and testers, definitions, assertion names) reaches z3 with a suffix that no
// predefined name has: `List` is written `|List @|`. A bound variable whose
// name already ends in " @" gets the suffix as well, so that every quoted
// symbol ending in " @" in z3's output is one of ours and the way back is
// exact. Names the pipeline makes for itself never end in " @".
#ifndef ORVO_ITP_SMTLIB_NAMES_H
#define ORVO_ITP_SMTLIB_NAMES_H

#include <string>
#include <string_view>

namespace orvo {
namespace smtlib {

// The suffix of every renamed symbol, as z3 stores it.
inline constexpr std::string_view rename_suffix = " @";

// Whether z3 must see `name` renamed even where the script declares nothing
// by that name.
inline bool ends_in_suffix(std::string_view name) {
  return name.size() >= rename_suffix.size() &&
         name.substr(name.size() - rename_suffix.size()) == rename_suffix;
}

// "x" -> "|x @|": the renamed symbol as z3 reads it.
std::string z3_symbol(std::string_view name);

// The script's name of a symbol as z3 stores it: "x @" -> "x"; a name without
// the suffix is returned as it is.
std::string script_name(std::string_view z3_name);

// `name` as the script may write it: bare when it is a simple symbol, else
// between bars.
std::string written(std::string_view name);

// A text z3 printed (a term, a sort, a message), with every renamed symbol
// written as the script wrote it.
std::string script_text(std::string_view z3_text);

// One line of a z3 error message: its "(error "line L column C: ...")"
// wrapper, whose position is one of the text the pipeline handed to z3, is
// dropped, line breaks become "; ", and renamed names are shown as the
// script's.
std::string z3_message(std::string_view raw);

// `text` with every byte outside printable ASCII that is not part of valid
// UTF-8 written as \xHH, and control characters as \xHH: safe to print on one
// line and to put in a JSON string.
std::string printable_utf8(std::string_view text);

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_NAMES_H
