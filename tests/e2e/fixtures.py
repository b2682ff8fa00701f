"""Shared pieces of the end-to-end tests: a configuration root written the way the reader's
management software writes it, a pseudo-terminal standing in for /dev/ttyS2, the serial line's
CRC-16, and a service wired to a simulator."""

import os
import pty
import select
import sys
import threading
import time
import tty

from harness import Tessera, wait_until
from simctl import Simulator

# The relay tests import their peers (relay_peers, mqtt_peers) after this module.
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "peers"))


SERIAL_START = "setup.operating_mode_serialPort=,5084 0 ,\r\n"
STANDBY = "setup.operating_mode=standby\r\n"
STARTED = b"httppoststart:0\r\n\r\n"  # the relay start's reply


def relay_start(mode):
    return "setup.operating_mode_Tagrelay=,5084 0 %d ,\r\n" % mode


def element(name, attributes):
    return "  <%s %s/>" % (name, " ".join('%s="%s"' % kv for kv in attributes.items()))


SERIAL_DEFAULTS = {"Mode": "1", "Baudrate": "115200", "Databits": "8", "Parity": "None",
                   "Stopbits": "1", "Flowcontrol": "None", "TagMetaData": "45",
                   "InventoryControl": "S0,Immediate,Delay:0,0", "IsAutostart": "0"}
RELAY_DEFAULTS = {"TagrelayMode": "1", "IsAutostart": "0", "TagMetaData": "45",
                  "InventoryControl": "S1,Immediate,Delay:0,1", "HeartBeatPeriod": "0",
                  "PreFilterMode": "0", "PreFilters": ""}


def write_config(root, serial=None, relay=None, antennas=((1, 81), (2, 81), (3, 81), (4, 81)),
                 data_format=None, tcpip=None, http=None, cloud=None, extra_lines=()):
    """Writes <root>/readerconfig/AdvReaderConfig.xml (and cloud.conf); None leaves a section out,
    a dict overrides the defaults."""
    folder = os.path.join(root, "readerconfig")
    os.makedirs(folder, exist_ok=True)
    lines = ['<?xml version="1.0" encoding="UTF-8" standalone="yes"?>',
             '<AdvReaderConfig Version="2.4.1" Generator="ReaderManager">']
    if serial is not None:
        lines.append(element("SerialPortConf", dict(SERIAL_DEFAULTS, **serial)))
    if relay is not None:
        lines.append(element("TagrelayConfig", dict(RELAY_DEFAULTS, **relay)))
        for antenna, power in antennas:
            lines.append(element("AntennaConfig", {"AntennaId": antenna, "AntennaTxPower": power}))
    if data_format is not None:
        lines.append(element("TagrelayDataFormat", dict(
            {"Format": "JSON", "Delimiter": "Comma", "LineEnding": "CRLF",
             "TimestampFormat": "UTC", "DataPrefix": "", "DataSuffix": ""}, **data_format)))
    if tcpip is not None:
        lines.append(element("TCPIPConfig", tcpip))
    if http is not None:
        lines.append(element("HTTPPostConfig", http))
    lines.extend(extra_lines)
    lines.append("</AdvReaderConfig>")
    with open(os.path.join(folder, "AdvReaderConfig.xml"), "w") as f:
        f.write("\n".join(lines) + "\n")
    with open(os.path.join(folder, "cloud.conf"), "w") as f:
        for key, value in (cloud or {"ENROLLED": "0", "AUTO_CONNECT": "0"}).items():
            f.write("%s=%s\n" % (key, value))


def write_file(path, text=None):
    """Writes the text to the path, making its folders; without a text the path is a folder."""
    os.makedirs(path if text is None else os.path.dirname(path), exist_ok=True)
    if text is not None:
        with open(path, "w") as f:
            f.write(text)


def stamp_key(stamp):
    """Sort key of a "dd/mm/yyyy hh:mm:ss:mmm" time stamp."""
    return stamp[6:10], stamp[3:5], stamp[:2], stamp[11:]


def crc16(data):
    """CRC-16 with polynomial 0x1021, initial value 0xFFFF and final inversion (GENIBUS)."""
    crc = 0xFFFF
    for byte in data:
        crc ^= byte << 8
        for _ in range(8):
            crc = ((crc << 1) ^ 0x1021) if crc & 0x8000 else crc << 1
            crc &= 0xFFFF
    return crc ^ 0xFFFF


def crc_ok(line):
    """A serial line "fields,<xxxx>" whose CRC covers the text before "<"."""
    at = line.rfind("<")
    if at < 0 or not line.endswith(">") or len(line) - at != 6:
        return False
    return "%04x" % crc16(line[:at].encode()) == line[at + 1:-1]


class SerialLine:
    """A pseudo-terminal whose slave side is <root>/dev/ttyS2; reads what the service writes."""

    def __init__(self, root):
        self.master, self.slave = pty.openpty()
        tty.setraw(self.master)
        os.makedirs(os.path.join(root, "dev"), exist_ok=True)
        self.link = os.path.join(root, "dev", "ttyS2")
        os.symlink(os.ttyname(self.slave), self.link)
        self.buffer = b""

    def read_lines(self, count=None, timeout=10.0, quiet=None):
        """Collects complete lines until `count` arrived, the time is up, or (quiet) no byte
        came for that many seconds. Returns every complete line read so far."""
        deadline = time.monotonic() + timeout
        last = time.monotonic()
        while time.monotonic() < deadline:
            lines = self.buffer.split(b"\r\n")
            if count is not None and len(lines) - 1 >= count:
                break
            if quiet is not None and time.monotonic() - last >= quiet:
                break
            ready, _, _ = select.select([self.master], [], [], 0.05)
            if ready:
                try:
                    chunk = os.read(self.master, 65536)
                except OSError:
                    break
                if chunk:
                    self.buffer += chunk
                    last = time.monotonic()
        return [l.decode("ascii", "replace") for l in self.buffer.split(b"\r\n")[:-1]]

    def count_lines(self):
        """Complete lines read so far by a thread that reads on without keeping them, for
        streams too long to keep; the first call starts the thread."""
        if not hasattr(self, "_counter"):
            self.counted = 0
            self._counter = threading.Thread(target=self._count, daemon=True)
            self._counter.start()
        return self.counted

    def _count(self):
        last = b""
        while self.master is not None:
            try:
                if not select.select([self.master], [], [], 0.1)[0]:
                    continue
                chunk = os.read(self.master, 1 << 16)
            except (OSError, TypeError, ValueError):
                return
            if not chunk:
                return
            self.counted += (last + chunk).count(b"\r\n")
            last = chunk[-1:]

    def close(self):
        for end in ("master", "slave"):
            if getattr(self, end) is not None:
                os.close(getattr(self, end))
                setattr(self, end, None)


def settle(bench, received, timeout=60.0, accounted=lambda stats: stats["reads_out"]):
    """Slows the simulator to a trickle and waits until what the peer received, what the
    simulator sent and what the service accounts for (by default: delivered) meet; fails when
    they do not. Returns (sent, statistics); the ledger's identity is asserted on the way."""
    assert bench.sim.control("rate 0.001").startswith("ok"), "the simulator refused the rate"
    state = {}

    def met():
        stats = bench.tessera.statistics()
        assert stats["reads_in"] == (stats["reads_out"] + stats["reads_pending"] +
                                     stats["reads_discarded"]), stats
        state.update(received=received(), sent=bench.sim.stats()["reads_sent"], stats=stats)
        return state["received"] == state["sent"] == accounted(stats)

    assert wait_until(met, timeout=timeout, interval=0.2), (
        "received %(received)s, sent %(sent)s, service %(stats)s" % state)
    return state["sent"], state["stats"]


def drain(b, received):
    """Stops the inventory and fails unless the count of reads the peer received comes to
    equal the simulator's count of reads sent; returns that count."""
    assert b.tessera.command(STANDBY) == b"ok\r\n\r\n"
    sent = lambda: b.sim.stats()["reads_sent"]
    assert wait_until(lambda: received() == sent(), timeout=15, interval=0.1), (received(), sent())
    return sent()


class Bench:
    """A simulator, a configuration root and a tessera connected to the simulator."""

    def __init__(self, sim_args=("--tags", "20", "--rate", "200"), serial=None, relay=None,
                 with_serial_line=None, tessera_args=(), env=None, reader_port=None, **config):
        self.sim = Simulator(sim_args).start()
        self.tessera = Tessera(reader_port=reader_port or self.sim.llrp_port,
                               extra_args=tessera_args, env=env)
        write_config(self.tessera.root, serial=serial, relay=relay, **config)
        # A serial section gets its line unless the test says otherwise.
        with_line = serial is not None if with_serial_line is None else with_serial_line
        self.line = SerialLine(self.tessera.root) if with_line else None
        self.tessera.start()

    def close(self):
        try:
            status = self.tessera.stop()
            assert status == 0, "tessera exit status %s\n%s" % (status, self.tessera.output()[-3000:])
        finally:
            self.tessera.close()
            if self.line:
                self.line.close()
            self.sim.stop()


def bench(test, **kwargs):
    """A Bench that the test's cleanup closes, failing the test on a non-zero exit status."""
    b = Bench(**kwargs)
    test.addCleanup(b.close)
    return b
