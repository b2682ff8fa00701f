"""tessera-readersim against independent LLRP implementations: the llrpjs client (npm) and
Wireshark's LLRP dissector (tshark). A disagreement here is a bug in our codec or simulator."""

import contextlib
import json
import os
import shutil
import struct
import subprocess
import time
import unittest

import simctl as s
from harness import SOURCE, wait_until
from simctl import u32


class Llrpjs(unittest.TestCase):
    def test_llrpjs_client_configures_runs_and_reads(self):
        node = shutil.which("node")
        if node is None:
            self.skipTest("node is not installed (Debian package nodejs)")
        if not os.path.isdir(os.path.join(SOURCE, "node_modules", "llrpjs")):
            self.skipTest("node_modules/llrpjs is missing: run `npm ci` at the repository root")
        script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "interop", "llrpjs_client.js")
        # A slow rate keeps reports in separate socket reads, which llrpjs needs (see the script).
        with s.Simulator(["--rate", "12", "--tags", "20"]) as sim:
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
        self.assertEqual((out["antennas"], out["manufacturer"]), (4, s.VENDOR))
        powers = out["powers"]
        self.assertEqual((len(powers), powers[0], powers[-1], out["antennaConfigurations"]),
                         (81, 1000, 3000, 4))
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
            self.assertEqual(tag["Custom"]["VendorIdentifier"], s.VENDOR)
        self.assertLessEqual(out["reports"], stats["reports_sent"])


def exercise(sim):
    """One client session that makes the reader send every kind of message it has; the client
    with everything it exchanged."""
    c = s.connect(sim)
    c.request_ok(s.GET_READER_CAPABILITIES, b"\x00")
    c.request_ok(s.GET_READER_CONFIG, struct.pack(">HBHH", 0, 0, 0, 0))
    events = s.tlv(244, b"".join(s.tlv(245, struct.pack(">HB", t, 0x80)) for t in range(9)))
    c.request_ok(s.SET_READER_CONFIG, b"\x00" + events
                 + s.antenna_configuration(0, power=61, filters=[(1, 32, "30", 0)], session=1)
                 + s.ro_report_spec(2, 4, s.REPORT_FIELDS, pc=True, crc=True) + s.keepalive_spec(150))
    c.run_rospec(s.rospec(11, start_type=3, stop_type=2, start_params=s.gpi_trigger(1),
                          stop_params=s.gpi_trigger(2, True, 5000),
                          ai_stop=s.aispec_stop(3, tags=6, timeout_ms=3000)), start=False)
    assert sim.control("gpi 1 1").startswith("ok")
    c.recv(s.RO_ACCESS_REPORT)
    c.send(s.KEEPALIVE_ACK, msg_id=c.recv(s.KEEPALIVE, 3)[1])
    for command in ("antenna 3 disconnected", "buffer-warning", "buffer-overflow"):
        sim.control(command)
    c.run_rospec(s.rospec(12, report=s.ro_report_spec(0, 0, ("antenna",))))
    time.sleep(0.2)
    c.send(s.GET_REPORT)
    c.recv(s.RO_ACCESS_REPORT)
    for mtype, rospec_id in ((s.STOP_ROSPEC, 12), (s.DISABLE_ROSPEC, 0), (s.DELETE_ROSPEC, 0),
                             (s.DELETE_ACCESSSPEC, 0)):
        c.request_ok(mtype, u32(rospec_id))
    # An unsupported request (its own response says so) and a reader's message (ERROR_MESSAGE).
    for mtype in (s.GET_ROSPECS, s.KEEPALIVE):
        assert s.status_of(c.transact(mtype)[1])[0] == 109
    c.send(s.CUSTOM_MESSAGE, u32(s.VENDOR) + bytes([s.SAVE_SUBTYPE]))
    c.recv(s.CUSTOM_MESSAGE)
    c.request_ok(s.CLOSE_CONNECTION)
    with contextlib.suppress(ConnectionError, TimeoutError):
        while True:  # until the reader hangs up, so that its last frames are in too
            c.recv(timeout=3)
    c.close()
    return c


def pcap(frames, server_port, client_port=40404):
    """A capture of frames as IPv4/TCP over loopback, each frame in one segment (or more when it
    does not fit in one IP packet), with sequence numbers that add up. Checksums are left 0:
    tshark checks them only when asked to."""
    seq = {"out": 1000, "in": 5000}
    packets = []
    for direction, data in frames:
        ports, other = ((client_port, server_port), "in") if direction == "out" else \
            ((server_port, client_port), "out")
        for at in range(0, len(data), 60000):
            payload = data[at:at + 60000]
            tcp = struct.pack(">HHIIBBHHH", *ports, seq[direction], seq[other], 5 << 4, 0x18, 65535,
                              0, 0)
            ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 40 + len(payload), len(packets), 0x4000, 64, 6, 0,
                             b"\x7f\0\0\1", b"\x7f\0\0\1")
            packets.append(ip + tcp + payload)
            seq[direction] += len(payload)
    out = [struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101)]  # LINKTYPE_RAW: IP
    t = int(time.time())
    out += [struct.pack("<IIII", t, i * 1000, len(p), len(p)) + p for i, p in enumerate(packets)]
    return b"".join(out)


class Tshark(unittest.TestCase):
    # Complaints of tshark 4.0's dissector about frames that follow the LLRP 1.0.1 definition:
    # it decodes only the VendorIdentifier of a CUSTOM_MESSAGE from a vendor it does not know
    # (MessageSubtype and Data are left over), and it does not count the 16-bit length in front
    # of Identification's ReaderID (u8v), so a 15-byte Identification "decodes" to 13 bytes.
    # Both are checked against our own parse of the frame before they are let through.
    KNOWN = {
        s.CUSTOM_MESSAGE: "Incorrect length of message: 14 bytes decoded, but ",
        s.GET_READER_CONFIG_RESPONSE: "Incorrect length of parameter: 13 bytes decoded, but 15 bytes claimed",
    }

    def test_dissector_accepts_every_message_we_exchange(self):
        tshark = shutil.which("tshark")
        if tshark is None:
            self.skipTest("tshark is not installed (Debian package tshark)")
        # Our own capture of a session, from the bytes the client sent and received: a live one
        # holds the same bytes, and would need capture permission.
        with s.Simulator(["--rate", "200", "--tags", "30"]) as sim:
            client = exercise(sim)
            port = sim.llrp_port
        run = subprocess.run([tshark, "-r", "-", "-d", "tcp.port==%d,llrp" % port, "-T", "fields",
                              "-E", "separator=\t", "-E", "aggregator=~", "-e", "frame.number",
                              "-e", "llrp.type", "-e", "_ws.malformed", "-e", "_ws.expert.severity",
                              "-e", "_ws.expert.message"],
                             input=pcap(client.frames, port), capture_output=True, timeout=120)
        self.assertEqual(run.returncode, 0, run.stderr)
        types, problems = [], []
        for line in run.stdout.decode().splitlines():
            number, mtypes, malformed, severities, messages = (line.split("\t") + [""] * 5)[:5]
            frame_types = [int(t) for t in mtypes.split("~") if t]
            types += frame_types
            # 8388608 is Wireshark's PI_ERROR; warnings (e.g. TCP window notes) are not ours.
            for severity, message in zip(severities.split("~"), messages.split("~")):
                if not severity or int(severity) < 8388608:
                    continue
                if not [t for t in frame_types if message.startswith(self.KNOWN.get(t, "\0"))]:
                    problems.append("frame %s %s: %s" % (number, frame_types, message))
            if malformed and not messages:
                problems.append("frame %s %s: malformed" % (number, frame_types))
        self.assertEqual(problems, [])
        # tshark found every message we exchanged, of the type we sent or took it for.
        self.assertEqual(sorted(types),
                         sorted(struct.unpack_from(">H", d)[0] & 0x3FF for _, d in client.frames))
        # What the known complaints are about is well-formed by our own reading.
        for _, data in client.frames:
            (mtype,) = struct.unpack_from(">H", data)
            body = data[10:]
            if mtype & 0x3FF == s.CUSTOM_MESSAGE:
                self.assertGreaterEqual(len(body), 5)  # vendor u32, subtype u8, data
            if mtype & 0x3FF == s.GET_READER_CONFIG_RESPONSE:
                (ident,) = s.find(s.params(body), 218)
                self.assertEqual(struct.unpack_from(">BH", ident), (0, len(ident) - 3))
