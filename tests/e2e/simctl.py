"""Start, drive and stop tessera-readersim from end-to-end tests, and talk raw LLRP to it.

    with simctl.Simulator(["--antennas", "2"]) as sim:
        client = simctl.connect(sim)
        ...
        sim.control("gpi 1 1")          # -> "ok gpi 1=1"
        sim.stats()["reads_sent"]
    # leaving the block sends SIGTERM and fails the test on a non-zero exit or a sanitizer report

The LLRP part is deliberately small and struct-based: frames, TLV/TV parameters and the few
parameters the tests build or look into. It is a test peer, not a codec.
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
SAVE_SUBTYPE = 1        # CUSTOM_MESSAGE: save configuration; the reply carries an LLRPStatus


class Simulator:
    """One simulator process on free loopback ports (LLRP and control)."""

    def __init__(self, args=()):
        self.args = list(args)
        self.proc = self._dir = self._stderr = self._control = None
        self.llrp_port = self.control_port = 0

    def start(self, timeout=10.0):
        self._dir = tempfile.TemporaryDirectory(prefix="readersim-")
        ready = os.path.join(self._dir.name, "ready")
        argv = [os.path.join(BIN, "tessera-readersim"), "--port", "0", "--control", "0",
                "--ready-file", ready] + self.args
        self._stderr = open(os.path.join(self._dir.name, "stderr"), "w+")
        self.proc = subprocess.Popen(argv, stdout=subprocess.DEVNULL, stderr=self._stderr)

        def ports():
            try:
                with open(ready) as f:
                    fields = dict(kv.split("=") for kv in f.read().split())
                return int(fields["llrp"]), int(fields["control"])
            except (OSError, ValueError, KeyError):
                return self.proc.poll() is not None  # an exit ends the wait too

        found = wait_until(ports, timeout)
        if not isinstance(found, tuple):
            raise RuntimeError("simulator did not become ready (exit %s): %s"
                               % (self.proc.poll(), self.stop(check=False)))
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
        """SIGTERM, wait, and (check) raise AssertionError on a non-zero exit or sanitizer report;
        the simulator's stderr. Stopping a stopped simulator does nothing."""
        if self.proc is None:
            return ""
        if self._control is not None:
            self._control.close()
            self._control = None
        if self.proc.poll() is None:
            self.proc.terminate()
            try:
                self.proc.wait(timeout)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        returncode, text = self.proc.returncode, self.stderr()
        self._stderr.close()
        self._dir.cleanup()
        self.proc = self._stderr = self._dir = None
        marks = [m for m in SANITIZER_MARKS if m in text]
        if check and (returncode != 0 or marks):
            raise AssertionError("simulator exit %s %s\n%s" % (returncode, marks, text[-6000:]))
        return text

    def __enter__(self):
        return self.start()

    def __exit__(self, exc_type, exc, tb):
        # A failing test keeps its own error; a clean one must also have a clean simulator.
        self.stop(check=exc_type is None)
        return False


# --- LLRP wire -------------------------------------------------------------------------------

# Message types; a request's response type comes from response().
GET_READER_CAPABILITIES, GET_READER_CONFIG, SET_READER_CONFIG, CLOSE_CONNECTION = 1, 2, 3, 14
ADD_ROSPEC, DELETE_ROSPEC, START_ROSPEC, STOP_ROSPEC, ENABLE_ROSPEC, DISABLE_ROSPEC = 20, 21, 22, 23, 24, 25
GET_ROSPECS, DELETE_ACCESSSPEC, GET_READER_CONFIG_RESPONSE = 26, 41, 12
GET_REPORT, RO_ACCESS_REPORT, KEEPALIVE, READER_EVENT_NOTIFICATION = 60, 61, 62, 63
ENABLE_EVENTS_AND_REPORTS, KEEPALIVE_ACK, ERROR_MESSAGE, CUSTOM_MESSAGE = 64, 72, 100, 1023

# Widths of the TV parameters LLRP 1.0.1 defines.
TV_WIDTHS = {1: 2, 2: 8, 3: 8, 4: 8, 5: 8, 6: 1, 7: 2, 8: 2, 9: 4, 10: 2, 11: 2, 12: 2, 13: 12,
             14: 2, 15: 2, 16: 4, 17: 2, 18: 4}


def response(request_type):
    """The response type LLRP pairs with a request: ten on, but for CLOSE_CONNECTION's."""
    return 4 if request_type == CLOSE_CONNECTION else request_type + 10


def u32(n):
    return struct.pack(">I", n)


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
            assert length >= 4 and at + length <= len(data), "bad TLV length"
            out.append((t & 0x3FF, data[at + 4:at + length]))
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
           start_params=b"", stop_params=b"", report=b"", antenna_configs=b""):
    """An ROSpec parameter with one AISpec and one InventoryParameterSpec (ID 1, Gen2)."""
    start = tlv(179, struct.pack(">B", start_type) + start_params)
    stop = tlv(182, struct.pack(">BI", stop_type, duration_ms) + stop_params)
    inventory = tlv(186, struct.pack(">HB", 1, 1) + antenna_configs)
    ai = tlv(183, struct.pack(">H%dH" % len(antennas), len(antennas), *antennas)
             + (ai_stop or aispec_stop(0)) + inventory)
    return tlv(177, struct.pack(">IBB", rospec_id, 0, 0) + tlv(178, start + stop) + ai + report)


def aispec_stop(stop_type, duration_ms=0, tags=0, attempts=0, timeout_ms=0):
    """AISpecStopTrigger; with a TagObservationTrigger (N tags or N attempts) for type 3."""
    extra = b""
    if stop_type == 3:
        kind = 0 if tags else 2
        extra = tlv(185, struct.pack(">BBHHHI", kind, 0, tags, attempts, 0, timeout_ms))
    return tlv(184, struct.pack(">BI", stop_type, duration_ms) + extra)


REPORT_FIELDS = ("rospec_id", "spec_index", "inv_param_spec_id", "antenna", "channel", "rssi",
                 "first_seen", "last_seen", "seen_count", "access_spec_id")


def ro_report_spec(trigger=1, n=1, fields=(), pc=False, crc=False):
    """ROReportSpec with the named TagReportContentSelector fields enabled."""
    bits = sum(1 << (15 - i) for i, name in enumerate(REPORT_FIELDS) if name in fields)
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

    def __init__(self, port, rcvbuf=None):
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        if rcvbuf is not None:
            # Before connect, so that the window the reader sees is small from the start.
            self.sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, rcvbuf)
        self.sock.settimeout(5.0)
        self.sock.connect(("127.0.0.1", port))
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

    def transact(self, msg_type, body=b""):
        """Sends a request; (type, body) of the reply with its ID, its response or an error."""
        t, _, reply = self.recv((response(msg_type), ERROR_MESSAGE), msg_id=self.send(msg_type, body))
        return t, reply

    def request_ok(self, msg_type, body=b""):
        """transact() that asserts a response with status M_Success; its body."""
        t, body = self.transact(msg_type, body)
        assert t == response(msg_type), "got message type %d: %r" % (t, status_of(body))
        code, text = status_of(body)
        assert code == 0, "status %d: %s" % (code, text)
        return body

    def run_rospec(self, rospec_param, start=True):
        """Adds and enables an ROSpec, and starts it unless its own trigger is to."""
        rospec_id = rospec_param[4:8]
        self.request_ok(ADD_ROSPEC, rospec_param)
        self.request_ok(ENABLE_ROSPEC, rospec_id)
        if start:
            self.request_ok(START_ROSPEC, rospec_id)

    def event(self, param_type, timeout=5.0, match=lambda p: True):
        """The first parameter of param_type for which match holds in the next event
        notification that has one."""
        def found(body):
            return [p for p in find(event_params(body), param_type) if match(p)]
        _, _, body = self.recv(READER_EVENT_NOTIFICATION, timeout, match=found)
        return found(body)[0]

    def connect_event(self, timeout=5.0):
        """The ConnectionAttemptEvent status the reader greets with."""
        return struct.unpack(">H", self.event(256, timeout))[0]

    def close(self):
        self.sock.close()

    __del__ = close  # a client a test drops closes with it


def connect(sim, rcvbuf=None):
    """A client of sim that the reader has greeted with ConnectionAttemptEvent Success."""
    c = LlrpClient(sim.llrp_port, rcvbuf)
    assert c.connect_event() == 0
    return c
