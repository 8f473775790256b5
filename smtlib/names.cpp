#include "smtlib/names.h"

#include <cctype>
#include <cstdio>

namespace orvo {
namespace smtlib {

namespace {

bool simple_symbol_char(unsigned char u) {
  if (u >= 0x80) return false;
  if (std::isalnum(u)) return true;
  switch (u) {
    case '~': case '!': case '@': case '$': case '%': case '^': case '&': case '*': case '_':
    case '-': case '+': case '=': case '<': case '>': case '.': case '?': case '/':
      return true;
    default:
      return false;
  }
}

// The length of the valid UTF-8 sequence starting at text[i] (beyond
// ASCII), 0 when the bytes there are not one.
std::size_t utf8_length(std::string_view text, std::size_t i) {
  auto const byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  unsigned char const lead = byte(i);
  std::size_t n = 0;
  unsigned min = 0;
  unsigned value = 0;
  if (lead >= 0xc2 && lead <= 0xdf) {
    n = 2, min = 0x80, value = lead & 0x1fu;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    n = 3, min = 0x800, value = lead & 0x0fu;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    n = 4, min = 0x10000, value = lead & 0x07u;
  } else {
    return 0;
  }
  if (i + n > text.size()) return 0;
  for (std::size_t k = 1; k < n; ++k) {
    if ((byte(i + k) & 0xc0u) != 0x80u) return 0;
    value = (value << 6) | (byte(i + k) & 0x3fu);
  }
  if (value < min || value > 0x10ffff || (value >= 0xd800 && value <= 0xdfff)) return 0;
  return n;
}

void replace_all(std::string& text, std::string const& from, std::string const& to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

}  // namespace

std::string z3_symbol(std::string_view name) {
  std::string out;
  out.reserve(name.size() + 4);
  out += '|';
  out += name;
  out += rename_suffix;
  out += '|';
  return out;
}

std::string script_name(std::string_view z3_name) {
  if (ends_in_suffix(z3_name)) z3_name.remove_suffix(rename_suffix.size());
  return std::string(z3_name);
}

std::string written(std::string_view name) {
  bool simple = !name.empty() && !std::isdigit(static_cast<unsigned char>(name[0]));
  for (char ch : name)
    simple = simple && simple_symbol_char(static_cast<unsigned char>(ch));
  return simple ? std::string(name) : "|" + std::string(name) + "|";
}

std::string script_text(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    char const ch = text[i];
    if (ch == '"') {  // a string literal, "" inside it an escaped quote
      std::size_t end = i + 1;
      while (end < text.size() && !(text[end] == '"' && (end + 1 >= text.size() || text[end + 1] != '"')))
        end += text[end] == '"' ? 2 : 1;
      end = end < text.size() ? end + 1 : end;
      out.append(text.substr(i, end - i));
      i = end;
    } else if (ch == '|') {
      std::size_t const end = text.find('|', i + 1);
      if (end == std::string_view::npos) {
        out.append(text.substr(i));
        break;
      }
      std::string_view const name = text.substr(i + 1, end - i - 1);
      if (ends_in_suffix(name))
        out += written(script_name(name));
      else
        out.append(text.substr(i, end + 1 - i));
      i = end + 1;
    } else {
      out += ch;
      ++i;
    }
  }
  return out;
}

std::string z3_message(std::string_view raw) {
  // (error "line 1 column 95: unknown constant f")(error "...") -> the
  // messages without their positions, joined.
  std::string text;
  std::string_view rest = raw;
  std::string_view const open = "(error \"";
  if (rest.find(open) == std::string_view::npos) {
    text.assign(raw);
  } else {
    for (std::size_t at; (at = rest.find(open)) != std::string_view::npos;) {
      rest.remove_prefix(at + open.size());
      std::size_t end = rest.find("\")");
      std::string_view one = rest.substr(0, end);
      rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 2);
      if (one.rfind("line ", 0) == 0) {
        std::size_t const colon = one.find(": ");
        if (colon != std::string_view::npos && one.find("column ") < colon)
          one.remove_prefix(colon + 2);
      }
      if (!text.empty()) text += "; ";
      text.append(one);
    }
  }
  for (std::string const& nl : {std::string("\r\n"), std::string("\n"), std::string("\r")})
    replace_all(text, nl, "; ");
  text = script_text(text);
  // Renamed names printed without their bars.
  for (std::size_t at = text.find(rename_suffix); at != std::string::npos;
       at = text.find(rename_suffix, at))
    text.erase(at, rename_suffix.size());
  while (!text.empty() && (text.back() == ' ' || text.back() == ';'))
    text.pop_back();
  return printable_utf8(text);
}

std::string printable_utf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    unsigned char const u = static_cast<unsigned char>(text[i]);
    if (u >= 0x20 && u < 0x7f) {
      out += text[i++];
      continue;
    }
    std::size_t const n = u >= 0x80 ? utf8_length(text, i) : 0;
    if (n > 0) {
      out.append(text.substr(i, n));
      i += n;
      continue;
    }
    char buf[8];
    std::snprintf(buf, sizeof buf, "\\x%02x", u);
    out += buf;
    ++i;
  }
  return out;
}

}  // namespace smtlib
}  // namespace orvo
