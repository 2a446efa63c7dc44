#!/usr/bin/env bash
# A short guided tour of TALVEX on loopback: a throw-away CA, a TLS SOAP echo
# server, and talvex-call and the examples talking to it.
#   scripts/demo.sh [BUILD-DIR]        (default: build; `make demo` builds it first)
# Exits non-zero when a step does not behave as described.
set -u

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${1:-build}
case "$BUILD" in /*) ;; *) BUILD="$ROOT/$BUILD" ;; esac
BIN="$BUILD/bin"
CALL="$BIN/talvex-call"
SERVER="$BIN/talvex-echo-server"

for program in talvex-call talvex-echo-server example_one_call example_attachments example_cancel_read; do
    if [ ! -x "$BIN/$program" ]; then
        echo "demo: $BIN/$program is missing; build first (make demo does)" >&2
        exit 1
    fi
done
command -v openssl >/dev/null || { echo "demo: the openssl command is needed (apt-get install openssl)" >&2; exit 1; }

if [ -t 1 ]; then
    BOLD=$'\e[1m' DIM=$'\e[2m' GREEN=$'\e[32m' RED=$'\e[31m' RESET=$'\e[0m'
else
    BOLD='' DIM='' GREEN='' RED='' RESET=''
fi

WORK=$(mktemp -d "${TMPDIR:-/tmp}/talvex-demo.XXXXXX")
PIDS=()
finish() {
    local pid
    for pid in "${PIDS[@]}"; do kill "$pid" 2>/dev/null; done
    for pid in "${PIDS[@]}"; do wait "$pid" 2>/dev/null; done
    rm -rf "$WORK"
}
trap finish EXIT

STEP=0
heading() {
    STEP=$((STEP + 1))
    printf '\n%s== %d. %s%s\n' "$BOLD" "$STEP" "$1" "$RESET"
}
notice() { printf '%sNotice:%s %s\n' "$BOLD" "$RESET" "$*"; }
ok() { printf '%s✔ %s%s\n' "$GREEN" "$*" "$RESET"; }
broken() {
    printf '%s✘ %s%s\n' "$RED" "$*" "$RESET" >&2
    exit 1
}
# Shows a command with the scratch folder abbreviated, then runs it.
show() {
    local text="$*"
    printf '%s$ %s%s\n' "$DIM" "${text//$WORK\//}" "$RESET"
}
server_said() { printf '%sserver: %s%s\n' "$DIM" "$(tail -1 "$1" | sed 's/^talvex-echo-server: //')" "$RESET"; }

# start_server NAME [options...]: sets PORT.
start_server() {
    local name=$1
    shift
    "$SERVER" --port 0 "$@" >"$WORK/$name.out" 2>"$WORK/$name.log" &
    PIDS+=($!)
    local i
    for i in $(seq 1 100); do
        if grep -q '^listening on ' "$WORK/$name.out" 2>/dev/null; then
            PORT=$(awk '/^listening on /{print $3}' "$WORK/$name.out")
            return 0
        fi
        sleep 0.05
    done
    cat "$WORK/$name.log" >&2
    broken "the echo server did not start"
}

cd "$WORK" || exit 1
START=$(date +%s)

heading "A throw-away certificate authority"
(
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout ca.key -out ca.pem \
        -days 1 -subj "/CN=TALVEX demo CA" &&
    openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout server.key -out server.csr \
        -subj "/CN=localhost" &&
    printf 'subjectAltName=DNS:localhost,IP:127.0.0.1\nbasicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n' \
        >server.ext &&
    openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out server.pem -days 1 \
        -extfile server.ext &&
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout other-ca.key \
        -out other-ca.pem -days 1 -subj "/CN=Some other CA"
) >openssl.log 2>&1 || { cat openssl.log >&2; broken "openssl could not make the certificates"; }
echo "ca.pem          the demo CA"
echo "server.pem      a certificate for localhost and 127.0.0.1, issued by the demo CA"
echo "other-ca.pem    an unrelated CA, for step 6"
start_server tls --tls --cert server.pem --key server.key
TLS_PORT=$PORT
URL="https://localhost:$TLS_PORT/demo"
show "talvex-echo-server --tls --cert server.pem --key server.key --port 0"
echo "listening on $TLS_PORT"
notice "the echo server answers every SOAP request with its own envelope and attachments."

cat >request.xml <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<soapenv:Envelope xmlns:soapenv="http://schemas.xmlsoap.org/soap/envelope/"><soapenv:Body><d:greet xmlns:d="urn:talvex:demo"><d:name>world</d:name><d:language>en</d:language></d:greet></soapenv:Body></soapenv:Envelope>
XML

heading "One SOAP call over TLS"
show "cat request.xml"
cat request.xml
show "talvex-call --ca ca.pem --action urn:talvex:demo:greet $URL request.xml"
"$CALL" --ca ca.pem --action urn:talvex:demo:greet "$URL" request.xml >call.out 2>call.err ||
    { cat call.err >&2; broken "the call failed"; }
cat call.out
grep -q '<d:name>world</d:name>' call.out || broken "the answer does not hold the request's body"
server_said tls.log
notice "the server's certificate was verified against the demo CA (--ca), the envelope went"
notice "out as a chunked HTTP/1.1 POST, and the answer is printed indented from its DOM."
show "example_one_call $URL ca.pem    # the same in C++: examples/one_call.cpp, session->doRequest()"
"$BIN/example_one_call" "$URL" ca.pem >one_call.out 2>&1 || { cat one_call.out >&2; broken "example_one_call failed"; }
head -2 one_call.out
ok "doRequest sent a DOM envelope and got the answer back as a DOM"

heading "Attachments there and back"
printf 'Dear server,\nplease send this back.\n' >letter.txt
head -c 1048576 /dev/urandom >photo.bin
show "talvex-call --ca ca.pem --attach letter.txt --attach 'photo.bin;type=image/x-demo' --save-attachments back $URL request.xml"
"$CALL" --ca ca.pem --attach letter.txt --attach 'photo.bin;type=image/x-demo' --save-attachments back \
    "$URL" request.xml >attach.out 2>attach.err || { cat attach.err >&2; broken "the call with attachments failed"; }
cat attach.err
server_said tls.log
show "cmp letter.txt back/letter.txt && cmp photo.bin back/photo.bin"
cmp letter.txt back/letter.txt && cmp photo.bin back/photo.bin || broken "the attachments came back different"
ok "both attachments came back byte for byte"
notice "the request was a MIME multipart body (envelope first, then the two files),"
notice "written and read part by part as streams; examples/attachments.cpp shows the code."

heading "A time-out"
start_server slow --tls --cert server.pem --key server.key --delay-ms 3000
SLOW_URL="https://localhost:$PORT/demo"
show "talvex-echo-server --tls ... --delay-ms 3000     # answers after 3 seconds"
show "talvex-call --ca ca.pem --timeout 1 $SLOW_URL request.xml"
before=$(date +%s%3N)
rc=0
"$CALL" --ca ca.pem --timeout 1 "$SLOW_URL" request.xml >timeout.out 2>timeout.err || rc=$?
took=$(($(date +%s%3N) - before))
cat timeout.err
echo "exit status $rc after $((took / 100 / 10)).$((took / 100 % 10)) s"
[ "$rc" -eq 7 ] || broken "expected exit status 7 (time-out)"
[ "$took" -lt 3000 ] || broken "the time-out came only after $took ms"
ok "the read gave up before the server answered"
notice "the wait was cut short by the socket's input stream (cancellation from a watcher"
notice "thread; Ctrl-C does the same). Over TLS that needs the non-blocking socket,"
notice "which talvex-call chooses for https:// on its own."

heading "Cancelling a read from another thread"
show "example_cancel_read $URL ca.pem     # examples/cancel_read.cpp"
"$BIN/example_cancel_read" "$URL" ca.pem >cancel.out 2>&1 || { cat cancel.out >&2; broken "example_cancel_read failed"; }
grep -v '^call after both' cancel.out
ok "a time limit, a cancel() from another thread, and the connection still good afterwards"

heading "A certificate that is not trusted"
show "talvex-call --ca other-ca.pem --connect-timeout 1 $URL request.xml"
rc=0
"$CALL" --ca other-ca.pem --connect-timeout 1 "$URL" request.xml >refused.out 2>refused.err || rc=$?
cat refused.err
echo "exit status $rc"
[ "$rc" -eq 3 ] || broken "expected exit status 3 (connection refused)"
grep -q 'certificate verify failed' refused.err || broken "the refusal does not say why"
ok "no bytes of the request left the client: the handshake stopped at the certificate check"
notice "the server's certificate was checked against a different CA. The toolkit tries a"
notice "failed connect five times, two seconds apart; --connect-timeout 1 ends that early."
notice "--insecure would skip the check; it says so loudly, and is for tests only."

kill "${PIDS[@]}" 2>/dev/null
wait "${PIDS[@]}" 2>/dev/null
PIDS=()
printf '\n%s== Done in %d s; the servers are stopped%s\n' "$BOLD" "$(($(date +%s) - START))" "$RESET"
cat <<EOF
Where to look next:
  ${BIN#"$ROOT"/}/talvex-call --help   every option and exit status
  docs/talvex-call.md          the client's manual, with more examples
  examples/                    one_call.cpp, attachments.cpp, cancel_read.cpp
  docs/installation.md         installing, find_package(talvex), pkg-config
  README.md and docs/          the toolkit's guides
EOF
