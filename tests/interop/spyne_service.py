"""A SOAP 1.1 service for the interoperability tests: add(a, b) and echo(text),
written with spyne and served by Python's wsgiref on 127.0.0.1.

Usage: spyne_service.py PORT

wsgiref answers one request per connection (HTTP/1.0) and reads only bodies
that carry a Content-Length.
"""

import logging
import sys
from wsgiref.simple_server import WSGIRequestHandler, make_server

from spyne import Application, Integer, ServiceBase, Unicode, rpc
from spyne.protocol.soap import Soap11
from spyne.server.wsgi import WsgiApplication

NAMESPACE = "urn:talvex:interop"


class CalcService(ServiceBase):
    @rpc(Integer, Integer, _returns=Integer)
    def add(ctx, a, b):
        return a + b

    @rpc(Unicode, _returns=Unicode)
    def echo(ctx, text):
        return text


class QuietHandler(WSGIRequestHandler):
    def log_message(self, format, *args):
        pass


def main():
    port = int(sys.argv[1])
    logging.basicConfig(level=logging.ERROR)
    application = Application(
        [CalcService],
        tns=NAMESPACE,
        in_protocol=Soap11(validator="lxml"),
        out_protocol=Soap11(),
    )
    server = make_server("127.0.0.1", port, WsgiApplication(application), handler_class=QuietHandler)
    server.serve_forever()


if __name__ == "__main__":
    main()
