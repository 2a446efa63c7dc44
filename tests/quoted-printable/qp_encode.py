#!/usr/bin/env python3
"""Encodes files with Python's quopri module, in every variant the decoder
must read. For each argument FILE it writes:
    FILE.b2a        quopri.encodestring(data)                  (binascii encoder)
    FILE.b2a-tabs   quopri.encodestring(data, quotetabs=True)
    FILE.py         the same through quopri's own encoder, which escapes CR
    FILE.py-tabs    ... with quotetabs=True
    FILE.py-crlf    FILE.py with every line end written as CR LF
"""
import quopri
import sys


def main(paths):
    fast = quopri.b2a_qp
    for path in paths:
        with open(path, "rb") as f:
            data = f.read()
        out = {}
        quopri.b2a_qp = fast
        out["b2a"] = quopri.encodestring(data)
        out["b2a-tabs"] = quopri.encodestring(data, quotetabs=True)
        quopri.b2a_qp = None  # forces the module's own encoder
        out["py"] = quopri.encodestring(data)
        out["py-tabs"] = quopri.encodestring(data, quotetabs=True)
        out["py-crlf"] = out["py"].replace(b"\n", b"\r\n")
        quopri.b2a_qp = fast
        for variant, encoded in out.items():
            with open(path + "." + variant, "wb") as f:
                f.write(encoded)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
