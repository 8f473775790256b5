#!/usr/bin/env bash
# Size of the test suite against the rest of the code. Counts non-blank lines
# that are not `//` comment lines in the git-tracked .h, .hpp, .cc, .cpp and
# .cmake files and CMakeLists.txt files; tests are the files under tests/,
# code is every other counted file. Prints both counts and their ratio.
#
#   tools/size.sh          tests N, code M, ratio R
#   tools/size.sh -v       the same, preceded by the count of each file
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

git ls-files -z -- '*.h' '*.hpp' '*.cc' '*.cpp' '*.cmake' '*CMakeLists.txt' |
  xargs -0 awk -v verbose="${1:-}" '
    FNR == 1 { files[++n] = FILENAME }
    /^[[:space:]]*$/ || /^[[:space:]]*\/\// { next }
    { lines[FILENAME]++ }
    END {
      for (i = 1; i <= n; i++) {
        f = files[i]
        if (verbose == "-v") printf "%6d %s\n", lines[f], f
        if (f ~ /^tests\//) tests += lines[f]; else code += lines[f]
      }
      ratio = code > 0 ? tests / code : 0
      printf "size: tests %d lines, code %d lines, ratio %.2f\n", tests, code, ratio
    }'
