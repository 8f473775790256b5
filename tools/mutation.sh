#!/usr/bin/env bash
# Mutation testing: plants known faults in the library, the SMT-LIB pipeline
# and the checker one at a time, in a scratch copy of the working tree, and
# checks that the test suite notices. A mutant is KILLED when a test that
# passes on the unmutated tree fails on it (an assertion, a crash or a
# timeout), or when the build fails; SURVIVED otherwise.
#
#   tools/mutation.sh                   every mutant
#   tools/mutation.sh growth clear      only the named mutants
#   ORVO_ITP_MUTATION_KEEP=1            keep the scratch copy (path is printed)
#   ORVO_ITP_MUTATION_TIMEOUT=600       seconds allowed for one test
#   ORVO_ITP_MUTATION_MEMORY_MB=4096    address space allowed for one test
#
# The scratch copy is built once (the `default` preset without debug info,
# benchmarks, examples or packaging; z3 is needed for the pipeline's and the
# programs' tests); each mutant then rebuilds only what its file reaches, and
# the file is put back before the next one. ccache, when installed, makes the
# rebuilds after a restore cache hits. Only the two test executables run, one
# process per test, two at a time, each under the time and memory limits (a
# mutant that allocates without end fails fast instead of taking the
# machine's memory): the slowest test first, beside it the others fastest
# first (as timed on the unmutated tree), and a mutant's run stops at its
# first failing test.
#
# Each fault is an exact text replacement; a pattern that does not occur
# exactly once stops the script, so the mutants cannot silently go stale
# when the code changes. To add one: a line in `mutants` (name, file, what it
# breaks) and its (pattern, replacement) pair under the same name in
# `faults`; any file of the tree may be mutated, since the whole suite runs.
# Mutants of one file stay together in `mutants`: a header's mutants then
# share its rebuilds. Exit status: 0 when every mutant was killed, 1 when
# one survived, 2 on a setup error.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
timeout_s=${ORVO_ITP_MUTATION_TIMEOUT:-600}
memory_kb=$((${ORVO_ITP_MUTATION_MEMORY_MB:-4096} * 1024))
start_time=$SECONDS
# Under build/ rather than a shared temporary directory, where a cleanup of
# someone else's could take the copy away under a long run.
mkdir -p "$root/build"
work=$(mktemp -d "$root/build/mutation.XXXXXX")
# Removed at the end, not by an EXIT trap: bash runs that trap in a child it
# forked for a test when the child is stopped before it starts the test,
# which a mutant's first failure does to the tests still running. A run cut
# short leaves the copy under build/.
finish() {
  if [ -z "${ORVO_ITP_MUTATION_KEEP:-}" ]; then rm -rf "$work"; else echo "scratch copy kept: $work"; fi
}

# The working tree as it is (uncommitted changes included), without builds.
tar -C "$root" --exclude=./build --exclude=./.git -cf - . | tar -C "$work" -xf -
cd "$work"

# name|file|what the fault does -- the patterns themselves are in mutate().
mutants=(
  "growth|containers/hash_table.h|growth test counts one element more than stored"
  "rehash-append|containers/hash_table.h|rehash appends moved nodes at the chain's end"
  "clear|containers/hash_table.h|clear unlinks the chains without freeing their nodes"
  "unlink-leak|containers/hash_table.h|erase unlinks a node without returning it to the pool"
  "release-flags|host/clause.h|clause release drops the two flag bits"
  "valid-flag|classifier/clauses.cpp|add_clause leaves symbols_sets_valid_ set"
  "pop-clause|classifier/backtracking.cpp|pop passes over clause cells"
  "same-groups|classifier/atoms.cpp|a level does not record add_atom_to_same_groups"
  "light-gc|classifier/garbage_collection.cpp|a light collection also frees clauses"
  "gc-trail|classifier/garbage_collection.cpp|a full collection leaves cells of freed clauses"
  "withdraw-2|classifier/symbol_counts.cpp|a symbol withdrawal erases the entry at count 2"
  "pop-created|classifier/backtracking.cpp|pop leaves the groups created inside the level"
  "cut-range|classifier/cut_index.cpp|a range cut leaves out its last position from A"
  "cut-background|classifier/cut_index.cpp|a background group is taken as A only, never B"
  "cut-memo|classifier/cut_index.cpp|a failed prefix walk leaves its entered marks in the memo"
  "or-clause|smtlib/formula.cpp|an or with a disjunct that is no literal is a clause of the others"
  "pop-keeps|smtlib/scopes.cpp|a pop leaves the level's declarations in scope"
  "subtree-first|smtlib/query.cpp|a nested subtree starts one item after its first"
  "child-left-out|orvo-itp-check/check.cpp|the first of several children is no premise of the step"
  "A-local|orvo-itp-check/obligations.cpp|a symbol of A only is accepted in an interpolant"
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
    "or-clause": (
        "is_clause = literal(t.arg(e, i), clause);",
        "literal(t.arg(e, i), clause);",
    ),
    "pop-keeps": (
        "  reader_.pop();\n",
        "",
    ),
    "subtree-first": (
        "stack.push_back(Frame{&e, 0, q.items.size()});",
        "stack.push_back(Frame{&e, 0, q.items.size() + 1});",
    ),
    "child-left-out": (
        "    for (std::size_t c : q_.items[j].children) {\n",
        "    for (std::size_t c : q_.items[j].children) {\n"
        "      if (c == q_.items[j].children.front() && q_.items[j].children.size() > 1) continue;\n",
    ),
    "A-local": (
        "    if (in_A.count(s) != 0)\n      out.A_local.push_back(s);\n",
        "    if (in_A.count(s) != 0)\n      continue;\n",
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
  mutate "$name" "$file" || { finish; exit 2; }
  mv "$file.orig" "$file"
done

build=$work/build/mutation
launcher=()
if command -v ccache >/dev/null; then
  export CCACHE_DIR=$work/ccache
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
echo "== building the unmutated suite in $work"
cmake --preset default -B "$build" -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -DNDEBUG" \
  -DORVO_ITP_BUILD_BENCH=OFF -DORVO_ITP_BUILD_EXAMPLES=OFF -DORVO_ITP_BUILD_CLASSIFY=ON \
  -DORVO_ITP_INSTALL=OFF "${launcher[@]}" >"$work/configure.log" 2>&1 ||
  { tail -n 20 "$work/configure.log"; echo "cannot configure the scratch copy (z3 and nlohmann-json are needed)" >&2; finish; exit 2; }
targets=(orvo_itp_tests orvo_itp_program_tests)
build_suite() { cmake --build "$build" -j2 --target "${targets[@]}" >"$1" 2>&1; }
build_suite "$work/build.log" ||
  { tail -n 40 "$work/build.log"; echo "the unmutated tree does not build" >&2; finish; exit 2; }

# Every test of both executables, as "executable<TAB>Suite.Name".
all_tests=()
for exe in "$build/tests/orvo_itp_tests" "$build/tests/orvo_itp_program_tests"; do
  while IFS= read -r name; do all_tests+=("$exe"$'\t'"$name"); done < <(
    "$exe" --gtest_list_tests | sed 's/ *#.*//' |
      awk '/^[^ ]/ { suite = $1; next } { sub(/^ +/, ""); print suite $0 }')
done

# Runs the tests given as arguments, two at a time, each in its own process
# under the time limit, its output in $log_dir/N.log. Sets `failed` to the
# names of the tests that failed, crashed or timed out, one a line; with
# stop=1 it ends at the first of them, stopping the tests still running.
# Fills `seconds` (test -> its time) for the tests that ran to their end.
declare -A seconds=()
failed=""
run_tests() {
  local stop=$1 log_dir=$2
  shift 2
  local -a tests=("$@") failures=()
  local -A running=() started=()
  local i=0 pid status t
  mkdir -p "$log_dir"
  while :; do
    if [ "$i" -lt "${#tests[@]}" ] && [ "${#running[@]}" -lt 2 ] &&
      { [ "$stop" = 0 ] || [ "${#failures[@]}" -eq 0 ]; }; then
      t=${tests[i]}
      (ulimit -v "$memory_kb" && exec timeout "$timeout_s" "${t%%$'\t'*}" --gtest_filter="${t#*$'\t'}") \
        >"$log_dir/$i.log" 2>&1 &
      running[$!]=$t
      started[$!]=$EPOCHREALTIME
      i=$((i + 1))
      continue
    fi
    [ "${#running[@]}" -eq 0 ] && break
    status=0
    pid=""
    wait -n -p pid "${!running[@]}" || status=$?
    if [ -z "$pid" ] || [ -z "${running[$pid]+set}" ]; then
      echo "lost track of the running tests (wait: status $status)" >&2
      finish; exit 2
    fi
    t=${running[$pid]}
    unset "running[$pid]"
    seconds[$t]=$(awk -v a="${started[$pid]}" -v b="$EPOCHREALTIME" 'BEGIN { print b - a }')
    if [ "$status" -ne 0 ]; then
      failures+=("${t#*$'\t'}")
      if [ "$stop" = 1 ]; then
        for pid in "${!running[@]}"; do kill "$pid" 2>/dev/null || true; done
        wait "${!running[@]}" 2>/dev/null || true
        running=()
      fi
    fi
  done
  failed=""
  [ "${#failures[@]}" -eq 0 ] || failed=$(printf '%s\n' "${failures[@]}" | sort -u)
  # A log that could not be written means the scratch copy went away under
  # the run: its failures say nothing of the mutant.
  if [ ! -d "$log_dir" ]; then
    echo "$log_dir disappeared during the run" >&2
    finish; exit 2
  fi
}

run_tests 0 "$work/baseline" "${all_tests[@]}"
if [ "${#all_tests[@]}" -eq 0 ] || { grep -L 'Running 1 test from' "$work"/baseline/*.log | grep -q .; }; then
  echo "the test list does not name one test per process: see $work/baseline" >&2
  finish; exit 2
fi
baseline=$failed
if [ -n "$baseline" ]; then
  echo "note: these tests already fail on the unmutated tree and cannot kill a mutant:" >&2
  echo "$baseline" | while read -r t; do echo "  $t"; done >&2
fi
# The tests that can kill a mutant: the slowest, then the others fastest first.
mapfile -t suite < <(for t in "${all_tests[@]}"; do
  grep -qxF -- "${t#*$'\t'}" <<<"$baseline" || printf '%s\t%s\n' "${seconds[$t]}" "$t"
done | sort -t $'\t' -k1,1 -g | cut -f2-)
if [ "${#suite[@]}" -gt 1 ]; then suite=("${suite[-1]}" "${suite[@]:0:${#suite[@]}-1}"); fi
echo "== ${#suite[@]} tests, $(printf '%s\n' "${seconds[@]}" | awk '{ s += $1 } END { printf "%.0f", s }') s of test time on the unmutated tree"

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
  if ! build_suite "$log"; then
    verdict=KILLED
    detail="(the build fails)"
  else
    run_tests 1 "$work/$name" "${suite[@]}"
    new_failures=$failed
    if [ -n "$new_failures" ]; then
      verdict=KILLED
      detail="by $(echo "$new_failures" | paste -sd ' ')"
    fi
  fi
  # Back as it was; newer than every object built from the mutant.
  mv "$file.orig" "$file"
  touch "$file"
  [ "$verdict" = KILLED ] && killed=$((killed + 1))
  printf '%-8s %-14s %s %s\n' "$verdict" "$name" "$what" "$detail"
done

finish
echo "wall time: $((SECONDS - start_time)) s"
echo "mutation: $killed of $total mutants killed"
[ "$killed" -eq "$total" ]
