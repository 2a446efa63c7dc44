#!/usr/bin/env python3
"""Prints the parts of MIME multipart messages as Python's email package sees them.

Each argument is a file holding one message: a Content-Type head and a
multipart body. Output per message:
    MESSAGE <index> <number of parts>
and per part its headers as "H <name>\t<value>" and its payload as "B <hex>".
"""
import sys
from email import policy
from email.parser import BytesParser


def main(paths):
    out = sys.stdout
    for index, path in enumerate(paths):
        # parsebytes, not parse: parse() reads through a text wrapper that
        # turns CR LF into LF.
        with open(path, "rb") as f:
            msg = BytesParser(policy=policy.compat32).parsebytes(f.read())
        parts = msg.get_payload()
        if not isinstance(parts, list):
            parts = []
        out.write("MESSAGE %d %d\n" % (index, len(parts)))
        for part in parts:
            out.write("PART\n")
            for name, value in part.items():
                out.write("H %s\t%s\n" % (name, value))
            payload = part.get_payload(decode=True)
            if payload is None:
                payload = b""
            out.write("B %s\n" % payload.hex())
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
