#include "orvo-itp-check/responses.h"

#include <algorithm>
#include <array>

#include "smtlib/names.h"

namespace orvo {
namespace check {

using smtlib::SExpr;

bool takes_response(std::string_view head) {
  static constexpr std::array<std::string_view, 12> answering = {
      "check-sat",      "check-sat-assuming", "get-value", "get-model",
      "get-assignment", "get-unsat-core",     "get-proof", "get-unsat-assumptions",
      "get-info",       "get-option",         "echo",      "get-interpolants"};
  return std::find(answering.begin(), answering.end(), head) != answering.end();
}

Responses::Responses(std::string_view text) : items_(smtlib::read_sexprs(text)) {}

std::vector<SExpr const*> Responses::match(std::vector<smtlib::CommandSpan> const& commands) const {
  std::vector<SExpr const*> out(commands.size(), nullptr);
  std::size_t next = 0;
  for (std::size_t i = 0; i < commands.size(); ++i) {
    std::string_view const head = commands[i].head;
    if (head == "exit") break;
    if (!takes_response(head)) continue;
    while (next < items_.size() && items_[next].is_symbol("success"))
      ++next;
    if (next == items_.size()) break;
    out[i] = &items_[next++];
  }
  return out;
}

namespace {

// The text of a string literal without its quotes, "" read as one quote.
std::string literal_text(SExpr const& e) {
  std::string out;
  std::string_view const t = e.text;
  for (std::size_t i = 1; i + 1 < t.size(); ++i) {
    out += t[i];
    if (t[i] == '"') ++i;
  }
  return out;
}

}  // namespace

Answer read_answer(SExpr const* response, std::size_t expected) {
  Answer a;
  if (response == nullptr) return a;
  if (response->head() == "error" && response->items.size() == 2 &&
      response->items[1].kind == SExpr::Kind::literal && !response->items[1].text.empty() &&
      response->items[1].text.front() == '"') {
    a.kind = Answer::Kind::error;
    a.message = smtlib::printable_utf8(literal_text(response->items[1]));
    return a;
  }
  auto plural = [](std::size_t n) {
    return std::to_string(n) + (n == 1 ? " interpolant" : " interpolants");
  };
  if (!response->is_list()) {
    a.kind = Answer::Kind::count;
    a.message = "expected " + plural(expected) + ", got '" +
                smtlib::printable_utf8(response->text) + "' (not a list)";
    return a;
  }
  if (response->items.size() != expected) {
    a.kind = Answer::Kind::count;
    a.message = "expected " + plural(expected) + ", got " + std::to_string(response->items.size());
    return a;
  }
  a.kind = Answer::Kind::interpolants;
  for (SExpr const& f : response->items)
    a.formulas.push_back(&f);
  return a;
}

char const* answer_name(Answer::Kind kind) {
  switch (kind) {
    case Answer::Kind::interpolants:
      return "interpolants";
    case Answer::Kind::missing:
      return "missing";
    case Answer::Kind::error:
      return "error";
    case Answer::Kind::count:
      return "count";
  }
  return "";
}

}  // namespace check
}  // namespace orvo
