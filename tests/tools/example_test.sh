#!/usr/bin/env bash
# Runs one example program against talvex-echo-server, plain and over TLS:
#   example_test.sh EXAMPLE TALVEX-ECHO-SERVER
set -u
EXAMPLE=$1
SERVER=$2
HERE=$(cd "$(dirname "$0")" && pwd)
. "$HERE/lib.sh"

start_server plain
"$EXAMPLE" "http://127.0.0.1:$PORT/soap" >"$SCRATCH/plain.txt" 2>&1 || { cat "$SCRATCH/plain.txt" >&2; fail "$(basename "$EXAMPLE") over plain TCP"; }
cat "$SCRATCH/plain.txt"

make_certificates
start_server tls --tls --cert "$CERTS/server.pem" --key "$CERTS/server.key"
"$EXAMPLE" "https://localhost:$PORT/soap" "$CERTS/ca.pem" >"$SCRATCH/tls.txt" 2>&1 || { cat "$SCRATCH/tls.txt" >&2; fail "$(basename "$EXAMPLE") over TLS"; }
echo "PASS: $(basename "$EXAMPLE")"
