#!/usr/bin/env python3
"""Takes apart one HTTP message as a strict HTTP/1.1 peer would and prints a
canonical description of it, one item per line:

    start <start line>
    header <name>: <value>          (head fields, in order)
    framing chunked <size>,<size>,... | framing length <n>
    body <hex>                      (one-piece body)
    multipart <media type> type=<type> boundary=<boundary>
    part                            (per MIME part, followed by its)
    header <name>: <value>
    payload <hex>

The body is decoded twice, by the strict decoder here and by http.client; a
request head is also run through http.server's parser; a multipart body is
split by the email package. Any disagreement or defect prints "error: ..."
and exits with 1.
"""
import email.parser
import email.policy
import http.client
import http.server
import io
import re
import sys

TOKEN = re.compile(rb"^[!#$%&'*+\-.^_`|~0-9A-Za-z]+$")
REQUEST_LINE = re.compile(rb"^POST ([\x21-\x7e]+) HTTP/1\.1$")
STATUS_LINE = re.compile(rb"^HTTP/1\.1 [1-9][0-9]{2} [\t\x20-\x7e\x80-\xff]*$")
FIELD_VALUE = re.compile(rb"^[\t\x20-\x7e\x80-\xff]*$")
CHUNK_SIZE = re.compile(rb"^[0-9A-Fa-f]+$")


class WireError(Exception):
    pass


def split_head(data):
    end = data.find(b"\r\n\r\n")
    if end < 0:
        raise WireError("the head has no end")
    head = data[:end]
    if b"\r" in head.replace(b"\r\n", b"") or b"\n" in head.replace(b"\r\n", b""):
        raise WireError("bare CR or LF in the head")
    lines = head.split(b"\r\n")
    return lines[0], lines[1:], data[end + 4:]


def parse_fields(lines):
    fields = []
    for line in lines:
        name, colon, value = line.partition(b":")
        if not colon or not TOKEN.match(name):
            raise WireError("bad field line %r" % line)
        value = value.strip(b" \t")
        if not FIELD_VALUE.match(value):
            raise WireError("bad field value %r" % line)
        fields.append((name.decode("latin-1"), value.decode("latin-1")))
    return fields


def values(fields, name):
    return [v for n, v in fields if n.lower() == name]


def decode_chunked(body):
    pos, sizes, out = 0, [], bytearray()
    while True:
        eol = body.find(b"\r\n", pos)
        if eol < 0:
            raise WireError("chunk size line without CR LF")
        if not CHUNK_SIZE.match(body[pos:eol]):
            raise WireError("bad chunk size line %r" % body[pos:eol])
        size = int(body[pos:eol], 16)
        pos = eol + 2
        if size == 0:
            break
        if pos + size + 2 > len(body):
            raise WireError("chunk runs past the end")
        if body[pos + size:pos + size + 2] != b"\r\n":
            raise WireError("chunk data not followed by CR LF")
        sizes.append(size)
        out += body[pos:pos + size]
        pos += size + 2
    if body[pos:pos + 2] != b"\r\n":
        raise WireError("no empty trailer after the last chunk")
    pos += 2
    if pos != len(body):
        raise WireError("%d bytes after the end of the message" % (len(body) - pos))
    return bytes(out), "chunked " + ",".join(str(s) for s in sizes)


def decode_body(fields, body):
    te, cl = values(fields, "transfer-encoding"), values(fields, "content-length")
    if te and cl:
        raise WireError("both Transfer-Encoding and Content-Length")
    if len(te) > 1 or len(cl) > 1:
        raise WireError("framing header given twice")
    if te:
        if te[0].lower() != "chunked":
            raise WireError("transfer coding %r" % te[0])
        return decode_chunked(body)
    if cl:
        if not re.match(r"^[0-9]+$", cl[0]):
            raise WireError("bad Content-Length %r" % cl[0])
        if int(cl[0]) != len(body):
            raise WireError("Content-Length %s but %d body bytes" % (cl[0], len(body)))
        return body, "length " + cl[0]
    raise WireError("no framing header")


class FakeSocket:
    def __init__(self, data):
        self.data = data

    def makefile(self, *args, **kwargs):
        return io.BytesIO(self.data)


def stdlib_body(data):
    """http.client's own reading of the body; a request gets a status line
    instead of its request line, since only responses are read there."""
    if not data.startswith(b"HTTP/"):
        data = b"HTTP/1.1 200 OK" + data[data.find(b"\r\n"):]
    response = http.client.HTTPResponse(FakeSocket(data))
    response.begin()
    return response.read()


class RequestProbe(http.server.BaseHTTPRequestHandler):
    def __init__(self, data):  # no socket: parse from memory only
        self.rfile = io.BytesIO(data)
        self.wfile = io.BytesIO()
        self.client_address = ("wire-check", 0)
        self.raw_requestline = self.rfile.readline(65537)

    def log_message(self, *args):
        pass


def check_request_head(data, fields):
    probe = RequestProbe(data)
    if not probe.parse_request():
        raise WireError("http.server refused the request: %r" % probe.wfile.getvalue())
    if probe.command != "POST" or probe.request_version != "HTTP/1.1":
        raise WireError("http.server read %s %s" % (probe.command, probe.request_version))
    hosts = values(fields, "host")
    if len(hosts) != 1:
        raise WireError("a request needs exactly one Host, found %d" % len(hosts))


def describe_multipart(content_type, body, out):
    raw = b"Content-Type: " + content_type.encode("latin-1") + b"\r\nMIME-Version: 1.0\r\n\r\n" + body
    message = email.parser.BytesParser(policy=email.policy.compat32).parsebytes(raw)
    if message.defects:
        raise WireError("multipart defects %r" % message.defects)
    if not message.is_multipart():
        raise WireError("email did not see a multipart body")
    if message.preamble:
        raise WireError("preamble %r" % message.preamble)
    if message.epilogue:
        raise WireError("epilogue %r" % message.epilogue)
    out.append("multipart %s type=%s boundary=%s"
               % (message.get_content_type(), message.get_param("type"), message.get_boundary()))
    for part in message.get_payload():
        if part.defects:
            raise WireError("part defects %r" % part.defects)
        out.append("part")
        for name, value in part.items():
            out.append("header %s: %s" % (name, value))
        encoding = (part.get("Content-Transfer-Encoding") or "").lower()
        if encoding in ("quoted-printable", "base64"):
            payload = part.get_payload(decode=False).encode("ascii", "surrogateescape")
        else:
            payload = part.get_payload(decode=True)
        out.append("payload " + payload.hex())


def describe(data):
    start, lines, body = split_head(data)
    if REQUEST_LINE.match(start):
        is_request = True
    elif STATUS_LINE.match(start):
        is_request = False
    else:
        raise WireError("bad start line %r" % start)
    fields = parse_fields(lines)
    out = ["start " + start.decode("latin-1")]
    out += ["header %s: %s" % field for field in fields]
    if is_request:
        check_request_head(data, fields)
    content, framing = decode_body(fields, body)
    if stdlib_body(data) != content:
        raise WireError("http.client decoded a different body")
    out.append("framing " + framing)
    content_types = values(fields, "content-type")
    if content_types and content_types[0].lower().startswith("multipart/"):
        describe_multipart(content_types[0], content, out)
    else:
        out.append("body " + content.hex())
    return out


def main():
    with open(sys.argv[1], "rb") as f:
        data = f.read()
    try:
        lines = describe(data)
    except (WireError, http.client.HTTPException) as e:
        print("error: %s" % e)
        return 1
    sys.stdout.write("".join(line + "\n" for line in lines))
    return 0


if __name__ == "__main__":
    sys.exit(main())
