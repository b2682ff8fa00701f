#!/usr/bin/env python3
"""A small HTTP proxy on 127.0.0.1 for tests: CONNECT tunnels and plain absolute-URI requests,
forwarded to 127.0.0.1 only.

Prints its port on the first line of standard output once it listens. Each request line that
reaches it is appended to the record file as one JSON line: {"request", "proxy_authorization"}.
With --auth USER:PASSWORD a request without matching Basic credentials is answered 407.
Runs until killed.

    connect_proxy.py --record FILE [--auth USER:PASSWORD]
"""

import argparse
import base64
import json
import select
import socket
import sys
import threading
import urllib.parse


def read_head(conn):
    data = b""
    while b"\r\n\r\n" not in data:
        chunk = conn.recv(4096)
        if not chunk:
            return None, b""
        data += chunk
    head, rest = data.split(b"\r\n\r\n", 1)
    return head.decode("latin-1"), rest


def relay(a, b):
    sockets = [a, b]
    while True:
        readable, _, _ = select.select(sockets, [], [], 30)
        if not readable:
            return
        for s in readable:
            data = s.recv(65536)
            if not data:
                return
            (b if s is a else a).sendall(data)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--record", required=True)
    parser.add_argument("--auth")
    args = parser.parse_args()
    lock = threading.Lock()
    expected = None
    if args.auth:
        expected = "Basic " + base64.b64encode(args.auth.encode()).decode()

    def handle(conn):
        with conn:
            head, rest = read_head(conn)
            if head is None:
                return
            lines = head.split("\r\n")
            request = lines[0]
            credentials = next((l.partition(":")[2].strip() for l in lines[1:]
                                if l.lower().startswith("proxy-authorization:")), "")
            with lock, open(args.record, "a", encoding="utf-8") as out:
                out.write(json.dumps({"request": request,
                                      "proxy_authorization": credentials}) + "\n")
            if expected is not None and credentials != expected:
                conn.sendall(b"HTTP/1.1 407 Proxy Authentication Required\r\n"
                             b"Proxy-Authenticate: Basic realm=\"tessera-test\"\r\n"
                             b"Content-Length: 0\r\n\r\n")
                return
            method, target, version = (request.split(" ") + ["", ""])[:3]
            if method == "CONNECT":
                host, _, port = target.rpartition(":")
                path_line = None
            else:
                url = urllib.parse.urlsplit(target)
                host, port = url.hostname or "", url.port or 80
                path_line = "%s %s %s" % (method, url.path or "/", version)
            if host != "127.0.0.1":
                conn.sendall(b"HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n")
                return
            with socket.create_connection(("127.0.0.1", int(port)), timeout=10) as upstream:
                if path_line is None:
                    conn.sendall(b"HTTP/1.1 200 Connection established\r\n\r\n")
                else:
                    kept = [l for l in lines[1:]
                            if not l.lower().startswith(("proxy-authorization:",
                                                         "proxy-connection:"))]
                    upstream.sendall(("\r\n".join([path_line] + kept) + "\r\n\r\n")
                                     .encode("latin-1"))
                if rest:
                    upstream.sendall(rest)
                relay(conn, upstream)

    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", 0))
    listener.listen(16)
    print(listener.getsockname()[1], flush=True)
    try:
        while True:
            conn, _ = listener.accept()
            threading.Thread(target=handle, args=(conn,), daemon=True).start()
    except KeyboardInterrupt:
        pass
    return 0


if __name__ == "__main__":
    sys.exit(main())
