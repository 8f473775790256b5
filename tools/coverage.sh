#!/usr/bin/env bash
# Line and branch coverage of the library (classifier/, containers/,
# support/) and line coverage of the SMT-LIB pipeline and the programs on it
# (smtlib/, orvo-itp-classify/, orvo-itp-check/) by the test suite:
# configures, builds and tests the `coverage` preset (g++ --coverage,
# build/coverage, z3 needed), then summarises with gcovr. The programs count
# through their own processes too: the program tests run the instrumented
# executables, whose counters land in the same build directory.
#
#   tools/coverage.sh [build-dir]                   build directory, default build/coverage
#   ORVO_ITP_COVERAGE_FAIL_UNDER_LINE=98            fail when the library's line coverage is lower
#                                                   (default 98)
#   ORVO_ITP_COVERAGE_FAIL_UNDER_BRANCH=95          the same for its branches (default 95; 0: report only)
#   ORVO_ITP_COVERAGE_FAIL_UNDER_PROGRAM_LINE=90    the same for the lines of the pipeline and the
#                                                   programs (default 90)
#
# Branches that only throw and branches the compiler proves unreachable are
# left out (--exclude-throw-branches, --exclude-unreachable-branches): they
# are the exception-propagation edges of every call, not decisions of the
# code. So are the failure branches of contract checks and asserts (a call
# outside the contract, which the suite does not make) and those of the
# check_invariants oracles (marked GCOVR_EXCL_BR_START/STOP: taken only on a
# broken structure); their lines still count. The per-file table lists the
# lines that no test reaches; the HTML report goes to
# <build-dir>/coverage/index.html.
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
program_filters=()
for dir in smtlib orvo-itp-classify orvo-itp-check; do program_filters+=(--filter "$root/$dir/"); done
# Contract checks (ORVO_ITP_REQUIRE) and asserts stop the program on calls
# outside an operation's contract, which the suite does not make: their lines
# count, their never-taken abort branches do not.
common=(--root "$root" --exclude-throw-branches --exclude-unreachable-branches
  --exclude-branches-by-pattern '.*(ORVO_ITP_REQUIRE|assert)\(.*'
  --exclude-directories '.*/CompilerIdCXX' --object-directory "$build" -j 2)
options=("${common[@]}" "${filters[@]}")
program_options=("${common[@]}" "${program_filters[@]}")
fail_line=${ORVO_ITP_COVERAGE_FAIL_UNDER_LINE:-98}
fail_branch=${ORVO_ITP_COVERAGE_FAIL_UNDER_BRANCH:-95}
fail_program_line=${ORVO_ITP_COVERAGE_FAIL_UNDER_PROGRAM_LINE:-90}

mkdir -p "$build/coverage"
echo
echo "== coverage of classifier/, containers/, support/ (lines; 'Missing' lists uncovered ones)"
gcovr "${options[@]}" --txt - --html-details "$build/coverage/index.html" --print-summary
echo
echo "== branches per file"
gcovr "${options[@]}" --branches --txt -
echo
echo "== coverage of smtlib/, orvo-itp-classify/, orvo-itp-check/ (lines; 'Missing' lists uncovered ones)"
gcovr "${program_options[@]}" --txt - --html-details "$build/coverage/programs.html"
if [ "$tests_status" -ne 0 ]; then
  echo "some tests failed (ctest exit $tests_status): the figures above undercount" >&2
  exit "$tests_status"
fi
# The thresholds, checked on the summary, so that both figures and the verdict
# end the output together.
summary=$(gcovr "${options[@]}" --print-summary --txt /dev/null)
percent() { echo "$summary" | sed -n "s/^$1: \([0-9.]*\)%.*/\1/p"; }
line=$(percent lines)
branch=$(percent branches)
summary=$(gcovr "${program_options[@]}" --print-summary --txt /dev/null)
program_line=$(percent lines)
echo
echo "coverage: lines $line % (at least $fail_line), branches $branch % (at least $fail_branch)"
echo "coverage of the pipeline and programs: lines $program_line % (at least $fail_program_line)"
if awk -v l="$line" -v b="$branch" -v p="$program_line" -v fl="$fail_line" -v fb="$fail_branch" \
  -v fp="$fail_program_line" 'BEGIN { exit !(l < fl || b < fb || p < fp) }'; then
  echo "coverage below the thresholds" >&2
  exit 3
fi
