#!/usr/bin/python3
"""https_feed_server.py serve CERT KEY DIR: the files in DIR over HTTPS on 127.0.0.1, at a
free port it prints first; /slow/PATH answers as PATH does, 1.5 s late."""
import http.server
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


cert, key, root = sys.argv[2:5]
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(cert, key)
server = http.server.ThreadingHTTPServer(
    ("127.0.0.1", 0), lambda *a, **kw: Quiet(*a, directory=root, **kw))
# A client refusing the certificate fails the handshake in accept(), which the server
# shrugs off as a failed connection.
server.socket = context.wrap_socket(server.socket, server_side=True)
print(server.server_address[1], flush=True)
server.serve_forever()
