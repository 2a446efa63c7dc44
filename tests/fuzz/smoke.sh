#!/usr/bin/env bash
# Builds the fuzz targets in build-fuzz (clang, ASan + UBSan + libFuzzer) and
# runs each for N seconds (default 30) from its seed corpus. Exits non-zero on
# the first finding; the crashing input is left in build-fuzz/findings/, the
# whole libFuzzer log of each target in build-fuzz/logs/.
#   tests/fuzz/smoke.sh [seconds] [target...]
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-30}
shift || true
build=build-fuzz
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(fuzz_http_parser fuzz_chunked fuzz_http_header fuzz_multipart
                                     fuzz_quoted_printable fuzz_message_reader fuzz_attachment_reader)

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DTALVEX_FUZZ=ON \
  -DCMAKE_CXX_FLAGS="-O1 -fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer" \
  -DCMAKE_C_FLAGS="-O1 -fsanitize=address,undefined" >/dev/null
cmake --build "$build" -j 2 --target "${targets[@]}"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/fuzz/lsan.supp}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
mkdir -p "$build/findings" "$build/logs"
for t in "${targets[@]}"; do
  work="$build/corpus/$t"
  mkdir -p "$work"
  echo "== $t: ${seconds}s"
  # New inputs go to the scratch corpus; the seeds in the tree stay as written.
  "$build/bin/$t" "$work" "tests/fuzz/corpus/$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -max_len=4096 -artifact_prefix="$build/findings/$t-" -print_final_stats=1 2>&1 | tee "$build/logs/$t.log" |
    grep -E "^#[0-9]+[[:space:]]+(INITED|DONE)|stat::number_of_executed_units|ERROR|SUMMARY|Test unit written" || true
  if ls "$build/findings/$t-"* >/dev/null 2>&1; then
    echo "$t: finding(s) in $build/findings" >&2
    exit 1
  fi
done
