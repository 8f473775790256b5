#include "model/model.h"

#include <charconv>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <random>
#include <sstream>

namespace orvo::model {
namespace {

#define ORVO_ITP_MODEL_NAME(name) #name,
char const* const kNames[] = {ORVO_ITP_MODEL_CALL_KINDS(ORVO_ITP_MODEL_NAME)};
#undef ORVO_ITP_MODEL_NAME
static_assert(std::size(kNames) == Op::kinds, "one name per call kind");

void log_hook(Exception const& e) {
  hook_log += e.what();
}

template <class C>
std::string dump_of(C& x) {
  std::ostringstream out;
  std::streambuf* const old = std::cout.rdbuf(out.rdbuf());
  x.debug_dump();
  std::cout.rdbuf(old);
  return out.str();
}

// Writes tables as text, the same way for the classifier's and the model's:
// the bucket count, then the elements in iteration order.
struct Writer {
  std::map<dpll::Clause const*, std::string> const& names;
  std::string& out;
  void put(long long v) {
    char b[24];
    out.append(b, std::to_chars(b, b + sizeof b, v).ptr);
  }
  void put(Symbol const* s) { out += s->get_name(); }
  void put(dpll::Clause const* c) { out += names.count(c) ? names.at(c) : "?"; }
  void put(std::pair<Symbol const*, unsigned> const& e) { put(e.first), out += '=', put(e.second); }
  template <class K>
  void put(std::pair<K, bool> const& set_node) {
    put(set_node.first);
  }
  template <class Cell>  // an undo cell: tag bit 31 is set in the cells that carry an atom
  auto put(Cell const& x) -> decltype(void(x.tag)) {
    x.tag >> 31 ? put(x.atom) : put(x.clause);
    out += '/', put(x.tag);
  }
  template <class T>
  void all(T const& range) {
    for (auto const& x : range)
      out += ' ', put(x);
  }
  template <class T>
  void line(char const* label, T const& table) {
    out += label, put(table.bucket_count()), out += ':', all(table), out += '\n';
  }
  template <class K, class V>
  void line(char const* label, Table<K, V> const& t) {
    out += label, put(t.bucket_count()), out += ':';
    for (auto const& chain : t.chains)
      all(chain);
    out += '\n';
  }
};

}  // namespace

Driver::Driver(std::uint32_t seed)
    : tm_(new TermManager),
      c_(new itp::AtomClassifier),
      previous_handler_(set_assertion_handler(log_hook)) {
  // One draw per statement, so that every compiler builds the same host.
  std::mt19937 rng(seed);
  TermManager& tm = *tm_;
  Type const* u = tm.make_type("U");
  Type const* b = tm.get_bool_type();
  auto sym = [&](std::string const& name, std::size_t arity, Type const* type, bool interpreted) {
    return syms_.emplace_back(tm.make_symbol(name, arity, type, interpreted));
  };
  std::vector<Symbol const*> leaves{sym("0", 0, u, true)};
  unsigned const constants = rng() % 3 ? 6 : 40;  // uninterpreted constants, at most
  for (unsigned i = 0, n = 1 + rng() % constants; i < n; ++i)
    leaves.push_back(sym("x" + S(i), 0, u, false));
  Symbol const* const functions[] = {sym("f", 1, u, false), sym("g", 2, u, false),
                                     sym("+", 2, u, true)};
  Symbol const* const predicates[] = {sym("p", 1, b, false), sym("q", 2, b, false),
                                      sym("=", 2, b, true), sym("b", 0, b, false)};
  syms_.insert(syms_.end(), tm.get_reserved_symbols().begin(), tm.get_reserved_symbols().end());
  auto apply = [&](Symbol const* head, auto&& child) {
    std::vector<Term_ const*> kids;
    for (std::size_t i = 0; i < head->get_arity(); ++i)
      kids.push_back(child());
    return tm.make_term(head, kids);
  };
  std::function<Term_ const*(int)> term = [&](int depth) {
    Symbol const* head =
        depth > 0 && rng() % 2 ? functions[rng() % 3] : leaves[rng() % leaves.size()];
    return apply(head, [&] { return term(depth - 1); });
  };
  auto atom_term = [&] { return apply(predicates[rng() % 4], [&] { return term(rng() % 3); }); };
  // Atom variables: without a term, non-Boolean, headed by `not`/`and`, ordinary.
  for (unsigned i = 0, n = rng() % 4 ? 12 + rng() % 30 : 80 + rng() % 150; i < n; ++i) {
    unsigned const kind = rng() % 10;
    env_.new_atom(kind == 0   ? nullptr
                  : kind == 1 ? term(1)
                  : kind == 2 ? apply(tm.get_reserved_symbols()[2 + rng() % 2], atom_term)
                              : atom_term());
  }
  for (std::size_t v = 0; v < env_.atom_terms.size(); ++v)
    if (Term_ const* t = env_.atom_terms[v])
      terms_.push_back(t), m_.atom_of[t] = static_cast<int>(v);
  for (int i = 0; i < 8; ++i) {  // terms that are no atom, two of them entered as -1
    Term_ const* t = terms_.emplace_back(i % 2 ? term(2) : atom_term());
    if (i < 2 && !m_.atom_of.count(t)) env_.term_atoms[t] = m_.atom_of[t] = -1;
  }
  env_.term_manager = tm_.get();
  m_.env = &env_;
  c_->set_env(&env_);
}

Driver::~Driver() {
  if (failure_.empty()) finish();
  // After a divergence the model's view of the clauses may be wrong: tear down
  // by what the allocator saw, or, without that probe, leak on purpose.
  if (c_ && was_freed && trusted_) {
    forget_frees();
    c_.reset();
    for (auto const& w : m_.words)
      if (!was_freed(w.first)) std::free(const_cast<dpll::Clause*>(w.first));
  }
  (void)c_.release();
  set_assertion_handler(previous_handler_);
}

bool Driver::fail(std::string const& what, bool clauses_untrusted) {
  trusted_ = trusted_ && !clauses_untrusted;
  failure_ = "step " + S(steps_) + " (" + op_name_ + "): " + what;
  return false;
}

template <class C>
void Driver::state(C const& x, std::string& s) const {
  s = "valid " + S(x.symbols_sets_valid()) + " current " + S(x.get_current_group()) +
      " invariants " + S(x.check_invariants()) + "\n";
  Writer w{names_, s};
  for (std::size_t i = 0; i < x.get_groups().size(); ++i) {
    auto const& g = x.get_groups()[i];
    w.put(i), w.line(" atoms ", g.atoms), w.put(i), w.line(" clauses ", g.clauses);
    w.put(i), w.line(" symbols ", g.symbols);
  }
  w.line("btpoint atoms ", x.get_btpoint_atoms());
  w.line("temporary A ", x.get_temporary_A_atoms());
  w.line("temporary B ", x.get_temporary_B_atoms());
  w.line("A groups ", x.get_A_groups());
  w.line("A symbols ", x.get_A_symbols());
  w.line("B symbols ", x.get_B_symbols());
  s += "flags:", w.all(x.get_atom_AB_flags());
  s += "\ntrail:", w.all(x.get_undo_trail());
  s += "\nreference words:";  // of the live clauses, read from the clause or predicted
  for (auto const& [clause, word] : m_.words) {
    s += ' ', w.put(clause), s += '=';
    w.put(std::is_same_v<C, Model> ? word : clause->reference_word());
  }
}

// The clauses that the model says were freed must be, and no others.
bool Driver::check_frees() {
  for (dpll::Clause const* f : m_.freed) {
    if (was_freed && !was_freed(f)) return fail(names_.at(f) + " should have been freed", true);
    for (auto& slot : slots_)
      if (slot == f) slot = nullptr;
  }
  m_.freed.clear();
  for (auto const& w : m_.words)
    if (was_freed && was_freed(w.first))
      return fail(names_.at(w.first) + " was freed while referenced", true);
  return true;
}

// The host's own actions: making a clause, giving back one of its references.
void Driver::host(Op const& op) {
  dpll::Clause* const cl = slots_[op.a % 8];
  if (op.kind == Op::drop_host_reference) {
    --host_refs_[cl];
    dpll::release_reference(cl);
    return m_.release(cl);
  }
  int const number = ++clauses_made_;
  unsigned const refs = op.b % 3, kind = op.c % 7;
  bool const learnt = op.b & 4, t_flag = op.b & 8, extended = op.b & 16;
  int const l_value = static_cast<int>(op.c % 5) - 2;
  std::vector<unsigned> literals;
  std::string text = "C" + S(number) + (learnt ? "L" : "") + (t_flag ? "T" : "") + "(";
  for (unsigned i = 0; i < op.c % 4; ++i) {
    int const v = static_cast<int>((op.a + 5 * i + op.c) % env_.num_atoms());
    bool const negated = (op.c >> (i + 2)) & 1;
    literals.push_back(dpll::make_literal(v, negated));
    text += (i ? " " : "") + std::string(negated ? "~" : "") + S(v);
  }
  static char const* const letters[] = {"A", "N", "I", "L", "D", "", ""};
  text += std::string(" S:") + (extended ? letters[kind] : "A") +
          " L:" + S(extended ? l_value : -1) + " lrnt:" + S(learnt) + ")";
  dpll::Clause* made =
      extended ? dpll::make_extended_clause(number, literals, refs, kind, l_value, learnt, t_flag)
               : dpll::make_clause(number, literals, refs, learnt, t_flag);
  slots_[op.a % 8] = made;
  host_refs_[made] = refs, names_[made] = "c" + S(number), m_.texts[made] = text;
  m_.words[made] = refs | (learnt ? 1u << 30 : 0u) | (t_flag ? 1u << 31 : 0u);
}

// The call on one side; its answer, or the text of what it threw together
// with what the assertion hook saw.
template <class C>
std::string Driver::call(C& x, Op const& op) {
  int const n = static_cast<int>(env_.num_atoms()), groups = static_cast<int>(m_.groups.size());
  int const atom = static_cast<int>(op.a % n), any_atom = static_cast<int>(op.a % (n + 1)) - 1;
  int const group = static_cast<int>(op.b % 67) - 3;  // negative: the default group
  int const existing = groups ? static_cast<int>(op.b % groups) : -1;
  Term_ const* t = terms_[op.a % terms_.size()];
  Term_ const* t2 = terms_[op.b % terms_.size()];
  dpll::Clause const* cl = slots_[op.a % 8];
  bool const flag = op.c & 1;
  std::vector<int> list;  // small group indices, and now and then one beyond the last group
  for (std::uint32_t i = 0, r = op.b * 2654435761u + op.c; i < op.a % 6; ++i) {
    r = r * 1103515245u + 12345u;
    list.push_back(static_cast<int>((r >> 16) % (r % 8 ? 12 : 70)) - 2);
  }
  std::string text;
  Writer w{names_, text};
  auto answer = [&]() -> std::string {
    // clang-format off
    switch (op.kind) {
      case Op::new_group_index: return S(x.new_group_index());
      case Op::reset_group: return x.reset_group(existing), "";
      case Op::add_atom: return x.add_atom(atom, group), "";
      case Op::pre_add_atom: return x.pre_add_atom(atom, group), "";
      case Op::add_atom_to_same_groups: return x.add_atom_to_same_groups(atom, op.b % n), "";
      case Op::add_btpoint_atom: return x.add_btpoint_atom(atom), "";
      case Op::add_temporary_A_atom: return x.add_temporary_A_atom(atom), "";
      case Op::add_temporary_B_atom: return x.add_temporary_B_atom(atom), "";
      case Op::clear_temporary_atoms: return x.clear_temporary_atoms(), "";
      case Op::add_clause: return x.add_clause(cl, group), "";
      case Op::push_backtrack_point: return x.push_backtrack_point(), "";
      case Op::pop_backtrack_point: return x.pop_backtrack_point(), "";
      case Op::gc: return x.gc(flag), "";
      case Op::set_A_groups: return x.set_A_groups(list), "";
      case Op::set_A_groups_range:
        return x.set_A_groups(list.data(), list.data() + list.size()), "";
      case Op::set_frontier: return x.set_frontier(static_cast<int>(op.a % 66) - 2), "";
      case Op::set_current_group: return x.set_current_group(static_cast<int>(op.a % 9) - 1), "";
      case Op::debug_dump: return dump_of(x);
      case Op::has_atom: return S(x.has_atom(any_atom));
      case Op::has_atom_in_group: return S(x.has_atom(any_atom, existing));
      case Op::has_atom_term: return S(x.has_atom(t));
      case Op::is_of_A: return S(x.is_of_A(cl));
      case Op::is_of_B: return S(x.is_of_B(cl));
      case Op::term_is_A_pure: return S(x.term_is_A_pure(t));
      case Op::term_is_B_pure: return S(x.term_is_B_pure(t));
      case Op::term_is_AB_mixed: return S(x.term_is_AB_mixed(t));
      case Op::get_term_status: return S(x.get_term_status(t));
      case Op::term_is_pure_set:
        return S(x.term_is_pure(t, op.b & 1 ? x.get_A_symbols() : x.get_B_symbols(), flag));
      case Op::term_is_pure_map:
        return S(x.term_is_pure(t, x.get_groups()[existing].symbols, flag));
      case Op::symbol_is_common: return S(x.symbol_is_common(syms_[op.a % syms_.size()], flag));
      case Op::term_is_mixed: return S(x.term_is_mixed(t));
      case Op::get_compatible_groups: return w.all(x.get_compatible_groups(t, flag)), text;
      case Op::are_compatible: return S(x.are_compatible(t, t2, flag));
      case Op::get_term_symbols: return w.line("", x.get_term_symbols(t)), text;
      default: return "";  // the host's own actions
    }
    // clang-format on
  };
  hook_log.clear();
  try {
    std::string const result = answer();
    return hook_log + result;
  } catch (itp::AtomClassifier::error const&) {
    return "escaped as AtomClassifier::error";
  } catch (Exception const& e) {
    return hook_log + " => " + e.what();
  } catch (std::exception const& e) {  // e.g. the model meets a clause it does not know
    return std::string("unexpected exception: ") + e.what();
  }
}

bool Driver::compare() {
  static std::string real, model;  // kept, with their storage, from call to call
  state(*c_, real), state(m_, model);
  if (real == model) return true;
  std::size_t const at =
      std::mismatch(real.begin(), real.end(), model.begin(), model.end()).first - real.begin();
  std::size_t const from = at == 0 ? 0 : real.rfind('\n', at - 1) + 1;  // npos + 1 is 0
  auto line = [from](std::string const& s) { return s.substr(from, s.find('\n', from) - from); };
  return fail("state differs:\n  real:  " + line(real) + "\n  model: " + line(model));
}

bool Driver::step(Op const& op) {
  if (!failure_.empty() || finished_) return false;
  ++steps_, op_name_ = kNames[op.kind];
  Op::Kind const k = op.kind;
  dpll::Clause* const cl = slots_[op.a % 8];
  int const existing = m_.groups.empty() ? -1 : static_cast<int>(op.b % m_.groups.size());
  // Skipped: calls without their clause or group, beyond 64 groups, and
  // (outside the contract) resets of a group that a clause cell names.
  if ((!cl && (k == Op::add_clause || k == Op::is_of_A || k == Op::is_of_B ||
               k == Op::drop_host_reference)) ||
      (existing < 0 &&
       (k == Op::reset_group || k == Op::has_atom_in_group || k == Op::term_is_pure_map)) ||
      (k == Op::new_group_index && m_.groups.size() >= 64) ||
      (k == Op::drop_host_reference && !host_refs_[cl]) ||
      (k == Op::reset_group && std::any_of(m_.trail.begin(), m_.trail.end(), [&](Model::Cell x) {
         return x.tag == static_cast<std::uint32_t>(existing);
       })))
    return true;
  if (forget_frees) forget_frees();
  if (k == Op::new_clause || k == Op::drop_host_reference)
    host(op);
  else
    ++calls_;
  std::string const got = call(*c_, op), want = call(m_, op);
  if (!check_frees()) return false;
  if (got != want) return fail("real gave '" + got + "', model expected '" + want + "'");
  return steps_ % compare_every != 0 || compare();
}

bool Driver::finish() {
  if (!failure_.empty() || finished_) return failure_.empty();
  finished_ = true;
  op_name_ = "end of sequence";
  if (!compare()) return false;
  if (dump_of(*c_) != dump_of(m_))
    return fail("dump differs:\n" + dump_of(*c_) + "model:\n" + dump_of(m_));
  if (forget_frees) forget_frees();
  c_.reset();
  m_.destroy();
  if (!check_frees()) return false;
  for (auto const& w : m_.words) {  // what the host still owns
    if (w.first->reference_word() != w.second)
      return fail(names_.at(w.first) + " has a wrong word after destruction");
    std::free(const_cast<dpll::Clause*>(w.first));
  }
  m_.words.clear();
  return true;
}

std::vector<Op> random_ops(std::uint32_t seed) {
  static double const weights[Op::kinds] = {2, 1, 12, 4, 3, 3, 2, 2, 1, 5, 8, 3, 6, 6, 2, 2, 2, 2,
                                            2, 1, 2,  2, 2, 2, 2, 1, 1, 1, 2, 1, 1, 2, 2, 2, 1, 2};
  std::mt19937 rng(seed ^ 0x9E3779B9u);
  std::size_t const n = rng() % 5 == 0 ? 1 + rng() % 40 : 200 + rng() % 1000;
  bool const wide = rng() % 4 == 0;  // whether this sequence uses groups up to 63
  std::vector<double> w(std::begin(weights), std::end(weights));
  if (rng() % 3 == 0) w[Op::pop_backtrack_point] = 1, w[Op::pre_add_atom] = 12;  // groups fill up
  std::discrete_distribution<int> kind(w.begin(), w.end());
  auto byte = [&rng] { return static_cast<unsigned>(rng() & 0xFF); };
  std::vector<Op> ops;
  while (ops.size() < n) {
    Op op{static_cast<Op::Kind>(kind(rng)), byte(), byte(), byte()};
    // Groups and frontiers -1..7, in a wide sequence now and then up to 63.
    bool const grouped =
        op.kind == Op::add_atom || op.kind == Op::pre_add_atom || op.kind == Op::add_clause;
    if (grouped && (!wide || rng() % 8)) op.b = 2 + rng() % 9;
    if (op.kind == Op::set_frontier && (!wide || rng() % 8)) op.a = 1 + rng() % 9;
    ops.push_back(op);
  }
  return ops;
}

std::pair<std::uint32_t, std::vector<Op>> decode_ops(std::uint8_t const* data, std::size_t size) {
  std::vector<Op> ops;
  for (std::size_t i = 2; i + 4 <= size; i += 4)
    ops.push_back(
        {static_cast<Op::Kind>(data[i] % Op::kinds), data[i + 1], data[i + 2], data[i + 3]});
  return {size >= 2 ? data[0] | data[1] << 8 : 0u, ops};
}

Outcome check_sequence(std::uint32_t seed, std::vector<Op> const& ops, unsigned compare_every) {
  // A run on a fresh driver: the failure (empty if none) and the calls up to the failing one.
  auto run = [seed](std::vector<Op> const& v, unsigned every, std::size_t* calls = nullptr) {
    Driver d(seed);
    d.compare_every = every;
    std::size_t i = 0;
    while (i < v.size() && d.step(v[i]))
      ++i;
    d.finish();
    if (calls) *calls = d.calls();
    return std::make_pair(d.failure(),
                          std::vector<Op>(v.begin(), v.begin() + std::min(i + 1, v.size())));
  };
  Outcome out{true, 0, 0, ""};
  auto [failure, v] = run(ops, compare_every, &out.calls);
  if (failure.empty()) return out;
  for (std::size_t chunk = v.size() / 2; chunk > 0;) {  // drop chunks while it still fails
    bool removed = false;
    for (std::size_t i = 0; i + chunk <= v.size();) {
      std::vector<Op> shorter(v);
      shorter.erase(shorter.begin() + i, shorter.begin() + i + chunk);
      auto [still, kept] = run(shorter, 1);
      if (still.empty())
        i += chunk;
      else
        v.swap(kept), removed = true;
    }
    chunk = removed ? std::min(chunk, v.size() / 2 + 1) : chunk / 2;
  }
  std::ostringstream r;
  r << "model divergence, seed " << seed << ", " << ops.size() << " steps shrunk to " << v.size()
    << ":\n"
    << run(v, 1).first << "\nreplay:\n  orvo::model::Driver d(" << seed << "u);\n";
  for (Op const& op : v)
    r << "  ASSERT_TRUE(d.step({orvo::model::Op::" << kNames[op.kind] << ", " << op.a << ", "
      << op.b << ", " << op.c << "})) << d.failure();\n";
  r << "  ASSERT_TRUE(d.finish()) << d.failure();\n";
  return {false, out.calls, v.size(), r.str()};
}

}  // namespace orvo::model
