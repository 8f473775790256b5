#include "smtlib/query.h"

#include <algorithm>

#include "smtlib/names.h"

namespace orvo {
namespace smtlib {

namespace {

void sort_unique(std::vector<int>& v) {
  std::sort(v.begin(), v.end());
  v.erase(std::unique(v.begin(), v.end()), v.end());
}

std::vector<int> resolve_name(SExpr const& name, QueryContext const& c) {
  if (!name.is_symbol()) throw ScriptError(name.where, "expected an assertion name");
  auto it = c.names.find(std::string(name.value));
  if (it == c.names.end())
    throw ScriptError(name.where,
                      "unknown assertion name " + printable_utf8(written(name.value)) + " in a query");
  // A name whose assertions were all popped names the last of them (empty).
  if (it->second.live.empty()) return {it->second.last};
  return it->second.live;
}

}  // namespace

std::vector<int> Query::subtree_groups(std::size_t i) const {
  std::vector<int> out;
  for (std::size_t k = items[i].first; k <= i; ++k)
    out.insert(out.end(), items[k].groups.begin(), items[k].groups.end());
  sort_unique(out);
  return out;
}

Query resolve_query(SExpr const& command, QueryContext const& c) {
  Query q;
  q.where = command.where;
  q.text = printable_utf8(flat_text(command));
  if (command.items.size() == 1) {
    for (int g : c.live) {
      QueryItem item;
      item.text = printable_utf8(c.group_names[static_cast<std::size_t>(g)]);
      item.where = command.where;
      item.groups = {g};
      q.items.push_back(std::move(item));
    }
  } else {
    // (list, next element, first item of the list's subtrees) frames.
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
        QueryItem item;
        item.text = printable_utf8(flat_text(e));
        item.where = e.where;
        item.first = f.first;
        if (e.is_symbol()) {
          item.groups = resolve_name(e, c);
        } else {
          if (e.items.size() < 2)
            throw ScriptError(e.where, "(and ...) names at least one assertion");
          for (std::size_t i = 1; i < e.items.size(); ++i)
            for (int g : resolve_name(e.items[i], c))
              item.groups.push_back(g);
        }
        sort_unique(item.groups);
        q.items.push_back(std::move(item));
      } else if (e.is_list() && !e.items.empty()) {
        stack.push_back(Frame{&e, 0, q.items.size()});
      } else {
        throw ScriptError(e.where, "expected an assertion name, (and ...) or a subtree");
      }
    }
  }
  for (std::size_t i = 0; i < q.items.size(); ++i) {
    QueryItem& item = q.items[i];
    q.sequence = q.sequence && item.first == 0;
    // The children: the roots of the largest subtrees inside this one.
    for (std::size_t c_ = i; c_ > item.first;) {
      std::size_t const child = c_ - 1;
      item.children.push_back(child);
      c_ = q.items[child].first;
    }
    std::reverse(item.children.begin(), item.children.end());
  }
  std::vector<char> mentioned(c.is_live.size(), 0);
  for (QueryItem const& item : q.items)
    for (int g : item.groups)
      mentioned[static_cast<std::size_t>(g)] = 1;
  for (int g : c.live)
    if (mentioned[static_cast<std::size_t>(g)] == 0) q.unmentioned.push_back(g);
  sort_unique(q.unmentioned);
  if (!q.unmentioned.empty() && c.rule == Unmentioned::error)
    throw ScriptError(command.where,
                      "assertion " +
                          printable_utf8(written(c.group_names[static_cast<std::size_t>(
                              q.unmentioned.front())])) +
                          " is live but the query does not mention it");
  if (c.rule == Unmentioned::background) q.background = q.unmentioned;
  return q;
}

}  // namespace smtlib
}  // namespace orvo
