// A `get-interpolants` command resolved into its items, the same structure
// for every program.
//
// An item is an assertion name (the live assertions carrying it, or else the
// latest popped one), `(and n1 n2 ...)` (the groups of all of them), or a
// parenthesised list that opens a subtree; items come in post-order. An
// item's subtree is itself and every item before it in its own list: in a
// flat list (a sequence) item i's subtree is items 0..i and its one child is
// item i - 1; in general the children of an item are the roots of the
// largest subtrees inside its own. The last item is the root; every other
// item is a partition with A the groups of its subtree.
//
// `(get-interpolants)` without items is the sequence of every live
// assertion, in the order they were asserted, each its own item named by its
// name or "#N".
//
// Live assertions that no item names follow the rule the program was given:
// they belong to the root (B of every cut: the default), to every partition
// (background: in A and in B of every cut), or they are an error at the
// query.
#ifndef ORVO_ITP_SMTLIB_QUERY_H
#define ORVO_ITP_SMTLIB_QUERY_H

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "smtlib/sexpr.h"

namespace orvo {
namespace smtlib {

enum class Unmentioned { root, background, error };

struct QueryItem {
  std::string text;                   // as written, on one line; or the assertion's name
  Position where;                     // where it is written (the command, for an implicit item)
  std::vector<int> groups;            // ascending, distinct
  std::size_t first = 0;              // its subtree is items first .. itself
  std::vector<std::size_t> children;  // ascending item indices
};

struct Query {
  Position where;                // the command
  std::size_t command = 0;       // its index among the script's commands
  std::string text;              // the command on one line
  std::vector<QueryItem> items;  // post-order: the root last
  bool sequence = true;          // every subtree starts at the first item
  std::vector<int> unmentioned;  // live groups no item names, ascending
  std::vector<int> background;   // the groups in every partition (by the rule), ascending

  std::size_t root() const noexcept { return items.size() - 1; }
  // The groups of item i's subtree, ascending, distinct.
  std::vector<int> subtree_groups(std::size_t i) const;
};

// What the resolution needs of the script.
struct NamedGroups {
  std::vector<int> live;  // the live groups asserted under the name, in order
  int last = -1;          // the last group asserted under it, live or not
};

struct QueryContext {
  // name -> its live groups, in order, and the last group it named.
  std::unordered_map<std::string, NamedGroups> const& names;
  std::vector<std::string> const& group_names;  // by group
  std::vector<int> const& live;                 // live groups in order
  std::vector<char> const& is_live;             // by group
  Unmentioned rule;
};

// Resolves `command`; throws ScriptError at the offending token (an unknown
// name, a malformed item) or at the command (an unmentioned live assertion
// under Unmentioned::error).
Query resolve_query(SExpr const& command, QueryContext const& context);

}  // namespace smtlib
}  // namespace orvo

#endif  // ORVO_ITP_SMTLIB_QUERY_H
