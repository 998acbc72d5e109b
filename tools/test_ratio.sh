#!/bin/sh
# Prints the size of the tests against the size of the production code, in
# non-blank lines of the files git tracks.
#   tests:      *.cc *.cpp *.h *.hpp *.c *.py *.sh that are *_test.*,
#               *_test_support.*, under a testdata/ directory (the stand-in
#               programs and libraries the tests load) or under tests/
#   production: the other *.cc *.cpp *.h *.hpp *.c, except under fuzz/
#               bench/ tools/
#   fuzz/ harnesses are neither; their size is printed on a line of its own.
# Usage: tools/test_ratio.sh [-v]   (-v lists the test files by size)
cd "$(dirname "$0")/.." || exit 1

nonblank() { xargs -r cat | grep -c '[^[:space:]]'; }
is_test='_test\.[^/]*$|_test_support\.[^/]*$|(^|/)testdata/|^tests/'

prod_files() {
  git ls-files -- '*.cc' '*.cpp' '*.h' '*.hpp' '*.c' |
    grep -v -E "$is_test|^(fuzz|bench|tools)/"
}
test_files() {
  git ls-files -- '*.cc' '*.cpp' '*.h' '*.hpp' '*.c' '*.py' '*.sh' | grep -E "$is_test"
}

prod=$(prod_files | nonblank)
tests=$(test_files | nonblank)
fuzz=$(git ls-files -- 'fuzz/*.cc' 'fuzz/*.h' 'fuzz/*.c' 'fuzz/*.sh' | nonblank)
if [ "$1" = -v ]; then
  test_files | while read -r f; do
    printf '%6d %s\n' "$(grep -c '[^[:space:]]' "$f")" "$f"
  done | sort -n
fi
awk -v t="$tests" -v p="$prod" \
  'BEGIN { printf "tests %d / production %d = %.1f %%\n", t, p, 100 * t / p }'
echo "fuzz harnesses $fuzz (counted in neither)"
