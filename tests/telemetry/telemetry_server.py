#!/usr/bin/python3
"""A local HTTPS server for the telemetry tests.

Prints {"event": "port", "port": n} once listening, then one JSON line per event on stdout:
  {"event": "request", "method", "path", "headers": [[name, value], ...],
   "body": <base64 of the raw body>, "answer": <what it did>}
  {"event": "tls_error", "detail": ...} for a refused handshake.
Behaviour per path is driven by lines on stdin:
  set <path|*> <answer>        answer from now on: a status (any code, 200, 404,
                               503 ...), hang, drop, or cut (a 200 head whose body
                               stops short and the connection closes)
  next <path|*> <a1,a2,...>    answers for the next requests, then the set one
  fail-every <n>               every n-th request (any path) answers 500
"""
import base64
import collections
import http.server
import json
import socket
import ssl
import sys
import threading
import time

lock = threading.Lock()
default_answer = {"*": "200"}
queued = collections.defaultdict(collections.deque)
fail_every = [0]
request_count = [0]


def emit(obj):
    line = json.dumps(obj)
    with lock:
        sys.stdout.write(line + "\n")
        sys.stdout.flush()


def choose(path):
    with lock:
        request_count[0] += 1
        if fail_every[0] and request_count[0] % fail_every[0] == 0:
            return "500"
        for key in (path, "*"):
            if queued[key]:
                return queued[key].popleft()
        return default_answer.get(path, default_answer["*"])


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def handle_one(self):
        length = int(self.headers.get("Content-Length") or 0)
        body = self.rfile.read(length) if length else b""
        answer = choose(self.path)
        emit({"event": "request", "method": self.command, "path": self.path,
              "headers": [[k, v] for k, v in self.headers.items()],
              "body": base64.b64encode(body).decode(), "answer": answer})
        if answer == "hang":
            # Never answer; hold the connection until the client gives up.
            try:
                while self.connection.recv(1024):
                    pass
            except OSError:
                pass
            self.close_connection = True
            return
        if answer == "drop":
            try:
                self.connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            self.close_connection = True
            return
        if answer == "cut":
            self.send_response(200)
            self.send_header("Content-Type", "application/json")
            self.send_header("Content-Length", "100")
            self.end_headers()
            self.wfile.write(b'{"ok":')
            self.wfile.flush()
            try:
                self.connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            self.close_connection = True
            return
        status = int(answer)
        payload = b'{"ok":true}' if status < 300 else b'{"ok":false}'
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(payload)))
        self.end_headers()
        self.wfile.write(payload)

    do_POST = handle_one
    do_GET = handle_one
    do_PUT = handle_one


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self, address, context):
        super().__init__(address, Handler)
        self.context = context

    def get_request(self):
        sock, addr = self.socket.accept()
        # Head and body go out as separate writes; without this, Nagle and the
        # client's delayed ACK add 40 ms to every answer.
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return sock, addr

    def finish_request(self, request, client_address):
        # The handshake runs in the request's own thread so a stalled client
        # never blocks the others.
        try:
            tls = self.context.wrap_socket(request, server_side=True)
        except (ssl.SSLError, OSError) as error:
            emit({"event": "tls_error", "detail": str(error)})
            try:
                request.close()
            except OSError:
                pass
            return
        self.RequestHandlerClass(tls, client_address, self)


def control():
    for line in sys.stdin:
        words = line.split()
        if not words:
            continue
        with lock:
            if words[0] == "set":
                default_answer[words[1]] = words[2]
                queued[words[1]].clear()
            elif words[0] == "next":
                queued[words[1]].extend(words[2].split(","))
            elif words[0] == "fail-every":
                fail_every[0] = int(words[1])
        emit({"event": "ack", "command": line.strip()})


def main():
    cert, key = sys.argv[1], sys.argv[2]
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    server = Server(("127.0.0.1", 0), context)
    emit({"event": "port", "port": server.server_address[1]})
    sys.stdout.write("")
    threading.Thread(target=control, daemon=True).start()
    server.serve_forever()


if __name__ == "__main__":
    main()
