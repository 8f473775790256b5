#!/usr/bin/env bash
# Line and branch coverage of the library (classifier/, containers/,
# support/) by the test suite: configures, builds and tests the `coverage`
# preset (g++ --coverage, build/coverage), then summarises with gcovr.
#
#   tools/coverage.sh [build-dir]             build directory, default build/coverage
#   ORVO_ITP_COVERAGE_FAIL_UNDER_LINE=100     fail when line coverage is lower (default: report only)
#   ORVO_ITP_COVERAGE_FAIL_UNDER_BRANCH=95    the same for branches
#
# Branches that only throw and branches the compiler proves unreachable are
# left out (--exclude-throw-branches, --exclude-unreachable-branches): they
# are the exception-propagation edges of every call, not decisions of the
# code. The per-file table lists the lines that no test reaches; the HTML
# report goes to <build-dir>/coverage/index.html.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$(realpath -m "${1:-$root/build/coverage}")
cd "$root"

if ! command -v gcovr >/dev/null; then
  if [ "$(id -u)" -eq 0 ]; then
    echo "== installing gcovr"
    DEBIAN_FRONTEND=noninteractive apt-get install -y -q gcovr >/dev/null ||
      { apt-get update -q >/dev/null && DEBIAN_FRONTEND=noninteractive apt-get install -y -q gcovr >/dev/null; }
  else
    echo "gcovr is missing: run 'sudo apt-get install gcovr' (or 'pip install gcovr')" >&2
    exit 2
  fi
fi

cmake --preset coverage -B "$build" >/dev/null
cmake --build "$build" -j2
# Counters accumulate across runs: start from zero so the figures are this run's.
find "$build" -name '*.gcda' -delete
# A failing test fails the script, but only after the report is written.
tests_status=0
(cd "$build" && ctest -j2 --output-on-failure) || tests_status=$?

filters=()
for dir in classifier containers support; do filters+=(--filter "$root/$dir/"); done
# Contract checks (ORVO_REQUIRE) stop the program on calls outside an
# operation's contract, which the suite does not make: their lines count,
# their never-taken abort branches do not.
options=(--root "$root" "${filters[@]}" --exclude-throw-branches --exclude-unreachable-branches
  --exclude-branches-by-pattern '.*ORVO_REQUIRE\(.*' --exclude-directories '.*/CompilerIdCXX'
  --object-directory "$build" -j 2)
[ -n "${ORVO_ITP_COVERAGE_FAIL_UNDER_LINE:-}" ] &&
  options+=(--fail-under-line "$ORVO_ITP_COVERAGE_FAIL_UNDER_LINE")
[ -n "${ORVO_ITP_COVERAGE_FAIL_UNDER_BRANCH:-}" ] &&
  options+=(--fail-under-branch "$ORVO_ITP_COVERAGE_FAIL_UNDER_BRANCH")

mkdir -p "$build/coverage"
echo
echo "== coverage of classifier/, containers/, support/ (lines; 'Missing' lists uncovered ones)"
gcovr "${options[@]}" --txt - --html-details "$build/coverage/index.html" --print-summary
echo
echo "== branches per file"
gcovr "${options[@]}" --branches --txt -
if [ "$tests_status" -ne 0 ]; then
  echo "some tests failed (ctest exit $tests_status): the figures above undercount" >&2
  exit "$tests_status"
fi
