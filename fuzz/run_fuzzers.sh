#!/usr/bin/env bash
# Builds the fuzz harnesses with clang-14 (libFuzzer, AddressSanitizer with
# leak detection, UndefinedBehaviorSanitizer) and runs each for a bounded
# time, two at a time. Any crash, leak, sanitizer report or time-out fails the
# script; the harness's input is then saved under $FUZZ_OUT/<harness>/.
#
#   fuzz/run_fuzzers.sh [harness...]      (default: every harness)
#   FUZZ_SECONDS=90   seconds per harness
#   FUZZ_BUILD=build-fuzz   build directory
#   FUZZ_OUT=$FUZZ_BUILD/fuzz-out   corpora, logs and the summary
#
# The committed seeds (fuzz/corpus/<harness>/) are copied, not grown: what a
# run adds stays in $FUZZ_OUT.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-90}
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

run_one() {
  local h=$1 dir="$out/$1"
  mkdir -p "$dir/corpus" "$dir/crashes"
  cp -r "fuzz/corpus/$h/." "$dir/corpus/" 2>/dev/null || true
  local dict=()
  [ -f "fuzz/dict/$h.dict" ] && dict=("-dict=$PWD/fuzz/dict/$h.dict")
  local status=0
  "$build/bin/${h}_fuzzer" "$dir/corpus" "${dict[@]}" -max_total_time="$seconds" \
    -timeout=20 -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 \
    -artifact_prefix="$dir/crashes/" >"$dir/log" 2>&1 || status=$?
  local runs inputs
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -1)
  inputs=$(find "$dir/corpus" -type f | wc -l)
  printf '%-14s status %d  executions %s  corpus %s\n' "$h" "$status" "${runs:-0}" "$inputs" \
    >"$dir/summary"
  return "$status"
}

pids=()
failed=0
for h in "${harnesses[@]}"; do
  run_one "$h" &
  pids+=($!)
  if ((${#pids[@]} == 2)); then
    wait "${pids[0]}" || failed=1
    pids=("${pids[@]:1}")
  fi
done
for p in "${pids[@]}"; do wait "$p" || failed=1; done

cat "$out"/*/summary | tee "$out/summary.txt"
if ((failed)); then
  for h in "${harnesses[@]}"; do
    if ! grep -q 'status 0 ' "$out/$h/summary"; then
      echo "fuzz: $h failed; its log ends:"
      tail -40 "$out/$h/log"
    fi
  done
  exit 1
fi
