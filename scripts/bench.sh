#!/usr/bin/env bash
# Configures a Release build with the benchmarks, builds them, runs them and
# writes the measured part of docs/performance.md (between the "measured"
# markers; the analysis around it is kept). About 10 minutes on 2 cores.
#
#   scripts/bench.sh                 everything
#   MIB=64 scripts/bench.sh          smaller attachments (default 256)
#   PROFILE=0 scripts/bench.sh       without the callgrind profiles
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD=${BUILD:-build-bench}
JOBS=${JOBS:-2}
MIB=${MIB:-256}               # attachment received and sent chunked
LENGTH_MIB=${LENGTH_MIB:-64}  # attachment sent with a Content-Length: held in memory until finished
SECONDS_PER_CASE=${SECONDS_PER_CASE:-3}
PROFILE=${PROFILE:-1}
DOC=docs/performance.md
OUT=$(mktemp -d)
trap 'rm -rf "$OUT"' EXIT

scripts/install-deps.sh
if ! dpkg-query -W -f='${Status}' libbenchmark-dev 2>/dev/null | grep -q "install ok installed"; then
  sudo=""; [ "$(id -u)" -ne 0 ] && sudo="sudo"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends libbenchmark-dev valgrind >/dev/null
fi

cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTALVEX_BUILD_BENCH=ON >/dev/null
cmake --build "$BUILD" -j "$JOBS" --target VLT_Crypto_Interface roundtrip_bench receive_bench parsing_bench httptools_bench mime_bench

B=$BUILD/bin
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
# Round trips twice: with both ends on one core, where each call is a direct
# hand-off and the figure is CPU work (the one the targets are read from),
# and spread over the cores, where a virtual machine's wake-up latency on an
# idle core can dominate both the limit and the toolkit.
echo "== round trips, one core"; taskset -c 0 "$B"/roundtrip_bench "$SECONDS_PER_CASE" | tee "$OUT/roundtrip.md"
echo "== round trips, all cores"; "$B"/roundtrip_bench "$SECONDS_PER_CASE" | tee "$OUT/roundtrip-spread.md"
echo "== attachments"; "$B"/receive_bench "$MIB" "$LENGTH_MIB" | tee "$OUT/attach.md"
gb() { "$1" --benchmark_min_time=0.2 --benchmark_format=console --benchmark_counters_tabular=true 2>/dev/null \
         | sed -e 's/\x1b\[[0-9;]*m//g'; }
echo "== parsing";   gb "$B"/parsing_bench     | tee "$OUT/parsing.txt"
echo "== mime";      gb "$B"/mime_bench           | tee "$OUT/mime.txt"
echo "== httptools"; gb "$B"/httptools_bench | tee "$OUT/httptools.txt"

# Instruction counts per function (self cost), for the plain streaming round
# trip and the chunked binary receive.
top() {  # callgrind output file -> the 15 functions with the highest self cost
  callgrind_annotate $2 "$1" 2>/dev/null | sed -n '/PROGRAM TOTALS/,$p' | grep -v -- '^---\|file:function\|^ *$' \
    | head -"${3:-16}" | sed -e 's/ \[[^]]*\]$//' -e 's/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' | cut -c1-160
}
if [ "$PROFILE" = 1 ] && command -v valgrind >/dev/null; then
  echo "== profiles (callgrind)"
  # Only the calling thread inside the measured loop: start-up and the endpoint are left out.
  valgrind --tool=callgrind --collect-atstart=no --toggle-collect='*measure*' --callgrind-out-file="$OUT/rt.cg" \
    "$B"/roundtrip_bench 1 streaming >/dev/null 2>&1
  valgrind --tool=callgrind --collect-atstart=no --toggle-collect='*runCase*' --callgrind-out-file="$OUT/rx.cg" \
    "$B"/receive_bench 16 16 "binary, chunked" >/dev/null 2>&1
  valgrind --tool=callgrind --collect-atstart=no --toggle-collect='*measure*' --callgrind-out-file="$OUT/dom.cg" \
    "$B"/roundtrip_bench 0.5 dom >/dev/null 2>&1
  count() {  # callgrind output, function name -> how many times it was called
    python3 - "$1" "$2" <<'PY'
import re, sys
text = open(sys.argv[1]).read()
m = re.search(r"\((\d+)\) " + re.escape(sys.argv[2]), text)
print(sum(int(c) for c in re.findall(r"^cfn=\(%s\).*\ncalls=(\d+)" % m.group(1), text, re.M)) if m else "?")
PY
  }
  calls=$(count "$OUT/rt.cg" "TALVEXSessionImp::openRequest(int)")
  domcalls=$(count "$OUT/dom.cg" "TALVEXSessionImp::doRequest(")
  # System calls per case: the socket reads behind each figure.
  if command -v strace >/dev/null; then
    strace -f -c -e trace=recvfrom,read,sendto,write -o "$OUT/rx.strace" "$B"/receive_bench 16 16 "binary, chunked" >/dev/null 2>&1 || true
    strace -f -c -e trace=recvfrom,read,sendto,write -o "$OUT/rxraw.strace" "$B"/receive_bench 16 16 "64 KiB reads" >/dev/null 2>&1 || true
  fi
  # (|| true: head closing a pipe early is not a failure)
  top "$OUT/rt.cg" "" > "$OUT/rt.top" || true
  top "$OUT/rt.cg" "--inclusive=yes" 60 | grep -E "TALVEX|Http|PNX|MOX|PROGRAM" | head -22 > "$OUT/rt.incl" || true
  top "$OUT/rx.cg" "" > "$OUT/rx.top" || true
  top "$OUT/dom.cg" "--inclusive=yes" 60 | grep -E "TALVEX|MOXIDOM|PROGRAM|DOMParser::(~|XercesDOMParser\(|parse\()" | head -22 > "$OUT/dom.incl" || true
fi
if perf stat -e instructions true 2>&1 | grep -q "not supported\|not counted"; then perf_ok=no; else perf_ok=yes; fi

{
  echo "<!-- measured:begin (written by scripts/bench.sh; edit outside the markers) -->"
  echo "## Machine and run"
  echo
  echo "| | |"
  echo "|---|---|"
  echo "| date (UTC) | $(date -u '+%Y-%m-%d %H:%M') |"
  echo "| nproc | $(nproc) |"
  echo "| CPU | $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//') |"
  echo "| kernel | $(uname -sr) |"
  echo "| load average before / after the runs | $load_before / $(cut -d' ' -f1-3 /proc/loadavg) |"
  echo "| compiler | $(c++ --version | head -1 || true) |"
  echo "| build | Release, \`$BUILD\` |"
  echo "| commit | $(git rev-parse --short HEAD) |"
  echo "| reproduce | \`MIB=$MIB LENGTH_MIB=$LENGTH_MIB SECONDS_PER_CASE=$SECONDS_PER_CASE scripts/bench.sh\` |"
  echo "| perf stat | $([ "$perf_ok" = yes ] && echo "available" || echo "not usable here (no counters); profiles are callgrind instruction counts") |"
  echo
  echo "## Round trips"
  echo
  echo "Client and endpoint threads pinned to one core (\`taskset -c 0\`): each call hands the core over and back, so the"
  echo "figures are the CPU work of both ends, the same for the limit and for the toolkit."
  echo
  cat "$OUT/roundtrip.md"
  echo
  echo "### The same, spread over all cores"
  echo
  echo "Client and endpoint on different cores: each hand-off wakes an idle core, and on a virtual machine that wake-up"
  echo "can cost more than the work itself (compare the CPU per call with the table above)."
  echo
  grep "^|" "$OUT/roundtrip-spread.md"
  echo
  echo "## Attachments"
  echo
  echo "Received: $MIB MiB. Sent chunked: $MIB MiB and $LENGTH_MIB MiB; sent with a Content-Length: $LENGTH_MIB MiB"
  echo "only, because that body is held in memory until the message is finished (by design), so its peak grows with the size."
  echo
  cat "$OUT/attach.md"
  echo
  echo "## Microbenchmarks (Google Benchmark)"
  for f in parsing mime httptools; do
    echo
    echo "### $f"
    echo
    echo '```'
    grep -v "^\*\*\*" "$OUT/$f.txt" | grep -v "^$"
    echo '```'
  done
  if [ -f "$OUT/rt.top" ]; then
    echo
    echo "## Profiles (callgrind, self instruction counts, top 15)"
    echo
    echo "Plain streaming round trip (\`roundtrip_bench 1 streaming\`), calling thread only, ${calls:-?} calls."
    echo "Self cost:"
    echo
    echo '```'; cat "$OUT/rt.top"; echo '```'
    echo
    echo "Inclusive cost of the toolkit's functions:"
    echo
    echo '```'; cat "$OUT/rt.incl"; echo '```'
    echo
    echo "doRequest (\`roundtrip_bench 0.5 dom\`), calling thread only, ${domcalls:-?} calls; inclusive cost:"
    echo
    echo '```'; cat "$OUT/dom.incl"; echo '```'
    echo
    echo "Chunked binary receive of 16 MiB (\`receive_bench 16 16 \"binary, chunked\"\`), receiving thread only:"
    echo
    echo '```'; cat "$OUT/rx.top"; echo '```'
  fi
  if [ -f "$OUT/rx.strace" ]; then
    echo
    echo "System calls (\`strace -f -c\`) for 16 MiB received, both ends in one process (the server's sends included):"
    echo
    echo "Message reader, chunked binary:"
    echo
    echo '```'; grep -E "calls|recvfrom|sendto|total" "$OUT/rx.strace"; echo '```'
    echo
    echo "Raw recv loop, 64 KiB reads:"
    echo
    echo '```'; grep -E "calls|recvfrom|sendto|total" "$OUT/rxraw.strace"; echo '```'
  fi
  echo "<!-- measured:end -->"
} > "$OUT/measured.md"

if [ -f "$DOC" ] && grep -q "measured:begin" "$DOC"; then
  python3 - "$DOC" "$OUT/measured.md" <<'EOF'
import sys, re
doc, measured = sys.argv[1], open(sys.argv[2]).read().rstrip("\n")
text = open(doc).read()
text = re.sub(r"<!-- measured:begin.*?<!-- measured:end -->", lambda m: measured, text, flags=re.S)
open(doc, "w").write(text)
EOF
else
  { echo "# Performance"; echo; cat "$OUT/measured.md"; } > "$DOC"
fi
echo "Wrote $DOC"
