#include "smtlib/z3_reader.h"

#include "smtlib/z3_walk.h"

#include <algorithm>
#include <utility>

namespace orvo {
namespace smtlib {

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

// z3 reports unknown logics and similar on standard error; the program
// reports in its own words, so z3 stays quiet.
Z3Reader::Quiet::Quiet() {
  z3::set_param("warning", false);
}

Z3Reader::Z3Reader() : scopes_(1) {}

std::string Z3Reader::prelude() const {
  std::string out = logic_;
  // Parametric sorts are handed over as their definitions, in the order the
  // script gave them, as long as they are visible.
  for (std::size_t i = 0; i < sort_macros_.size(); ++i) {
    std::string const& text = sort_macros_[i];
    // The macro's name follows "(define-sort "; it is visible when the
    // innermost meaning of the name is this macro.
    for (auto const& [name, stack] : sort_names_) {
      if (!stack.empty() && stack.back().kind == Entry::Kind::sort_macro &&
          stack.back().index == i) {
        out += text;
        break;
      }
    }
  }
  return out;
}

Z3Reader::Entry const* Z3Reader::visible(
    std::unordered_map<std::string, std::vector<Entry>> const& table,
    std::string const& name) const {
  auto it = table.find(name);
  return it == table.end() || it->second.empty() ? nullptr : &it->second.back();
}

z3::expr_vector Z3Reader::parse(std::string const& script, std::vector<std::string_view> mentioned,
                                std::string_view exclude, SExpr const& at) {
  std::string const text = prelude() + script;
  std::vector<Z3_symbol> sort_symbols;
  std::vector<Z3_sort> sorts;
  for (auto const& [name, stack] : sort_names_) {
    if (stack.empty() || stack.back().kind != Entry::Kind::sort) continue;
    sort_symbols.push_back(Z3_mk_string_symbol(ctx_, name.c_str()));
    sorts.push_back(sorts_[stack.back().index]);
  }
  std::sort(mentioned.begin(), mentioned.end());
  mentioned.erase(std::unique(mentioned.begin(), mentioned.end()), mentioned.end());
  std::vector<Z3_symbol> fun_symbols;
  std::vector<Z3_func_decl> funs;
  std::string name;
  for (std::string_view m : mentioned) {
    if (m == exclude) continue;
    name.assign(m);
    Entry const* e = visible(fun_names_, name);
    if (e == nullptr) continue;
    fun_symbols.push_back(Z3_mk_string_symbol(ctx_, name.c_str()));
    funs.push_back(e->kind == Entry::Kind::function ? functions_[e->index]
                                                    : definitions_[e->index].placeholder);
  }
  // z3 keeps the last error code until it is set again: clear it first.
  Z3_set_error(ctx_, Z3_OK);
  auto const start = Clock::now();
  Z3_ast_vector raw = Z3_parse_smtlib2_string(
      ctx_, text.c_str(), static_cast<unsigned>(sorts.size()), sort_symbols.data(), sorts.data(),
      static_cast<unsigned>(funs.size()), fun_symbols.data(), funs.data());
  parse_time_ += Clock::now() - start;
  Z3_error_code const code = Z3_get_error_code(ctx_);
  if (code != Z3_OK) {
    std::string message = Z3_get_error_msg(ctx_, code);
    while (!message.empty() && (message.back() == '\n' || message.back() == ' '))
      message.pop_back();
    throw ScriptError(at.where, "z3 rejects the command: " + message);
  }
  return z3::expr_vector(ctx_, raw);
}

void Z3Reader::check_arity(SExpr const& command, std::size_t min_items,
                           std::size_t max_items) const {
  std::size_t const n = command.items.size();
  if (n < min_items || n > max_items || !command.items[1].is_symbol())
    throw ScriptError(command.where, "malformed '" + std::string(command.head()) + "' command");
}

void Z3Reader::bind(std::unordered_map<std::string, std::vector<Entry>>& table,
                    std::string const& name, Entry entry, SExpr const& at, bool same_meaning) {
  std::vector<Entry>& stack = table[name];
  if (!stack.empty() && stack.back().scope == entry.scope) {
    if (same_meaning) return;  // the same declaration again: nothing new
    throw ScriptError(at.where,
                      "'" + name + "' is already declared in this scope with another meaning");
  }
  stack.push_back(entry);
  scopes_.back().emplace_back(&table == &sort_names_, name);
}

void Z3Reader::set_logic(SExpr const& command) {
  check_arity(command, 2, 2);
  parse(std::string(command.text), {}, {}, command);
  logic_ = std::string(command.text);
}

namespace {
// z3 4.8 predefines some sorts (Int, Real, ...) and the datatype List, and
// refuses to declare them again; say so next to z3's own words.
std::string predefined_hint(std::string const& name) {
  return "; z3 4.8 predefines '" + name + "'" + (name == "List" ? " as a datatype" : "") +
         ", so a script may not declare it";
}
}  // namespace

void Z3Reader::declare_sort(SExpr const& command) {
  check_arity(command, 2, 3);
  std::string const& name = command.items[1].value;
  bool const parametric = command.items.size() == 3 && command.items[2].value != "0";
  try {
    parse(std::string(command.text), {}, {}, command);
  } catch (ScriptError const& e) {
    std::string const what = e.what();
    throw ScriptError(
        e.where(), what.find("already") != std::string::npos ? what + predefined_hint(name) : what);
  }
  if (parametric) {
    // Handed over as text, like a define-sort with parameters: z3 makes the
    // same sort of every instance, (Pair Int Bool), in every parse.
    bind(sort_names_, name, Entry{Entry::Kind::sort_macro, scopes_.size() - 1, sort_macros_.size()},
         command, false);
    sort_macros_.emplace_back(command.text);
    return;
  }
  Entry const entry{Entry::Kind::sort, scopes_.size() - 1, sorts_.size()};
  sorts_.push_back(ctx_.uninterpreted_sort(name.c_str()));
  bind(sort_names_, name, entry, command, false);
}

void Z3Reader::define_sort(SExpr const& command) {
  check_arity(command, 4, 4);
  std::string const& name = command.items[1].value;
  if (!command.items[2].is_list())
    throw ScriptError(command.where, "malformed 'define-sort' command");
  std::vector<std::string_view> mentioned;
  if (!command.items[2].items.empty()) {
    parse(std::string(command.text), mentioned, {}, command);
    Entry const entry{Entry::Kind::sort_macro, scopes_.size() - 1, sort_macros_.size()};
    bind(sort_names_, name, entry, command, false);
    sort_macros_.emplace_back(command.text);
    return;
  }
  std::string const probe = "|orvo!sort|";
  z3::expr_vector got =
      parse(std::string(command.text) + "(declare-fun " + probe + " () " +
                std::string(command.items[1].text) + ")(assert (= " + probe + " " + probe + "))",
            mentioned, {}, command);
  Entry const entry{Entry::Kind::sort, scopes_.size() - 1, sorts_.size()};
  sorts_.push_back(got[0].arg(0).get_sort());
  bind(sort_names_, name, entry, command, false);
}

std::string Z3Reader::declaration_probe(SExpr const& command) const {
  bool const is_const = command.head() == "declare-const";
  if (command.items.size() != (is_const ? 3u : 4u) || !command.items[1].is_symbol() ||
      (!is_const && !command.items[2].is_list()))
    return {};
  std::string const f(command.items[1].text);
  std::size_t const arity = is_const ? 0 : command.items[2].items.size();
  if (arity == 0) return "(assert (= " + f + " " + f + "))";
  std::string binders, args;
  for (std::size_t i = 0; i < arity; ++i) {
    std::string const v = "|orvo!" + std::to_string(i) + "|";
    binders += "(" + v + " " + std::string(command.items[2].items[i].text) + ")";
    args += " " + v;
  }
  return "(assert (forall (" + binders + ") (= (" + f + args + ") (" + f + args + "))))";
}

void Z3Reader::bind_function(SExpr const& command, z3::expr const& probe) {
  std::string const& name = command.items[1].value;
  z3::expr const e = probe.is_quantifier() ? probe.body().arg(0) : probe.arg(0);
  z3::func_decl const decl = e.decl();
  Entry const* seen = visible(fun_names_, name);
  bool const same = seen != nullptr && seen->kind == Entry::Kind::function &&
                    z3::eq(functions_[seen->index], decl);
  Entry const entry{Entry::Kind::function, scopes_.size() - 1, functions_.size()};
  bool const again = same && seen->scope == entry.scope;
  bind(fun_names_, name, entry, command, same);
  if (!again) functions_.push_back(decl);
}

void Z3Reader::declare_fun(SExpr const& command) {
  // z3 checks the command first; the probe after it then names the new
  // function, so that its declaration can be taken from the term z3 returns.
  std::string const probe = declaration_probe(command);
  std::vector<std::string_view> mentioned;
  collect_symbols(command, mentioned);
  std::string const& name = command.items.size() > 1 ? command.items[1].value : std::string();
  z3::expr_vector got = parse(std::string(command.text) + probe, mentioned, name, command);
  if (probe.empty() || got.size() != 1)
    throw ScriptError(command.where, "malformed '" + std::string(command.head()) + "' command");
  bind_function(command, got[0]);
}

void Z3Reader::declare_funs(std::vector<SExpr const*> const& commands) {
  // One by one when one is malformed or z3 rejects the run (also for the
  // same declaration twice, which z3 refuses in one text and a scope takes):
  // each command then succeeds or reports itself.
  auto one_by_one = [&] {
    for (SExpr const* c : commands)
      declare_fun(*c);
  };
  std::string text;
  for (SExpr const* c : commands) {
    std::string const probe = declaration_probe(*c);
    if (probe.empty()) return one_by_one();
    text.append(c->text).append(probe);
  }
  if (commands.empty()) return;
  z3::expr_vector got(ctx_);
  try {
    // A declaration mentions only sorts and its own name: no function is
    // handed to z3.
    got = parse(text, {}, {}, *commands.front());
  } catch (ScriptError const&) {
    return one_by_one();
  }
  for (std::size_t i = 0; i < commands.size(); ++i)
    bind_function(*commands[i], got[static_cast<int>(i)]);
}

void Z3Reader::define_fun(SExpr const& command) {
  check_arity(command, 5, 5);
  std::string const& name = command.items[1].value;
  SExpr const& params = command.items[2];
  if (!params.is_list()) throw ScriptError(command.where, "malformed 'define-fun' command");
  std::vector<std::string_view> mentioned;
  collect_symbols(command, mentioned);
  std::string const f(command.items[1].text);
  std::size_t const arity = params.items.size();
  std::string probe;
  if (arity == 0) {
    probe = "(assert (= " + f + " " + f + "))";
  } else {
    std::string args;
    for (SExpr const& p : params.items) {
      if (!p.is_list() || p.items.empty())
        throw ScriptError(p.where, "malformed parameter of 'define-fun'");
      args += " " + std::string(p.items[0].text);
    }
    probe = "(assert (forall " + std::string(params.text) + " (= (" + f + args + ") (" + f + args +
            "))))";
  }
  z3::expr_vector got = parse(std::string(command.text) + probe, mentioned, name, command);
  z3::expr const q = got[0];
  z3::expr const body = expand(arity == 0 ? q.arg(0) : q.body().arg(0));
  std::vector<Z3_sort> domain;
  for (std::size_t i = 0; i < arity; ++i)
    domain.push_back(Z3_get_quantifier_bound_sort(ctx_, q, static_cast<unsigned>(i)));
  z3::func_decl placeholder(ctx_, Z3_mk_fresh_func_decl(ctx_, "def", static_cast<unsigned>(arity),
                                                        domain.data(), body.get_sort()));
  Entry const entry{Entry::Kind::definition, scopes_.size() - 1, definitions_.size()};
  bind(fun_names_, name, entry, command, false);
  placeholder_of_[placeholder.id()] = definitions_.size();
  definitions_.push_back(Definition{placeholder, body, static_cast<unsigned>(arity)});
}

void Z3Reader::name_term(std::string const& name, z3::expr const& term) {
  z3::func_decl placeholder(ctx_, Z3_mk_fresh_func_decl(ctx_, "def", 0, nullptr, term.get_sort()));
  // A name given again replaces the earlier meaning (the query rules allow
  // several assertions with one name), also within one scope.
  fun_names_[name].push_back(
      Entry{Entry::Kind::definition, scopes_.size() - 1, definitions_.size()});
  scopes_.back().emplace_back(false, name);
  placeholder_of_[placeholder.id()] = definitions_.size();
  definitions_.push_back(Definition{placeholder, term, 0});
}

void Z3Reader::declare_datatypes(SExpr const& command) {
  std::vector<std::string> names;
  std::vector<std::string_view> raw_names;
  bool const single = command.head() == "declare-datatype";
  if (single) {
    check_arity(command, 3, 3);
    names.push_back(command.items[1].value);
    raw_names.push_back(command.items[1].text);
    if (command.items[2].head() == "par")
      throw ScriptError(command.where, "datatypes with parameters are not supported");
  } else {
    if (command.items.size() != 3 || !command.items[1].is_list() || !command.items[2].is_list())
      throw ScriptError(command.where, "malformed 'declare-datatypes' command");
    if (command.items[1].items.empty()) {
      // The older form: (declare-datatypes () ((D ctor ...) ...)).
      for (SExpr const& d : command.items[2].items) {
        if (!d.is_list() || d.items.empty() || !d.items[0].is_symbol())
          throw ScriptError(d.where, "malformed datatype declaration");
        names.push_back(d.items[0].value);
        raw_names.push_back(d.items[0].text);
      }
    } else {
      for (SExpr const& d : command.items[1].items) {
        if (!d.is_list() || d.items.size() != 2 || !d.items[0].is_symbol())
          throw ScriptError(d.where, "malformed datatype name and arity");
        if (d.items[1].value != "0")
          throw ScriptError(
              d.where, "datatypes with parameters are not supported ('" + d.items[0].value + "')");
        names.push_back(d.items[0].value);
        raw_names.push_back(d.items[0].text);
      }
    }
  }
  std::string probe;
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::string const v = "|orvo!d" + std::to_string(i) + "|";
    probe.append("(declare-fun ").append(v).append(" () ").append(raw_names[i]);
    probe.append(")(assert (= ").append(v).append(" ").append(v).append("))");
  }
  std::vector<std::string_view> mentioned;
  collect_symbols(command, mentioned);
  z3::expr_vector got(ctx_);
  try {
    got = parse(std::string(command.text) + probe, mentioned, {}, command);
  } catch (ScriptError const& e) {
    std::string what = e.what();
    for (std::string const& n : names)
      if (what.find("already") != std::string::npos && what.find(n) != std::string::npos) {
        what += predefined_hint(n);
        break;
      }
    throw ScriptError(e.where(), what);
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    Entry const entry{Entry::Kind::sort, scopes_.size() - 1, sorts_.size()};
    sorts_.push_back(got[static_cast<int>(i)].arg(0).get_sort());
    bind(sort_names_, names[i], entry, command, false);
  }
}

void Z3Reader::push() {
  scopes_.emplace_back();
}

void Z3Reader::pop() {
  if (scopes_.size() < 2) return;  // the caller reports a pop below level 0
  for (auto const& [is_sort, name] : scopes_.back()) {
    auto& table = is_sort ? sort_names_ : fun_names_;
    auto it = table.find(name);
    it->second.pop_back();
    if (it->second.empty()) table.erase(it);
  }
  scopes_.pop_back();
}

bool Z3Reader::mentions_definition(std::vector<std::string_view> const& mentioned) const {
  std::string name;
  for (std::string_view m : mentioned) {
    name.assign(m);
    Entry const* entry = visible(fun_names_, name);
    if (entry != nullptr && entry->kind == Entry::Kind::definition) return true;
  }
  return false;
}

z3::expr Z3Reader::read_assertion(SExpr const& command, SExpr const& term) {
  std::vector<std::string_view> mentioned;
  collect_symbols(term, mentioned);
  z3::expr_vector got = parse("(assert " + std::string(term.text) + ")", mentioned, {}, command);
  return mentions_definition(mentioned) ? expand(got[0]) : got[0];
}

std::vector<z3::expr> Z3Reader::read_assertions(std::vector<SExpr const*> const& commands,
                                                std::vector<SExpr const*> const& terms) {
  std::string text;
  std::vector<std::string_view> mentioned;
  std::vector<std::size_t> ends;  // where each term's mentions end
  for (SExpr const* t : terms) {
    text.append("(assert ").append(t->text).append(")");
    collect_symbols(*t, mentioned);
    ends.push_back(mentioned.size());
  }
  std::vector<z3::expr> out;
  if (terms.empty()) return out;
  z3::expr_vector got(ctx_);
  try {
    got = parse(text, mentioned, {}, *commands.front());
  } catch (ScriptError const&) {
    for (std::size_t i = 0; i < terms.size(); ++i)  // stops at the assertion z3 rejects
      out.push_back(read_assertion(*commands[i], *terms[i]));
    return out;
  }
  std::vector<std::string_view> own;
  for (std::size_t i = 0; i < terms.size(); ++i) {
    own.assign(mentioned.begin() + (i == 0 ? 0 : ends[i - 1]), mentioned.begin() + ends[i]);
    z3::expr const e = got[static_cast<int>(i)];
    out.push_back(mentions_definition(own) ? expand(e) : e);
  }
  return out;
}

z3::expr Z3Reader::expand(z3::expr const& root) {
  std::unordered_map<unsigned, z3::expr> done;  // ast id -> expanded term
  std::vector<Z3_ast> args;
  post_order(
      root, [&](z3::expr const& e) { return done.count(e.id()) != 0; },
      [&](z3::expr const& e) {
        unsigned const n = num_children(e);
        args.clear();
        bool changed = false;
        for (unsigned i = 0; i < n; ++i) {
          z3::expr const c = child(e, i);
          z3::expr const& now = done.at(c.id());
          changed = changed || !z3::eq(now, c);
          args.push_back(now);
        }
        z3::expr result = e;
        auto const def = e.is_app() ? placeholder_of_.find(e.decl().id()) : placeholder_of_.end();
        if (def != placeholder_of_.end()) {
          Definition const& d = definitions_[def->second];
          // Variable i of the body is parameter arity-1-i.
          std::reverse(args.begin(), args.end());
          result =
              n == 0 ? d.body : z3::expr(ctx_, Z3_substitute_vars(ctx_, d.body, n, args.data()));
        } else if (changed) {
          result = z3::expr(ctx_, Z3_update_term(ctx_, e, n, args.data()));
        }
        done.emplace(e.id(), result);
      });
  return done.at(root.id());
}

}  // namespace smtlib
}  // namespace orvo
