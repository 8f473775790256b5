#include <algorithm>
#include <iostream>
#include <sstream>
#include <utility>

#include "classify/script_player.h"

namespace orvo {
namespace classify {

using smtlib::ScriptError;
using smtlib::SExpr;

namespace {

// One item of a query: a name or (and n1 n2 ...), with the first position
// of its subtree.
struct Item {
  SExpr const* node;
  std::size_t first;
};

}  // namespace

std::vector<int> ScriptPlayer::resolve(SExpr const& name) const {
  if (!name.is_symbol()) throw ScriptError(name.where, "expected an assertion name");
  auto it = names_.find(name.value);
  if (it == names_.end())
    throw ScriptError(name.where, "unknown assertion name '" + name.value + "'");
  std::vector<int> live;
  for (int g : it->second)
    if (groups_[g].live) live.push_back(g);
  if (live.empty()) live.push_back(it->second.back());
  return live;
}

void ScriptPlayer::query(SExpr const& command) {
  auto const start = Clock::now();
  // Items in post-order, each with the first position of its subtree.
  std::vector<Item> items;
  struct Frame {
    SExpr const* list;
    std::size_t next;
    std::size_t first;
  };
  std::vector<Frame> stack{{&command, 1, 0}};
  while (!stack.empty()) {
    Frame& f = stack.back();
    if (f.next == f.list->items.size()) {
      stack.pop_back();
      continue;
    }
    SExpr const& e = f.list->items[f.next++];
    if (e.is_symbol() || e.head() == "and") {
      items.push_back(Item{&e, f.first});
    } else if (e.is_list() && !e.items.empty()) {
      stack.push_back(Frame{&e, 0, items.size()});
    } else {
      throw ScriptError(e.where, "expected an assertion name, (and ...) or a subtree");
    }
  }
  std::vector<std::vector<int>> positions;
  for (Item const& item : items) {
    std::vector<int> groups;
    if (item.node->is_symbol()) {
      groups = resolve(*item.node);
    } else {
      if (item.node->items.size() < 2)
        throw ScriptError(item.node->where, "(and ...) names at least one assertion");
      for (std::size_t i = 1; i < item.node->items.size(); ++i)
        for (int g : resolve(item.node->items[i]))
          groups.push_back(g);
    }
    positions.push_back(std::move(groups));
  }
  QueryReport q;
  q.line = command.where.line;
  if (items.size() >= 2) {
    // One index answers every cut of the query; a sequence query (every
    // subtree starts at position 0) gets all its status counts at once.
    itp::CutIndex index(classifier_, positions);
    bool const sequence =
        std::all_of(items.begin(), items.end(), [](Item const& it) { return it.first == 0; });
    std::vector<itp::CutIndex::StatusCounts> prefix;
    std::vector<std::vector<std::string>> common;
    if (sequence) {
      prefix = index.prefix_status_counts();
      common = prefix_common(positions);
    }
    std::vector<int> A;  // the A groups of the cut, sorted; grown cut by cut for a sequence
    for (std::size_t i = 0; i + 1 < items.size(); ++i) {
      if (!sequence) A.clear();
      for (std::size_t p = sequence ? i : items[i].first; p <= i; ++p)
        for (int g : positions[p])
          A.insert(std::lower_bound(A.begin(), A.end(), g), g);
      A.erase(std::unique(A.begin(), A.end()), A.end());
      Cut const cut{smtlib::flat_text(*items[i].node), A, static_cast<int>(items[i].first),
                    static_cast<int>(i)};
      PartitionReport r =
          by_index(index, cut, sequence ? &prefix[i] : nullptr, sequence ? &common[i] : nullptr);
      if (options_.check || options_.dump) {
        PartitionReport c = by_classifier(cut);
        if (options_.check) compare(r, c, *items[i].node);
        r.dump = std::move(c.dump);
      }
      q.partitions.push_back(std::move(r));
    }
  }
  report_.timing.partitions += q.partitions.size();
  report_.queries.push_back(std::move(q));
  report_.timing.queries += seconds_since(start);
}

void ScriptPlayer::name_A_groups(Cut const& cut, PartitionReport& r) const {
  std::size_t const n = cut.A.size();
  r.A_count = n;
  for (std::size_t i = 0; i < n; ++i) {
    if (!lists() && n > 12 && i == 5) i = n - 4;
    r.A.push_back(groups_[cut.A[i]].name);
  }
}

std::vector<int> ScriptPlayer::held_atoms() const {
  std::vector<char> held(env_.num_atoms(), 0);
  for (auto const& group : classifier_.get_groups())
    for (int a : group.atoms)
      held[a] = 1;
  std::vector<int> out;
  for (std::size_t a = 0; a < held.size(); ++a)
    if (held[a]) out.push_back(static_cast<int>(a));
  return out;
}

void ScriptPlayer::names_of(std::vector<Symbol const*> const& symbols,
                            std::vector<std::string>& out) const {
  for (Symbol const* s : symbols)
    add_name(s, out);
  std::sort(out.begin(), out.end());
}

std::vector<std::vector<std::string>> ScriptPlayer::prefix_common(
    std::vector<std::vector<int>> const& positions) const {
  int const n = static_cast<int>(positions.size());
  auto const& groups = classifier_.get_groups();
  std::vector<int> enters(groups.size(), n);  // first position of each group; n: none
  for (int p = n; p-- > 0;)
    for (int g : positions[p])
      if (g >= 0 && static_cast<std::size_t>(g) < groups.size()) enters[g] = p;
  std::unordered_map<Symbol const*, std::pair<int, int>> span;  // [in A from, in B below)
  for (std::size_t g = 0; g < groups.size(); ++g)
    for (auto const& entry : groups[g].symbols) {
      if (tm_.is_interpreted(entry.first)) continue;
      auto [it, fresh] = span.emplace(entry.first, std::make_pair(enters[g], enters[g]));
      if (!fresh) {
        it->second.first = std::min(it->second.first, enters[g]);
        it->second.second = std::max(it->second.second, enters[g]);
      }
    }
  std::vector<std::vector<Symbol const*>> starts(n + 1), stops(n + 1);
  for (auto const& [symbol, range] : span) {
    if (range.first >= range.second) continue;
    starts[range.first].push_back(symbol);
    stops[range.second].push_back(symbol);
  }
  std::vector<std::vector<std::string>> out(n);
  std::unordered_set<Symbol const*> active;
  for (int r = 0; r < n; ++r) {
    for (Symbol const* s : starts[r])
      active.insert(s);
    for (Symbol const* s : stops[r])
      active.erase(s);
    for (Symbol const* s : active)
      out[r].push_back(terms_.name_of(s));
    std::sort(out[r].begin(), out[r].end());
  }
  return out;
}

PartitionReport ScriptPlayer::by_index(itp::CutIndex& index, Cut const& cut,
                                       itp::CutIndex::StatusCounts const* prefix,
                                       std::vector<std::string>* prefix_common) {
  PartitionReport r;
  r.node = cut.node;
  name_A_groups(cut, r);
  if (prefix_common != nullptr) {
    r.common = std::move(*prefix_common);
  } else {
    index.get_A_symbols(cut.first, cut.last, scratch_);
    for (Symbol const* s : scratch_)
      if (!tm_.is_interpreted(s) && index.symbol_is_common(s, cut.first, cut.last, true))
        r.common.push_back(terms_.name_of(s));
    std::sort(r.common.begin(), r.common.end());
  }
  if (lists()) {
    index.get_A_symbols(cut.first, cut.last, scratch_);
    names_of(scratch_, r.A_symbols);
    index.get_B_symbols(cut.first, cut.last, scratch_);
    names_of(scratch_, r.B_symbols);
  }
  itp::CutIndex::StatusCounts const n =
      prefix != nullptr ? *prefix : index.status_counts(cut.first, cut.last);
  r.atoms = StatusCounts{n.A, n.B, n.mixed};
  if (options_.atoms || options_.check)
    for (int a : held_atoms())
      r.atom_list.push_back(
          AtomStatus{atom_exprs_[a].to_string(),
                     index.get_term_status(env_.atom_terms[a], cut.first, cut.last)});
  return r;
}

PartitionReport ScriptPlayer::by_classifier(Cut const& cut) {
  PartitionReport r;
  r.node = cut.node;
  name_A_groups(cut, r);
  std::vector<int> const& A = cut.A;
  if (!A.empty() && A.front() == 0 && A.back() == static_cast<int>(A.size()) - 1)
    classifier_.set_frontier(A.back());
  else
    classifier_.set_A_groups(A);
  auto const& B_set = classifier_.get_B_symbols();
  scratch_.assign(classifier_.get_A_symbols().begin(), classifier_.get_A_symbols().end());
  for (Symbol const* s : scratch_)
    if (!tm_.is_interpreted(s) && B_set.find(s) != B_set.end())
      r.common.push_back(terms_.name_of(s));
  std::sort(r.common.begin(), r.common.end());
  names_of(scratch_, r.A_symbols);
  scratch_.assign(B_set.begin(), B_set.end());
  names_of(scratch_, r.B_symbols);
  for (int a : held_atoms()) {
    int const status = classifier_.get_term_status(env_.atom_terms[a]);
    (status == 0 ? r.atoms.A : status == 1 ? r.atoms.B : r.atoms.mixed) += 1;
    r.atom_list.push_back(AtomStatus{atom_exprs_[a].to_string(), status});
  }
  if (options_.dump) {
    std::ostringstream text;
    std::streambuf* const old = std::cout.rdbuf(text.rdbuf());
    try {
      classifier_.debug_dump();
    } catch (...) {
      std::cout.rdbuf(old);
      throw;
    }
    std::cout.rdbuf(old);
    r.dump = text.str();
  }
  return r;
}

void ScriptPlayer::compare(PartitionReport const& index, PartitionReport const& classifier,
                           SExpr const& item) {
  char const* field = index.A_symbols != classifier.A_symbols   ? "the A symbols"
                      : index.B_symbols != classifier.B_symbols ? "the B symbols"
                      : index.common != classifier.common       ? "the common symbols"
                      : index.atoms.A != classifier.atoms.A ||
                              index.atoms.B != classifier.atoms.B ||
                              index.atoms.mixed != classifier.atoms.mixed
                          ? "the atom counts"
                          : nullptr;
  for (std::size_t a = 0; field == nullptr && a < index.atom_list.size(); ++a)
    if (index.atom_list[a].status != classifier.atom_list[a].status) field = "an atom's status";
  if (field != nullptr)
    throw ScriptError(item.where, std::string("the cut index and the classifier differ on ") +
                                      field + " of partition " + index.node);
}

void ScriptPlayer::add_name(Symbol const* s, std::vector<std::string>& out) const {
  if (!tm_.is_interpreted(s)) out.push_back(terms_.name_of(s));
}

}  // namespace classify
}  // namespace orvo
