# A server of pages that demands a certificate on each of its connections, many of which it serves at
# once, and tells whose it got. Arguments: port, folder of the local PKI.
import http.server
import ssl
import sys
import threading

port, pki = int(sys.argv[1]), sys.argv[2]
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain(pki + "/server.pem", pki + "/server.key")
context.load_verify_locations(pki + "/ca.pem")
context.verify_mode = ssl.CERT_REQUIRED
context.num_tickets = 0  # nothing is resumed: each connection has a signature of its own
PART = "<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>"
together = threading.Barrier(4)


class Page(http.server.BaseHTTPRequestHandler):
    def setup(self):
        self.request.do_handshake()
        subject = dict(entry[0] for entry in self.request.getpeercert()["subject"])
        print(self.request.version(), subject["commonName"], flush=True)
        super().setup()

    def do_GET(self):
        is_part = self.path.startswith("/part")
        if is_part:
            together.wait(20)  # only four connections at once get any further
        self.send_response(200)
        self.send_header("Content-Type", "image/svg+xml" if is_part else "text/html")
        self.end_headers()
        parts = "".join(f"<img src=part{number}>" for number in range(4))
        self.wfile.write((PART if is_part else parts).encode())

    def log_message(self, *_):
        pass


server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Page)
server.socket = context.wrap_socket(server.socket, server_side=True, do_handshake_on_connect=False)
print("listening", flush=True)
server.serve_forever()
