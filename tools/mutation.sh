#!/usr/bin/env bash
# Mutation testing: plants known faults in the library one at a time, in a
# scratch copy of the working tree, and checks that the test suite notices.
# A mutant is KILLED when a test that passes on the unmutated tree fails on
# it (an assertion, a crash or a timeout), or when it does not compile;
# SURVIVED otherwise.
#
#   tools/mutation.sh                   every mutant
#   tools/mutation.sh growth clear      only the named mutants
#   ORVO_ITP_MUTATION_KEEP=1            keep the scratch copy (path is printed)
#   ORVO_ITP_MUTATION_TIMEOUT=600       seconds allowed for one test
#
# Each fault is an exact text replacement; a pattern that does not occur
# exactly once stops the script, so the mutants cannot silently go stale
# when the library changes. To add one: a line in `mutants` (name, file,
# what it breaks) and its (pattern, replacement) pair under the same name in
# `faults`; any file of the tree may be mutated, since the whole suite runs. Exit status: 0 when every mutant was killed,
# 1 when one survived, 2 on a setup error.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
timeout_s=${ORVO_ITP_MUTATION_TIMEOUT:-600}
work=$(mktemp -d "${TMPDIR:-/tmp}/orvo-mutation.XXXXXX")
if [ -z "${ORVO_ITP_MUTATION_KEEP:-}" ]; then trap 'rm -rf "$work"' EXIT; fi

# The working tree as it is (uncommitted changes included), without builds.
tar -C "$root" --exclude=./build --exclude=./.git -cf - . | tar -C "$work" -xf -
cd "$work"

# name|file|what the fault does -- the patterns themselves are in mutate().
mutants=(
  "growth|containers/hash_table.h|growth test counts one element more than stored"
  "rehash-append|containers/hash_table.h|rehash appends moved nodes at the chain's end"
  "valid-flag|classifier/clauses.cpp|add_clause leaves symbols_sets_valid_ set"
  "release-flags|host/clause.h|clause release drops the two flag bits"
  "pop-clause|classifier/backtracking.cpp|pop passes over clause cells"
  "clear|containers/hash_table.h|clear unlinks the chains without freeing their nodes"
  "unlink-leak|containers/hash_table.h|erase unlinks a node without returning it to the pool"
  "same-groups|classifier/atoms.cpp|a level does not record add_atom_to_same_groups"
  "light-gc|classifier/garbage_collection.cpp|a light collection also frees clauses"
  "gc-trail|classifier/garbage_collection.cpp|a full collection leaves cells of freed clauses"
  "withdraw-2|classifier/symbol_counts.cpp|a symbol withdrawal erases the entry at count 2"
  "pop-created|classifier/backtracking.cpp|pop leaves the groups created inside the level"
  "cut-range|classifier/cut_index.cpp|a range cut leaves out its last position from A"
  "cut-background|classifier/cut_index.cpp|a background group is taken as A only, never B"
  "cut-memo|classifier/cut_index.cpp|a failed prefix walk leaves its entered marks in the memo"
)

# Applies mutant $1 to file $2 with an exact, unique replacement.
mutate() {
  python3 - "$1" "$2" <<'PY'
import sys
name, path = sys.argv[1], sys.argv[2]
faults = {
    "growth": (
        "static_cast<double>(static_cast<float>(size_) / static_cast<float>(nbuckets_)) > 0.7",
        "static_cast<double>(static_cast<float>(size_ + 1) / static_cast<float>(nbuckets_)) > 0.7",
    ),
    "rehash-append": (
        "      b->next = buckets_[index];\n      buckets_[index] = b;\n",
        "      b->next = nullptr;\n      Bucket** tail = &buckets_[index];\n"
        "      while (*tail != nullptr) tail = &(*tail)->next;\n      *tail = b;\n",
    ),
    "valid-flag": (
        "    symbols_sets_valid_ = false;\n    record(UndoCell::make_clause(",
        "    record(UndoCell::make_clause(",
    ),
    "release-flags": (
        "  word = Clause::with_count(word, old - 1);\n  if (old != 1)",
        "  word = (old - 1) & Clause::count_mask;\n  if (old != 1)",
    ),
    "pop-clause": (
        "        groups_[static_cast<std::size_t>(g)].clauses.erase(cell.clause);\n"
        "        dpll::release_reference(cell.clause);\n",
        "",
    ),
    "clear": (
        "          for (Bucket* b = head; b != nullptr;) {\n            Bucket* next = b->next;\n"
        "            pool_.deallocate(b);\n            b = next;\n          }\n          head = nullptr;\n",
        "          head = nullptr;\n",
    ),
    "unlink-leak": (
        "    --size_;\n    pool_.deallocate(node);\n",
        "    --size_;\n",
    ),
    "same-groups": (
        "do_add_atom(atom, static_cast<int>(g), false);",
        "do_add_atom(atom, static_cast<int>(g), true);",
    ),
    "light-gc": (
        "  if (!full || groups_.empty()) return;",
        "  if (groups_.empty()) return;",
    ),
    "gc-trail": (
        "    if (!undo_trail_.empty()) {\n      std::sort(",
        "    if (false) {\n      std::sort(",
    ),
    "withdraw-2": (
        "if (n == 0 || --n == 0) counts.erase(s);",
        "if (n == 0 || n == 2 || --n == 0) counts.erase(s);",
    ),
    "pop-created": (
        "  for (int g : created)\n    reset_group(g);\n",
        "",
    ),
    "cut-range": (
        "return it != end && *it <= last;",
        "return it != end && *it < last;",
    ),
    "cut-background": (
        "      add_gap(k, -1,\n",
        "      if (background[g] == 0) add_gap(k, -1,\n",
    ),
    "cut-memo": (
        "      if (p.a_from == entered) p.a_from = unknown;\n",
        "",
    ),
}
old, new = faults[name]
text = open(path).read()
count = text.count(old)
if count != 1:
    sys.exit(f"mutant {name}: pattern found {count} times in {path}, expected once")
open(path, "w").write(text.replace(old, new))
PY
}

selected=("$@")
wanted() {
  [ "${#selected[@]}" -eq 0 ] && return 0
  local s
  for s in "${selected[@]}"; do [ "$s" = "$1" ] && return 0; done
  return 1
}

# Every pattern is checked against the pristine tree before anything is built.
for m in "${mutants[@]}"; do
  IFS='|' read -r name file _ <<<"$m"
  wanted "$name" || continue
  cp "$file" "$file.orig"
  mutate "$name" "$file" || exit 2
  mv "$file.orig" "$file"
done

build=$work/build/mutation
echo "== building the unmutated suite in $work"
cmake --preset default -B "$build" -DORVO_ITP_BUILD_BENCH=OFF -DORVO_ITP_BUILD_EXAMPLES=OFF \
  -DORVO_ITP_INSTALL=OFF >/dev/null
cmake --build "$build" -j2 --target orvo_itp_tests >"$work/build.log" 2>&1 ||
  { tail -n 40 "$work/build.log"; echo "the unmutated tree does not build" >&2; exit 2; }

# Runs the suite, one process per test (a crash fails only its own test), and
# prints the names of the tests that failed, crashed or timed out.
failing_tests() {
  (cd "$build" && ctest -j2 --timeout "$timeout_s" >"$1" 2>&1) || true
  sed -n '/The following tests FAILED/,$p' "$1" | { grep -E '^[[:space:]]+[0-9]+ - ' || true; } |
    sed -E 's/^[[:space:]]+[0-9]+ - //; s/ \([^)]*\)$//; s/[[:space:]]+# TypeParam.*//' | sort -u
}
baseline=$(failing_tests "$work/baseline.log")
if [ -n "$baseline" ]; then
  echo "note: these tests already fail on the unmutated tree and cannot kill a mutant:" >&2
  echo "$baseline" | while read -r t; do echo "  $t"; done >&2
fi

total=0
killed=0
for m in "${mutants[@]}"; do
  IFS='|' read -r name file what <<<"$m"
  wanted "$name" || continue
  total=$((total + 1))
  cp "$file" "$file.orig"
  mutate "$name" "$file"
  verdict=SURVIVED
  detail=""
  log=$work/$name.log
  if ! cmake --build "$build" -j2 --target orvo_itp_tests >"$log" 2>&1; then
    verdict=KILLED
    detail="(does not compile)"
  else
    new_failures=$(comm -23 <(failing_tests "$log") <(echo "$baseline") | grep . || true)
    if [ -n "$new_failures" ]; then
      verdict=KILLED
      detail="by $(echo "$new_failures" | wc -l) test(s): $(echo "$new_failures" | paste -sd ' ')"
    fi
  fi
  mv "$file.orig" "$file"
  touch "$file"
  [ "$verdict" = KILLED ] && killed=$((killed + 1))
  printf '%-8s %-14s %s %s\n' "$verdict" "$name" "$what" "$detail"
done

[ -n "${ORVO_ITP_MUTATION_KEEP:-}" ] && echo "scratch copy kept: $work"
echo "mutation: $killed of $total mutants killed"
[ "$killed" -eq "$total" ]
