#include "smtlib/sexpr.h"

#include <cctype>
#include <cstdint>
#include <cstdio>

#include "smtlib/names.h"

namespace orvo {
namespace smtlib {

namespace {

// What each byte is to the reader, looked up once per byte (the C
// library's classification would also consult the locale).
enum : unsigned char { symbol_char = 1, blank_char = 2 };

struct CharTable {
  unsigned char of[256] = {};
  constexpr CharTable() {
    for (int c = '0'; c <= '9'; ++c)
      of[c] = symbol_char;
    for (int c = 'a'; c <= 'z'; ++c)
      of[c] = of[c - 'a' + 'A'] = symbol_char;
    for (char c : "~!@$%^&*_-+=<>.?/:#")
      if (c != 0) of[static_cast<unsigned char>(c)] = symbol_char;
    for (char c : " \t\n\v\f\r")
      if (c != 0) of[static_cast<unsigned char>(c)] = blank_char;
  }
};
constexpr CharTable chars;

// A byte of a simple symbol (letters, digits, the punctuation SMT-LIB
// allows) or of a #b / #x literal.
bool is_symbol_char(char ch) {
  return chars.of[static_cast<unsigned char>(ch)] == symbol_char;
}
bool is_blank(char ch) {
  return chars.of[static_cast<unsigned char>(ch)] == blank_char;
}

class Reader {
 public:
  explicit Reader(std::string_view text, Position here = {}) : text_(text), here_(here) {}

  // The top-level elements, at most `limit` of them; with `lists_only`,
  // each must be a list. A list's items are collected on one stack and moved
  // into a vector of exactly their number when the list closes.
  std::vector<SExpr> elements(bool lists_only, std::size_t limit = SIZE_MAX) {
    std::vector<SExpr> out;
    std::vector<SExpr> pending;  // the finished items of the open lists, outermost first
    struct Open {
      std::size_t first;  // its first item in pending
      std::size_t start;  // byte offset of its '('
      Position where;
    };
    std::vector<Open> open;  // innermost last
    while (out.size() < limit) {
      skip_blanks();
      if (at_ >= text_.size()) break;
      Position const where = here_;
      char const ch = text_[at_];
      if (ch == '(') {
        open.push_back(Open{pending.size(), at_, where});
        advance();
        continue;
      }
      if (ch == ')') {
        if (open.empty()) throw ScriptError(where, "unexpected ')'");
        advance();
        Open const o = open.back();
        open.pop_back();
        SExpr list;
        list.where = o.where;
        list.text = text_.substr(o.start, at_ - o.start);
        list.items.reserve(pending.size() - o.first);
        for (std::size_t k = o.first; k < pending.size(); ++k)
          list.items.push_back(std::move(pending[k]));
        pending.erase(pending.begin() + static_cast<std::ptrdiff_t>(o.first), pending.end());
        if (open.empty())
          out.push_back(std::move(list));
        else
          pending.push_back(std::move(list));
        continue;
      }
      SExpr atom = read_atom();
      if (!open.empty())
        pending.push_back(std::move(atom));
      else if (!lists_only)
        out.push_back(std::move(atom));
      else
        throw not_a_command(where, atom);
    }
    if (!open.empty())
      throw ScriptError(open.front().where, "unbalanced '(': the command is not closed");
    return out;
  }

  // The top-level lists with their heads, checked as elements(true) checks
  // them, without building a node.
  std::vector<CommandSpan> scan() {
    std::vector<CommandSpan> out;
    std::size_t depth = 0;
    std::size_t start = 0;
    bool at_head = false;  // the next element is the current command's first
    CommandSpan command;
    for (;;) {
      skip_blanks();
      if (at_ >= text_.size()) break;
      Position const where = here_;
      char const ch = text_[at_];
      if (ch == '(') {
        if (depth == 0) {
          command = CommandSpan{{}, {}, where};
          start = at_;
          at_head = true;
        } else {
          at_head = false;
        }
        ++depth;
        advance();
        continue;
      }
      if (ch == ')') {
        if (depth == 0) throw ScriptError(where, "unexpected ')'");
        advance();
        at_head = false;
        if (--depth == 0) {
          command.text = text_.substr(start, at_ - start);
          out.push_back(command);
        }
        continue;
      }
      SExpr const atom = read_atom();
      if (depth == 0) throw not_a_command(where, atom);
      if (at_head && atom.is_symbol()) command.head = atom.value;
      at_head = false;
    }
    if (depth != 0) throw ScriptError(command.where, "unbalanced '(': the command is not closed");
    return out;
  }

 private:
  void advance() {
    char const ch = text_[at_];
    // LF, CRLF and a lone CR each end one line.
    if (ch == '\n' || (ch == '\r' && (at_ + 1 >= text_.size() || text_[at_ + 1] != '\n'))) {
      ++here_.line;
      here_.column = 1;
    } else {
      ++here_.column;
    }
    ++at_;
  }

  void skip_blanks() {
    while (at_ < text_.size()) {
      char const ch = text_[at_];
      if (ch == ';') {
        while (at_ < text_.size() && text_[at_] != '\n' && text_[at_] != '\r')
          advance();
      } else if (is_blank(ch)) {
        advance();
      } else {
        break;
      }
    }
  }

  SExpr read_atom() {
    SExpr atom;
    atom.where = here_;
    std::size_t const start = at_;
    char const ch = text_[at_];
    if (ch == '"') {
      atom.kind = SExpr::Kind::literal;
      advance();
      for (;;) {
        if (at_ >= text_.size()) throw ScriptError(atom.where, "unterminated string literal");
        if (text_[at_] == '"') {
          advance();
          if (at_ < text_.size() && text_[at_] == '"') {  // "" is an escaped quote
            advance();
            continue;
          }
          break;
        }
        advance();
      }
      atom.value = text_.substr(start, at_ - start);
    } else if (ch == '|') {
      atom.kind = SExpr::Kind::symbol;
      advance();
      while (at_ < text_.size() && text_[at_] != '|') {
        if (text_[at_] == '\\') throw ScriptError(here_, "'\\' is not allowed in a quoted symbol");
        advance();
      }
      if (at_ >= text_.size()) throw ScriptError(atom.where, "unterminated quoted symbol");
      atom.value = text_.substr(start + 1, at_ - start - 1);
      advance();
    } else if (is_symbol_char(ch)) {
      std::size_t end = at_;  // no line ends inside: only the column moves
      while (end < text_.size() && is_symbol_char(text_[end]))
        ++end;
      here_.column += static_cast<int>(end - at_);
      at_ = end;
      atom.value = text_.substr(start, at_ - start);
      atom.kind = classify(atom.value);
    } else if (static_cast<unsigned char>(ch) >= 0x80) {
      throw ScriptError(atom.where,
                        "a simple symbol is ASCII only: write a name with other bytes as |quoted|");
    } else {
      throw ScriptError(atom.where, "unexpected character '" + printable(ch) + "'");
    }
    if (at_ < text_.size() && static_cast<unsigned char>(text_[at_]) >= 0x80)
      throw ScriptError(here_,
                        "a simple symbol is ASCII only: write a name with other bytes as |quoted|");
    atom.text = text_.substr(start, at_ - start);
    return atom;
  }

  static ScriptError not_a_command(Position where, SExpr const& atom) {
    return ScriptError(where,
                       "expected '(' to start a command, found '" + printable_utf8(atom.text) + "'");
  }

  static std::string printable(char ch) {
    unsigned char const u = static_cast<unsigned char>(ch);
    if (u >= 0x20 && u < 0x7f) return std::string(1, ch);
    char buf[8];
    std::snprintf(buf, sizeof buf, "\\x%02x", u);
    return buf;
  }

  static SExpr::Kind classify(std::string_view v) {
    if (v[0] == ':') return SExpr::Kind::keyword;
    if (v[0] == '#') return SExpr::Kind::literal;  // #b0101, #x1F
    if (std::isdigit(static_cast<unsigned char>(v[0]))) {
      bool dot = false;
      for (char c : v) {
        if (c == '.') {
          dot = true;
        } else if (!std::isdigit(static_cast<unsigned char>(c))) {
          return SExpr::Kind::symbol;  // not a number; the term reader reports it
        }
      }
      return dot ? SExpr::Kind::decimal : SExpr::Kind::numeral;
    }
    return SExpr::Kind::symbol;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  Position here_;
};

}  // namespace

namespace {
// How deep the destructors below are nested: shallow trees (every real
// command) are freed by their members' destructors, deep ones by a stack.
thread_local int destroying = 0;
constexpr int deepest_recursion = 256;
}  // namespace

SExpr::~SExpr() {
  if (items.empty()) return;
  if (destroying < deepest_recursion) {
    ++destroying;
    items.clear();
    --destroying;
    return;
  }
  std::vector<SExpr> doomed = std::move(items);
  while (!doomed.empty()) {
    SExpr last = std::move(doomed.back());
    doomed.pop_back();
    for (SExpr& item : last.items)
      doomed.push_back(std::move(item));
    last.items.clear();  // now flat: its destructor does not recurse
  }
}

std::vector<SExpr> read_commands(std::string_view text) {
  return Reader(text).elements(true);
}

std::vector<CommandSpan> scan_commands(std::string_view text) {
  return Reader(text).scan();
}

SExpr read_command(CommandSpan const& span) {
  std::vector<SExpr> one = Reader(span.text, span.where).elements(true, 1);
  return std::move(one.front());
}

std::vector<SExpr> read_sexprs(std::string_view text) {
  return Reader(text).elements(false);
}

void collect_symbols(SExpr const& e, std::vector<std::string_view>& out) {
  std::vector<SExpr const*> stack{&e};
  while (!stack.empty()) {
    SExpr const* n = stack.back();
    stack.pop_back();
    if (n->is_symbol()) out.push_back(n->value);
    for (auto it = n->items.rbegin(); it != n->items.rend(); ++it)
      stack.push_back(&*it);
  }
}

std::string flat_text(SExpr const& e) {
  std::string out;
  write_flat(e, out, [](SExpr const& atom, std::string& to) { to += atom.text; });
  return out;
}

}  // namespace smtlib
}  // namespace orvo
