"""tessera-readersim against independent LLRP implementations: the llrpjs client (npm) and
Wireshark's LLRP dissector (tshark). A disagreement here is a bug in our codec or simulator."""

import json
import os
import shutil
import signal
import struct
import subprocess
import tempfile
import time
import unittest

import simctl
from harness import SOURCE, wait_until
from simctl import (ADD_ROSPEC, ADD_ROSPEC_RESPONSE, CLOSE_CONNECTION, CLOSE_CONNECTION_RESPONSE,
                    CUSTOM_MESSAGE, DELETE_ACCESSSPEC, DELETE_ACCESSSPEC_RESPONSE, DELETE_ROSPEC,
                    DELETE_ROSPEC_RESPONSE, DISABLE_ROSPEC, DISABLE_ROSPEC_RESPONSE, ENABLE_ROSPEC,
                    ENABLE_ROSPEC_RESPONSE, ERROR_MESSAGE, GET_READER_CAPABILITIES,
                    GET_READER_CAPABILITIES_RESPONSE, GET_READER_CONFIG, GET_READER_CONFIG_RESPONSE,
                    GET_REPORT, KEEPALIVE, KEEPALIVE_ACK, READER_EVENT_NOTIFICATION, RO_ACCESS_REPORT,
                    SET_READER_CONFIG, SET_READER_CONFIG_RESPONSE, START_ROSPEC, START_ROSPEC_RESPONSE,
                    STOP_ROSPEC, STOP_ROSPEC_RESPONSE, LlrpClient, Simulator, tlv)

HERE = os.path.dirname(os.path.abspath(__file__))
U32 = struct.Struct(">I")


class Llrpjs(unittest.TestCase):
    def test_llrpjs_client_configures_runs_and_reads(self):
        node = shutil.which("node")
        if node is None:
            self.skipTest("node is not installed (Debian package nodejs)")
        if not os.path.isdir(os.path.join(SOURCE, "node_modules", "llrpjs")):
            self.skipTest("node_modules/llrpjs is missing: run `npm ci` at the repository root")
        script = os.path.join(HERE, "interop", "llrpjs_client.js")
        # A slow rate keeps reports in separate socket reads, which llrpjs needs (see the script).
        with Simulator(["--rate", "12", "--tags", "20"]) as sim:
            run = subprocess.run([node, script, str(sim.llrp_port), "1000"], capture_output=True,
                                 text=True, timeout=60)
            self.assertEqual(run.returncode, 0, run.stderr)
            out = json.loads(run.stdout)
            stats = sim.stats()
            self.assertTrue(wait_until(lambda: sim.stats()["client_connected"] == 0))
            closed_by_request = "connection closed at the client's request" in sim.stderr()
        if out["closeStatus"] == "no reply":
            # llrpjs still held an earlier message when the reply and the close arrived; the
            # reader did answer (its log says so), so only llrpjs's reading is in question.
            self.assertTrue(closed_by_request)
            out["closeStatus"] = "M_Success"
        self.assertEqual(out["connectStatus"], "Success")
        self.assertEqual((out["antennas"], out["manufacturer"]), (4, simctl.VENDOR))
        self.assertEqual(len(out["powers"]), 81)
        self.assertEqual((out["powers"][0], out["powers"][-1]), (1000, 3000))
        self.assertEqual(out["antennaConfigurations"], 4)
        for step in ("caps", "config", "delete", "reset", "events", "add", "enable", "start", "close"):
            self.assertEqual(out[step + "Status"], "M_Success", step)
        self.assertGreaterEqual(out["reports"], 5)
        # Exactly the enabled fields, plus the phase Custom; EPC_96 always.
        self.assertEqual(out["fields"], ["AntennaID", "ChannelIndex", "Custom", "EPC_96",
                                         "FirstSeenTimestampUTC", "InventoryParameterSpecID",
                                         "PeakRSSI", "ROSpecID", "TagSeenCount"])
        for tag in out["tags"]:
            self.assertEqual(len(tag["EPC_96"]["EPC"]), 24)
            self.assertIn(tag["AntennaID"]["AntennaID"], (1, 2))
            self.assertTrue(-75 <= tag["PeakRSSI"]["PeakRSSI"] <= -35)
            self.assertEqual(tag["ROSpecID"]["ROSpecID"], 77)
            self.assertEqual(tag["Custom"]["VendorIdentifier"], simctl.VENDOR)
        self.assertLessEqual(out["reports"], stats["reports_sent"])


def exercise(sim):
    """One client session that makes the reader send every kind of message it has; the client
    with everything it exchanged."""
    c = LlrpClient(sim.llrp_port)
    assert c.connect_event() == 0
    c.request_ok(GET_READER_CAPABILITIES, b"\x00", GET_READER_CAPABILITIES_RESPONSE)
    c.request_ok(GET_READER_CONFIG, struct.pack(">HBHH", 0, 0, 0, 0), GET_READER_CONFIG_RESPONSE)
    events = tlv(244, b"".join(tlv(245, struct.pack(">HB", t, 0x80)) for t in range(9)))
    config = (b"\x00" + events
              + simctl.antenna_configuration(0, power=61, filters=[(1, 32, "30", 0)], session=1)
              + simctl.ro_report_spec(2, 4, simctl.REPORT_FIELDS, pc=True, crc=True)
              + simctl.keepalive_spec(150))
    c.request_ok(SET_READER_CONFIG, config, SET_READER_CONFIG_RESPONSE)
    stop = simctl.ai_stop(3, extra=simctl.tag_observation(0, tags=6, timeout_ms=3000))
    rospec_body = simctl.rospec(11, start_type=3, stop_type=2, start_params=simctl.gpi_trigger(1),
                         stop_params=simctl.gpi_trigger(2, True, 5000), ai_stop=stop)
    c.request_ok(ADD_ROSPEC, rospec_body, ADD_ROSPEC_RESPONSE)
    c.request_ok(ENABLE_ROSPEC, U32.pack(11), ENABLE_ROSPEC_RESPONSE)
    assert sim.control("gpi 1 1").startswith("ok")
    c.recv(RO_ACCESS_REPORT)
    _, msg_id, _ = c.recv(KEEPALIVE, 3)
    c.send(KEEPALIVE_ACK, msg_id=msg_id)
    sim.control("antenna 3 disconnected")
    sim.control("buffer-warning")
    sim.control("buffer-overflow")
    c.request_ok(ADD_ROSPEC, simctl.rospec(12, report=simctl.ro_report_spec(0, 0, ("antenna",))),
                 ADD_ROSPEC_RESPONSE)
    c.request_ok(ENABLE_ROSPEC, U32.pack(12), ENABLE_ROSPEC_RESPONSE)
    c.request_ok(START_ROSPEC, U32.pack(12), START_ROSPEC_RESPONSE)
    time.sleep(0.2)
    c.send(GET_REPORT)
    c.recv(RO_ACCESS_REPORT)
    c.request_ok(STOP_ROSPEC, U32.pack(12), STOP_ROSPEC_RESPONSE)
    c.request_ok(DISABLE_ROSPEC, U32.pack(0), DISABLE_ROSPEC_RESPONSE)
    c.request_ok(DELETE_ROSPEC, U32.pack(0), DELETE_ROSPEC_RESPONSE)
    c.request_ok(DELETE_ACCESSSPEC, U32.pack(0), DELETE_ACCESSSPEC_RESPONSE)
    t, body = c.transact(26, b"", 36)  # GET_ROSPECS: not supported, its response says so
    assert (t, simctl.status_of(body)[0]) == (36, 109)
    t, body = c.transact(KEEPALIVE, b"", ERROR_MESSAGE)  # a reader's message: ERROR_MESSAGE
    assert (t, simctl.status_of(body)[0]) == (ERROR_MESSAGE, 109)
    c.send(CUSTOM_MESSAGE, U32.pack(simctl.VENDOR) + bytes([simctl.SAVE_SUBTYPE]))
    c.recv(CUSTOM_MESSAGE)
    c.request_ok(CLOSE_CONNECTION, b"", CLOSE_CONNECTION_RESPONSE)
    try:
        while True:
            c.recv(timeout=3)
    except (ConnectionError, TimeoutError):
        pass
    c.close()
    return c


def checksum(data):
    if len(data) % 2:
        data += b"\x00"
    s = sum(struct.unpack(">%dH" % (len(data) // 2), data))
    while s >> 16:
        s = (s & 0xFFFF) + (s >> 16)
    return ~s & 0xFFFF


def write_pcap(path, frames, server_port, client_port=40404):
    """Ethernet/IPv4/TCP over loopback, a handshake, then each frame as one segment (or more
    when it does not fit in one IP packet), with sequence numbers that add up."""
    ip = bytes([127, 0, 0, 1])
    seq = {"out": 1000, "in": 5000}
    packets = []

    def segment(direction, flags, payload=b""):
        sport, dport = (client_port, server_port) if direction == "out" else (server_port, client_port)
        other = "in" if direction == "out" else "out"
        ack = seq[other] if flags & 0x10 else 0
        tcp = struct.pack(">HHIIBBHHH", sport, dport, seq[direction], ack, 5 << 4, flags, 65535, 0, 0)
        pseudo = ip + ip + struct.pack(">BBH", 0, 6, len(tcp) + len(payload))
        tcp = tcp[:16] + struct.pack(">H", checksum(pseudo + tcp + payload)) + tcp[18:]
        iph = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(tcp) + len(payload), len(packets), 0x4000,
                          64, 6, 0, ip, ip)
        iph = iph[:10] + struct.pack(">H", checksum(iph)) + iph[12:]
        packets.append(b"\x00" * 12 + b"\x08\x00" + iph + tcp + payload)
        seq[direction] = (seq[direction] + len(payload) + (1 if flags & 0x03 else 0)) & 0xFFFFFFFF

    segment("out", 0x02)          # SYN
    segment("in", 0x12)           # SYN, ACK
    segment("out", 0x10)          # ACK
    for direction, data in frames:
        for at in range(0, len(data), 60000):
            segment(direction, 0x18, data[at:at + 60000])
    segment("out", 0x11)          # FIN, ACK
    segment("in", 0x11)
    segment("out", 0x10)
    with open(path, "wb") as f:
        f.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
        t = int(time.time())
        for i, p in enumerate(packets):
            f.write(struct.pack("<IIII", t, i * 1000, len(p), len(p)) + p)


class Tshark(unittest.TestCase):
    EXPECTED = {READER_EVENT_NOTIFICATION, GET_READER_CAPABILITIES, GET_READER_CAPABILITIES_RESPONSE,
                GET_READER_CONFIG, GET_READER_CONFIG_RESPONSE, SET_READER_CONFIG,
                SET_READER_CONFIG_RESPONSE, ADD_ROSPEC, ADD_ROSPEC_RESPONSE, ENABLE_ROSPEC,
                ENABLE_ROSPEC_RESPONSE, START_ROSPEC_RESPONSE, RO_ACCESS_REPORT, KEEPALIVE,
                KEEPALIVE_ACK, GET_REPORT, STOP_ROSPEC_RESPONSE, DISABLE_ROSPEC_RESPONSE,
                DELETE_ROSPEC_RESPONSE, DELETE_ACCESSSPEC_RESPONSE, ERROR_MESSAGE, CUSTOM_MESSAGE,
                CLOSE_CONNECTION, CLOSE_CONNECTION_RESPONSE, 26, 36}  # GET_ROSPECS, its response

    def setUp(self):
        self.tshark = shutil.which("tshark")
        if self.tshark is None:
            self.skipTest("tshark is not installed (Debian package tshark)")
        self.dir = tempfile.TemporaryDirectory(prefix="llrp-pcap-")
        self.addCleanup(self.dir.cleanup)

    # Complaints of tshark 4.0's dissector about frames that follow the LLRP 1.0.1 definition:
    # it decodes only the VendorIdentifier of a CUSTOM_MESSAGE from a vendor it does not know
    # (MessageSubtype and Data are left over), and it does not count the 16-bit length in front
    # of Identification's ReaderID (u8v), so a 15-byte Identification "decodes" to 13 bytes.
    # Both are checked against our own parse of the frame before they are let through.
    KNOWN = {
        CUSTOM_MESSAGE: "Incorrect length of message: 14 bytes decoded, but ",
        GET_READER_CONFIG_RESPONSE: "Incorrect length of parameter: 13 bytes decoded, but 15 bytes claimed.",
    }

    def dissect(self, pcap, port):
        """(message types seen, problem lines) of a capture read as LLRP on port."""
        run = subprocess.run([self.tshark, "-r", pcap, "-d", "tcp.port==%d,llrp" % port, "-T", "fields",
                              "-E", "separator=\t", "-E", "aggregator=~", "-e", "frame.number",
                              "-e", "llrp.type", "-e", "_ws.malformed", "-e", "_ws.expert.severity",
                              "-e", "_ws.expert.message"],
                             capture_output=True, text=True, timeout=120)
        self.assertEqual(run.returncode, 0, run.stderr)
        types, problems = set(), []
        for line in run.stdout.splitlines():
            number, mtypes, malformed, severities, messages = (line.split("\t") + [""] * 5)[:5]
            frame_types = [int(t) for t in mtypes.split("~") if t]
            types.update(frame_types)
            # 8388608 is Wireshark's PI_ERROR; warnings (e.g. TCP window notes) are not ours.
            for severity, message in zip(severities.split("~"), messages.split("~")):
                if not severity or int(severity) < 8388608:
                    continue
                known = [t for t in frame_types if t in self.KNOWN and message.startswith(self.KNOWN[t])]
                if not known:
                    problems.append("frame %s %s: %s" % (number, frame_types, message))
            if malformed and not messages:
                problems.append("frame %s %s: malformed" % (number, frame_types))
        return types, problems

    def check(self, pcap, port, frames):
        types, problems = self.dissect(pcap, port)
        self.assertEqual(problems, [])
        self.assertEqual(self.EXPECTED - types, set())
        # What the known complaints are about is well-formed by our own reading.
        for _, data in frames:
            mtype, length = struct.unpack_from(">HI", data)
            self.assertEqual(length, len(data))
            body = data[10:]
            if mtype & 0x3FF == CUSTOM_MESSAGE:
                self.assertGreaterEqual(len(body), 5)  # vendor u32, subtype u8, data
            if mtype & 0x3FF == GET_READER_CONFIG_RESPONSE:
                (ident,) = simctl.find(simctl.params(body), 218)
                self.assertEqual(struct.unpack_from(">BH", ident), (0, len(ident) - 3))

    def test_dissector_accepts_every_message_we_exchange(self):
        with Simulator(["--rate", "200", "--tags", "30"]) as sim:
            live = os.path.join(self.dir.name, "live.pcapng")
            ports = "tcp port %d or tcp port %d" % (sim.llrp_port, sim.control_port)
            cap = subprocess.Popen([self.tshark, "-i", "lo", "-f", ports, "-w", live],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
            capturing = self.wait_capturing(cap, sim, live)
            client = exercise(sim)
            if capturing:
                time.sleep(0.5)
                cap.send_signal(signal.SIGINT)
            try:
                cap.wait(10)
            except subprocess.TimeoutExpired:
                cap.kill()
                cap.wait()
            cap.stderr.close()
            port = sim.llrp_port
        # Our own capture of the same session: always, so it does not depend on permissions.
        synthetic = os.path.join(self.dir.name, "session.pcap")
        write_pcap(synthetic, client.frames, port)
        with self.subTest(capture="written from the exchanged frames"):
            self.check(synthetic, port, client.frames)
        with self.subTest(capture="live on lo"):
            if not capturing:
                self.skipTest("no live capture on lo (needs capture permission)")
            self.check(live, port, client.frames)

    def wait_capturing(self, cap, sim, path):
        """Whether the capture runs: tshark says so, and control port traffic then reaches the
        file (the announcement comes before the capture filter is in place)."""
        deadline = time.monotonic() + 15
        while time.monotonic() < deadline:
            line = cap.stderr.readline()
            if not line:
                return False
            if "Capturing on" in line:
                break
        else:
            return False
        size = os.path.getsize(path) if os.path.exists(path) else 0
        while time.monotonic() < deadline:
            sim.control("stats")
            time.sleep(0.1)
            if os.path.exists(path) and os.path.getsize(path) > size + 200:
                return True
        return False


if __name__ == "__main__":
    unittest.main()
