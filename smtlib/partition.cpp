#include "smtlib/partition.h"

#include <algorithm>
#include <unordered_set>

#include "smtlib/names.h"
#include "smtlib/script.h"

namespace orvo {
namespace smtlib {

namespace {

// The common symbols of every prefix cut of a sequence query, from one sweep
// instead of one pass over partition A per cut: a symbol is in A from the
// first position whose groups hold it on, and in B below the last such
// position (always, when a live group at no position holds it). The index
// has both numbers of every symbol already.
struct PrefixSymbols {
  std::vector<std::vector<Symbol const*>> common;  // per cut
  std::vector<std::size_t> A_local, B_local;       // per cut
};

PrefixSymbols prefix_symbols(TermManager const& tm, itp::CutIndex const& index) {
  auto const size = index.size() + 1;
  std::vector<std::vector<Symbol const*>> starts(size), stops(size);
  // Cut r: a symbol in A from a and in B below b is A-local for b <= r,
  // B-local for r < a, common in between.
  std::vector<std::size_t> local_from(size, 0), b_local_below(size, 0);
  std::size_t symbols = 0;
  for (itp::CutIndex::SymbolPrefix const& s : index.prefix_symbols()) {
    if (tm.is_interpreted(s.symbol)) continue;
    ++symbols;
    auto const a = static_cast<std::size_t>(s.prefix.a_from);
    auto const b = static_cast<std::size_t>(s.prefix.b_below);
    ++local_from[b];
    ++b_local_below[a];
    if (a >= b) continue;
    starts[a].push_back(s.symbol);
    stops[b].push_back(s.symbol);
  }
  PrefixSymbols out;
  out.common.resize(size - 1);
  std::unordered_set<Symbol const*> active;
  std::size_t a_local = 0;
  std::size_t b_local = symbols + index.only_elsewhere();  // those only others hold too
  for (std::size_t r = 0; r + 1 < size; ++r) {
    for (Symbol const* s : starts[r])
      active.insert(s);
    for (Symbol const* s : stops[r])
      active.erase(s);
    out.common[r].assign(active.begin(), active.end());
    a_local += local_from[r];
    b_local -= b_local_below[r];
    out.A_local.push_back(a_local);
    out.B_local.push_back(b_local);
  }
  return out;
}

void uninterpreted(TermManager const& tm, std::vector<Symbol const*>& symbols) {
  symbols.erase(std::remove_if(symbols.begin(), symbols.end(),
                               [&](Symbol const* s) { return tm.is_interpreted(s); }),
                symbols.end());
}

}  // namespace

std::vector<std::string> symbol_names(std::vector<Symbol const*> const& symbols) {
  std::vector<std::string> out;
  out.reserve(symbols.size());
  for (Symbol const* s : symbols)
    out.push_back(printable_utf8(s->get_name()));
  std::sort(out.begin(), out.end());
  return out;
}

std::vector<PartitionAnswer> answer_query(Script const& script, Query const& q,
                                          itp::CutIndex& index, std::vector<int> const& held,
                                          AnswerOptions options) {
  std::vector<PartitionAnswer> out;
  if (q.items.size() < 2) return out;
  TermManager const& tm = *script.environment().term_manager;
  bool const fast = q.sequence && q.background.empty();
  std::vector<itp::CutIndex::StatusCounts> prefix;
  PrefixSymbols sweep;
  if (fast) {
    prefix = index.prefix_status_counts();
    sweep = prefix_symbols(tm, index);
  }
  std::vector<Symbol const*> scratch;
  std::vector<int> A;  // grown item by item for a sequence
  for (std::size_t i = 0; i + 1 < q.items.size(); ++i) {
    PartitionAnswer p;
    p.item = i;
    int const first = static_cast<int>(q.items[i].first);
    int const last = static_cast<int>(i);
    if (q.sequence) {
      // Grown item by item; merged in place so a long sequence stays linear.
      std::size_t const old = A.size();
      A.insert(A.end(), q.items[i].groups.begin(), q.items[i].groups.end());
      if (old > 0 && A.size() > old && A[old] <= A[old - 1]) {
        std::inplace_merge(A.begin(), A.begin() + static_cast<std::ptrdiff_t>(old), A.end());
        A.erase(std::unique(A.begin(), A.end()), A.end());
      }
    } else {
      A = q.subtree_groups(i);
    }
    p.A_count = A.size();
    if (options.symbol_lists || A.size() <= 12) {
      p.A_groups = A;
    } else {
      p.A_groups.assign(A.begin(), A.begin() + 5);
      p.A_groups.insert(p.A_groups.end(), A.end() - 4, A.end());
    }
    if (fast) {
      p.common = std::move(sweep.common[i]);
      p.A_local = sweep.A_local[i];
      p.B_local = sweep.B_local[i];
    } else {
      index.get_A_symbols(first, last, scratch);
      for (Symbol const* s : scratch)
        if (!tm.is_interpreted(s) && index.symbol_is_common(s, first, last, true))
          p.common.push_back(s);
    }
    if (options.symbol_lists || !fast) {
      index.get_A_symbols(first, last, p.A_symbols);
      uninterpreted(tm, p.A_symbols);
      index.get_B_symbols(first, last, p.B_symbols);
      uninterpreted(tm, p.B_symbols);
      if (!fast) {
        p.A_local = p.A_symbols.size() - p.common.size();
        p.B_local = p.B_symbols.size() - p.common.size();
      }
      if (!options.symbol_lists) {
        p.A_symbols.clear();
        p.B_symbols.clear();
      }
    }
    p.atoms = fast ? prefix[i] : index.status_counts(first, last);
    if (options.atom_statuses) {
      p.atom_status.reserve(held.size());
      for (int a : held)
        p.atom_status.push_back(static_cast<unsigned char>(index.get_term_status(
            script.environment().atom_terms[static_cast<std::size_t>(a)], first, last)));
    }
    out.push_back(std::move(p));
  }
  return out;
}

}  // namespace smtlib
}  // namespace orvo
