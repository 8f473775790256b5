#include "smtlib/sexpr.h"

#include <cctype>
#include <cstdio>

#include "smtlib/names.h"

namespace orvo {
namespace smtlib {

namespace {

// Characters that may appear in a simple symbol besides letters and digits.
bool is_symbol_char(char ch) {
  unsigned char const u = static_cast<unsigned char>(ch);
  if (u < 0x80 && std::isalnum(u)) return true;
  switch (ch) {
    case '~':
    case '!':
    case '@':
    case '$':
    case '%':
    case '^':
    case '&':
    case '*':
    case '_':
    case '-':
    case '+':
    case '=':
    case '<':
    case '>':
    case '.':
    case '?':
    case '/':
    case ':':
      return true;
    default:
      return false;
  }
}

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  // The top-level elements; with `lists_only`, each must be a list.
  std::vector<SExpr> elements(bool lists_only) {
    std::vector<SExpr> out;
    // Open lists, innermost last; the element under construction is the
    // back of the innermost list's items.
    std::vector<SExpr> open;
    std::vector<std::size_t> starts;  // byte offset of each open list
    for (;;) {
      skip_blanks();
      if (at_ >= text_.size()) break;
      Position const where = here_;
      char const ch = text_[at_];
      if (ch == '(') {
        SExpr list;
        list.where = where;
        open.push_back(std::move(list));
        starts.push_back(at_);
        advance();
        continue;
      }
      if (ch == ')') {
        if (open.empty()) throw ScriptError(where, "unexpected ')'");
        advance();
        SExpr done = std::move(open.back());
        open.pop_back();
        done.text = text_.substr(starts.back(), at_ - starts.back());
        starts.pop_back();
        if (open.empty())
          out.push_back(std::move(done));
        else
          open.back().items.push_back(std::move(done));
        continue;
      }
      SExpr atom = read_atom();
      if (!open.empty())
        open.back().items.push_back(std::move(atom));
      else if (!lists_only)
        out.push_back(std::move(atom));
      else
        throw ScriptError(
            where, "expected '(' to start a command, found '" + printable_utf8(atom.text) + "'");
    }
    if (!open.empty())
      throw ScriptError(open.front().where, "unbalanced '(': the command is not closed");
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
      } else if (std::isspace(static_cast<unsigned char>(ch))) {
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
      atom.value = std::string(text_.substr(start, at_ - start));
    } else if (ch == '|') {
      atom.kind = SExpr::Kind::symbol;
      advance();
      while (at_ < text_.size() && text_[at_] != '|') {
        if (text_[at_] == '\\') throw ScriptError(here_, "'\\' is not allowed in a quoted symbol");
        advance();
      }
      if (at_ >= text_.size()) throw ScriptError(atom.where, "unterminated quoted symbol");
      atom.value = std::string(text_.substr(start + 1, at_ - start - 1));
      advance();
    } else if (is_symbol_char(ch) || ch == '#') {
      while (at_ < text_.size() && (is_symbol_char(text_[at_]) || text_[at_] == '#'))
        advance();
      atom.value = std::string(text_.substr(start, at_ - start));
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

  static std::string printable(char ch) {
    unsigned char const u = static_cast<unsigned char>(ch);
    if (u >= 0x20 && u < 0x7f) return std::string(1, ch);
    char buf[8];
    std::snprintf(buf, sizeof buf, "\\x%02x", u);
    return buf;
  }

  static SExpr::Kind classify(std::string const& v) {
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

SExpr::~SExpr() {
  if (items.empty()) return;
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
