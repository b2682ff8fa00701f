#!/usr/bin/env python3
"""The demo: starts tessera in a temporary root with recorded shell commands, talks to it over
the command and data channels and shows what it logs. Ctrl-C stops everything."""

import os
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
BIN = os.path.join(HERE, "..", "build", "bin")


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def pump(stream, prefix):
    for raw in stream:
        line = raw.decode("utf-8", "replace").rstrip("\n")
        if line:
            print(prefix + line, flush=True)


def command(port, text):
    with socket.create_connection(("127.0.0.1", port), timeout=60) as s:
        s.sendall(text.encode())
        data = b""
        while not data.endswith(b"\r\n\r\n"):
            chunk = s.recv(4096)
            if not chunk:
                break
            data += chunk
    print("command %-45r -> reply %r" % (text, data.decode()), flush=True)


def main():
    root = tempfile.mkdtemp(prefix="tessera-demo-")
    cport, dport = free_port(), free_port()
    procs = []
    try:
        args = [os.path.join(BIN, "tessera"), "--root", root, "--command-port", str(cport),
                "--data-port", str(dport), "--record-shell", os.path.join(root, "shell.txt")]
        print("== starting:", " ".join(args), flush=True)
        svc = subprocess.Popen(args, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               env=dict(os.environ, MVM_DEBUG="enable"))
        procs.append(svc)
        threading.Thread(target=pump, args=(svc.stdout, "[tessera] "), daemon=True).start()
        time.sleep(0.5)
        command(cport, "getInventoryStatus")
        command(cport, "disconnect\r\n")
        time.sleep(0.5)
    except KeyboardInterrupt:
        pass
    finally:
        for p in procs:
            if p.poll() is None:
                p.send_signal(signal.SIGTERM)
        for p in procs:
            try:
                p.wait(timeout=10)
            except subprocess.TimeoutExpired:
                p.kill()
        time.sleep(0.1)
        print("== stopped; temporary root was", root)


if __name__ == "__main__":
    sys.exit(main())
