"""Start, drive and stop tessera-readersim from end-to-end tests, and talk raw LLRP to it.

    with simctl.Simulator(["--antennas", "2"]) as sim:
        client = simctl.LlrpClient(sim.llrp_port)
        ...
        sim.control("gpi 1 1")          # -> "ok gpi 1=1"
        sim.stats()["reads_sent"]
    # leaving the block sends SIGTERM and fails the test on a non-zero exit or a sanitizer report

The LLRP part is deliberately small and struct-based: frames, TLV/TV parameters and the few
parameters the tests look into. It is a test peer, not a codec.
"""

import os
import socket
import struct
import subprocess
import tempfile
import time

from harness import BIN, SANITIZER_MARKS, wait_until

VENDOR = 32473          # the simulator's vendor number
PHASE_SUBTYPE = 1       # Custom parameter in TagReportData: s16 raw phase
SAVE_SUBTYPE = 1        # CUSTOM_MESSAGE: save configuration
SAVE_REPLY_SUBTYPE = 2  # CUSTOM_MESSAGE: its reply, data = LLRPStatus


class Simulator:
    """One simulator process on free loopback ports (LLRP and control)."""

    def __init__(self, args=()):
        self.args = list(args)
        self.proc = None
        self.llrp_port = 0
        self.control_port = 0
        self.returncode = None
        self._dir = None
        self._stderr = None
        self._control = None

    def start(self, timeout=10.0):
        self._dir = tempfile.TemporaryDirectory(prefix="readersim-")
        ready = os.path.join(self._dir.name, "ready")
        argv = [os.path.join(BIN, "tessera-readersim"), "--port", "0", "--control", "0",
                "--ready-file", ready] + self.args
        self._stderr = open(os.path.join(self._dir.name, "stderr"), "w+")
        self.proc = subprocess.Popen(argv, stdout=subprocess.DEVNULL, stderr=self._stderr)

        def ports():
            if self.proc.poll() is not None:
                raise RuntimeError("simulator exited with %s: %s" % (self.proc.returncode, self.stderr()))
            try:
                with open(ready) as f:
                    fields = dict(kv.split("=") for kv in f.read().split())
                return int(fields["llrp"]), int(fields["control"])
            except (OSError, ValueError, KeyError):
                return None

        try:
            found = wait_until(ports, timeout)
        except RuntimeError:
            self.stop(check=False)
            raise
        if not found:
            text = self.stop(check=False)
            raise RuntimeError("simulator did not become ready: " + text)
        self.llrp_port, self.control_port = found
        return self

    def stderr(self):
        if self._stderr is None:
            return ""
        self._stderr.flush()
        with open(self._stderr.name) as f:
            return f.read()

    def control(self, line, timeout=5.0):
        """Sends one control command; its reply line without the newline."""
        if self._control is None:
            self._control = socket.create_connection(("127.0.0.1", self.control_port), timeout=timeout)
            self._control_buf = b""
        self._control.sendall(line.encode() + b"\n")
        while b"\n" not in self._control_buf:
            chunk = self._control.recv(4096)
            if not chunk:
                raise RuntimeError("control connection closed")
            self._control_buf += chunk
        reply, self._control_buf = self._control_buf.split(b"\n", 1)
        return reply.decode()

    def stats(self):
        reply = self.control("stats")
        assert reply.startswith("ok "), reply
        return {k: int(v) for k, v in (kv.split("=") for kv in reply[3:].split())}

    def stop(self, check=True, timeout=15.0):
        """SIGTERM, wait, and (check) raise AssertionError on a non-zero exit or sanitizer report."""
        if self._control is not None:
            self._control.close()
            self._control = None
        if self.proc is not None and self.proc.poll() is None:
            self.proc.terminate()
            try:
                self.proc.wait(timeout)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        self.returncode = self.proc.returncode if self.proc else None
        text = self.stderr()
        if self._stderr is not None:
            self._stderr.close()
            self._stderr = None
        if self._dir is not None:
            self._dir.cleanup()
            self._dir = None
        self.proc = None
        if check:
            marks = [m for m in SANITIZER_MARKS if m in text]
            if self.returncode != 0 or marks:
                raise AssertionError("simulator exit %s %s\n%s" % (self.returncode, marks, text[-6000:]))
        return text

    def __enter__(self):
        return self.start()

    def __exit__(self, exc_type, exc, tb):
        # A failing test keeps its own error; a clean one must also have a clean simulator.
        self.stop(check=exc_type is None)
        return False


# --- LLRP wire -------------------------------------------------------------------------------

# Message types.
GET_READER_CAPABILITIES, GET_READER_CONFIG, SET_READER_CONFIG = 1, 2, 3
CLOSE_CONNECTION_RESPONSE, GET_READER_CAPABILITIES_RESPONSE = 4, 11
GET_READER_CONFIG_RESPONSE, SET_READER_CONFIG_RESPONSE, CLOSE_CONNECTION = 12, 13, 14
ADD_ROSPEC, DELETE_ROSPEC, START_ROSPEC, STOP_ROSPEC, ENABLE_ROSPEC, DISABLE_ROSPEC = 20, 21, 22, 23, 24, 25
ADD_ROSPEC_RESPONSE, DELETE_ROSPEC_RESPONSE, START_ROSPEC_RESPONSE = 30, 31, 32
STOP_ROSPEC_RESPONSE, ENABLE_ROSPEC_RESPONSE, DISABLE_ROSPEC_RESPONSE = 33, 34, 35
DELETE_ACCESSSPEC, DELETE_ACCESSSPEC_RESPONSE = 41, 51
GET_REPORT, RO_ACCESS_REPORT, KEEPALIVE, READER_EVENT_NOTIFICATION = 60, 61, 62, 63
ENABLE_EVENTS_AND_REPORTS, KEEPALIVE_ACK, ERROR_MESSAGE, CUSTOM_MESSAGE = 64, 72, 100, 1023

# Widths of the TV parameters LLRP 1.0.1 defines.
TV_WIDTHS = {1: 2, 2: 8, 3: 8, 4: 8, 5: 8, 6: 1, 7: 2, 8: 2, 9: 4, 10: 2, 11: 2, 12: 2, 13: 12,
             14: 2, 15: 2, 16: 4, 17: 2, 18: 4}


def frame(msg_type, msg_id, body=b""):
    return struct.pack(">HII", (1 << 10) | msg_type, 10 + len(body), msg_id) + body


def tlv(param_type, payload=b""):
    return struct.pack(">HH", param_type, 4 + len(payload)) + payload


def params(data):
    """[(type, payload)] of the parameters in data; TV payloads are their fixed-width values."""
    out, at = [], 0
    while at < len(data):
        if data[at] & 0x80:
            t = data[at] & 0x7F
            w = TV_WIDTHS[t]
            out.append((t, data[at + 1:at + 1 + w]))
            at += 1 + w
        else:
            t, length = struct.unpack_from(">HH", data, at)
            t &= 0x3FF
            assert length >= 4 and at + length <= len(data), "bad TLV length"
            out.append((t, data[at + 4:at + length]))
            at += length
    return out


def find(plist, param_type):
    return [p for t, p in plist if t == param_type]


def status_of(body, skip=0):
    """(code, description) of the LLRPStatus that starts at body[skip:]."""
    (t, payload), = params(body[skip:])[:1]
    assert t == 287, "expected LLRPStatus, got %d" % t
    code, dlen = struct.unpack_from(">HH", payload)
    return code, payload[4:4 + dlen].decode()


def event_params(body):
    """The sub-parameters of a READER_EVENT_NOTIFICATION's ReaderEventNotificationData."""
    (data,) = find(params(body), 246)
    return params(data)


def connection_status(body):
    """ConnectionAttemptEvent status of a READER_EVENT_NOTIFICATION, or None."""
    found = find(event_params(body), 256)
    return struct.unpack(">H", found[0])[0] if found else None


# TV parameters of a TagReportData: type -> (key, struct format).
TAG_FIELDS = {1: ("antenna", ">H"), 2: ("first_seen", ">Q"), 4: ("last_seen", ">Q"),
              6: ("rssi", ">b"), 7: ("channel", ">H"), 8: ("seen_count", ">H"),
              9: ("rospec_id", ">I"), 12: ("pc", ">H"), 14: ("spec_index", ">H")}


def tag_reports(body):
    """Dicts of the TagReportData of an RO_ACCESS_REPORT: epc (hex) and the fields present."""
    reports = []
    for payload in find(params(body), 240):
        d = {}
        for t, v in params(payload):
            if t == 13:
                d["epc"] = v.hex().upper()
            elif t == 241:
                bits = struct.unpack_from(">H", v)[0]
                d["epc"] = v[2:2 + (bits + 7) // 8].hex().upper()
            elif t in TAG_FIELDS:
                name, fmt = TAG_FIELDS[t]
                d[name] = struct.unpack(fmt, v)[0]
            elif t == 1023 and struct.unpack_from(">II", v) == (VENDOR, PHASE_SUBTYPE):
                d["phase"] = struct.unpack_from(">h", v, 8)[0]
        reports.append(d)
    return reports


# --- parameters a client sends -------------------------------------------------------------

def gpi_trigger(port, event=True, timeout_ms=0):
    return tlv(181, struct.pack(">HBI", port, 0x80 if event else 0, timeout_ms))


def rospec(rospec_id, start_type=0, stop_type=0, duration_ms=0, antennas=(0,), ai_stop=None,
           start_params=b"", stop_params=b"", report=None, antenna_configs=b""):
    """An ROSpec parameter with one AISpec and one InventoryParameterSpec (ID 1, Gen2)."""
    start = tlv(179, struct.pack(">B", start_type) + start_params)
    stop = tlv(182, struct.pack(">BI", stop_type, duration_ms) + stop_params)
    boundary = tlv(178, start + stop)
    if ai_stop is None:
        ai_stop = tlv(184, struct.pack(">BI", 0, 0))
    inventory = tlv(186, struct.pack(">HB", 1, 1) + antenna_configs)
    ai = tlv(183, struct.pack(">H", len(antennas)) + b"".join(struct.pack(">H", a) for a in antennas)
             + ai_stop + inventory)
    body = struct.pack(">IBB", rospec_id, 0, 0) + boundary + ai
    if report is not None:
        body += report
    return tlv(177, body)


def ai_stop(stop_type, duration_ms=0, extra=b""):
    return tlv(184, struct.pack(">BI", stop_type, duration_ms) + extra)


def tag_observation(trigger_type, tags=0, attempts=0, t_ms=0, timeout_ms=0):
    return tlv(185, struct.pack(">BBHHHI", trigger_type, 0, tags, attempts, t_ms, timeout_ms))


REPORT_FIELDS = ("rospec_id", "spec_index", "inv_param_spec_id", "antenna", "channel", "rssi",
                 "first_seen", "last_seen", "seen_count", "access_spec_id")


def ro_report_spec(trigger=1, n=1, fields=(), pc=False, crc=False):
    """ROReportSpec with the named TagReportContentSelector fields enabled."""
    bits = 0
    for i, name in enumerate(REPORT_FIELDS):
        if name in fields:
            bits |= 1 << (15 - i)
    selector = struct.pack(">H", bits)
    if pc or crc:
        selector += tlv(348, struct.pack(">B", (0x80 if crc else 0) | (0x40 if pc else 0)))
    return tlv(237, struct.pack(">BH", trigger, n) + tlv(238, selector))


def antenna_configuration(antenna_id, power=None, filters=(), session=None):
    """AntennaConfiguration: RFTransmitter when power is given, a C1G2InventoryCommand when
    filters or session are."""
    body = struct.pack(">H", antenna_id)
    if power is not None:
        body += tlv(224, struct.pack(">HHH", 1, 1, power))
    if filters or session is not None:
        cmd = struct.pack(">B", 0)
        for mb, pointer, mask_hex, action in filters:
            mask = bytes.fromhex(mask_hex)
            m = tlv(332, struct.pack(">BHH", mb << 6, pointer, len(mask) * 8) + mask)
            cmd += tlv(331, struct.pack(">B", 0) + m + tlv(334, struct.pack(">B", action)))
        if session is not None:
            cmd += tlv(336, struct.pack(">BHI", session << 6, 32, 0))
        body += tlv(330, cmd)
    return tlv(222, body)


def keepalive_spec(period_ms):
    return tlv(220, struct.pack(">BI", 1 if period_ms else 0, period_ms))


# --- client ----------------------------------------------------------------------------------

class LlrpClient:
    """A blocking LLRP client over TCP that keeps every frame it sent and received in order."""

    def __init__(self, port, host="127.0.0.1", timeout=5.0, rcvbuf=None):
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        if rcvbuf is not None:
            # Before connect, so that the window the reader sees is small from the start.
            self.sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, rcvbuf)
        self.sock.settimeout(timeout)
        self.sock.connect((host, port))
        self.buf = b""
        self.backlog = []      # received messages not yet asked for
        self.frames = []       # ("out"|"in", bytes) of everything exchanged, for captures
        self.next_id = 1000

    def send_raw(self, data):
        self.frames.append(("out", data))
        self.sock.sendall(data)

    def send(self, msg_type, body=b"", msg_id=None):
        if msg_id is None:
            self.next_id += 1
            msg_id = self.next_id
        self.send_raw(frame(msg_type, msg_id, body))
        return msg_id

    def _read_one(self, deadline):
        while True:
            if len(self.buf) >= 10:
                word, length, msg_id = struct.unpack_from(">HII", self.buf)
                if len(self.buf) >= length:
                    data, self.buf = self.buf[:length], self.buf[length:]
                    self.frames.append(("in", data))
                    return word & 0x3FF, msg_id, data[10:]
            left = deadline - time.monotonic()
            if left <= 0:
                raise TimeoutError("no LLRP message in time")
            self.sock.settimeout(left)
            chunk = self.sock.recv(65536)
            if not chunk:
                raise ConnectionError("reader closed the connection")
            self.buf += chunk

    def recv(self, msg_type=None, timeout=5.0, match=None, msg_id=None):
        """The next message (type, id, body) of msg_type (any when None; or one of a tuple) with
        msg_id (any when None) for which match(body) holds; others received meanwhile stay in
        the backlog."""
        types = msg_type if isinstance(msg_type, tuple) else (msg_type,)

        def wanted(m):
            return ((msg_type is None or m[0] in types) and (msg_id is None or m[1] == msg_id)
                    and (match is None or match(m[2])))
        for i, m in enumerate(self.backlog):
            if wanted(m):
                return self.backlog.pop(i)
        deadline = time.monotonic() + timeout
        while True:
            m = self._read_one(deadline)
            if wanted(m):
                return m
            self.backlog.append(m)

    def transact(self, msg_type, body, response_type, timeout=5.0):
        """Sends a request and returns (response type, body) of the reply with its ID."""
        t, _, reply = self.recv((response_type, ERROR_MESSAGE), timeout,
                                msg_id=self.send(msg_type, body))
        return t, reply

    def request_ok(self, msg_type, body, response_type):
        """transact() that asserts a response with status M_Success."""
        t, body = self.transact(msg_type, body, response_type)
        assert t == response_type, "got message type %d: %r" % (t, status_of(body))
        code, text = status_of(body)
        assert code == 0, "status %d: %s" % (code, text)
        return body

    def connect_event(self, timeout=5.0):
        """The ConnectionAttemptEvent status the reader greets with."""
        _, _, body = self.recv(READER_EVENT_NOTIFICATION, timeout,
                               match=lambda b: connection_status(b) is not None)
        return connection_status(body)

    def close(self):
        try:
            self.sock.close()
        except OSError:
            pass

    def __del__(self):
        self.close()
