#!/usr/bin/env bash
# The model-based test under valgrind's memcheck: configures and builds the
# `valgrind` preset (pool nodes annotated for memcheck, build/valgrind) and
# runs the Model* tests with a modest number of calls, so that a read of an
# erased element, a use of a freed clause, an uninitialised read or a leak
# fails the run.
#
#   tools/valgrind.sh [build-dir]       build directory, default build/valgrind
#   ORVO_ITP_MODEL_CALLS=2000           calls of the model-based test (default 2000)
#   ORVO_ITP_VALGRIND_FILTER=...        gtest filter instead of 'Model*'
#
# The test executable routes malloc and free through a --wrap hook whose
# __real_malloc/__real_free are the C library's, which memcheck replaces as
# usual; so every block is still tracked. Death tests fork and are left out.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../" && pwd)
build=$(realpath -m "${1:-$root/build/valgrind}")
cd "$root"

command -v valgrind >/dev/null || {
  echo "valgrind is missing: run 'apt-get install valgrind'" >&2
  exit 2
}
cmake --preset valgrind -B "$build" >/dev/null
cmake --build "$build" -j2 --target orvo_itp_tests
tests=$build/tests/orvo_itp_tests

filter=${ORVO_ITP_VALGRIND_FILTER:-Model*}
if [ -z "$("$tests" --gtest_list_tests --gtest_filter="$filter" | grep '^ ' || true)" ]; then
  echo "== no test matches '$filter': running the whole suite except death tests"
  filter='-*Death*'
fi
export ORVO_ITP_MODEL_CALLS=${ORVO_ITP_MODEL_CALLS:-2000}

log=$build/valgrind.log
echo "== valgrind memcheck: gtest filter '$filter', ORVO_ITP_MODEL_CALLS=$ORVO_ITP_MODEL_CALLS"
status=0
valgrind --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,indirect \
  --show-leak-kinds=definite,indirect --track-origins=yes --log-file="$log" \
  "$tests" --gtest_filter="$filter" --gtest_brief=1 || status=$?

echo "== memcheck (full log: $log)"
grep -E 'ERROR SUMMARY|total heap usage|definitely lost|indirectly lost|possibly lost|still reachable|All heap blocks were freed|in use at exit' "$log" |
  sed 's/^==[0-9]*== *//'
if [ "$status" -ne 0 ]; then
  echo "valgrind run failed (exit $status); the first errors:" >&2
  grep -m 40 -A 12 -E 'Invalid|uninitialised|definitely lost|indirectly lost|Mismatched' "$log" >&2 || true
fi
exit "$status"
