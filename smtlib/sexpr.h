// S-expressions of an SMT-LIB v2 script, split into its top-level commands.
//
// The reader keeps the script's text and points into it: every node knows
// where it starts (line and column, both from 1; a column counts bytes) and
// which bytes it spans, so a term can be handed on as the exact text the
// script wrote. Comments, white space and Windows line ends are skipped like
// any other blank. A malformed script throws ScriptError at the first fault.
#ifndef ORVO_ITP_SMTLIB_SEXPR_H
#define ORVO_ITP_SMTLIB_SEXPR_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvo {
namespace smtlib {

struct Position {
  int line = 1;
  int column = 1;
};

// A fault of the script at a place in it: malformed text, a command the
// term reader rejects, a name that is not declared, a pop below level 0.
class ScriptError : public std::runtime_error {
 public:
  ScriptError(Position where, std::string const& what) : std::runtime_error(what), where_(where) {}
  Position where() const noexcept { return where_; }

 private:
  Position where_;
};

struct SExpr {
  enum class Kind { list, symbol, keyword, numeral, decimal, literal };
  Kind kind = Kind::list;
  std::string_view text;     // the bytes spanned, parentheses included
  std::string_view value;    // atoms: a symbol without its |bars|, a keyword with its colon
  Position where;            // where the node starts
  std::vector<SExpr> items;  // lists: the elements

  SExpr() = default;
  SExpr(SExpr&&) noexcept = default;
  SExpr& operator=(SExpr&&) noexcept = default;
  SExpr(SExpr const&) = delete;  // a deep copy would recurse; nothing needs one
  SExpr& operator=(SExpr const&) = delete;
  // Takes nested lists apart with an explicit stack: a script nested a
  // million levels deep must not overflow the call stack on its way out.
  ~SExpr();

  bool is_list() const noexcept { return kind == Kind::list; }
  bool is_symbol() const noexcept { return kind == Kind::symbol; }
  bool is_symbol(std::string_view name) const noexcept { return is_symbol() && value == name; }
  // The head symbol of a list, "" for anything else.
  std::string_view head() const noexcept {
    return is_list() && !items.empty() && items[0].is_symbol() ? items[0].value
                                                               : std::string_view();
  }
};

// One top-level command of a script, found without building its tree.
struct CommandSpan {
  std::string_view text;  // the bytes of the command, parentheses included
  std::string_view head;  // its first element when that is a symbol, else ""
  Position where;         // where the command starts
};

// The top-level commands of `text`, each a list, with the faults of
// read_commands thrown at the first of them: the whole text is checked
// before any command is built, in one pass that allocates nothing per token.
std::vector<CommandSpan> scan_commands(std::string_view text);

// The tree of one command that scan_commands found (its text must be the
// one scanned): built on demand, so that a script need not be held as trees.
SExpr read_command(CommandSpan const& span);

// Splits `text` into its top-level commands, each a list. Throws ScriptError
// on an unbalanced parenthesis, an unterminated string or quoted symbol, a
// simple symbol with a byte outside ASCII, or a top-level element that is not
// a list. Lines end at LF, CRLF or a lone CR.
std::vector<SExpr> read_commands(std::string_view text);

// Splits `text` into its top-level elements, lists or atoms (a stream of
// responses: `sat`, `success`, `(error "...")`, ...), with the same faults
// as read_commands but for the rule on atoms.
std::vector<SExpr> read_sexprs(std::string_view text);

// Every symbol that occurs in `e` (bars removed), each once per occurrence,
// appended to `out`.
void collect_symbols(SExpr const& e, std::vector<std::string_view>& out);

// Appends `e` to `out` on one line, atoms and lists joined with single
// spaces; each atom is written by atom_text(atom, out).
template <class AtomText>
void write_flat(SExpr const& e, std::string& out, AtomText atom_text) {
  // (list, next item) frames of the lists being written, innermost last.
  std::vector<std::pair<SExpr const*, std::size_t>> open;
  auto put = [&](SExpr const& n) {
    if (!out.empty() && out.back() != '(') out += ' ';
    if (n.is_list()) {
      out += '(';
      open.emplace_back(&n, 0);
    } else {
      atom_text(n, out);
    }
  };
  put(e);
  while (!open.empty()) {
    auto& [list, next] = open.back();
    if (next == list->items.size()) {
      out += ')';
      open.pop_back();
    } else {
      put(list->items[next++]);
    }
  }
}

// The node's atoms and lists joined with single spaces: "(and a b)".
std::string flat_text(SExpr const& e);

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_SEXPR_H
