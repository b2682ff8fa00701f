#!/usr/bin/env python3
"""The demo: tessera-readersim (50 tags, 20 reads/s) -> tessera in serial push mode -> a
pseudo-terminal standing in for the appliance's serial port /dev/ttyS2. It starts the push over
the command channel, prints the serial lines as they arrive (header first, then one CSV record
with its CRC-16 per tag read), asks for the inventory status, disconnects and shows the data
channel's notifications. Ctrl-C stops everything; nothing is left running."""

import argparse
import os
import pty
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import tty

HERE = os.path.dirname(os.path.abspath(__file__))
BIN = os.environ.get("TESSERA_BIN", os.path.join(HERE, "..", "build", "bin"))
CONFIG = os.path.join(HERE, "..", "tests", "data", "demo", "readerconfig")


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def crc16(data):
    crc = 0xFFFF
    for byte in data:
        crc ^= byte << 8
        for _ in range(8):
            crc = ((crc << 1) ^ 0x1021) if crc & 0x8000 else crc << 1
            crc &= 0xFFFF
    return crc ^ 0xFFFF


def command(port, text, replies=1):
    with socket.create_connection(("127.0.0.1", port), timeout=60) as s:
        s.sendall(text.encode())
        data = b""
        while data.count(b"\r\n\r\n") < replies:
            chunk = s.recv(4096)
            if not chunk:
                break
            data += chunk
    print("command %-48r -> %r" % (text, data.decode()), flush=True)
    return data


class Processes:
    """Everything the demo started, stopped in reverse order on the way out."""

    def __init__(self):
        self.procs = []

    def start(self, args, **kwargs):
        p = subprocess.Popen(args, **kwargs)
        self.procs.append(p)
        return p

    def stop(self):
        for p in reversed(self.procs):
            if p.poll() is None:
                p.send_signal(signal.SIGTERM)
            try:
                p.wait(timeout=10)
            except subprocess.TimeoutExpired:
                p.kill()
                p.wait()


def start_simulator(procs, tags="50", rate="20"):
    ready_dir = tempfile.mkdtemp(prefix="tessera-demo-sim-")
    ready = os.path.join(ready_dir, "ready")
    procs.start([os.path.join(BIN, "tessera-readersim"), "--port", "0", "--control", "0",
                 "--tags", tags, "--rate", rate, "--ready-file", ready],
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        try:
            with open(ready) as f:
                fields = dict(kv.split("=") for kv in f.read().split())
            shutil.rmtree(ready_dir, ignore_errors=True)
            return int(fields["llrp"]), int(fields["control"])
        except (OSError, ValueError, KeyError):
            time.sleep(0.05)
    raise SystemExit("the simulator did not start")


def start_tessera(procs, root, reader_port, show_log):
    cport, dport = free_port(), free_port()
    args = [os.path.join(BIN, "tessera"), "--root", root, "--command-port", str(cport),
            "--data-port", str(dport), "--reader-port", str(reader_port),
            "--record-shell", os.path.join(root, "recorded-shell.txt")]
    print("== tessera:", " ".join(args), flush=True)
    svc = procs.start(args, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                      env=dict(os.environ, MVM_DEBUG="enable"))

    def pump():
        for raw in svc.stdout:
            line = raw.decode("utf-8", "replace").rstrip("\n")
            if line and show_log:
                print("   [log] " + line, flush=True)
    threading.Thread(target=pump, daemon=True).start()
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        try:
            socket.create_connection(("127.0.0.1", dport), timeout=0.2).close()
            break
        except OSError:
            time.sleep(0.05)
    return cport, dport


def run_relay(procs, root, llrp, args, channel, verb):
    """Starts tessera, the relay on `channel` for --seconds, then asks the status and
    disconnects."""
    cport, _ = start_tessera(procs, root, llrp, args.log)
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:  # the command channel opens after the data channel
        try:
            socket.create_connection(("127.0.0.1", cport), timeout=0.2).close()
            break
        except OSError:
            time.sleep(0.05)
    command(cport, "setup.operating_mode_Tagrelay=,5084 0 %d ,\r\n" % channel)
    print("== batches %s by the relay, %d seconds:" % (verb, args.seconds), flush=True)
    time.sleep(args.seconds)
    command(cport, "getInventoryStatus")
    command(cport, "disconnect\r\n")


def serial_demo(args):
    procs = Processes()
    root = tempfile.mkdtemp(prefix="tessera-demo-")
    master = slave = None
    try:
        shutil.copytree(CONFIG, os.path.join(root, "readerconfig"))
        os.makedirs(os.path.join(root, "dev"))
        master, slave = pty.openpty()
        tty.setraw(master)
        os.symlink(os.ttyname(slave), os.path.join(root, "dev", "ttyS2"))
        llrp, _ = start_simulator(procs)
        print("== tessera-readersim: 50 tags, 20 reads/s, LLRP on 127.0.0.1:%d" % llrp, flush=True)
        cport, dport = start_tessera(procs, root, llrp, args.log)
        data = socket.create_connection(("127.0.0.1", dport), timeout=10)
        command(cport, "setup.operating_mode_serialPort=,5084 0 ,\r\n")
        print("== serial line (/dev/ttyS2), %d seconds:" % args.seconds, flush=True)
        buffer, reads = b"", 0
        deadline = time.monotonic() + args.seconds
        while time.monotonic() < deadline:
            ready, _, _ = select.select([master], [], [], 0.1)
            if not ready:
                continue
            buffer += os.read(master, 65536)
            while b"\r\n" in buffer:
                line, buffer = buffer.split(b"\r\n", 1)
                text = line.decode("ascii", "replace")
                at = text.rfind("<")
                if text.endswith("<CRC>"):
                    print("   header  %s" % text, flush=True)
                    continue
                ok = at >= 0 and "%04x" % crc16(line[:at]) == text[at + 1:-1]
                reads += 1
                print("   %5d  %s  %s" % (reads, text, "crc ok" if ok else "CRC MISMATCH"),
                      flush=True)
        command(cport, "getInventoryStatus")
        command(cport, "disconnect\r\n")
        data.settimeout(2)
        notes = b""
        try:
            while True:
                chunk = data.recv(65536)
                if not chunk:
                    break
                notes += chunk
        except socket.timeout:
            pass
        data.close()
        print("== data channel notifications:",
              [m.decode() for m in notes.split(b"\0")[:-1] if not m.startswith(b"TagData")],
              flush=True)
        print("== %d tag reads arrived on the serial line" % reads, flush=True)
    except KeyboardInterrupt:
        print("\n== interrupted", flush=True)
    finally:
        procs.stop()
        for fd in (master, slave):
            if fd is not None:
                os.close(fd)
        shutil.rmtree(root, ignore_errors=True)
        print("== stopped; nothing left running", flush=True)


def relay_demo(args):
    """simulator -> tessera in HTTP POST relay mode -> a local HTTP server printing each batch."""
    import base64
    import http.server
    import json
    import re

    procs = Processes()
    root = tempfile.mkdtemp(prefix="tessera-demo-")
    server = None
    try:
        shutil.copytree(CONFIG, os.path.join(root, "readerconfig"))
        batches = []

        class Batch(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_POST(self):
                body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
                self.send_response(200)
                self.send_header("Content-Length", "0")
                self.end_headers()
                report = json.loads(body)
                reads = report["tag_reads"]
                batches.append(len(reads))
                user = base64.b64decode(
                    self.headers.get("Authorization", "Basic ")[6:]).decode().split(":")[0]
                print("   batch %2d  POST %s  user %r  reader %r  %3d reads  first EPCs %s"
                      % (len(batches), self.path, user, report["reader_name"], len(reads),
                         " ".join(r["epc"] for r in reads[:3])), flush=True)

            def log_message(self, *unused):
                pass

        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Batch)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        port = server.server_address[1]
        # The sample configuration posts to 127.0.0.1:8080 every 5 s; point it at this server
        # and post every second.
        conf = os.path.join(root, "readerconfig", "AdvReaderConfig.xml")
        with open(conf) as f:
            text = f.read()
        text = re.sub(r'HTTPServerURL="[^"]*"', 'HTTPServerURL="http://127.0.0.1:%d/tagdata"' % port,
                      text)
        text = re.sub(r'HTTPPostInterval="\d+"', 'HTTPPostInterval="1"', text)
        with open(conf, "w") as f:
            f.write(text)
        llrp, _ = start_simulator(procs)
        print("== tessera-readersim: 50 tags, 20 reads/s, LLRP on 127.0.0.1:%d" % llrp, flush=True)
        print("== HTTP server on 127.0.0.1:%d, HTTPServerURL http://127.0.0.1:%d/tagdata"
              % (port, port), flush=True)
        run_relay(procs, root, llrp, args, 1, "posted")
        print("== %d batches, %d tag reads arrived by HTTP POST" % (len(batches), sum(batches)),
              flush=True)
    except KeyboardInterrupt:
        print("\n== interrupted", flush=True)
    finally:
        procs.stop()
        if server is not None:
            server.shutdown()
            server.server_close()
        shutil.rmtree(root, ignore_errors=True)
        print("== stopped; nothing left running", flush=True)


def mqtt_demo(args):
    """simulator -> tessera in MQTT relay mode (5) -> a local mosquitto broker -> mosquitto_sub
    printing each batch and the status topic."""
    import json
    import re

    sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e", "peers"))
    from mqtt_peers import Broker, retained

    procs = Processes()
    root = tempfile.mkdtemp(prefix="tessera-demo-")
    broker = None
    try:
        shutil.copytree(CONFIG, os.path.join(root, "readerconfig"))
        os.makedirs(os.path.join(root, "broker"))
        broker = Broker(os.path.join(root, "broker"))
        # The sample configuration names the relay mode 1 and a broker on port 1883; point it at
        # the demo's own broker and switch the relay to MQTT.
        conf = os.path.join(root, "readerconfig", "AdvReaderConfig.xml")
        with open(conf) as f:
            text = f.read()
        text = re.sub(r'BrokerURL="[^"]*"', 'BrokerURL="mqtt://127.0.0.1:%d"' % broker.port, text)
        text = re.sub(r'TagrelayMode="\d+"', 'TagrelayMode="5"', text)
        with open(conf, "w") as f:
            f.write(text)
        llrp, _ = start_simulator(procs)
        print("== tessera-readersim: 50 tags, 20 reads/s, LLRP on 127.0.0.1:%d" % llrp, flush=True)
        print("== mosquitto on 127.0.0.1:%d; mosquitto_sub -t 'tessera/#' -v" % broker.port,
              flush=True)
        sub = procs.start(["mosquitto_sub", "-h", "127.0.0.1", "-p", str(broker.port), "-t",
                           "tessera/#", "-v", "-q", "1"], stdout=subprocess.PIPE)
        counts = {"batches": 0, "reads": 0}

        def show():
            for raw in sub.stdout:
                # "-v" writes the topic, a blank and the payload; the topic holds blanks too.
                line = raw.decode("utf-8", "replace").rstrip("\n")
                topic, _, payload = (line.partition(" {") if " {" in line
                                     else line.rpartition(" "))
                payload = "{" + payload if " {" in line else payload
                if not topic.endswith("/reads"):
                    print("   %s  %s" % (topic, payload), flush=True)
                    continue
                report = json.loads(payload)
                reads = report["tag_reads"]
                counts["batches"] += 1
                counts["reads"] += len(reads)
                print("   %s  batch %2d  reader %r  %3d reads  first EPCs %s"
                      % (topic, counts["batches"], report["reader_name"], len(reads),
                         " ".join(r["epc"] for r in reads[:3])), flush=True)
        threading.Thread(target=show, daemon=True).start()
        run_relay(procs, root, llrp, args, 5, "published")
        time.sleep(0.5)
        print("== %d batches, %d tag reads arrived through the broker; status now %r"
              % (counts["batches"], counts["reads"],
                 retained(broker, "tessera/Dock Door 1/status")), flush=True)
    except KeyboardInterrupt:
        print("\n== interrupted", flush=True)
    finally:
        procs.stop()
        if broker is not None:
            broker.stop()
        shutil.rmtree(root, ignore_errors=True)
        print("== stopped; nothing left running", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("mode", nargs="?", default="serial", choices=["serial", "relay", "mqtt"],
                        help="which stream to show: serial (default), relay (to HTTP) or mqtt")
    parser.add_argument("--seconds", type=int, default=5, help="how long reads flow")
    parser.add_argument("--log", action="store_true", help="also show tessera's log lines")
    args = parser.parse_args()
    if args.mode == "serial":
        serial_demo(args)
    elif args.mode == "relay":
        relay_demo(args)
    elif args.mode == "mqtt":
        mqtt_demo(args)
    return 0


if __name__ == "__main__":
    sys.exit(main())
