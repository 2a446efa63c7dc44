#!/usr/bin/env bash
# The interoperability tests with the heavy peers running: a JAX-WS endpoint
# (tests/interop/JaxwsEcho.java) is compiled into BUILD/jaxws, started on a free
# loopback port for the run and named to the tests in TALVEX_JAXWS_URL; without
# it those tests skip. Run by `make interop` after scripts/install-deps.sh interop.
#   scripts/interop.sh [BUILD]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
classpath=/usr/share/java/jaxws-rt.jar  # its manifest names the rest of JAX-WS
out=$build/jaxws
mkdir -p "$out"
if [ tests/interop/JaxwsEcho.java -nt "$out/JaxwsEcho.class" ]; then
  javac -nowarn -cp "$classpath" -d "$out" tests/interop/JaxwsEcho.java
fi

java -cp "$classpath:$out" JaxwsEcho >"$out/endpoint.out" 2>"$out/endpoint.log" &
endpoint=$!
trap 'kill "$endpoint" 2>/dev/null; wait "$endpoint" 2>/dev/null || true' EXIT
port=""
for _ in $(seq 1 300); do
  port=$(awk '/^listening on /{print $3}' "$out/endpoint.out")
  [ -n "$port" ] || ! kill -0 "$endpoint" 2>/dev/null && break
  sleep 0.1
done
if [ -z "$port" ]; then
  echo "the JAX-WS endpoint did not start:" >&2
  cat "$out/endpoint.log" >&2
  exit 1
fi

TALVEX_JAXWS_URL="http://127.0.0.1:$port" ctest --test-dir "$build" -L interop --output-on-failure -j "$(nproc)"
