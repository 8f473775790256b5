// Cut index: the placement of every symbol and atom over the positions of a
// query, and the range and prefix queries answered from it.
#include "classifier/cut_index.h"

#include <algorithm>
#include <utility>

#include "support/contract.h"

namespace orvo {
namespace itp {

namespace {

constexpr int unknown = -1;  // prefix memo: term not yet walked
constexpr int entered = -2;  // prefix memo: children scheduled, not yet combined

// Gives every distinct key of the tables of the groups that count a number, in
// order of first sight, and lists the groups holding each key by their local
// number (the index into group_ids): key k's groups are
// key_groups[key_begin[k] .. key_begin[k + 1]), ascending.
template <class Key, class ForEachKey>
void gather_keys(std::vector<AtomClassifier::Group> const& groups,
                 std::vector<int> const& group_ids, ForEachKey for_each_key,
                 hsh::HashMap<Key, int>& key_of, std::vector<Key>& keys,
                 std::vector<int>& key_begin, std::vector<int>& key_groups) {
  std::vector<std::pair<int, int>> held;  // (key, local group)
  for (std::size_t g = 0; g < group_ids.size(); ++g) {
    for_each_key(groups[static_cast<std::size_t>(group_ids[g])], [&](Key const& k) {
      auto it = key_of.find(k);
      int key;
      if (it != key_of.end()) {
        key = it->second;
      } else {
        key = static_cast<int>(keys.size());
        keys.push_back(k);
        key_of[k] = key;
      }
      held.emplace_back(key, static_cast<int>(g));
    });
  }
  key_begin.assign(keys.size() + 1, 0);
  for (auto const& h : held)
    ++key_begin[static_cast<std::size_t>(h.first) + 1];
  for (std::size_t k = 0; k < keys.size(); ++k)
    key_begin[k + 1] += key_begin[k];
  std::vector<int> next(key_begin.begin(), key_begin.end() - 1);
  key_groups.resize(held.size());
  for (auto const& h : held)
    key_groups[static_cast<std::size_t>(next[static_cast<std::size_t>(h.first)]++)] = h.second;
}

// Gives the stand-in for the groups outside the counted ones (local number
// `elsewhere`) to every key that more groups hold than the counted groups
// the holder counts know. Its number is the largest: each key's groups stay
// ascending.
template <class Key, class Holders>
void add_elsewhere(std::vector<Key> const& keys, Holders holders, HolderCounts const& counts,
                   std::vector<int> const& group_ids, int elsewhere, std::vector<int>& key_begin,
                   std::vector<int>& key_groups) {
  std::vector<int> begin(keys.size() + 1, 0), groups;
  groups.reserve(key_groups.size() + keys.size());
  for (std::size_t k = 0; k < keys.size(); ++k) {
    unsigned known = 0;
    for (int i = key_begin[k]; i < key_begin[k + 1]; ++i) {
      int const g = key_groups[static_cast<std::size_t>(i)];
      groups.push_back(g);
      if (counts.has(group_ids[static_cast<std::size_t>(g)])) ++known;
    }
    if (holders(keys[k]) > known) groups.push_back(elsewhere);
    begin[k + 1] = static_cast<int>(groups.size());
  }
  key_begin.swap(begin);
  key_groups.swap(groups);
}

// Whether registering an atom with term `t` counts t's symbols in its group.
bool counts_symbols(TermManager const* tm, Term_ const* t) {
  Symbol const* head = t->get_symbol();
  return head->get_output_type() == tm->get_bool_type() && !tm->is_reserved(head);
}

}  // namespace

// ---- Holder counts.

HolderCounts::HolderCounts(AtomClassifier const& classifier) : classifier_(classifier) {}

void HolderCounts::add(int group) {
  change(group, true);
}

void HolderCounts::remove(int group) {
  change(group, false);
}

bool HolderCounts::has(int group) const {
  return group >= 0 && static_cast<std::size_t>(group) < in_.size() &&
         in_[static_cast<std::size_t>(group)] != 0;
}

unsigned HolderCounts::symbol_holders(Symbol const* s) const {
  auto const it = symbols_.find(s);
  return it == symbols_.end() ? 0 : it->second;
}

unsigned HolderCounts::atom_holders(int atom) const {
  return atom >= 0 && static_cast<std::size_t>(atom) < atom_holders_.size()
             ? atom_holders_[static_cast<std::size_t>(atom)]
             : 0;
}

void HolderCounts::change(int group, bool add) {
  auto const& groups = classifier_.get_groups();
  if (group < 0 || static_cast<std::size_t>(group) >= groups.size() || has(group) == add) return;
  Environment const* env = classifier_.get_env();
  ORVO_ITP_REQUIRE(env != nullptr, add ? "HolderCounts::add" : "HolderCounts::remove",
                   "classifier without environment, group", group);
  auto const g = static_cast<std::size_t>(group);
  if (g >= in_.size()) in_.resize(g + 1, 0);
  in_[g] = add ? 1 : 0;
  TermManager const* tm = env->term_manager;
  for (auto const& entry : groups[g].symbols) {
    Symbol const* s = entry.first;
    bool const uninterpreted = !tm->is_interpreted(s);
    if (add) {
      if (symbols_[s]++ == 0 && uninterpreted) ++uninterpreted_;
      continue;
    }
    if (!symbols_.contains(s)) continue;
    if (--symbols_[s] == 0) {
      if (uninterpreted) --uninterpreted_;
      symbols_.erase(s);
    }
  }
  for (int atom : groups[g].atoms) {
    if (atom < 0) continue;
    auto const a = static_cast<std::size_t>(atom);
    if (a >= atom_holders_.size()) {
      atom_holders_.resize(a + 1, 0);
      termed_.resize(a + 1, 0);
    }
    unsigned& n = atom_holders_[a];
    if (!add && n == 0) continue;
    if (add ? n++ != 0 : --n != 0) continue;
    // First holder in, or last out: the atom counts when it had a term as
    // its first holder came in.
    if (add) termed_[a] = a < env->atom_terms.size() && env->atom_terms[a] != nullptr;
    if (termed_[a] == 0) continue;
    atoms_ = add ? atoms_ + 1 : atoms_ - 1;
    if (counts_symbols(tm, env->atom_terms[a])) continue;
    if (add)
      uncounted_.insert(atom);
    else
      uncounted_.erase(atom);
  }
}

// ---- Placement.

void CutIndex::Placement::build(std::vector<int> const& key_begin,
                                std::vector<int> const& key_groups,
                                std::vector<int> const& group_begin,
                                std::vector<int> const& group_positions,
                                std::vector<char> const& background, int num_positions) {
  auto const at = [](std::vector<int> const& v, int i) { return v[static_cast<std::size_t>(i)]; };
  std::size_t const keys = key_begin.size() - 1;
  std::size_t const groups = group_begin.size() - 1;
  // The keys of each group, and the occurrences (indices into
  // group_positions) of each position, both by counting sort.
  std::vector<int> group_key_begin(groups + 1, 0), group_keys(key_groups.size());
  for (int g : key_groups)
    ++group_key_begin[static_cast<std::size_t>(g) + 1];
  for (std::size_t g = 0; g < groups; ++g)
    group_key_begin[g + 1] += group_key_begin[g];
  std::vector<int> cursor(group_key_begin.begin(), group_key_begin.end() - 1);
  for (std::size_t k = 0; k < keys; ++k)
    for (int i = key_begin[k]; i < key_begin[k + 1]; ++i)
      group_keys[static_cast<std::size_t>(cursor[static_cast<std::size_t>(at(key_groups, i))]++)] =
          static_cast<int>(k);
  std::vector<int> owner(group_positions.size()),
      occurrence_begin(static_cast<std::size_t>(num_positions) + 1, 0),
      occurrences(group_positions.size());
  for (std::size_t g = 0; g < groups; ++g)
    for (int j = group_begin[g]; j < group_begin[g + 1]; ++j) {
      owner[static_cast<std::size_t>(j)] = static_cast<int>(g);
      ++occurrence_begin[static_cast<std::size_t>(at(group_positions, j)) + 1];
    }
  for (std::size_t p = 0; p < static_cast<std::size_t>(num_positions); ++p)
    occurrence_begin[p + 1] += occurrence_begin[p];
  cursor.assign(occurrence_begin.begin(), occurrence_begin.end() - 1);
  for (std::size_t j = 0; j < group_positions.size(); ++j)
    occurrences[static_cast<std::size_t>(cursor[static_cast<std::size_t>(group_positions[j])]++)] =
        static_cast<int>(j);

  // Room per key: a position and a gap per position of each of its groups,
  // and each group's gap at the left edge.
  pos_begin_.assign(keys + 1, 0);
  gap_begin_.assign(keys + 1, 0);
  for (std::size_t k = 0; k < keys; ++k)
    for (int i = key_begin[k]; i < key_begin[k + 1]; ++i) {
      auto const g = static_cast<std::size_t>(at(key_groups, i));
      pos_begin_[k + 1] += group_begin[g + 1] - group_begin[g];
      gap_begin_[k + 1] += group_begin[g + 1] - group_begin[g] + 1;
    }
  for (std::size_t k = 0; k < keys; ++k) {
    pos_begin_[k + 1] += pos_begin_[k];
    gap_begin_[k + 1] += gap_begin_[k];
  }
  pos_.assign(static_cast<std::size_t>(pos_begin_.back()), 0);
  gap_left_.assign(static_cast<std::size_t>(gap_begin_.back()), 0);
  gap_reach_.assign(gap_left_.size(), 0);
  std::vector<int> pos_end(pos_begin_.begin(), pos_begin_.end() - 1),
      gap_end(gap_begin_.begin(), gap_begin_.end() - 1);
  // A gap of a group is a run of positions strictly between two of its own;
  // -1 and num_positions stand for the edges, and empty runs are left out.
  auto add_gap = [&](std::size_t k, int left, int right) {
    if (right - left < 2) return;
    gap_left_[static_cast<std::size_t>(gap_end[k])] = left;
    gap_reach_[static_cast<std::size_t>(gap_end[k]++)] = right;
  };
  // The gaps at the left edge first, then one sweep over the positions in
  // ascending order: each key's positions and gaps come out sorted.
  for (std::size_t k = 0; k < keys; ++k)
    for (int i = key_begin[k]; i < key_begin[k + 1]; ++i) {
      auto const g = static_cast<std::size_t>(at(key_groups, i));
      add_gap(k, -1,
              group_begin[g] < group_begin[g + 1] ? at(group_positions, group_begin[g])
                                                  : num_positions);
    }
  for (int p = 0; p < num_positions; ++p)
    for (int o = occurrence_begin[static_cast<std::size_t>(p)];
         o < occurrence_begin[static_cast<std::size_t>(p) + 1]; ++o) {
      int const j = at(occurrences, o);
      int const g = at(owner, j);
      int const next = j + 1 < at(group_begin, g + 1) ? at(group_positions, j + 1) : num_positions;
      for (int i = at(group_key_begin, g); i < at(group_key_begin, g + 1); ++i) {
        auto const k = static_cast<std::size_t>(at(group_keys, i));
        if (pos_end[k] == pos_begin_[k] || at(pos_, pos_end[k] - 1) != p)
          pos_[static_cast<std::size_t>(pos_end[k]++)] = p;
        add_gap(k, p, next);
      }
    }

  // Close up the unused room, turn right ends into the farthest reach so
  // far, and read off the prefix numbers.
  prefix_.assign(keys, PrefixStatus{num_positions, 0});
  everywhere_A_.assign(keys, 0);
  for (std::size_t k = 0; k < keys; ++k)
    for (int i = key_begin[k]; i < key_begin[k + 1]; ++i)
      everywhere_A_[k] |= background[static_cast<std::size_t>(at(key_groups, i))];
  int pos_out = 0, gap_out = 0;
  for (std::size_t k = 0; k < keys; ++k) {
    int const pos_from = pos_begin_[k], gap_from = gap_begin_[k];
    pos_begin_[k] = pos_out;
    gap_begin_[k] = gap_out;
    if (everywhere_A_[k] != 0)
      prefix_[k].a_from = 0;
    else if (pos_end[k] > pos_from)
      prefix_[k].a_from = at(pos_, pos_from);
    for (int i = pos_from; i < pos_end[k]; ++i)
      pos_[static_cast<std::size_t>(pos_out++)] = at(pos_, i);
    int reach = 0;
    for (int i = gap_from; i < gap_end[k]; ++i) {
      int const left = at(gap_left_, i);
      reach = std::max(reach, at(gap_reach_, i));
      // A prefix [0, r] fits inside a gap exactly when the gap opens at the
      // left edge and r is below its right end.
      if (left == -1) prefix_[k].b_below = reach;
      gap_left_[static_cast<std::size_t>(gap_out)] = left;
      gap_reach_[static_cast<std::size_t>(gap_out++)] = reach;
    }
  }
  pos_begin_[keys] = pos_out;
  gap_begin_[keys] = gap_out;
  pos_.resize(static_cast<std::size_t>(pos_out));
  gap_left_.resize(static_cast<std::size_t>(gap_out));
  gap_reach_.resize(static_cast<std::size_t>(gap_out));
}

bool CutIndex::Placement::in_A(int key, int first, int last) const {
  auto const k = static_cast<std::size_t>(key);
  if (everywhere_A_[k] != 0) return true;
  auto const end = pos_.begin() + pos_begin_[k + 1];
  auto const it = std::lower_bound(pos_.begin() + pos_begin_[k], end, first);
  return it != end && *it <= last;
}

bool CutIndex::Placement::in_B(int key, int first, int last) const {
  // The range fits inside some gap exactly when, among the gaps opening left
  // of `first`, the farthest right end lies beyond `last`.
  auto const k = static_cast<std::size_t>(key);
  auto const begin = gap_left_.begin() + gap_begin_[k];
  auto const it = std::lower_bound(begin, gap_left_.begin() + gap_begin_[k + 1], first);
  if (it == begin) return false;
  return gap_reach_[static_cast<std::size_t>(it - gap_left_.begin()) - 1] > last;
}

// ---- Construction and the snapshot rule.

CutIndex::CutIndex(AtomClassifier const& classifier, std::vector<std::vector<int>> const& positions)
    : CutIndex(classifier, static_cast<int>(positions.size()), true) {
  build(positions, nullptr, nullptr);
}

CutIndex::CutIndex(AtomClassifier const& classifier, std::vector<std::vector<int>> const& positions,
                   std::vector<int> const& others, std::vector<int> const& background)
    : CutIndex(classifier, static_cast<int>(positions.size()), false) {
  build(positions, &others, &background);
}

CutIndex::CutIndex(AtomClassifier const& classifier, std::vector<std::vector<int>> const& positions,
                   HolderCounts const& holders, std::vector<int> const& background)
    : CutIndex(classifier, static_cast<int>(positions.size()), false) {
  holders_ = &holders;
  std::vector<int> const none;
  build(positions, &none, &background);
}

CutIndex::CutIndex(AtomClassifier const& classifier, int num_positions, bool all_groups)
    : classifier_(classifier),
      env_(classifier.get_env()),
      num_positions_(num_positions),
      num_groups_(classifier.get_groups().size()),
      all_groups_(all_groups),
      fingerprint_(0),
      walk_(0),
      terms_entered_(0) {
  ORVO_ITP_REQUIRE(env_ != nullptr, "CutIndex", "classifier without environment, address", 0);
}

void CutIndex::build(std::vector<std::vector<int>> const& positions, std::vector<int> const* others,
                     std::vector<int> const* background) {
  std::vector<AtomClassifier::Group> const& groups = classifier_.get_groups();
  auto const names_group = [this](int g) {
    return g >= 0 && static_cast<std::size_t>(g) < num_groups_;
  };
  // The groups that count, ascending; they are numbered locally by their
  // place in group_ids_, and nothing below is sized by the classifier's
  // number of groups unless every group counts.
  if (all_groups_) {
    group_ids_.resize(num_groups_);
    for (std::size_t g = 0; g < num_groups_; ++g)
      group_ids_[g] = static_cast<int>(g);
  } else {
    for (std::vector<int> const& at : positions)
      for (int g : at)
        if (names_group(g)) group_ids_.push_back(g);
    for (std::vector<int> const* list : {others, background})
      for (int g : *list)
        if (names_group(g)) group_ids_.push_back(g);
    std::sort(group_ids_.begin(), group_ids_.end());
    group_ids_.erase(std::unique(group_ids_.begin(), group_ids_.end()), group_ids_.end());
  }
  std::size_t const counted_groups = group_ids_.size();
  auto const local = [this](int g) {
    return static_cast<std::size_t>(std::lower_bound(group_ids_.begin(), group_ids_.end(), g) -
                                    group_ids_.begin());
  };
  // A background group stands at no position: it is in A by its flag and
  // in B through the one gap that spans every position.
  // With holder counts, local number counted_groups stands for the groups
  // elsewhere: at no position, not background.
  std::size_t const local_groups = counted_groups + (holders_ != nullptr ? 1 : 0);
  std::vector<char> in_background(local_groups, 0);
  if (!all_groups_)
    for (int g : *background)
      if (names_group(g)) in_background[local(g)] = 1;
  auto const placed = [&](int g) { return names_group(g) && in_background[local(g)] == 0; };
  // Positions of each group, ascending (a group named twice at one position
  // appears twice; the placement tolerates that).
  std::vector<int> group_begin(local_groups + 1, 0);
  for (std::vector<int> const& at : positions)
    for (int g : at)
      if (placed(g)) ++group_begin[local(g) + 1];
  for (std::size_t g = 0; g < local_groups; ++g)
    group_begin[g + 1] += group_begin[g];
  std::vector<int> group_positions(static_cast<std::size_t>(group_begin.back()));
  {
    std::vector<int> next(group_begin.begin(), group_begin.end() - 1);
    for (std::size_t i = 0; i < positions.size(); ++i)
      for (int g : positions[i])
        if (placed(g))
          group_positions[static_cast<std::size_t>(next[local(g)]++)] = static_cast<int>(i);
  }

  std::vector<int> key_begin, key_groups;
  gather_keys<Symbol const*>(
      groups, group_ids_,
      [](AtomClassifier::Group const& group, auto&& add) {
        for (auto const& entry : group.symbols)
          add(entry.first);
      },
      symbol_keys_, symbols_, key_begin, key_groups);
  auto const elsewhere_group = static_cast<int>(counted_groups);
  if (holders_ != nullptr)
    add_elsewhere(
        symbols_, [this](Symbol const* s) { return holders_->symbol_holders(s); }, *holders_,
        group_ids_, elsewhere_group, key_begin, key_groups);
  symbol_place_.build(key_begin, key_groups, group_begin, group_positions, in_background,
                      num_positions_);
  // Interpreted symbols pass every purity test: as a term's head they
  // constrain no cut.
  head_prefix_.resize(symbols_.size());
  for (std::size_t k = 0; k < symbols_.size(); ++k)
    head_prefix_[k] = env_->term_manager->is_interpreted(symbols_[k])
                          ? PrefixStatus{0, num_positions_}
                          : symbol_place_.prefix(static_cast<int>(k));
  gather_keys<int>(
      groups, group_ids_,
      [](AtomClassifier::Group const& group, auto&& add) {
        for (int atom : group.atoms)
          add(atom);
      },
      atom_keys_, atoms_, key_begin, key_groups);
  if (holders_ != nullptr)
    add_elsewhere(
        atoms_, [this](int atom) { return holders_->atom_holders(atom); }, *holders_, group_ids_,
        elsewhere_group, key_begin, key_groups);
  atom_place_.build(key_begin, key_groups, group_begin, group_positions, in_background,
                    num_positions_);
  fingerprint_ = group_fingerprint();
}

std::size_t CutIndex::size() const {
  return static_cast<std::size_t>(num_positions_);
}

std::uint64_t CutIndex::group_fingerprint() const {
  std::uint64_t h = 0xcbf29ce484222325ULL;
  auto mix = [&h](std::uint64_t v) { h = (h ^ v) * 0x100000001b3ULL; };
  std::vector<AtomClassifier::Group> const& groups = classifier_.get_groups();
  for (int g : group_ids_) {
    mix(groups[static_cast<std::size_t>(g)].atoms.size());
    mix(groups[static_cast<std::size_t>(g)].symbols.size());
  }
  return h;
}

// A new group changes the answers only when every group counts.
bool CutIndex::same_groups() const {
  return !all_groups_ || classifier_.get_groups().size() == num_groups_;
}

bool CutIndex::matches_groups() const {
  return same_groups() && group_fingerprint() == fingerprint_;
}

void CutIndex::check_snapshot(char const* operation, bool full) const {
  ORVO_ITP_REQUIRE(same_groups() && (!full || matches_groups()), operation,
                   "groups changed since the index was built; groups now",
                   classifier_.get_groups().size());
  (void)operation;
  (void)full;
}

void CutIndex::check_range(char const* operation, int first, int last) const {
  ORVO_ITP_REQUIRE(first >= 0 && first <= last, operation, "bad first position", first);
  ORVO_ITP_REQUIRE(last < num_positions_, operation, "last position not below size():", last);
  (void)operation;
  (void)first;
  (void)last;
}

// ---- Symbols and atoms.

int CutIndex::symbol_key(Symbol const* s) const {
  auto it = symbol_keys_.find(s);
  return it == symbol_keys_.end() ? -1 : it->second;
}

bool CutIndex::counted(Term_ const* t) const {
  return counts_symbols(env_->term_manager, t);
}

bool CutIndex::elsewhere(Symbol const* s) const {
  return holders_ != nullptr && holders_->symbol_holders(s) > 0;
}

bool CutIndex::elsewhere_atom(int atom) const {
  return holders_ != nullptr && holders_->atom_holders(atom) > 0;
}

template <class Visit>
std::size_t CutIndex::atoms_only_elsewhere(Visit visit) const {
  if (holders_ == nullptr) return 0;
  std::size_t keyed = 0;  // held atoms with a term that a counted group holds
  for (int atom : atoms_)
    if (atom_term(atom) != nullptr && holders_->atom_holders(atom) > 0) ++keyed;
  for (int atom : holders_->uncounted_atoms())
    if (!atom_keys_.contains(atom)) visit(atom_term(atom));
  return holders_->atoms() - keyed;
}

Term_ const* CutIndex::atom_term(int atom) const {
  // Groups hold no negative atom (registration stops it), and the cast
  // would take one past the end anyway.
  auto const index = static_cast<std::size_t>(static_cast<unsigned>(atom));
  return index < env_->atom_terms.size() ? env_->atom_terms[index] : nullptr;
}

bool CutIndex::symbol_is_common(Symbol const* s, int first, int last, bool include_interpreted) {
  ORVO_ITP_REQUIRE(s != nullptr, "symbol_is_common", "null symbol, address", 0);
  check_range("symbol_is_common", first, last);
  check_snapshot("symbol_is_common", false);
  if (!include_interpreted && env_->term_manager->is_interpreted(s)) return true;
  int const key = symbol_key(s);
  return key >= 0 && symbol_place_.in_A(key, first, last) && symbol_place_.in_B(key, first, last);
}

unsigned char CutIndex::get_atom_AB_flags(int atom, int first, int last) {
  check_range("get_atom_AB_flags", first, last);
  check_snapshot("get_atom_AB_flags", false);
  if (atom < 0 || static_cast<std::size_t>(atom) >= env_->num_atoms()) return 0;
  auto it = atom_keys_.find(atom);
  if (it == atom_keys_.end()) return elsewhere_atom(atom) ? 2 : 0;
  return static_cast<unsigned char>((atom_place_.in_A(it->second, first, last) ? 1 : 0) |
                                    (atom_place_.in_B(it->second, first, last) ? 2 : 0));
}

void CutIndex::get_A_symbols(int first, int last, std::vector<Symbol const*>& out) {
  check_range("get_A_symbols", first, last);
  check_snapshot("get_A_symbols", true);
  out.clear();
  for (std::size_t k = 0; k < symbols_.size(); ++k)
    if (symbol_place_.in_A(static_cast<int>(k), first, last)) out.push_back(symbols_[k]);
}

void CutIndex::get_B_symbols(int first, int last, std::vector<Symbol const*>& out) {
  check_range("get_B_symbols", first, last);
  check_snapshot("get_B_symbols", true);
  out.clear();
  for (std::size_t k = 0; k < symbols_.size(); ++k)
    if (symbol_place_.in_B(static_cast<int>(k), first, last)) out.push_back(symbols_[k]);
  if (holders_ != nullptr)
    for (auto const& entry : holders_->symbols())
      if (!symbol_keys_.contains(entry.first)) out.push_back(entry.first);
}

// ---- Terms.

CutIndex::PrefixStatus CutIndex::head_prefix(Symbol const* s) const {
  int const key = symbol_key(s);
  if (key >= 0) return head_prefix_[static_cast<std::size_t>(key)];
  if (env_->term_manager->is_interpreted(s)) return PrefixStatus{0, num_positions_};
  return PrefixStatus{num_positions_, elsewhere(s) ? num_positions_ : 0};
}

CutIndex::PrefixStatus& CutIndex::memo(Term_ const* t) {
  // Keyed by the terms this index meets, not by term id: an index costs the
  // terms its queries reach, however many terms the program has made.
  int& slot = memo_slot_[t];
  if (slot == 0) {
    prefix_memo_.push_back(PrefixStatus{unknown, 0});
    slot = static_cast<int>(prefix_memo_.size());
  }
  return prefix_memo_[static_cast<std::size_t>(slot - 1)];
}

bool CutIndex::seen_before(Term_ const* t) {
  std::uint64_t& mark = seen_[t];
  if (mark == walk_) return true;
  mark = walk_;
  return false;
}

CutIndex::PrefixStatus CutIndex::prefix_status(Term_ const* t) {
  ORVO_ITP_REQUIRE(t != nullptr, "prefix_status", "null term, address", 0);
  check_snapshot("prefix_status", false);
  if (memo(t).a_from >= 0) return memo(t);
  // Post-order over the term graph: a term's numbers combine its head
  // symbol's with its children's, so each distinct subterm is combined once
  // and then read from the memo by every other parent.
  stack_.clear();
  try {
    stack_.push_back(t);
    while (!stack_.empty()) {
      Term_ const* u = stack_.back();
      int const state = memo(u).a_from;
      if (state >= 0) {  // finished through another parent
        stack_.pop_back();
        continue;
      }
      std::size_t const arity = u->get_arity();
      if (state == unknown) {
        ++terms_entered_;
        memo(u).a_from = entered;
        std::size_t const below = stack_.size();
        for (std::size_t i = 0; i < arity; ++i)
          if (memo(u->get_child(i)).a_from == unknown) stack_.push_back(u->get_child(i));
        if (stack_.size() != below) continue;
      }
      PrefixStatus p = head_prefix(u->get_symbol());
      for (std::size_t i = 0; i < arity; ++i) {
        PrefixStatus const c = memo(u->get_child(i));
        p.a_from = std::max(p.a_from, c.a_from);
        p.b_below = std::min(p.b_below, c.b_below);
      }
      memo(u) = p;
      stack_.pop_back();
    }
  } catch (...) {
    // Every entered term is still on the stack: forget that it was entered.
    // A term goes on the stack only after memo() has made its entry.
    for (Term_ const* u : stack_) {
      auto const it = memo_slot_.find(u);  // present: a lookup that cannot allocate
      PrefixStatus& p = prefix_memo_[static_cast<std::size_t>(it->second - 1)];
      if (p.a_from == entered) p.a_from = unknown;
    }
    stack_.clear();
    throw;
  }
  return memo(t);
}

int CutIndex::term_status(Term_ const* t, int first, int last) {
  if (first == 0) {
    PrefixStatus const p = prefix_status(t);
    if (last < p.b_below) return 1;
    return last >= p.a_from ? 0 : 2;
  }
  ++walk_;  // 64 bits: the walk numbers never wrap, so an old mark never matches
  TermManager const* tm = env_->term_manager;
  bool a_pure = true, b_pure = true;
  stack_.clear();
  stack_.push_back(t);
  while (!stack_.empty() && (a_pure || b_pure)) {
    Term_ const* u = stack_.back();
    stack_.pop_back();
    if (seen_before(u)) continue;
    ++terms_entered_;
    Symbol const* s = u->get_symbol();
    if (!tm->is_interpreted(s)) {
      int const key = symbol_key(s);
      if (a_pure && (key < 0 || !symbol_place_.in_A(key, first, last))) a_pure = false;
      if (b_pure && (key < 0 ? !elsewhere(s) : !symbol_place_.in_B(key, first, last)))
        b_pure = false;
    }
    for (std::size_t i = 0; i < u->get_arity(); ++i)
      stack_.push_back(u->get_child(i));
  }
  stack_.clear();
  if (b_pure) return 1;
  return a_pure ? 0 : 2;
}

int CutIndex::get_term_status(Term_ const* t, int first, int last) {
  ORVO_ITP_REQUIRE(t != nullptr, "get_term_status", "null term, address", 0);
  check_range("get_term_status", first, last);
  check_snapshot("get_term_status", false);
  return term_status(t, first, last);
}

// ---- Status counts.

CutIndex::StatusCounts CutIndex::status_counts(int first, int last) {
  check_range("status_counts", first, last);
  check_snapshot("status_counts", true);
  StatusCounts counts;
  std::size_t walked = 0;
  auto const walk = [&](Term_ const* t) {
    int const status = term_status(t, first, last);
    ++walked;
    ++(status == 0 ? counts.A : status == 1 ? counts.B : counts.mixed);
  };
  for (std::size_t k = 0; k < atoms_.size(); ++k) {
    Term_ const* t = atom_term(atoms_[k]);
    if (t == nullptr) continue;
    if (counted(t) && atom_place_.in_B(static_cast<int>(k), first, last))
      ++counts.B;
    else
      walk(t);
  }
  // What only groups outside the counted ones hold is B-pure, but for atoms
  // whose terms do not count their symbols, which are walked.
  walked = 0;
  counts.B += atoms_only_elsewhere(walk) - walked;
  return counts;
}

std::vector<CutIndex::SymbolPrefix> CutIndex::prefix_symbols() const {
  check_snapshot("prefix_symbols", true);
  std::vector<SymbolPrefix> out;
  out.reserve(symbols_.size());
  for (std::size_t k = 0; k < symbols_.size(); ++k)
    out.push_back(SymbolPrefix{symbols_[k], symbol_place_.prefix(static_cast<int>(k))});
  return out;
}

std::size_t CutIndex::only_elsewhere() const {
  if (holders_ == nullptr) return 0;
  std::size_t keyed = 0;
  for (Symbol const* s : symbols_)
    if (!env_->term_manager->is_interpreted(s) && holders_->symbol_holders(s) > 0) ++keyed;
  return holders_->uninterpreted_symbols() - keyed;
}

std::vector<CutIndex::StatusCounts> CutIndex::prefix_status_counts() {
  check_snapshot("prefix_status_counts", true);
  std::size_t const n = size();
  std::vector<StatusCounts> out(n);
  // First as histograms: out[r].B counts the atoms whose B-purity ends at r,
  // out[r].A those that are A-pure and not B-pure from r on.
  auto const walk = [&](Term_ const* t) {
    PrefixStatus const p = prefix_status(t);
    if (static_cast<std::size_t>(p.b_below) < n) ++out[static_cast<std::size_t>(p.b_below)].B;
    auto const a = static_cast<std::size_t>(std::max(p.a_from, p.b_below));
    if (a < n) ++out[a].A;
  };
  std::size_t total = 0;
  for (std::size_t k = 0; k < atoms_.size(); ++k) {
    Term_ const* t = atom_term(atoms_[k]);
    if (t == nullptr) continue;
    ++total;
    // Held by a group at no position: B-pure under every prefix cut.
    if (counted(t) && atom_place_.prefix(static_cast<int>(k)).b_below == num_positions_) continue;
    walk(t);
  }
  total += atoms_only_elsewhere(walk);
  std::size_t b_ended = 0, a_pure = 0;
  for (StatusCounts& c : out) {
    b_ended += c.B;
    a_pure += c.A;
    c.B = total - b_ended;
    c.A = a_pure;
    c.mixed = total - c.A - c.B;
  }
  return out;
}

}  // namespace itp
}  // namespace orvo
