#!/usr/bin/env python3
"""The HTTPS lab's server for what nginx can't be asked to do.

Serves files of the lab's payload folder over TLS (the lab CA's certificate
for localhost) and breaks each response on purpose, by the first component
of the path:

  /cut/N/<file>        the true Content-Length, then the connection is cut
                       after N bytes of the body
  /stall/N/<file>      the true Content-Length and N bytes, then nothing more
                       until the client gives up (or STALL_LIMIT passes)
  /short/N/<file>      announces N bytes fewer than the file has and sends the
                       whole file: more bytes than announced
  /long/N/<file>       announces N bytes more than the file has, sends the
                       whole file and closes: fewer bytes than announced

A Range request "bytes=A-" is honoured (206) in every mode, so that a client
that resumes meets the same fault again from its offset.

Every request is logged to the log file as one line:
  <port> "<request line>" "<Range header>" <status> <body bytes sent>

  fault_server.py --port P --root DIR --cert PEM --key KEY --log FILE

It listens on both loopback addresses, since "localhost" may name either.
"""
import argparse
import os
import re
import socket
import socketserver
import ssl
import sys
import threading
import time

STALL_LIMIT = 120.0
MODES = ("cut", "stall", "short", "long")


class Handler(socketserver.StreamRequestHandler):
    timeout = 60

    def log(self, request_line, range_header, status, sent):
        line = '%d "%s" "%s" %d %d\n' % (self.server.server_address[1], request_line, range_header or "-",
                                          status, sent)
        with self.server.log_lock:
            with open(self.server.log_path, "a") as f:
                f.write(line)

    def reply(self, status, reason, headers, body=b""):
        head = "HTTP/1.1 %d %s\r\n" % (status, reason)
        for name, value in headers:
            head += "%s: %s\r\n" % (name, value)
        self.wfile.write(head.encode("latin-1") + b"\r\n" + body)
        self.wfile.flush()

    def handle(self):
        try:
            self.serve_one()
        except (ConnectionError, ssl.SSLError, socket.timeout, OSError):
            pass

    def serve_one(self):
        request_line = self.rfile.readline(65537).decode("latin-1").rstrip("\r\n")
        if not request_line:
            return
        headers = {}
        while True:
            line = self.rfile.readline(65537).decode("latin-1")
            if line in ("\r\n", "\n", ""):
                break
            name, _, value = line.partition(":")
            headers[name.strip().lower()] = value.strip()
        range_header = headers.get("range")
        parts = request_line.split(" ")
        path = parts[1] if len(parts) >= 2 else ""
        match = re.match(r"^/(%s)/(\d+)/(.+)$" % "|".join(MODES), path.split("?", 1)[0])
        target = None
        if match:
            relative = match.group(3)
            candidate = os.path.realpath(os.path.join(self.server.root, relative))
            if candidate.startswith(self.server.root + os.sep) and os.path.isfile(candidate):
                target = candidate
        if len(parts) < 2 or parts[0] not in ("GET", "HEAD") or target is None:
            self.reply(404, "Not Found", [("Content-Length", "0"), ("Connection", "close")])
            self.log(request_line, range_header, 404, 0)
            return
        mode, amount = match.group(1), int(match.group(2))
        with open(target, "rb") as f:
            data = f.read()
        status, reason, start = 200, "OK", 0
        extra = []
        if range_header:
            m = re.match(r"^bytes=(\d+)-$", range_header)
            if m and int(m.group(1)) < len(data):
                start = int(m.group(1))
                status, reason = 206, "Partial Content"
                extra = [("Content-Range", "bytes %d-%d/%d" % (start, len(data) - 1, len(data)))]
        body = data[start:]
        announced = len(body)
        if mode == "short":
            announced = max(0, len(body) - amount)
        elif mode == "long":
            announced = len(body) + amount
        headers_out = [("Content-Type", "application/octet-stream"), ("Content-Length", str(announced)),
                       ("Accept-Ranges", "bytes"), ("Connection", "close")] + extra
        if parts[0] == "HEAD":
            self.reply(status, reason, headers_out)
            self.log(request_line, range_header, status, 0)
            return
        if mode == "cut":
            sent = min(amount, len(body))
            self.reply(status, reason, headers_out, body[:sent])
            self.log(request_line, range_header, status, sent)
            # Cut: no TLS close_notify, the socket just goes away.
            self.connection.shutdown(socket.SHUT_RDWR)
            return
        if mode == "stall":
            sent = min(amount, len(body))
            self.reply(status, reason, headers_out, body[:sent])
            self.log(request_line, range_header, status, sent)
            deadline = time.monotonic() + STALL_LIMIT
            self.connection.settimeout(1.0)
            while time.monotonic() < deadline and not self.server.stopping.is_set():
                try:
                    if not self.connection.recv(1):
                        break  # the client closed
                except socket.timeout:
                    continue
                except (ssl.SSLError, OSError):
                    break
            return
        self.reply(status, reason, headers_out, body)
        self.log(request_line, range_header, status, len(body))


class Server(socketserver.ThreadingMixIn, socketserver.TCPServer):
    daemon_threads = True
    allow_reuse_address = True

    def handle_error(self, request, client_address):
        pass  # a client that went away is no news here

    def finish_request(self, request, client_address):
        # The handshake on the connection's own thread: a client that stalls
        # in it holds up no one else.
        try:
            request.settimeout(30)
            secure = self.context.wrap_socket(request, server_side=True)
        except (ssl.SSLError, OSError):
            return
        self.RequestHandlerClass(secure, client_address, self)


class Server6(Server):
    address_family = socket.AF_INET6


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("--root", required=True)
    parser.add_argument("--cert", required=True)
    parser.add_argument("--key", required=True)
    parser.add_argument("--log", required=True)
    args = parser.parse_args()

    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(args.cert, args.key)
    stopping = threading.Event()
    log_lock = threading.Lock()
    # "localhost" may resolve to either loopback address.
    servers = []
    for kind, address in ((Server, "127.0.0.1"), (Server6, "::1")):
        try:
            server = kind((address, args.port), Handler)
        except OSError as e:
            if kind is Server:
                raise
            sys.stderr.write("fault server: no %s: %s\n" % (address, e))
            continue
        server.context = context
        server.root = os.path.realpath(args.root)
        server.log_path = args.log
        server.log_lock = log_lock
        server.stopping = stopping
        servers.append(server)
    for server in servers[1:]:
        threading.Thread(target=server.serve_forever, daemon=True).start()
    sys.stdout.write("fault server on port %d\n" % args.port)
    sys.stdout.flush()
    try:
        servers[0].serve_forever()
    finally:
        stopping.set()


if __name__ == "__main__":
    main()
