#!/usr/bin/env python3
"""Takes one HTTP message apart with Python's standard library, as an
independent check of what the toolkit writes.

Usage: http_message.py FILE
Prints, one item per line:
  START <start line>
  HEADER <name>: <value>
  BODY <hex of the decoded body>          (chunked or length framing undone)
  PART                                    (for a multipart body, per part)
  PHEADER <name>: <value>
  PBODY <hex of the part's content>
  ERROR <text>                            (anything malformed)
"""
import email
import email.policy
import sys


def decode_chunked(data):
    out = b""
    pos = 0
    while True:
        eol = data.index(b"\r\n", pos)
        size = int(data[pos:eol].split(b";")[0].strip(), 16)
        pos = eol + 2
        if size == 0:
            if data[pos:pos + 2] != b"\r\n":
                raise ValueError("trailer not empty")
            return out
        out += data[pos:pos + size]
        if data[pos + size:pos + size + 2] != b"\r\n":
            raise ValueError("chunk not followed by CR LF")
        pos += size + 2


def main():
    raw = open(sys.argv[1], "rb").read()
    try:
        head, body = raw.split(b"\r\n\r\n", 1)
        lines = head.split(b"\r\n")
        print("START " + lines[0].decode("latin-1"))
        headers = []
        for line in lines[1:]:
            name, value = line.split(b":", 1)
            headers.append((name.decode("latin-1"), value.strip().decode("latin-1")))
            print("HEADER %s: %s" % headers[-1])
        names = {n.lower(): v for n, v in headers}
        if names.get("transfer-encoding", "").lower() == "chunked":
            body = decode_chunked(body)
        elif "content-length" in names:
            length = int(names["content-length"])
            if len(body) != length:
                raise ValueError("body is %d bytes, Content-Length says %d" % (len(body), length))
        print("BODY " + body.hex())
        ctype = names.get("content-type", "")
        if ctype.lower().startswith("multipart/"):
            msg = email.message_from_bytes(
                b"Content-Type: " + ctype.encode("latin-1") + b"\r\n\r\n" + body, policy=email.policy.compat32)
            if not msg.is_multipart():
                raise ValueError("not multipart for the email package")
            for part in msg.get_payload():
                print("PART")
                for name, value in part.items():
                    print("PHEADER %s: %s" % (name, value))
                # The raw content as parsed: get_payload() would re-decode it.
                payload = part._payload
                if isinstance(payload, list):
                    raise ValueError("nested multipart")
                print("PBODY " + payload.encode("ascii", "surrogateescape").hex())
    except Exception as e:  # reported, not raised: the C++ test asserts on it
        print("ERROR %s" % e)


if __name__ == "__main__":
    main()
