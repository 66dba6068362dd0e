#!/usr/bin/python3
"""A feed server for the network tests, on 127.0.0.1 at a free port it prints first.

    https_feed_server.py serve CERT KEY DIR   files in DIR over HTTPS; /slow/PATH answers
                                              as PATH does, 1.5 s late
    https_feed_server.py silent               accepts connections and never answers
"""
import http.server
import socket
import ssl
import sys
import time


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *args):
        pass

    def do_GET(self):
        if self.path.startswith("/slow/"):
            time.sleep(1.5)
            self.path = self.path[len("/slow"):]
        super().do_GET()


def serve(cert, key, root):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    handler = lambda *a, **kw: Quiet(*a, directory=root, **kw)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    # A client refusing the certificate fails the handshake in accept(), which the
    # server shrugs off as a failed connection.
    server.socket = context.wrap_socket(server.socket, server_side=True)
    print(server.server_address[1], flush=True)
    server.serve_forever()


def silent():
    listener = socket.socket()
    listener.bind(("127.0.0.1", 0))
    listener.listen()
    print(listener.getsockname()[1], flush=True)
    held = []
    while True:
        held.append(listener.accept()[0])


if __name__ == "__main__":
    if sys.argv[1] == "serve":
        serve(*sys.argv[2:5])
    else:
        silent()
