# Helpers shared by the tools tests: a scratch folder, echo servers on free
# loopback ports, certificates, and checks that say what went wrong.

SCRATCH=$(mktemp -d "${TMPDIR:-/tmp}/talvex-tools-test.XXXXXX")
SERVER_PIDS=()

cleanup() {
    local pid
    for pid in "${SERVER_PIDS[@]}"; do kill "$pid" 2>/dev/null; done
    for pid in "${SERVER_PIDS[@]}"; do wait "$pid" 2>/dev/null; done
    rm -rf "$SCRATCH"
}
trap cleanup EXIT

fail() {
    echo "FAIL: $*" >&2
    for log in "$SCRATCH"/server-*.log; do
        [ -f "$log" ] && { echo "--- $log" >&2; cat "$log" >&2; }
    done
    exit 1
}

# start_server NAME [server options...]: sets PORT, the server's port.
start_server() {
    local name=$1
    shift
    "$SERVER" --port 0 "$@" >"$SCRATCH/server-$name.out" 2>"$SCRATCH/server-$name.log" &
    await_server "$name"
}

# start_http_server NAME CODE: a Python web server whose do_POST runs CODE
# (four-space indented, `self` the request handler); sets PORT.
start_http_server() {
    local name=$1
    python3 -u -c "
import http.server
class H(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
$2
    def log_message(self, *a):
        pass
s = http.server.HTTPServer(('127.0.0.1', 0), H)
print('listening on %d' % s.server_address[1], flush=True)
s.serve_forever()
" >"$SCRATCH/server-$name.out" 2>"$SCRATCH/server-$name.log" &
    await_server "$name"
}

# await_server NAME: the server just started in the background is listening; sets PORT.
await_server() {
    local out="$SCRATCH/server-$1.out" i
    SERVER_PIDS+=($!)
    for i in $(seq 1 100); do
        if grep -q '^listening on ' "$out" 2>/dev/null; then
            PORT=$(awk '/^listening on /{print $3}' "$out")
            return 0
        fi
        sleep 0.05
    done
    fail "the server '$1' did not start"
}

# A CA, a server certificate of it for localhost and 127.0.0.1, and an
# unrelated CA. EC keys keep this quick.
make_certificates() {
    local d="$SCRATCH/certs"
    mkdir -p "$d"
    (
        cd "$d" || exit 1
        openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout ca.key -out ca.pem \
            -days 2 -subj "/CN=TALVEX test CA" 2>/dev/null &&
        openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout server.key -out server.csr \
            -subj "/CN=localhost" 2>/dev/null &&
        printf 'subjectAltName=DNS:localhost,IP:127.0.0.1\nbasicConstraints=CA:FALSE\nextendedKeyUsage=serverAuth\n' \
            >server.ext &&
        openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -out server.pem -days 2 \
            -extfile server.ext 2>/dev/null &&
        openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout other.key \
            -out other-ca.pem -days 2 -subj "/CN=Unrelated CA" 2>/dev/null
    ) || fail "openssl could not make the test certificates"
    CERTS=$d
}

write_envelope() {
    cat >"$SCRATCH/envelope.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<soapenv:Envelope xmlns:soapenv="http://schemas.xmlsoap.org/soap/envelope/"><soapenv:Body><t:echo xmlns:t="urn:talvex:test"><t:text>fish &amp; chips</t:text><t:count>3</t:count></t:echo></soapenv:Body></soapenv:Envelope>
XML
    ENVELOPE="$SCRATCH/envelope.xml"
}

# run_call EXPECTED-EXIT ARGS...: runs talvex-call, output in OUT and ERR files.
run_call() {
    local expected=$1
    shift
    OUT="$SCRATCH/out.txt"
    ERR="$SCRATCH/err.txt"
    local rc=0
    "$CALL" "$@" >"$OUT" 2>"$ERR" || rc=$?
    if [ "$rc" != "$expected" ]; then
        echo "--- stdout" >&2; cat "$OUT" >&2
        echo "--- stderr" >&2; cat "$ERR" >&2
        fail "talvex-call $* exited with $rc, expected $expected"
    fi
}

expect_in() {
    local file=$1 text=$2
    grep -qF -- "$text" "$file" || { echo "--- $file" >&2; cat "$file" >&2; fail "expected '$text' in $(basename "$file")"; }
}

now_ms() { date +%s%3N; }
