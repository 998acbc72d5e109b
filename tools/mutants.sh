#!/bin/bash
# Applies each mutation of a list (default tools/mutants.txt) to the source
# tree, one at a time: rebuilds incrementally, runs the tests without the web
# suite (the mutated module's own tests first, then the rest, stopping on the
# first failure), restores the file and prints whether the tests killed it.
#
#   tools/mutants.sh [-b BUILD_DIR] [-l LIST] [-k] [-n] [PATTERN]
#     -b  build directory (default: build-mutants, configured when missing)
#     -l  list of mutations (format: see tools/mutants.txt)
#     -k  keep going: do not first check that the tests pass unmutated
#     -n  only check that every mutation's line is found, once
#     PATTERN  only the mutations whose file or description matches it
# Extra ctest arguments (say, -E NAME for a test known to fail) can be given
# in MUTANTS_CTEST_ARGS. Needs a clean checkout of the files it mutates; each
# file is restored from a copy after its run, also on interruption.
set -u
cd "$(dirname "$0")/.." || exit 2
build=build-mutants
list=tools/mutants.txt
check=1
dry=0
while getopts b:l:kn opt; do
  case $opt in
    b) build=$OPTARG ;;
    l) list=$OPTARG ;;
    k) check=0 ;;
    n) dry=1 check=0 ;;
    *) exit 2 ;;
  esac
done
shift $((OPTIND - 1))
pattern=${1:-}
read -r -a extra <<<"${MUTANTS_CTEST_ARGS:-}"

if [ "$dry" = 0 ] && [ ! -f "$build/CMakeCache.txt" ]; then
  launcher=()
  command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache
                                            -DCMAKE_C_COMPILER_LAUNCHER=ccache)
  cmake -B "$build" "${launcher[@]}" >/dev/null || exit 2
fi

build_tree() { cmake --build "$build" -j2 >"$build/mutant-build.log" 2>&1; }
# The module's ctest label: the directory below the top one for the driver's
# and the page generator's sub-libraries, else the top directory.
label_of() {
  case $1 in
    driver/admin/*) echo admin ;;
    driver/front/*) echo front ;;
    pagegen/filelist/*) echo filelist ;;
    *) echo "${1%%/*}" ;;
  esac
}
# The slow whole-run tests come last, so that most mutants die early.
slow='^(memory|faultinject)$'
run_tests() {  # $1: label; 0 when every test passes
  local args=(--test-dir "$build" -j2 --stop-on-failure "${extra[@]}")
  if [ -n "$1" ] && ctest --test-dir "$build" -L "^$1\$" -N 2>/dev/null | grep -q 'Test *#'; then
    ctest "${args[@]}" -L "^$1\$" -LE web >"$build/mutant-test.log" 2>&1 || return 1
  fi
  ctest "${args[@]}" -LE "web|$slow" >"$build/mutant-test.log" 2>&1 &&
    ctest "${args[@]}" -L "$slow" >"$build/mutant-test.log" 2>&1
}

if [ "$check" = 1 ]; then
  build_tree || { echo "the unmutated tree does not build: see $build/mutant-build.log"; exit 2; }
  run_tests "" || { echo "the unmutated tree fails its tests: see $build/mutant-test.log"; exit 2; }
fi

backup=""
# The restored file gets a new time stamp, so that the next build compiles it
# again instead of keeping the mutant's object.
restore() { [ -n "$backup" ] && cp "$backup" "$file" && touch "$file" && rm -f "$backup"; backup=""; }
trap 'restore; exit 130' INT TERM

killed=0 survived=0 stale=0 broken=0
file="" what="" old="" new=""
try_one() {
  if [ -n "$pattern" ] && [[ "$file | $what" != *$pattern* ]]; then return; fi
  local count
  count=$(grep -cxF -- "$old" "$file" 2>/dev/null)
  if [ "${count:-0}" != 1 ]; then
    printf 'LINE NOT FOUND  %s: %s (%s matches)\n' "$file" "$what" "${count:-0}"
    stale=$((stale + 1))
    return
  fi
  if [ "$dry" = 1 ]; then
    killed=$((killed + 1))
    return
  fi
  backup=$(mktemp)
  cp -p "$file" "$backup"
  OLD=$old NEW=$new awk '$0 == ENVIRON["OLD"] { print ENVIRON["NEW"]; next } { print }' \
    "$backup" >"$file"
  local verdict
  if ! build_tree; then
    verdict="BUILD FAILS"
    broken=$((broken + 1))
  elif run_tests "$(label_of "$file")"; then
    verdict="SURVIVED"
    survived=$((survived + 1))
  else
    verdict="killed"
    killed=$((killed + 1))
  fi
  restore
  printf '%-15s %s: %s\n' "$verdict" "$file" "$what"
}

while IFS= read -r line || [ -n "$line" ]; do
  case $line in
    "@ "*)
      file=${line#@ }; what=${file#* | }; file=${file%% | *}; old="" new="" ;;
    "-"*) old=${line#-} ;;
    "+"*)
      new=${line#+}
      [ -n "$file" ] && try_one
      file="" ;;
  esac
done <"$list"
if [ "$dry" = 1 ]; then
  echo "$killed mutations found, $stale lines not found"
  exit $((stale > 0))
fi
# Leave the build as the unmutated tree.
build_tree

total=$((killed + survived))
echo "killed $killed, survived $survived, line not found $stale, not building $broken"
[ "$total" -gt 0 ] && awk -v k="$killed" -v t="$total" 'BEGIN { printf "kill rate %.1f %%\n", 100 * k / t }'
exit 0
