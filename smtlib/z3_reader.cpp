#include "smtlib/z3_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <utility>

#include "smtlib/names.h"
#include "smtlib/z3_guard.h"
#include "smtlib/z3_walk.h"

namespace orvo {
namespace smtlib {

namespace {

using Clock = std::chrono::steady_clock;

// z3 reports some things (an unknown logic) on standard error by itself. The
// program speaks in its own words: what z3 prints while this object lives is
// kept in a temporary file and handed back by text().
class StderrCapture {
 public:
  StderrCapture() {
    std::fflush(stderr);
    file_ = std::tmpfile();
    saved_ = file_ != nullptr ? ::dup(2) : -1;
    if (saved_ >= 0 && ::dup2(::fileno(file_), 2) < 0) {
      ::close(saved_);
      saved_ = -1;
    }
  }
  StderrCapture(StderrCapture const&) = delete;
  StderrCapture& operator=(StderrCapture const&) = delete;
  ~StderrCapture() {
    restore();
    if (file_ != nullptr) std::fclose(file_);
  }
  std::string text() {
    restore();
    std::string out;
    if (file_ == nullptr) return out;
    std::rewind(file_);
    char buf[512];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, file_)) > 0;)
      out.append(buf, n);
    return out;
  }

 private:
  void restore() {
    if (saved_ < 0) return;
    std::fflush(stderr);
    ::dup2(saved_, 2);
    ::close(saved_);
    saved_ = -1;
  }
  std::FILE* file_ = nullptr;
  int saved_ = -1;
};

// z3 reports unknown logics and similar on standard error; the program
// reports in its own words, so z3 stays quiet.
bool quiet_z3 = (z3::set_param("warning", false), true);

// The constructor, selector and tester names of one datatype declaration
// body: ((c1 (s1 S) ...) c2 ...) in either the current or the older form.
void constructor_names(SExpr const& constructors, std::vector<std::string>& out) {
  for (SExpr const& c : constructors.items) {
    if (c.is_symbol()) {
      out.emplace_back(c.value);
      out.push_back("is-" + std::string(c.value));
      continue;
    }
    if (!c.is_list() || c.items.empty() || !c.items[0].is_symbol())
      throw ScriptError(c.where, "malformed datatype constructor");
    out.emplace_back(c.items[0].value);
    out.push_back("is-" + std::string(c.items[0].value));
    for (std::size_t i = 1; i < c.items.size(); ++i) {
      SExpr const& selector = c.items[i];
      if (!selector.is_list() || selector.items.size() != 2 || !selector.items[0].is_symbol())
        throw ScriptError(selector.where, "malformed datatype selector");
      out.emplace_back(selector.items[0].value);
    }
  }
}

}  // namespace

Z3Reader::Z3Reader(std::string file, std::ostream& warnings, z3::context* shared)
    : file_(std::move(file)),
      warnings_(warnings),
      own_(shared != nullptr ? nullptr : std::make_unique<z3::context>()),
      ctx_(shared != nullptr ? *shared : *own_),
      scopes_(1) {
  (void)quiet_z3;
}

std::string Z3Reader::script_name(std::string_view z3_name) {
  return smtlib::script_name(z3_name);
}

std::string Z3Reader::text_of(z3::expr const& e) {
  return script_text(e.to_string());
}

Z3Reader::Name* Z3Reader::find(std::string_view name) const {
  auto const it = ids_.find(name);
  return it == ids_.end() ? nullptr : it->second;
}

Z3Reader::Name& Z3Reader::intern(std::string_view name) {
  if (Name* n = find(name)) return *n;
  names_.emplace_back();
  Name& n = names_.back();
  n.text.assign(name);
  ids_.emplace(n.text, &n);
  return n;
}

Z3_symbol Z3Reader::symbol_of(Name& name) {
  if (name.symbol == nullptr)
    name.symbol = Z3_mk_string_symbol(ctx_, (name.text + std::string(rename_suffix)).c_str());
  return name.symbol;
}

bool Z3Reader::mark_declaring(std::string_view name) {
  Name& n = intern(name);
  if (n.declaring) return false;
  n.declaring = true;
  declaring_.push_back(&n);
  return true;
}

void Z3Reader::clear_declaring() {
  for (Name* n : declaring_)
    n->declaring = false;
  declaring_.clear();
}

Z3Reader::Entry const* Z3Reader::visible(bool sort, std::string_view name) const {
  Name const* n = find(name);
  if (n == nullptr) return nullptr;
  std::vector<Entry> const& stack = sort ? n->sorts : n->funs;
  return stack.empty() ? nullptr : &stack.back();
}

bool Z3Reader::renamed(std::string_view name) const {
  Name const* n = find(name);
  return (n != nullptr && (n->declaring || !n->funs.empty() || !n->sorts.empty())) ||
         ends_in_suffix(name);
}

void Z3Reader::write(SExpr const& e, std::string& out) const {
  write_flat(e, out, [&](SExpr const& atom, std::string& to) {
    if (atom.is_symbol() && renamed(atom.value))
      to.append("|").append(atom.value).append(rename_suffix).append("|");
    else
      to += atom.text;
  });
}

z3::expr_vector Z3Reader::parse(std::vector<SExpr const*> const& commands,
                                std::string const& extra, Position at) {
  std::string body;
  std::vector<std::string_view> mentioned;
  for (SExpr const* c : commands) {
    write(*c, body);
    collect_symbols(*c, mentioned);
  }
  body += extra;
  return parse_text(body, mentioned, at);
}

z3::expr_vector Z3Reader::parse_text(std::string const& body,
                                     std::vector<std::string_view> const& mentions, Position at) {
  // Each declared name the text mentions, once, in the order it first occurs.
  std::uint64_t const parse = ++parses_;
  std::vector<Name*> mentioned;
  for (std::string_view m : mentions) {
    Name* n = find(m);
    if (n == nullptr || n->met == parse || n->declaring) continue;
    n->met = parse;
    mentioned.push_back(n);
  }
  std::vector<Z3_symbol> sort_symbols, fun_symbols;
  std::vector<Z3_sort> sorts;
  std::vector<Z3_func_decl> funs;
  std::vector<std::size_t> macros;  // sort macros to hand over, with what they use
  std::unordered_set<std::size_t> sort_given;
  // Sorts first, closing over what the sort macros use.
  std::vector<Name*> pending(mentioned.rbegin(), mentioned.rend());
  while (!pending.empty()) {
    Name& name = *pending.back();
    pending.pop_back();
    if (name.declaring || name.sort_met == parse) continue;
    name.sort_met = parse;
    if (name.sorts.empty()) continue;
    Entry const& e = name.sorts.back();
    if (e.kind == Entry::Kind::sort_macro) {
      macros.push_back(e.index);
      for (std::string const& m : sort_macros_[e.index].mentions)
        if (Name* used = find(m)) pending.push_back(used);
    } else if (sort_given.insert(e.index).second) {
      sort_symbols.push_back(symbol_of(name));
      sorts.push_back(sorts_[e.index]);
    }
  }
  for (Name* n : mentioned) {
    if (n->funs.empty()) continue;
    Entry const& e = n->funs.back();
    if (e.kind == Entry::Kind::constructor) {
      // The datatype's sort brings its constructors, selectors and testers.
      if (!sort_given.insert(e.index).second) continue;
      z3::sort const& s = sorts_[e.index];
      sort_symbols.push_back(Z3_get_sort_name(ctx_, s));
      sorts.push_back(s);
      continue;
    }
    Z3_symbol const symbol = symbol_of(*n);
    if (e.kind != Entry::Kind::function) {
      fun_symbols.push_back(symbol);
      funs.push_back(definitions_[e.index].placeholder);
      continue;
    }
    // z3 overloads a function name by its sorts: every declaration of the
    // name down to the nearest definition is visible.
    std::vector<Entry> const& stack = n->funs;
    for (std::size_t k = stack.size(); k-- > 0 && stack[k].kind == Entry::Kind::function;) {
      z3::func_decl const& d = functions_[stack[k].index];
      bool repeated = false;
      for (std::size_t j = stack.size() - 1; j > k && !repeated; --j)
        repeated = z3::eq(functions_[stack[j].index], d);
      if (repeated) continue;
      fun_symbols.push_back(symbol);
      funs.push_back(d);
    }
  }
  std::string text = logic_;
  std::sort(macros.begin(), macros.end());  // in the order the script gave them
  macros.erase(std::unique(macros.begin(), macros.end()), macros.end());
  for (std::size_t m : macros)
    text += sort_macros_[m].text;
  text += body;
  handed_ += text.size() + sorts.size() + funs.size();
  // z3 keeps the last error code until it is set again: clear it first.
  Z3_set_error(ctx_, Z3_OK);
  auto const start = Clock::now();
  Z3ExitGuard const guard(printable_utf8(file_), at);
  Z3_ast_vector raw = Z3_parse_smtlib2_string(
      ctx_, text.c_str(), static_cast<unsigned>(sorts.size()), sort_symbols.data(), sorts.data(),
      static_cast<unsigned>(funs.size()), fun_symbols.data(), funs.data());
  parse_time_ += Clock::now() - start;
  Z3_error_code const code = Z3_get_error_code(ctx_);
  if (code != Z3_OK) {
    char const* said = Z3_get_error_msg(ctx_, code);
    std::string const message = said != nullptr ? said : "out of memory";
    Z3_set_error(ctx_, Z3_OK);
    throw ScriptError(at, "z3 rejects the command: " + z3_message(message));
  }
  return z3::expr_vector(ctx_, raw);
}

void Z3Reader::check_arity(SExpr const& command, std::size_t min_items,
                           std::size_t max_items) const {
  std::size_t const n = command.items.size();
  if (n < min_items || n > max_items || !command.items[1].is_symbol())
    throw ScriptError(command.where, "malformed '" + std::string(command.head()) + "' command");
}

void Z3Reader::bind(bool sort, std::string_view name, Entry entry, SExpr const& at,
                    bool same_meaning) {
  Name& n = intern(name);
  std::vector<Entry>& stack = meanings(n, sort);
  if (!stack.empty() && stack.back().scope == entry.scope) {
    if (same_meaning) return;  // the same declaration again: nothing new
    throw ScriptError(at.where, "'" + printable_utf8(name) +
                                    "' is already declared in this scope with another meaning");
  }
  stack.push_back(entry);
  record(sort, &n);
}

void Z3Reader::set_logic(SExpr const& command) {
  check_arity(command, 2, 2);
  std::string const text = "(set-logic " + std::string(command.items[1].text) + ")";
  std::string said;
  {
    StderrCapture capture;
    std::string const saved = std::move(logic_);
    logic_.clear();
    try {
      parse_text(text, {}, command.where);
    } catch (...) {
      logic_ = saved;
      throw;
    }
    said = capture.text();
  }
  if (said.empty()) {
    logic_ = text;
    return;
  }
  logic_.clear();
  warnings_ << printable_utf8(file_) << ":" << command.where.line << ":" << command.where.column
            << ": warning: z3 does not know the logic '" << printable_utf8(command.items[1].value)
            << "'; reading with every theory z3 has\n";
}

void Z3Reader::declare_sort(SExpr const& command) {
  check_arity(command, 2, 3);
  std::string_view const name = command.items[1].value;
  std::size_t arity = 0;
  if (command.items.size() == 3) {
    SExpr const& n = command.items[2];
    if (n.kind != SExpr::Kind::numeral || n.value.size() > 4)
      throw ScriptError(n.where, "the arity of a sort is a numeral below 10000");
    arity = std::stoul(std::string(n.value));
  }
  if (arity > 0) {
    // Handed over as text, like a define-sort with parameters: z3 makes the
    // same sort of every instance, (Pair Int Bool), in every parse.
    mark_declaring(name);
    std::string text;
    write(command, text);
    clear_declaring();
    bind(true, name, Entry{Entry::Kind::sort_macro, scopes_.size() - 1, sort_macros_.size()},
         command, false);
    sort_macros_.push_back(SortMacro{std::move(text), {}});
    return;
  }
  Entry const entry{Entry::Kind::sort, scopes_.size() - 1, sorts_.size()};
  sorts_.push_back(ctx_.uninterpreted_sort((std::string(name) + std::string(rename_suffix)).c_str()));
  bind(true, name, entry, command, false);
}

void Z3Reader::define_sort(SExpr const& command) {
  check_arity(command, 4, 4);
  std::string_view const name = command.items[1].value;
  if (!command.items[2].is_list())
    throw ScriptError(command.where, "malformed 'define-sort' command");
  mark_declaring(name);
  Declaring const declaring{*this};
  if (!command.items[2].items.empty()) {
    parse({&command}, {}, command.where);  // checks it
    std::string text;
    write(command, text);
    std::vector<std::string_view> uses;
    collect_symbols(command.items[3], uses);
    bind(true, name, Entry{Entry::Kind::sort_macro, scopes_.size() - 1, sort_macros_.size()},
         command, false);
    sort_macros_.push_back(SortMacro{std::move(text), {uses.begin(), uses.end()}});
    return;
  }
  std::string const probe = "|probe|";
  std::string const sort = z3_symbol(name);
  z3::expr_vector got = parse({&command},
                              "(declare-fun " + probe + " () " + sort + ")(assert (= " + probe +
                                  " " + probe + "))",
                              command.where);
  Entry const entry{Entry::Kind::sort, scopes_.size() - 1, sorts_.size()};
  sorts_.push_back(got[0].arg(0).get_sort());
  bind(true, name, entry, command, false);
}

std::string Z3Reader::declaration_probe(SExpr const& command) const {
  bool const is_const = command.head() == "declare-const";
  if (command.items.size() != (is_const ? 3u : 4u) || !command.items[1].is_symbol() ||
      (!is_const && !command.items[2].is_list()))
    return {};
  std::string const f = z3_symbol(command.items[1].value);
  std::size_t const arity = is_const ? 0 : command.items[2].items.size();
  if (arity == 0) return "(assert (= " + f + " " + f + "))";
  std::string binders, args;
  for (std::size_t i = 0; i < arity; ++i) {
    std::string const v = "|v" + std::to_string(i) + "|";
    binders += "(" + v + " ";
    write(command.items[2].items[i], binders);
    binders += ")";
    args += " " + v;
  }
  return "(assert (forall (" + binders + ") (= (" + f + args + ") (" + f + args + "))))";
}

void Z3Reader::bind_function(SExpr const& command, z3::expr const& probe) {
  std::string_view const name = command.items[1].value;
  z3::expr const e = probe.is_quantifier() ? probe.body().arg(0) : probe.arg(0);
  z3::func_decl const decl = e.decl();
  std::size_t const scope = scopes_.size() - 1;
  Name& n = intern(name);
  std::vector<Entry>& stack = n.funs;
  // The same declaration again in one scope adds nothing; another one of
  // the same name overloads it by its sorts, as z3 does.
  for (std::size_t k = stack.size(); k-- > 0 && stack[k].scope == scope;) {
    if (stack[k].kind != Entry::Kind::function)
      throw ScriptError(command.where, "'" + printable_utf8(name) +
                                           "' is already declared in this scope with another meaning");
    if (z3::eq(functions_[stack[k].index], decl)) return;
  }
  stack.push_back(Entry{Entry::Kind::function, scope, functions_.size()});
  record(false, &n);
  functions_.push_back(decl);
}

void Z3Reader::declare_fun(SExpr const& command) {
  // z3 checks the command first; the probe after it then names the new
  // function, so that its declaration can be taken from the term z3 returns.
  if (command.items.size() < 2 || !command.items[1].is_symbol())
    throw ScriptError(command.where, "malformed '" + std::string(command.head()) + "' command");
  mark_declaring(command.items[1].value);
  Declaring const declaring{*this};
  std::string const probe = declaration_probe(command);
  z3::expr_vector const got = parse({&command}, probe, command.where);
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
  if (commands.empty()) return;
  for (SExpr const* c : commands) {
    if (c->items.size() < 2 || !c->items[1].is_symbol()) return one_by_one();
    if (!mark_declaring(c->items[1].value)) {
      clear_declaring();
      return one_by_one();
    }
  }
  std::string probes;
  for (SExpr const* c : commands) {
    std::string const probe = declaration_probe(*c);
    if (probe.empty()) {
      clear_declaring();
      return one_by_one();
    }
    probes += probe;
  }
  // The probes follow all the declarations: z3 reads them in one text.
  z3::expr_vector got(ctx_);
  try {
    got = parse(commands, probes, commands.front()->where);
  } catch (ScriptError const&) {
    clear_declaring();
    return one_by_one();
  }
  clear_declaring();
  for (std::size_t i = 0; i < commands.size(); ++i)
    bind_function(*commands[i], got[static_cast<int>(i)]);
}

void Z3Reader::define_fun(SExpr const& command) {
  check_arity(command, 5, 5);
  std::string_view const name = command.items[1].value;
  SExpr const& params = command.items[2];
  if (!params.is_list()) throw ScriptError(command.where, "malformed 'define-fun' command");
  std::size_t const arity = params.items.size();
  for (SExpr const& p : params.items)
    if (!p.is_list() || p.items.size() != 2 || !p.items[0].is_symbol())
      throw ScriptError(p.where, "malformed parameter of 'define-fun'");
  mark_declaring(name);
  Declaring const declaring{*this};
  std::string const f = z3_symbol(name);
  std::string probe;
  if (arity == 0) {
    probe = "(assert (= " + f + " " + f + "))";
  } else {
    std::string args, binders;
    write(params, binders);
    for (SExpr const& p : params.items) {
      args += " ";
      write(p.items[0], args);
    }
    probe = "(assert (forall " + binders + " (= (" + f + args + ") (" + f + args + "))))";
  }
  z3::expr_vector const got = parse({&command}, probe, command.where);
  z3::expr const q = got[0];
  z3::expr const body = expand(arity == 0 ? q.arg(0) : q.body().arg(0));
  std::vector<Z3_sort> domain;
  for (std::size_t i = 0; i < arity; ++i)
    domain.push_back(Z3_get_quantifier_bound_sort(ctx_, q, static_cast<unsigned>(i)));
  z3::func_decl placeholder(ctx_, Z3_mk_fresh_func_decl(ctx_, "def", static_cast<unsigned>(arity),
                                                        domain.data(), body.get_sort()));
  Entry const entry{Entry::Kind::definition, scopes_.size() - 1, definitions_.size()};
  bind(false, name, entry, command, false);
  placeholder_of_[placeholder.id()] = definitions_.size();
  definitions_.push_back(Definition{placeholder, body, static_cast<unsigned>(arity)});
}

void Z3Reader::name_term(std::string const& name, z3::expr const& term) {
  // A popped name's slot and placeholder of the same sort are used again:
  // z3 never frees a fresh declaration's name.
  std::size_t index = definitions_.size();
  std::vector<std::size_t>& spare = spare_names_[term.get_sort().id()];
  if (!spare.empty()) {
    index = spare.back();
    spare.pop_back();
    definitions_[index].body = term;
  } else {
    z3::func_decl placeholder(ctx_,
                              Z3_mk_fresh_func_decl(ctx_, "def", 0, nullptr, term.get_sort()));
    placeholder_of_[placeholder.id()] = index;
    definitions_.push_back(Definition{placeholder, term, 0});
  }
  // A name given again replaces the earlier meaning (the query rules allow
  // several assertions with one name), also within one scope.
  Name& n = intern(name);
  n.funs.push_back(Entry{Entry::Kind::definition, scopes_.size() - 1, index});
  record(false, &n);
}

void Z3Reader::declare_datatypes(SExpr const& command) {
  std::vector<std::string> names;                  // the datatypes
  std::vector<std::vector<std::string>> members;  // each one's constructors, selectors, testers
  bool const single = command.head() == "declare-datatype";
  if (single) {
    check_arity(command, 3, 3);
    if (command.items[2].head() == "par")
      throw ScriptError(command.where, "datatypes with parameters are not supported");
    if (!command.items[2].is_list())
      throw ScriptError(command.where, "malformed 'declare-datatype' command");
    names.emplace_back(command.items[1].value);
    members.emplace_back();
    constructor_names(command.items[2], members.back());
  } else {
    if (command.items.size() != 3 || !command.items[1].is_list() || !command.items[2].is_list())
      throw ScriptError(command.where, "malformed 'declare-datatypes' command");
    SExpr const& bodies = command.items[2];
    if (command.items[1].items.empty()) {
      // The older form: (declare-datatypes () ((D ctor ...) ...)).
      for (SExpr const& d : bodies.items) {
        if (!d.is_list() || d.items.empty() || !d.items[0].is_symbol())
          throw ScriptError(d.where, "malformed datatype declaration");
        names.emplace_back(d.items[0].value);
        members.emplace_back();
        for (std::size_t i = 1; i < d.items.size(); ++i) {
          SExpr const& c = d.items[i];
          if (c.is_symbol()) {
            members.back().emplace_back(c.value);
            members.back().push_back("is-" + std::string(c.value));
          } else if (c.is_list() && !c.items.empty() && c.items[0].is_symbol()) {
            members.back().emplace_back(c.items[0].value);
            members.back().push_back("is-" + std::string(c.items[0].value));
            for (std::size_t k = 1; k < c.items.size(); ++k)
              if (c.items[k].is_list() && !c.items[k].items.empty() &&
                  c.items[k].items[0].is_symbol())
                members.back().emplace_back(c.items[k].items[0].value);
          } else {
            throw ScriptError(c.where, "malformed datatype constructor");
          }
        }
      }
    } else {
      for (SExpr const& d : command.items[1].items) {
        if (!d.is_list() || d.items.size() != 2 || !d.items[0].is_symbol())
          throw ScriptError(d.where, "malformed datatype name and arity");
        if (d.items[1].value != "0")
          throw ScriptError(d.where, "datatypes with parameters are not supported ('" +
                                         printable_utf8(d.items[0].value) + "')");
        names.emplace_back(d.items[0].value);
      }
      if (bodies.items.size() != names.size())
        throw ScriptError(command.where, "malformed 'declare-datatypes' command");
      for (SExpr const& b : bodies.items) {
        if (b.head() == "par")
          throw ScriptError(b.where, "datatypes with parameters are not supported");
        if (!b.is_list()) throw ScriptError(b.where, "malformed datatype declaration");
        members.emplace_back();
        constructor_names(b, members.back());
      }
    }
  }
  std::string probe;
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::string const v = "|d" + std::to_string(i) + "|";
    probe.append("(declare-fun ").append(v).append(" () ").append(z3_symbol(names[i]));
    probe.append(")(assert (= ").append(v).append(" ").append(v).append("))");
  }
  clear_declaring();
  for (std::size_t i = 0; i < names.size(); ++i) {
    mark_declaring(names[i]);
    for (std::string const& m : members[i])
      mark_declaring(m);
  }
  z3::expr_vector got(ctx_);
  {
    Declaring const declaring{*this};
    got = parse({&command}, probe, command.where);
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::size_t const index = sorts_.size();
    sorts_.push_back(got[static_cast<int>(i)].arg(0).get_sort());
    bind(true, names[i], Entry{Entry::Kind::sort, scopes_.size() - 1, index}, command, false);
    for (std::string const& m : members[i])
      bind(false, m, Entry{Entry::Kind::constructor, scopes_.size() - 1, index}, command,
           false);
  }
}

void Z3Reader::record(bool sort, Name* name) {
  scopes_.back().emplace_back(sort, name);
  if (scopes_.size() > 1) ++local_bindings_;
}

void Z3Reader::push() {
  scopes_.emplace_back();
}

void Z3Reader::pop() {
  if (scopes_.size() < 2) return;
  for (auto const& [is_sort, name] : scopes_.back()) {
    std::vector<Entry>& stack = meanings(*name, is_sort);
    if (stack.back().kind == Entry::Kind::definition) {
      // Gone with its name: no term read later can hold its placeholder,
      // and z3 may free the body (a named assertion's whole term). A
      // constant's slot waits for the next name of its sort.
      std::size_t const index = stack.back().index;
      Definition& d = definitions_[index];
      if (d.arity == 0)
        spare_names_[d.placeholder.range().id()].push_back(index);
      else
        placeholder_of_.erase(d.placeholder.id());
      // Copied from a named handle: z3++'s move assignment would keep the
      // old term's reference.
      z3::expr const released = ctx_.bool_val(true);
      d.body = released;
    }
    stack.pop_back();
  }
  local_bindings_ -= scopes_.back().size();
  scopes_.pop_back();
}

bool Z3Reader::mentions_definition(std::vector<std::string_view> const& mentioned,
                                   std::size_t from, std::size_t to) const {
  for (std::size_t i = from; i < to; ++i) {
    Entry const* entry = visible(false, mentioned[i]);
    if (entry != nullptr && entry->kind == Entry::Kind::definition) return true;
  }
  return false;
}

z3::expr Z3Reader::read_term(SExpr const& term, Position at) {
  std::vector<std::string_view> mentioned;
  collect_symbols(term, mentioned);
  std::string text = "(assert ";
  write(term, text);
  text += ")";
  z3::expr_vector got = parse_text(text, mentioned, at);
  if (got.size() != 1) throw ScriptError(at, "expected one term");
  return mentions_definition(mentioned, 0, mentioned.size()) ? expand(got[0]) : got[0];
}

std::vector<z3::expr> Z3Reader::read_assertions(std::vector<SExpr const*> const& commands,
                                                std::vector<SExpr const*> const& terms) {
  std::vector<z3::expr> out;
  if (try_read_assertions(commands, terms, out)) return out;
  out.clear();
  for (std::size_t i = 0; i < terms.size(); ++i)  // stops at the assertion z3 rejects
    out.push_back(read_term(*terms[i], commands[i]->where));
  return out;
}

bool Z3Reader::try_read_assertions(std::vector<SExpr const*> const& commands,
                                   std::vector<SExpr const*> const& terms,
                                   std::vector<z3::expr>& out) {
  std::string text;
  std::vector<std::string_view> mentioned;
  std::vector<std::size_t> ends;  // where each term's mentions end
  for (SExpr const* t : terms) {
    text.append("(assert ");
    write(*t, text);
    text.append(")");
    collect_symbols(*t, mentioned);
    ends.push_back(mentioned.size());
  }
  if (terms.empty()) return true;
  z3::expr_vector got(ctx_);
  try {
    got = parse_text(text, mentioned, commands.front()->where);
  } catch (ScriptError const&) {
    return false;
  }
  for (std::size_t i = 0; i < terms.size(); ++i) {
    z3::expr const e = got[static_cast<int>(i)];
    out.push_back(mentions_definition(mentioned, i == 0 ? 0 : ends[i - 1], ends[i]) ? expand(e)
                                                                                     : e);
  }
  return true;
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
        // A raw result, wrapped once: z3++'s move assignment would drop the
        // old handle without giving its reference back.
        Z3_ast result = e;
        auto const def = e.is_app() ? placeholder_of_.find(e.decl().id()) : placeholder_of_.end();
        if (def != placeholder_of_.end()) {
          Definition const& d = definitions_[def->second];
          // Variable i of the body is parameter arity-1-i.
          std::reverse(args.begin(), args.end());
          result = n == 0 ? static_cast<Z3_ast>(d.body)
                          : Z3_substitute_vars(ctx_, d.body, n, args.data());
        } else if (changed) {
          result = Z3_update_term(ctx_, e, n, args.data());
        }
        done.emplace(e.id(), z3::expr(ctx_, result));
      });
  return done.at(root.id());
}

}  // namespace smtlib
}  // namespace orvo
