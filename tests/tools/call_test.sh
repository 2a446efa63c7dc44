#!/usr/bin/env bash
# talvex-call against talvex-echo-server on loopback, one case per run:
#   call_test.sh CASE TALVEX-CALL TALVEX-ECHO-SERVER
set -u
CASE=$1
CALL=$2
SERVER=$3
HERE=$(cd "$(dirname "$0")" && pwd)
. "$HERE/lib.sh"
write_envelope

case_plain() {
    start_server plain
    local url="http://127.0.0.1:$PORT/soap"
    run_call 0 --action urn:echo "$url" "$ENVELOPE"
    # Indented, one element per line, text kept and escaped.
    expect_in "$OUT" '<soapenv:Envelope xmlns:soapenv="http://schemas.xmlsoap.org/soap/envelope/">'
    expect_in "$OUT" '  <soapenv:Body>'
    expect_in "$OUT" '      <t:text>fish &amp; chips</t:text>'
    expect_in "$OUT" '</soapenv:Envelope>'
    [ "$(wc -l <"$OUT")" -eq 8 ] || fail "expected 8 lines of indented output"

    # The envelope from standard input, with - and without a file argument.
    "$CALL" "$url" - <"$ENVELOPE" >"$SCRATCH/stdin1.txt" || fail "reading the envelope from - failed"
    "$CALL" "$url" <"$ENVELOPE" >"$SCRATCH/stdin2.txt" || fail "reading the envelope from standard input failed"
    cmp -s "$OUT" "$SCRATCH/stdin1.txt" && cmp -s "$OUT" "$SCRATCH/stdin2.txt" || fail "standard input gave other output"

    # -v: what was sent and what came back, on standard error only.
    run_call 0 -v --action urn:echo -H 'X-Trace-Id: 42' "$url" "$ENVELOPE"
    expect_in "$ERR" '> POST /soap HTTP/1.1'
    expect_in "$ERR" "> Host: 127.0.0.1:$PORT"
    expect_in "$ERR" '> SOAPAction: "urn:echo"'
    expect_in "$ERR" '> X-Trace-Id: 42'
    expect_in "$ERR" '< HTTP/1.1 200 OK'
    expect_in "$ERR" '< transfer-encoding: chunked'
    grep -q '^[<>*] ' "$OUT" && fail "-v wrote to standard output"

    # --repeat: every request on the one connection.
    run_call 0 --repeat 3 -q "$url" "$ENVELOPE"
    [ -s "$OUT" ] && fail "-q printed on standard output"
    expect_in "$ERR" 'request 3/3:'
    expect_in "$ERR" '3 requests on one connection'
    local peers
    peers=$(grep -c 'POST /soap' "$SCRATCH/server-plain.log")
    [ "$peers" -eq 7 ] || fail "expected 7 requests at the server, saw $peers"
    [ "$(grep 'POST /soap' "$SCRATCH/server-plain.log" | tail -3 | cut -d' ' -f2 | sort -u | wc -l)" -eq 1 ] ||
        fail "--repeat used more than one connection"

    # --trace: the bytes on the wire.
    run_call 0 --trace "$SCRATCH/trace.txt" "$url" "$ENVELOPE"
    expect_in "$SCRATCH/trace.txt" 'POST /soap HTTP/1.1'
    expect_in "$SCRATCH/trace.txt" 'HTTP/1.1 200 OK'

    # A non-blocking plain socket works the same.
    run_call 0 --non-blocking "$url" "$ENVELOPE"
    expect_in "$OUT" '<t:count>3</t:count>'
}

make_attachments() {
    printf 'first attachment\nwith two lines\n' >"$SCRATCH/notes.txt"
    head -c 300000 /dev/urandom >"$SCRATCH/blob.bin"
}

check_saved() {
    local dir=$1
    cmp "$SCRATCH/notes.txt" "$dir/notes.txt" || fail "notes.txt came back different"
    cmp "$SCRATCH/blob.bin" "$dir/blob.bin" || fail "blob.bin came back different"
}

case_attachments() {
    start_server attachments
    make_attachments
    run_call 0 --attach "$SCRATCH/notes.txt" --attach "$SCRATCH/blob.bin;type=application/x-test;id=<blob@test>" \
        --save-attachments "$SCRATCH/saved" "http://127.0.0.1:$PORT/soap" "$ENVELOPE"
    check_saved "$SCRATCH/saved"
    expect_in "$ERR" 'saved attachment 1 (text/plain, id notes.txt)'
    expect_in "$ERR" 'saved attachment 2 (application/x-test, id <blob@test>)'
    expect_in "$OUT" '<t:count>3</t:count>'
    expect_in "$SCRATCH/server-attachments.log" '2 attachments -> 200'
}

# The request head as the trace shows it (the first record, up to its empty line).
request_head() { sed -n '2,/^\r$/p' "$1"; }

case_headers() {
    start_server headers
    make_attachments
    local url="http://127.0.0.1:$PORT/soap"
    # -H replaces the toolkit's own Content-Type and SOAPAction.
    run_call 0 --trace "$SCRATCH/t1.txt" --action urn:a -H 'Content-Type: text/xml; charset=ISO-8859-1' \
        -H 'soapaction: "urn:h"' "$url" "$ENVELOPE"
    request_head "$SCRATCH/t1.txt" >"$SCRATCH/h1.txt"
    [ "$(grep -ci '^Content-Type:' "$SCRATCH/h1.txt")" -eq 1 ] || fail "not one Content-Type: $(cat "$SCRATCH/h1.txt")"
    [ "$(grep -ci '^SOAPAction:' "$SCRATCH/h1.txt")" -eq 1 ] || fail "not one SOAPAction: $(cat "$SCRATCH/h1.txt")"
    expect_in "$SCRATCH/h1.txt" 'Content-Type: text/xml; charset=ISO-8859-1'
    expect_in "$SCRATCH/h1.txt" 'SOAPAction: "urn:h"'

    # SOAP 1.2 from the file: the action in the Content-Type, no SOAPAction.
    sed 's|http://schemas.xmlsoap.org/soap/envelope/|http://www.w3.org/2003/05/soap-envelope|' "$ENVELOPE" \
        >"$SCRATCH/envelope12.xml"
    for args in "$SCRATCH/envelope12.xml" "--soap12 $ENVELOPE"; do
        # shellcheck disable=SC2086
        run_call 0 -v --trace "$SCRATCH/t2.txt" --action urn:echo "$url" $args
        request_head "$SCRATCH/t2.txt" >"$SCRATCH/h2.txt"
        expect_in "$SCRATCH/h2.txt" 'Content-Type: application/soap+xml; charset=UTF-8; action="urn:echo"'
        expect_in "$ERR" '> Content-Type: application/soap+xml; charset=UTF-8; action="urn:echo"'
        grep -qi '^SOAPAction' "$SCRATCH/h2.txt" && fail "SOAP 1.2 with a SOAPAction header"
        rm -f "$SCRATCH/t2.txt"
    done

    # Fresh boundaries unless --boundary gives one; -H reaches the multipart head.
    local b1 b2
    for n in 3 4; do
        run_call 0 --trace "$SCRATCH/t$n.txt" --attach "$SCRATCH/notes.txt" -H 'Authorization: Basic dDpz' \
            "$url" "$ENVELOPE"
        request_head "$SCRATCH/t$n.txt" >"$SCRATCH/h$n.txt"
        expect_in "$SCRATCH/h$n.txt" 'Authorization: Basic dDpz'
        [ "$(grep -c 'Authorization' "$SCRATCH/t$n.txt")" -eq 1 ] || fail "Authorization also on the parts"
    done
    b1=$(grep -o 'boundary="=_=talvex-mp-[0-9a-f]*"' "$SCRATCH/h3.txt")
    b2=$(grep -o 'boundary="=_=talvex-mp-[0-9a-f]*"' "$SCRATCH/h4.txt")
    [ -n "$b1" ] && [ "$b1" != "$b2" ] || fail "no fresh boundary per message: '$b1' '$b2'"
    run_call 0 --trace "$SCRATCH/t5.txt" --boundary 'my own:boundary' --attach "$SCRATCH/notes.txt" \
        --save-attachments "$SCRATCH/saved" "$url" "$ENVELOPE"
    expect_in "$SCRATCH/t5.txt" 'boundary="my own:boundary"'
    cmp "$SCRATCH/notes.txt" "$SCRATCH/saved/notes.txt" || fail "notes.txt came back different"
    run_call 2 --boundary 'ends in a blank ' "$url" "$ENVELOPE"
    expect_in "$ERR" '--boundary needs'
}

case_content_length() {
    start_server content_length
    make_attachments
    local url="http://127.0.0.1:$PORT/soap"
    run_call 0 --content-length --trace "$SCRATCH/trace.txt" "$url" "$ENVELOPE"
    expect_in "$SCRATCH/trace.txt" 'Content-Length: '
    grep -q 'Transfer-Encoding: chunked' <(head -c 400 "$SCRATCH/trace.txt") && fail "--content-length still chunked"
    run_call 0 --content-length --attach "$SCRATCH/blob.bin" --save-attachments "$SCRATCH/saved" "$url" "$ENVELOPE"
    cmp "$SCRATCH/blob.bin" "$SCRATCH/saved/blob.bin" || fail "blob.bin came back different"
    run_call 0 --chunk-size 7 --trace "$SCRATCH/trace7.txt" "$url" "$ENVELOPE"
    expect_in "$SCRATCH/trace7.txt" $'\r\n7\r\n'
    expect_in "$OUT" '<t:count>3</t:count>'
}

case_fault() {
    start_server fault --fault
    run_call 5 "http://127.0.0.1:$PORT/soap" "$ENVELOPE"
    expect_in "$OUT" 'SOAP Fault'
    expect_in "$OUT" 'faultcode:   soapenv:Server'
    expect_in "$OUT" 'faultstring: echo server: fault requested with --fault'
    expect_in "$ERR" 'HTTP 500'
}

# start_python NAME SCRIPT: a loopback peer in Python that prints "listening on
# PORT" first; sets PORT.
start_python() {
    python3 -u -c "$2" >"$SCRATCH/server-$1.out" 2>"$SCRATCH/server-$1.log" &
    SERVER_PIDS+=($!)
    local i
    for i in $(seq 1 100); do grep -q '^listening' "$SCRATCH/server-$1.out" && break; sleep 0.05; done
    PORT=$(awk '{print $3}' "$SCRATCH/server-$1.out")
}

case_http_status() {
    # A web server that knows no POST answers with an HTML error page.
    start_http_server http '        self.send_error(404, "No SOAP here")'
    run_call 4 "http://127.0.0.1:$PORT/soap" "$ENVELOPE"
    expect_in "$ERR" 'HTTP status 404'
    [ -s "$OUT" ] && fail "an HTTP error printed on standard output"
}

# A raw peer: reads the request head, then runs BODY with the connection c.
start_raw_peer() {
    start_python "$1" '
import socket, time
s = socket.socket(); s.bind(("127.0.0.1", 0)); s.listen(8)
print("listening on %d" % s.getsockname()[1], flush=True)
while True:
    c, _ = s.accept()
    head = b""
    while b"\r\n\r\n" not in head:
        head += c.recv(1)
    try:
'"$2"'
    except OSError:
        pass
    c.close()
'
}

# A server that refuses a body over its limit at once and closes: its Fault is
# reported, not the send that failed.
case_early_answer() {
    start_raw_peer early '
        fault = b"<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\"><soapenv:Body><soapenv:Fault><faultcode>soapenv:Client</faultcode><faultstring>request too large</faultstring></soapenv:Fault></soapenv:Body></soapenv:Envelope>"
        c.sendall(b"HTTP/1.1 413 Request Entity Too Large\r\nContent-Type: text/xml\r\nContent-Length: %d\r\n\r\n" % len(fault) + fault)'
    head -c 33554432 /dev/zero | tr '\0' x >"$SCRATCH/big.txt"
    run_call 5 --attach "$SCRATCH/big.txt" "http://127.0.0.1:$PORT/soap" "$ENVELOPE"
    expect_in "$OUT" 'faultstring: request too large'
    expect_in "$ERR" 'HTTP 413'
}

# A head sent a byte at a time, never finished: --timeout bounds the whole
# call, and the first Ctrl-C ends it.
case_trickle() {
    start_raw_peer trickle '
        c.sendall(b"HTTP/1.1 200 OK\r\nX-Pad: ")
        for i in range(600):
            c.sendall(b"a"); time.sleep(0.1)'
    run_call 7 --timeout 2 "http://127.0.0.1:$PORT/soap" "$ENVELOPE"
    expect_in "$ERR" 'timed out: the call took longer than 2 s'
    interrupt_call "http://127.0.0.1:$PORT/soap" "$ENVELOPE"
}

case_deep() {
    # /N answers with N nested elements, after the whole request (sent with a length).
    start_http_server deep '        self.rfile.read(int(self.headers["Content-Length"]))
        if self.path == "/endless":
            self.send_response(200)
            self.end_headers()
            self.wfile.write(b"<e>")
            while True:
                self.wfile.write(b"x" * 1048576)
        depth = int(self.path.strip("/"))
        body = ("<e>" * depth + "x" + "</e>" * depth).encode()
        self.send_response(200)
        self.send_header("Content-Type", "text/xml")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)'
    run_call 0 --content-length "http://127.0.0.1:$PORT/900" "$ENVELOPE"
    [ "$(wc -l <"$OUT")" -eq 1799 ] || fail "expected one line per tag"
    # Indentation stops growing at 80 columns, so the output stays proportional to the tree.
    [ "$(awk '{ if (length($0) > n) n = length($0) } END { print n }' "$OUT")" -le 88 ] || fail "a line wider than 88"
    expect_in "$OUT" '<e>x</e>'
    # Far deeper: refused before it costs time or stack.
    run_call 6 --content-length "http://127.0.0.1:$PORT/50000" "$ENVELOPE"
    expect_in "$ERR" 'elements nested deeper than 1000 levels'
    # An envelope that never ends stops at the size bound, not when memory runs out.
    run_call 6 --content-length "http://127.0.0.1:$PORT/endless" "$ENVELOPE"
    expect_in "$ERR" 'the response envelope is larger than 67108864 bytes'
}

case_refused() {
    start_server gone
    kill "${SERVER_PIDS[0]}"
    wait "${SERVER_PIDS[0]}" 2>/dev/null
    SERVER_PIDS=()
    # Refused connects are retried two seconds apart; the limit ends that early.
    run_call 3 -v --connect-timeout 1 "http://127.0.0.1:$PORT/soap" "$ENVELOPE"
    expect_in "$ERR" 'talvex-call: error 5: A socket operation failed. Connection refused'
    expect_in "$ERR" 'back-trace'
}

case_unresolved() {
    run_call 3 --connect-timeout 5 "http://no-such-host.invalid:8080/soap" "$ENVELOPE"
    expect_in "$ERR" "could not be resolved"
}

case_timeout() {
    start_server slow --delay-ms 3000
    local start
    start=$(now_ms)
    run_call 7 --timeout 1 "http://127.0.0.1:$PORT/soap" "$ENVELOPE"
    local took=$(($(now_ms) - start))
    expect_in "$ERR" 'timed out'
    [ "$took" -lt 2900 ] || fail "the time-out took $took ms"
}

# Ctrl-C while the response is awaited: a clean cancel, exit 7.
interrupt_call() {
    "$CALL" "$@" >"$SCRATCH/out.txt" 2>"$SCRATCH/err.txt" &
    local pid=$! start
    start=$(now_ms)
    sleep 1
    kill -INT "$pid"
    local rc=0
    wait "$pid" || rc=$?
    local took=$(($(now_ms) - start))
    [ "$rc" -eq 7 ] || { cat "$SCRATCH/err.txt" >&2; fail "Ctrl-C gave exit $rc, expected 7"; }
    expect_in "$SCRATCH/err.txt" 'cancelled'
    [ "$took" -lt 4000 ] || fail "the cancel took $took ms"
}

case_cancel() {
    start_server slow --delay-ms 6000
    interrupt_call "http://127.0.0.1:$PORT/soap" "$ENVELOPE"
}

case_usage() {
    run_call 2
    expect_in "$ERR" 'no URL given'
    expect_in "$ERR" "Try 'talvex-call --help'"
    run_call 2 --no-such-option http://127.0.0.1:1/
    expect_in "$ERR" 'unknown option --no-such-option'
    run_call 2 --timeout soon http://127.0.0.1:1/
    run_call 2 --chunk-size 1 http://127.0.0.1:1/
    run_call 2 ftp://127.0.0.1/ "$ENVELOPE"
    run_call 2 http://127.0.0.1:1/ "$SCRATCH/missing.xml"
    expect_in "$ERR" 'missing.xml'
    printf '<a><b></a>' >"$SCRATCH/bad.xml"
    run_call 2 http://127.0.0.1:1/ "$SCRATCH/bad.xml"
    expect_in "$ERR" 'not well-formed'
    run_call 2 --key k.pem https://127.0.0.1:1/
    run_call 2 --ca ca.pem http://127.0.0.1:1/ "$ENVELOPE"
    # A TLS configuration without its closing tag is refused before use.
    : >"$SCRATCH/empty.xml"
    printf '<sessionConfigDocument/>' >"$SCRATCH/self-closed.xml"
    for config in empty self-closed; do
        run_call 2 --tls-config "$SCRATCH/$config.xml" https://127.0.0.1:1/ "$ENVELOPE"
        expect_in "$ERR" 'has no closing tag </sessionConfigDocument>'
    done
    run_call 2 --plain --tls http://127.0.0.1:1/ "$ENVELOPE"
    run_call 2 --attach "$SCRATCH/missing.bin" http://127.0.0.1:1/ "$ENVELOPE"
    run_call 2 http://127.0.0.1:1/ a b
}

case_help() {
    run_call 0 --help
    # Every option the parser knows is explained.
    local source="$HERE/../../tools/talvex-call/CallOptions.cpp" name count=0
    for name in $(grep -o '{"[a-z-]*", *[a-z_]*_argument' "$source" | sed 's/{"\([a-z-]*\)".*/\1/'); do
        expect_in "$OUT" "--$name"
        count=$((count + 1))
    done
    [ "$count" -ge 20 ] || fail "found only $count options in $source"
    expect_in "$OUT" '-H, --header'
    expect_in "$OUT" '-v, --verbose'
    expect_in "$OUT" '-k, --insecure'
    expect_in "$OUT" 'Exit status: 0 success, 2 usage error, 3 connection or TLS failure, 4 HTTP'
    expect_in "$OUT" '7 time-out or cancelled'
}

case_tls() {
    make_certificates
    start_server tls --tls --cert "$CERTS/server.pem" --key "$CERTS/server.key"
    run_call 0 --ca "$CERTS/ca.pem" "https://localhost:$PORT/soap" "$ENVELOPE"
    expect_in "$OUT" '      <t:text>fish &amp; chips</t:text>'
    run_call 0 --ca "$CERTS/ca.pem" "https://127.0.0.1:$PORT/soap" "$ENVELOPE"
    run_call 0 --ca "$CERTS/ca.pem" --server-name localhost --min-tls 1.3 "https://127.0.0.1:$PORT/soap" "$ENVELOPE"
    printf '<sessionConfigDocument><minProtocol>TLS1.3</minProtocol></sessionConfigDocument>' >"$SCRATCH/tls.xml"
    run_call 0 -v --tls-config "$SCRATCH/tls.xml" --ca "$CERTS/ca.pem" "https://localhost:$PORT/soap" "$ENVELOPE"
    expect_in "$ERR" "<minProtocol>TLS1.3</minProtocol><caFile>$CERTS/ca.pem</caFile></sessionConfigDocument>"
    run_call 0 --ca "$CERTS/ca.pem" --repeat 2 -q "https://localhost:$PORT/soap" "$ENVELOPE"
    expect_in "$ERR" '2 requests on one connection'
    # --tls over an http:// URL, and the certificate's name checked.
    run_call 0 --tls --ca "$CERTS/ca.pem" "http://localhost:$PORT/soap" "$ENVELOPE"
}

case_tls_attachments() {
    make_certificates
    start_server tls --tls --cert "$CERTS/server.pem" --key "$CERTS/server.key"
    make_attachments
    run_call 0 --ca "$CERTS/ca.pem" --attach "$SCRATCH/notes.txt" --attach "$SCRATCH/blob.bin" \
        --save-attachments "$SCRATCH/saved" "https://localhost:$PORT/soap" "$ENVELOPE"
    check_saved "$SCRATCH/saved"
}

case_tls_refused() {
    make_certificates
    start_server tls --tls --cert "$CERTS/server.pem" --key "$CERTS/server.key"
    run_call 3 --ca "$CERTS/other-ca.pem" "https://localhost:$PORT/soap" "$ENVELOPE"
    expect_in "$ERR" 'talvex-call: error 5: A socket operation failed. VLT_EstablishSecure=0xfffffff3 certificate verify failed'
    expect_in "$ERR" '--ca FILE'
    grep -q 'back-trace' "$ERR" && fail "a back-trace without -v"
    # A certificate for another name: trusting a CA would not help.
    run_call 3 --ca "$CERTS/ca.pem" --server-name other.example "https://localhost:$PORT/soap" "$ENVELOPE"
    expect_in "$ERR" "certificate does not match host 'other.example'"
    expect_in "$ERR" '--server-name NAME'
    grep -q -- '--ca' "$ERR" && fail "--ca advised for a certificate of another name"
    # --insecure gets through, loudly.
    run_call 0 --insecure "https://localhost:$PORT/soap" "$ENVELOPE"
    expect_in "$ERR" 'WARNING: --insecure'
    expect_in "$OUT" '<t:count>3</t:count>'
    # Plain TCP to a TLS port: no SOAP answer.
    local rc=0
    "$CALL" --plain --timeout 2 "http://127.0.0.1:$PORT/soap" "$ENVELOPE" >/dev/null 2>"$ERR" || rc=$?
    [ "$rc" -ne 0 ] || fail "plain TCP to a TLS server succeeded"
    # TLS to a plain-text port.
    start_server plain
    run_call 3 "https://127.0.0.1:$PORT/soap" "$ENVELOPE"
    expect_in "$ERR" 'does the server speak TLS on this port?'
}

case_tls_timeout() {
    make_certificates
    start_server tls --tls --cert "$CERTS/server.pem" --key "$CERTS/server.key" --delay-ms 3000
    local start
    start=$(now_ms)
    run_call 7 --timeout 1 --ca "$CERTS/ca.pem" "https://localhost:$PORT/soap" "$ENVELOPE"
    local took=$(($(now_ms) - start))
    expect_in "$ERR" 'timed out'
    [ "$took" -lt 2900 ] || fail "the time-out took $took ms"
}

case_tls_cancel() {
    make_certificates
    start_server tls --tls --cert "$CERTS/server.pem" --key "$CERTS/server.key" --delay-ms 6000
    interrupt_call --ca "$CERTS/ca.pem" "https://localhost:$PORT/soap" "$ENVELOPE"
}

"case_$CASE"
echo "PASS: $CASE"
