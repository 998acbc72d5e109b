#!/usr/bin/env bash
# Builds the fuzz harnesses with clang-14 (libFuzzer, AddressSanitizer with
# leak detection, UndefinedBehaviorSanitizer) and runs each for a bounded
# time, one harness after the other, each in one fuzzing process per
# processor sharing its corpus. Any crash, leak, sanitizer report or time-out
# fails the script; the harness's input is then saved under
# $FUZZ_OUT/<harness>/crashes/.
#
#   fuzz/run_fuzzers.sh [harness...]      (default: every harness)
#   FUZZ_SECONDS=90   seconds per harness
#   FUZZ_WORKERS=$(nproc)   fuzzing processes per harness
#   FUZZ_BUILD=build-fuzz   build directory
#   FUZZ_OUT=$FUZZ_BUILD/fuzz-out   corpora, logs and the summary
#
# The committed seeds (fuzz/corpus/<harness>/) are copied, not grown: what a
# run adds stays in $FUZZ_OUT.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-90}
workers=${FUZZ_WORKERS:-$(nproc)}
build=$(realpath -m "${FUZZ_BUILD:-build-fuzz}")
out=$(realpath -m "${FUZZ_OUT:-$build/fuzz-out}")
flags="-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer -gline-tables-only"

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DSTOREGEN_FUZZ=ON \
  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_COMPILE_WARNING_AS_ERROR=OFF >/dev/null

if (($#)); then
  harnesses=("$@")
else
  harnesses=()
  for f in fuzz/*_fuzzer.cc; do
    name=$(basename "$f" _fuzzer.cc)
    # A harness whose module is not built yet is listed but skipped.
    grep -q "storegen_fuzzer($name " fuzz/CMakeLists.txt && harnesses+=("$name")
  done
fi
targets=()
for h in "${harnesses[@]}"; do targets+=("${h}_fuzzer"); done
cmake --build "$build" -j2 --target "${targets[@]}"

rm -rf "$out"
mkdir -p "$out"
# Scratch files go to memory where possible: the rewriters fsync every file.
[ -z "${TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ] && export TMPDIR=/dev/shm
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# The lines of the workers' logs that end with a non-zero exit: the parent
# prints each worker's log after a line "... Job N exited with exit code C ...".
failed_jobs() {
  awk '/^=+ Job [0-9]+ exited with exit code/ { flush(); bad = $0 !~ /exit code 0 / }
       { if (bad) lines[n++] = $0 }
       END { flush() }
       function flush() { for (i = (n > 40 ? n - 40 : 0); i < n; ++i) print lines[i]; n = 0 }' "$1"
}

run_one() {
  local h=$1 dir="$out/$1"
  mkdir -p "$dir/corpus" "$dir/crashes"
  cp -r "fuzz/corpus/$h/." "$dir/corpus/" 2>/dev/null || true
  local dict=()
  [ -f "fuzz/dict/$h.dict" ] && dict=("-dict=$PWD/fuzz/dict/$h.dict")
  local status=0 TIMEFORMAT='%U %S'
  # The parent process copies every worker's log into its own output.
  { time (cd "$dir" && "$build/bin/${h}_fuzzer" "$dir/corpus" "${dict[@]}" \
    -max_total_time="$seconds" -jobs="$workers" -workers="$workers" -timeout=20 \
    -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 -artifact_prefix="$dir/crashes/" \
    >"$dir/log" 2>&1) || status=$?; } 2>"$dir/cpu"
  local runs inputs cpu
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | awk '{ n += $1 } END { print n + 0 }')
  inputs=$(find "$dir/corpus" -type f | wc -l)
  cpu=$(awk '{ printf "%.0f", $1 + $2 }' "$dir/cpu")
  # Executions per CPU second: what the harness makes on a machine of its own
  # is this times FUZZ_SECONDS times the processors, whatever the load.
  printf '%-16s status %d  executions %9d  cpu-seconds %4d  corpus %5s  per-cpu-second %6d\n' \
    "$h" "$status" "$runs" "$cpu" "$inputs" $((runs / (cpu > 0 ? cpu : 1))) >"$dir/summary"
  return "$status"
}

failed=0
for h in "${harnesses[@]}"; do
  run_one "$h" || failed=1
done

cat "$out"/*/summary | tee "$out/summary.txt"
awk '{ n += $5 } END { printf "total            executions %9d\n", n }' "$out"/*/summary |
  tee -a "$out/summary.txt"
if ((failed)); then
  for h in "${harnesses[@]}"; do
    if ! grep -q 'status 0 ' "$out/$h/summary"; then
      echo "fuzz: $h failed; its log ends:"
      failed_jobs "$out/$h/log"
      tail -20 "$out/$h/log"
    fi
  done
  exit 1
fi
