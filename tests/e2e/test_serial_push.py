"""The first stream end to end: tessera-readersim -> tessera serial push -> a pty standing in for
/dev/ttyS2, started and stopped over the command channel."""

import os
import socket
import tempfile
import time
import unittest

from fixtures import SERIAL_START, STANDBY, bench, crc_ok, settle, stamp_key, write_file
from harness import free_port, recv_replies, recv_zero_terminated, wait_until



class SerialPushTest(unittest.TestCase):
    def epc_file(self, *epcs):
        """A simulator --epc-file with these lines, removed after the test."""
        path = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "epcs")
        write_file(path, "\n".join(epcs) + "\n")
        return path

    def test_every_read_arrives_once_in_order_with_a_valid_crc(self):
        b = bench(self, serial={"TagMetaData": "45"})
        self.assertEqual(b.tessera.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        lines = b.line.read_lines(count=60, timeout=20)
        self.assertEqual(lines[0], "EPC,AntennaID,RSSI,TimeStamp,<CRC>")
        # Stop the inventory, let the event thread drain, then every read the simulator sent
        # must be on the line exactly once.
        self.assertEqual(b.tessera.command(STANDBY), b"ok\r\n\r\n")
        body = b.line.read_lines(timeout=15, quiet=2.5)[1:]
        sent = b.sim.stats()["reads_sent"]
        self.assertGreaterEqual(len(body), 60)
        self.assertEqual(len(body), sent)
        for line in body:
            self.assertTrue(crc_ok(line), line)
            epc, antenna, rssi, stamp = line.split(",")[:4]
            self.assertRegex(epc, r"^[0-9A-F]{24}$")
            self.assertIn(antenna, ("1", "2", "3", "4"))
            self.assertRegex(rssi, r"^-\d+$")
            self.assertRegex(stamp, r"^\d\d/\d\d/\d{4} \d\d:\d\d:\d\d:\d{3}$")
        stamps = [l.split(",")[3] for l in body]
        self.assertEqual(stamps, sorted(stamps, key=stamp_key), "reads out of order")
        self.assertIn(b"InventoryRunning:PushData", b.tessera.command("getInventoryStatus"))

    def test_at_link_speed_every_read_reaches_the_line(self):
        b = bench(self, serial={}, sim_args=("--tags", "200", "--rate", "0"))
        self.assertEqual(b.tessera.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        b.line.count_lines()
        time.sleep(3)
        # The header is a line of its own.
        sent, stats = settle(b, lambda: b.line.count_lines() - 1)
        self.assertEqual(stats["reads_discarded"], 0, stats)
        self.assertGreater(sent, 1000)

    def test_tag_meta_data_chooses_the_header_and_the_columns(self):
        with self.subTest(TagMetaData=0):
            # A 96-bit EPC, and one of 20 bits whose padding bits the reader sent as ones: the
            # padding prints as zero bits.
            b = bench(self, sim_args=("--epc-file", self.epc_file("300833B2DDD9014000000001",
                                                                  "ABCDEF/20")),
                      serial={"TagMetaData": "0"})
            self.assertEqual(b.tessera.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
            lines = b.line.read_lines(count=11)
            self.assertTrue(lines[0].startswith("EPC,PC,AntennaID,RSSI,SeenCount,<"), lines[0])
            seen = set()
            for line in lines[1:]:
                self.assertTrue(crc_ok(line), line)
                fields = line.split(",")
                self.assertEqual(len(fields), 5, line)  # EPC, PC, antenna, seen count, CRC
                seen.add((fields[0], fields[1]))       # the PC in hex: EPC length in words << 11
            self.assertEqual(seen, {("300833B2DDD9014000000001", "3000"), ("ABCDE0", "800")})
        with self.subTest(TagMetaData=255):
            # The reader leaves fields out of some reads; each such read must show the field's
            # default, never the value of the read before it.
            omit = [a for name in ("pc", "antenna", "rssi", "channel")
                    for a in ("--omit-field", name + ":0.3")]
            b = bench(self, sim_args=["--tags", "20", "--rate", "200"] + omit,
                      serial={"TagMetaData": "255"})
            self.assertEqual(b.tessera.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
            lines = b.line.read_lines(count=41, timeout=20)
            self.assertTrue(lines[0].startswith(
                "EPC,PC,AntennaID,RSSI,SeenCount,TimeStamp,Phase,ChannelIndex,<"), lines[0])
            self.assertEqual(b.tessera.command(STANDBY), b"ok\r\n\r\n")
            rows = [l.split(",") for l in b.line.read_lines(timeout=15, quiet=2.5)[1:]]
            stats = b.sim.stats()
            self.assertEqual(len(rows), stats["reads_sent"])
            for fields in rows:
                self.assertEqual(len(fields), 9, fields)
                self.assertRegex(fields[6], r"^-?\d+\.\d\d$")
            for column, name, default in ((1, "pc", "0"), (2, "antenna", "0"),
                                          (3, "rssi", "-128"), (7, "channel", "0")):
                self.assertGreater(stats.get("omitted_" + name, 0), 0, name)
                self.assertEqual(sum(f[column] == default for f in rows),
                                 stats["omitted_" + name], name)

    def test_pre_filters_of_the_relay_section_reduce_what_arrives(self):
        epc_file = self.epc_file("E2801160600002054CD6F1A4", "E2801160600002054CD6F1A5",
                                 "300833B2DDD9014000000001", "300833B2DDD9014000000002")
        b = bench(self, sim_args=("--epc-file", epc_file, "--rate", "200"), serial={},
                  relay={"PreFilterMode": "1", "PreFilters": "E280*"})
        self.assertEqual(b.tessera.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        lines = b.line.read_lines(count=21)
        epcs = {l.split(",")[0] for l in lines[1:]}
        self.assertTrue(epcs)
        self.assertTrue(all(e.startswith("E280") for e in epcs), epcs)


class FailingStartTest(unittest.TestCase):
    def start(self, serial=None, line=True, reader_port=None):
        b = bench(self, sim_args=("--tags", "5", "--rate", "50"), serial=serial or {},
                  with_serial_line=line, reader_port=reader_port)
        return b.tessera, b.line

    def test_a_start_that_cannot_run_answers_its_reason(self):
        cases = [
            # (serial section, a line to open, a command before, reply, log line)
            ({}, False, None, b"PushDataStart:1\r\n\r\n", "Unable to Open Serial Port."),
            ({"Mode": "0"}, True, None, b"PushDataStart:2\r\n\r\n", None),
            ({}, True, "setup.connection_config=,5084 0 ,\r\n", b"PushDataStart:3\r\n\r\n",
             "Connection Exists already"),
        ]
        for serial, line, before, reply, log in cases:
            with self.subTest(reply=reply):
                t, _ = self.start(serial=serial, line=line)
                if before:
                    self.assertEqual(t.command(before), b"ok\r\n\r\n")
                self.assertEqual(t.command(SERIAL_START), reply)
                if log:
                    self.assertTrue(t.wait_for_line(log))

    def test_unreachable_reader_answers_4_then_the_connection_reply(self):
        t, _ = self.start(reader_port=free_port())
        with t.connect() as c:
            c.sendall(SERIAL_START.encode())
            self.assertEqual(recv_replies(c, 2, 20), b"PushDataStart:4\r\n\r\n"
                             b"Unable to establish connection to the reader\r\n\r\n")

    def test_header_write_failure_answers_5(self):
        t, line = self.start()
        # Nobody reads the line and its buffer is full: the header write stalls and fails.
        # The kernel moves queued bytes along in the background, so fill until it takes no more.
        os.set_blocking(line.slave, False)
        idle_rounds = 0
        while idle_rounds < 3:
            written = 0
            for size in (1024, 1):
                try:
                    while True:
                        written += os.write(line.slave, b"x" * size)
                except BlockingIOError:
                    pass
            idle_rounds = idle_rounds + 1 if written == 0 else 0
            time.sleep(0.1)
        self.assertEqual(t.command(SERIAL_START), b"PushDataStart:5\r\n\r\n")
        self.assertTrue(t.wait_for_line("Failed to send data over serial port."))


class CommandSetTest(unittest.TestCase):
    def setUp(self):
        self.t = bench(self, serial={}).tessera

    def test_inventory_status_in_each_state(self):
        self.assertEqual(self.t.command("getInventoryStatus"), b"InventoryStandby\r\n\r\n")
        # Standby has no reader to run a plain inventory: still "ok", and the log says so.
        self.assertEqual(self.t.command("setup.operating_mode=active\r\n"), b"ok\r\n\r\n")
        self.assertTrue(self.t.wait_for_line(r"^E-Inventory not started \(reader API status \d+\)"))
        self.assertEqual(self.t.command("setup.connection_config=,5084 0 ,\r\n"), b"ok\r\n\r\n")
        self.assertEqual(self.t.command("getInventoryStatusXYZ"), b"InventoryRunning\r\n\r\n")
        self.assertEqual(self.t.command("disconnect\r\n"), b"ok\r\n\r\n")
        self.assertEqual(self.t.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        self.assertEqual(self.t.command("getInventoryStatus\r\n"),
                         b"InventoryRunning:PushData\r\n\r\n")
        self.assertEqual(self.t.command("setup.operating_mode=active\r\n"),
                         b"InventoryAlreadyRunning\r\n\r\n")

    def test_plain_inventory_sends_tag_data_lines_to_the_data_channel(self):
        data = self.t.data_client()
        self.addCleanup(data.close)
        self.assertEqual(self.t.command("setup.connection_config=,5084 0 ,\r\n"), b"ok\r\n\r\n")
        self.assertEqual(self.t.command("setup.operating_mode=active\r\n"), b"ok\r\n\r\n")
        messages = recv_zero_terminated(data, count=6, timeout=15)
        self.assertIn("INVENTORY_START_EVENT", messages)
        tag_lines = [m for m in messages if m.startswith("TagData:")]
        self.assertTrue(tag_lines, messages)
        self.assertRegex(tag_lines[0], r"^TagData:\d\d/\d\d/\d{4} \d\d:\d\d:\d\d:\d{3},"
                                       r"[0-9A-F]{24},[ \d]\d, {0,4}[0-9a-f]{1,5}, {0,3}-?\d+,$")
        self.assertEqual(self.t.command(STANDBY), b"ok\r\n\r\n")
        rest = recv_zero_terminated(data, count=200, timeout=3)
        self.assertIn("INVENTORY_STOP_EVENT", rest + messages)

    def test_a_data_channel_client_that_never_reads_cannot_stall_the_reads(self):
        t = bench(self, serial={}, sim_args=("--tags", "200", "--rate", "0")).tessera
        idle = t.data_client()  # connected, never read
        self.addCleanup(idle.close)
        self.assertEqual(t.command("setup.connection_config=,5084 0 ,\r\n"), b"ok\r\n\r\n")
        self.assertEqual(t.command("setup.operating_mode=active\r\n"), b"ok\r\n\r\n")
        self.assertTrue(t.wait_for_line(r"^I-Data Channel: client takes no data, closing it$",
                                        timeout=30))
        # The reads go on (to no client now), and the command channel answers.
        before = t.statistics()["reads_in"]
        self.assertTrue(wait_until(lambda: t.statistics()["reads_in"] > before + 1000,
                                   timeout=20))
        stats = t.statistics()
        self.assertGreater(stats["reads_discarded_no_client"], 0)
        self.assertGreater(stats["reads_out"], 0)

    def test_disconnect_notifies_the_newest_data_channel_client_and_disconnect2_does_not(self):
        old = self.t.data_client()
        data = self.t.data_client()
        self.addCleanup(old.close)
        self.addCleanup(data.close)
        self.assertEqual(old.recv(16), b"")  # replaced, so closed by the service
        self.assertEqual(self.t.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        self.assertEqual(self.t.command("disconnect\r\n"), b"ok\r\n\r\n")
        messages = recv_zero_terminated(data, count=3, timeout=5)
        self.assertIn("DISCONNECTION_EVENT", messages)
        self.assertEqual(self.t.command("getInventoryStatus"), b"InventoryStandby\r\n\r\n")
        self.assertEqual(self.t.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        with self.t.connect() as c:
            c.sendall(b"disconnect2\r\n")
            c.settimeout(1.5)
            with self.assertRaises(socket.timeout):
                c.recv(16)  # disconnect2 answers nothing
        later = recv_zero_terminated(data, count=50, timeout=2)
        self.assertNotIn("DISCONNECTION_EVENT", later)
        self.assertEqual(self.t.command("getInventoryStatus"), b"InventoryStandby\r\n\r\n")

    def test_a_command_counts_only_when_exact_and_first_in_its_read(self):
        # A disconnect would stop the push; none of these is one.
        running = b"InventoryRunning:PushData\r\n\r\n"
        self.assertEqual(self.t.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        for text, reply in (("disconnect", b"ok\r\n\r\n"), ("Disconnect\r\n", b"ok\r\n\r\n"),
                            ("getInventoryStatus" + "disconnect\r\n", running)):
            with self.subTest(text):
                self.assertEqual(self.t.command(text), reply)
                self.assertEqual(self.t.command("getInventoryStatus"), running)


class ReaderFaultTest(unittest.TestCase):
    def test_a_dropped_connection_is_rebuilt_and_reads_resume(self):
        b = bench(self, serial={})
        self.assertEqual(b.tessera.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        b.line.read_lines(count=5)
        self.assertEqual(b.sim.control("refuse 2")[:2], "ok")
        self.assertEqual(b.sim.control("drop")[:2], "ok")
        self.assertTrue(b.tessera.wait_for_line("Re-Connected with LLRP", timeout=30),
                        b.tessera.output()[-2000:])
        self.assertTrue(b.tessera.wait_for_line(r"Trying to reconnect with LLRP - 2/10"))
        self.assertFalse(b.tessera.wait_for_line(r"Trying to reconnect with LLRP - 3/10", 0))
        before = len(b.line.buffer.split(b"\r\n"))
        lines = b.line.read_lines(count=before + 5, timeout=15)
        self.assertGreaterEqual(len(lines), before + 4)
        self.assertTrue(all(crc_ok(l) for l in lines[1:]))

    def test_a_reader_that_never_comes_back_gives_up_after_ten_attempts(self):
        b = bench(self, serial={})
        data = b.tessera.data_client()
        self.addCleanup(data.close)
        self.assertEqual(b.tessera.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        self.assertEqual(b.sim.control("refuse 1000")[:2], "ok")
        self.assertEqual(b.sim.control("drop")[:2], "ok")
        self.assertTrue(b.tessera.wait_for_line("LLRP does not reconnect, exiting...", timeout=60))
        self.assertTrue(b.tessera.wait_for_line(r"Trying to reconnect with LLRP - 10/10"))
        self.assertIn("DISCONNECTION_EVENT", recv_zero_terminated(data, count=3, timeout=5))
        self.assertEqual(b.tessera.command("getInventoryStatus"), b"InventoryRunning:PushData\r\n\r\n")
