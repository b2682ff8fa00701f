#!/usr/bin/env python3
"""An HTTP(S) server on 127.0.0.1 that records every request and answers with a fixed status
(after a list of first statuses, when given).

Prints its port on the first line of standard output once it listens. Each request is appended
to the record file as one JSON line: {"request_line" (as received), "method", "path",
"headers" (name -> value), "body", "status" (the answer's)}.
Runs until killed.

    http_sink.py --record FILE [--port N] [--status 200] [--statuses 503,400] [--delay S]
                 [--cert PEM --key PEM]
"""

import argparse
import http.server
import json
import ssl
import sys
import threading
import time


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--record", required=True)
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--status", type=int, default=200)
    parser.add_argument("--delay", type=float, default=0.0, help="seconds before each answer")
    parser.add_argument("--statuses", default="",
                        help="comma-separated statuses of the first answers, then --status")
    parser.add_argument("--cert")
    parser.add_argument("--key")
    args = parser.parse_args()
    lock = threading.Lock()
    first = [int(x) for x in args.statuses.split(",") if x]

    class Handler(http.server.BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def _record(self):
            length = int(self.headers.get("Content-Length", "0") or 0)
            body = self.rfile.read(length) if length > 0 else b""
            with lock:
                status = first.pop(0) if first else args.status
            entry = {"request_line": self.requestline, "method": self.command, "path": self.path,
                     "headers": {k: v for k, v in self.headers.items()},
                     "body": body.decode("utf-8", "replace"), "status": status}
            with lock, open(args.record, "a", encoding="utf-8") as out:
                out.write(json.dumps(entry) + "\n")
            answer = b'{"status":"recorded"}'
            if args.delay > 0:
                time.sleep(args.delay)
            self.send_response(status)
            self.send_header("Content-Type", "application/json")
            self.send_header("Content-Length", str(len(answer)))
            self.end_headers()
            self.wfile.write(answer)

        do_POST = _record

        def log_message(self, *unused):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", args.port), Handler)
    server.daemon_threads = True
    if args.cert:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(args.cert, args.key)
        server.socket = context.wrap_socket(server.socket, server_side=True)
    print(server.server_address[1], flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass
    return 0


if __name__ == "__main__":
    sys.exit(main())
