#!/bin/sh
# Prints the size of the tests against the size of the production code, in
# non-blank lines of the files git tracks.
#   production: *.cc *.cpp *.h *.hpp *.c, except *_test.* and anything under
#               tests/ fuzz/ bench/ tools/
#   tests:      *.cc *.cpp *.h *.c *.py *.sh that are *_test.* or under tests/
# Usage: tools/test_ratio.sh [-v]   (-v lists the test files by size)
cd "$(dirname "$0")/.." || exit 1

nonblank() { xargs -r cat | grep -c '[^[:space:]]'; }

prod_files() {
  git ls-files -- '*.cc' '*.cpp' '*.h' '*.hpp' '*.c' |
    grep -v -E '_test\.[^/]*$|^(tests|fuzz|bench|tools)/'
}
test_files() {
  git ls-files -- '*.cc' '*.cpp' '*.h' '*.c' '*.py' '*.sh' |
    grep -E '_test\.[^/]*$|^tests/'
}

prod=$(prod_files | nonblank)
tests=$(test_files | nonblank)
if [ "$1" = -v ]; then
  test_files | while read -r f; do
    printf '%6d %s\n' "$(grep -c '[^[:space:]]' "$f")" "$f"
  done | sort -n
fi
awk -v t="$tests" -v p="$prod" \
  'BEGIN { printf "tests %d / production %d = %.1f %%\n", t, p, 100 * t / p }'
