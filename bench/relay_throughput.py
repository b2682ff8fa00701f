#!/usr/bin/env python3
"""Relay throughput: tessera-readersim -> tessera in relay mode -> a local peer that counts the
EPCs it receives, through the HTTP POST relay (HTTPPostInterval 0, a keep-alive HTTP/1.1 server)
through the TCP/IP relay (a client that reads the report stream) and through the MQTT relay at
QoS 1 (a local mosquitto broker and a mosquitto_sub that counts the EPCs of every message). For each run it prints
reads/s, CPU microseconds of the tessera process per read (from /proc/<pid>/stat), its peak RSS
(VmHWM) with its resident size at the start and the end of the measured time, and the reads lost.
Loss is counted after draining: the simulator is slowed to a trickle and the run waits until the
EPCs that arrived, the simulator's reads_sent and tessera's reads_out (getStatistics) meet, or a
minute passes. No assertions: this measures.

    bench/relay_throughput.py [--bin build/bin] [--seconds 10] [--tags 200] [--rates 0,20000]
                              [--relays http,tcp,mqtt]

Use a Release build. Each relay runs once per simulator rate (0 = as fast as tessera takes the
reads). The TCP/IP and MQTT relays run with the product's 1-second pass and with
--wait-scale 0.01."""

import argparse
import os
import re
import socket
import sys
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
E2E = os.path.join(HERE, "..", "tests", "e2e")
sys.path[:0] = [E2E, os.path.join(E2E, "peers")]

EPC_KEY = b'"epc":'


class CountingHttpServer:
    """HTTP/1.1 with keep-alive on 127.0.0.1: answers every request 200 and counts EPC keys."""

    def __init__(self, port=0):
        self.sock = socket.socket()
        self.sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.sock.bind(("127.0.0.1", port))
        self.sock.listen(16)
        self.port = self.sock.getsockname()[1]
        self.reads = 0
        self.posts = 0
        self._lock = threading.Lock()
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            try:
                conn, _ = self.sock.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(conn,), daemon=True).start()

    def _serve(self, conn):
        buf = b""
        with conn:
            while True:
                while b"\r\n\r\n" not in buf:
                    chunk = conn.recv(1 << 17)
                    if not chunk:
                        return
                    buf += chunk
                head, buf = buf.split(b"\r\n\r\n", 1)
                match = re.search(rb"(?im)^content-length:\s*(\d+)", head)
                length = int(match.group(1)) if match else 0
                if re.search(rb"(?im)^expect:\s*100-continue", head):
                    conn.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
                while len(buf) < length:
                    chunk = conn.recv(1 << 17)
                    if not chunk:
                        return
                    buf += chunk
                body, buf = buf[:length], buf[length:]
                with self._lock:
                    self.reads += body.count(EPC_KEY)
                    self.posts += 1
                conn.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                             b"Content-Length: 2\r\n\r\n{}")

    def count(self):
        with self._lock:
            return self.reads

    def close(self):
        self.sock.close()


class CountingTcpClient:
    """A client of the relay's TCP/IP server that counts EPC keys in the report stream."""

    def __init__(self, port):
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=10)
        self.sock.settimeout(None)
        self.reads = 0
        self._tail = b""
        self._lock = threading.Lock()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        while True:
            try:
                chunk = self.sock.recv(1 << 17)
            except OSError:
                return
            if not chunk:
                return
            # A key may straddle two chunks: count over the previous chunk's last bytes too.
            data = self._tail + chunk
            with self._lock:
                self.reads += data.count(EPC_KEY)
            keep = len(EPC_KEY) - 1
            self._tail = data[-keep:] if not data.endswith(EPC_KEY) else b""

    def count(self):
        with self._lock:
            return self.reads

    def close(self):
        self.sock.close()


class CountingSubscriber:
    """mosquitto_sub at QoS 1 on the relay's topic; counts EPC keys in the payloads."""

    def __init__(self, broker, topic):
        import subprocess
        self.proc = subprocess.Popen(["mosquitto_sub", "-h", "127.0.0.1", "-p", str(broker.port),
                                      "-t", topic, "-q", "1"], stdout=subprocess.PIPE)
        self.reads = 0
        self._lock = threading.Lock()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.proc.stdout:  # one message a line: a key never straddles two
            with self._lock:
                self.reads += line.count(EPC_KEY)

    def count(self):
        with self._lock:
            return self.reads

    def close(self):
        self.proc.kill()
        self.proc.wait()
        self.proc.stdout.close()


def _accepts(port):
    try:
        socket.create_connection(("127.0.0.1", port), timeout=0.2).close()
        return True
    except OSError:
        return False


def cpu_seconds(pid):
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    # utime and stime are fields 14 and 15 of the line, 12 and 13 after the command name.
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def memory_mib(pid, key):
    """VmHWM (peak) or VmRSS (now) of the process, in MiB."""
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            if line.startswith(key + ":"):
                return int(line.split()[1]) / 1024.0
    return float("nan")


def run(name, mode, rate, args, wait_scale):
    from fixtures import write_config
    from harness import Tessera, free_port, wait_until
    from relay_peers import http_section
    from simctl import Simulator

    sim = Simulator(("--tags", str(args.tags), "--rate", str(rate))).start()
    # Without MVM_DEBUG, as on the appliance: log lines go to syslog only.
    tessera = Tessera(reader_port=sim.llrp_port, env={"MVM_DEBUG": "off"})
    tessera.args[tessera.args.index("--wait-scale") + 1] = str(wait_scale)
    server = client = broker = None
    try:
        if mode == 5:
            import tempfile
            from mqtt_peers import Broker, mqtt_section
            broker = Broker(tempfile.mkdtemp(prefix="bench-mqtt-"))
            client = CountingSubscriber(broker, "tessera/Dock Door 1/reads")
            write_config(tessera.root, relay={"TagrelayMode": "5", "TagMetaData": "45"},
                         extra_lines=[mqtt_section("mqtt://127.0.0.1:%d" % broker.port)])
            received = client.count
        elif mode == 1:
            server = CountingHttpServer()
            write_config(tessera.root, relay={"TagrelayMode": "1", "TagMetaData": "45"},
                         extra_lines=[http_section("http://127.0.0.1:%d/bench" % server.port,
                                                   interval=0)])
            received = server.count
        else:
            port = free_port()
            write_config(tessera.root, relay={"TagrelayMode": "3", "TagMetaData": "45"},
                         tcpip={"Port": str(port)})
        tessera.start(wait_ready=False)
        if not wait_until(lambda: _accepts(tessera.command_port), timeout=20):
            raise SystemExit("%s: tessera did not start: %s" % (name, tessera.stderr_text))
        reply = tessera.command("setup.operating_mode_Tagrelay=,5084 0 %d ,\r\n" % mode)
        if reply != b"httppoststart:0\r\n\r\n":
            raise SystemExit("%s: relay did not start: %r" % (name, reply))
        if mode == 3:
            client = CountingTcpClient(port)
            received = client.count
        pid = tessera.proc.pid
        wait_until(lambda: received() > 0, timeout=20)
        time.sleep(1.0)  # warm-up
        reads0, cpu0, t0 = received(), cpu_seconds(pid), time.monotonic()
        rss0 = memory_mib(pid, "VmRSS")
        time.sleep(args.seconds)
        reads1, cpu1, t1 = received(), cpu_seconds(pid), time.monotonic()
        rss1 = memory_mib(pid, "VmRSS")
        sim.control("rate 0.001")
        sent = lambda: sim.stats()["reads_sent"]
        out = lambda: tessera.statistics()["reads_out"]
        wait_until(lambda: received() == sent() == out(), timeout=60, interval=0.5)
        reads = reads1 - reads0
        return (name, rate or "max", reads / (t1 - t0), (cpu1 - cpu0) / max(reads, 1) * 1e6,
                "%.1f -> %.1f" % (rss0, rss1), memory_mib(pid, "VmHWM"), sent() - received(),
                sent(), out())
    finally:
        if client:
            client.close()
        tessera.close()
        if server:
            server.close()
        if broker:
            broker.stop()
        sim.stop(check=False)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", default=os.environ.get("TESSERA_BIN",
                                                        os.path.join(HERE, "..", "build", "bin")))
    parser.add_argument("--seconds", type=float, default=10.0, help="measured time per run")
    parser.add_argument("--tags", type=int, default=200)
    parser.add_argument("--rates", default="0,20000",
                        help="simulator reads/s, comma-separated (0 = as fast as taken)")
    parser.add_argument("--relays", default="http,tcp,mqtt",
                        help="which relays to run, comma-separated: http, tcp, mqtt")
    args = parser.parse_args()
    rates = [int(r) for r in args.rates.split(",")]
    os.environ["TESSERA_BIN"] = os.path.abspath(args.bin)
    runs = [("HTTP POST, interval 0", 1, 1.0, "http"),
            ("TCP/IP, 1 s pass", 3, 1.0, "tcp"),
            ("TCP/IP, --wait-scale 0.01", 3, 0.01, "tcp"),
            ("MQTT QoS 1, 1 s pass", 5, 1.0, "mqtt"),
            ("MQTT QoS 1, --wait-scale 0.01", 5, 0.01, "mqtt")]
    runs = [r[:3] for r in runs if r[3] in args.relays.split(",")]
    print("simulator: %d tags; %.0f s measured per run; binaries in %s"
          % (args.tags, args.seconds, args.bin))
    header = ("relay", "sim rate", "reads/s", "CPU us/read", "RSS MiB", "peak RSS MiB",
              "lost reads", "reads sent", "reads_out")
    widths = (30, 8, 8, 11, 12, 12, 10, 10, 10)
    print("| %-30s | %8s | %8s | %11s | %12s | %12s | %10s | %10s | %10s |" % header)
    print("|" + "|".join("-" * (w + 2) for w in widths) + "|")
    for name, mode, scale in runs:
        for rate in rates:
            row = run(name, mode, rate, args, scale)
            print("| %-30s | %8s | %8.0f | %11.2f | %12s | %12.1f | %10d | %10d | %10d |" % row,
                  flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
