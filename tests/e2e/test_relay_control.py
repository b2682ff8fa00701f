"""Starting and stopping the relay mode end to end: the replies of the relay command, the
disconnects, and SIGTERM while the relay runs in each output mode."""

import os
import re
import signal
import socket
import time
import unittest

from fixtures import STARTED, bench, relay_start, write_file
from harness import free_port, recv_replies, recv_zero_terminated, wait_until
from relay_peers import ETHERNET_COMMANDS, VBUS, ReportStream, http_section

NO_READER = b"Unable to establish connection to the reader\r\n\r\n"
ATTEMPT = r"I-Tagrelay: Unable to connect with reader: \d+$"
CLEANUP = ["^I-Caught SIGNAL: 15\\.\\.\\. Cleanup function\\.$", "^Killing Threads\\.\\. Done$",
           "^I-Tagrelay: Tagrelay thread cleaned\\.$", "^I-cleanup tcp channels end $",
           "^I-tessera stopped after signal 15$"]


class RelayCommandTest(unittest.TestCase):
    def bench(self, relay_mode="1", reader_port=None):
        """A relay to an HTTP server that is not there; its simulator counts the connections."""
        return bench(self, sim_args=("--tags", "10", "--rate", "50"),
                     relay={"TagrelayMode": relay_mode}, reader_port=reader_port,
                     extra_lines=[http_section("http://127.0.0.1:%d/x" % free_port())])

    def test_replies_follow_the_configured_and_the_requested_mode(self):
        b = self.bench()
        steps = [
            # (command, reply, reader connections after it)
            (relay_start(3), b"httppoststart:3\r\n\r\n", 0),
            # No field keeps the requested mode of the last command.
            ("setup.operating_mode_Tagrelay=\r\n", b"httppoststart:3\r\n\r\n", 0),
            # Without "=" the key does not match: an unknown command.
            ("setup.operating_mode_Tagrelay\r\n", b"ok\r\n\r\n", 0),
            ("disconnect\r\n", b"ok\r\n\r\n", 0),
            # The disconnect forgot the requested mode: any configured mode starts.
            ("setup.operating_mode_Tagrelay=\r\n", STARTED, 1),
            (relay_start(1), b"httppoststart:2\r\n\r\n", 1),
            ("disconnect\r\n", b"ok\r\n\r\n", 1),
            (relay_start(1), STARTED, 2),
            ("disconnect\r\n", b"ok\r\n\r\n", 2),
            # A plain inventory's connection blocks the relay as its own would.
            ("setup.connection_config=,5084 0 ,\r\n", b"ok\r\n\r\n", 3),
            (relay_start(1), b"httppoststart:2\r\n\r\n", 3),
        ]
        for command, reply, connections in steps:
            with self.subTest(command=command):
                self.assertEqual(b.tessera.command(command), reply)
                self.assertEqual(b.sim.stats()["connections"], connections)

    def test_a_relay_that_is_not_configured_answers_1(self):
        b = self.bench(relay_mode="0")
        self.assertEqual(b.tessera.command(relay_start(1)), b"httppoststart:1\r\n\r\n")
        self.assertEqual(b.sim.stats()["connections"], 0)

    def test_an_unreachable_reader_is_tried_15_times(self):
        t = self.bench(reader_port=free_port()).tessera
        self.assertEqual(t.command(relay_start(1), timeout=30), NO_READER)
        # The reader error print has no line feed of its own, so the log line follows it.
        self.assertEqual(len(t.wait_for_line(ATTEMPT, count=15, timeout=5)), 15)

    def test_sigterm_ends_the_start_attempts(self):
        t = self.bench(reader_port=free_port()).tessera
        with t.connect() as c:
            c.sendall(relay_start(1).encode())
            self.assertTrue(t.wait_for_line(ATTEMPT, timeout=20))
            t.proc.send_signal(signal.SIGTERM)
            self.assertEqual(recv_replies(c, 1, 20), NO_READER)
        self.assertEqual(t.proc.wait(20), 0)
        self.assertTrue(t.wait_for_line("^I-tessera stopped after signal 15$", timeout=5))
        self.assertLess(len(t.wait_for_line(ATTEMPT, timeout=0)), 15)

    def test_a_reader_that_denies_the_connection_is_tried_once(self):
        b = self.bench()
        self.assertTrue(b.sim.control("deny 1").startswith("ok"))
        self.assertEqual(b.tessera.command(relay_start(1), timeout=30), NO_READER)
        # The failed start's last line: every attempt's line is out before it.
        self.assertTrue(b.tessera.wait_for_line(r"^E-Tagrelay: Failed to start Tagrelay\.$"))
        (attempt,) = b.tessera.wait_for_line(ATTEMPT, timeout=0)
        self.assertTrue(attempt.endswith(": 101"), attempt)


class RelayStopTest(unittest.TestCase):
    def assert_clean_stop(self, t, timeout=15):
        """SIGTERM: exit status 0 and the cleanup in order, the relay stopped before the
        command and data channel sockets close."""
        self.assertEqual(t.stop(signal.SIGTERM, timeout=timeout), 0, t.output()[-3000:])
        self.assertRegex(t.output(), re.compile(".*".join(CLEANUP), re.M | re.S))

    def test_sigterm_while_each_output_mode_is_busy(self):
        # (A relay posting to a server that answers stops at the end of every HTTP test.)
        # A listener that never accepts: the connection completes in the kernel and the post
        # waits for an answer (libcurl would give up after 30 s).
        stalled = socket.socket()
        self.addCleanup(stalled.close)
        stalled.bind(("127.0.0.1", 0))
        stalled.listen(8)
        tcp_port = free_port()
        clients = []

        def reading(b):
            return wait_until(lambda: b.sim.stats()["reads_sent"] > 0, timeout=20)

        def post_under_way(b):
            reading(b)
            time.sleep(1.5)
            return "HTTP POST Error" not in b.tessera.output()

        def tcp_client(b):
            clients.append(ReportStream(tcp_port))
            self.addCleanup(clients[-1].close)
            return wait_until(clients[-1].reports, timeout=20)

        def port_freed(t):
            if clients:
                self.assertTrue(wait_until(lambda: clients[-1].closed, timeout=5))
            # Both the client and the listening socket were closed. (SO_REUSEADDR lets the bind
            # pass the closed connection's TIME_WAIT, not a listener.)
            with socket.socket() as again:
                again.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                again.bind(("127.0.0.1", tcp_port))
                again.listen(1)

        def back_to_ethernet(t):
            self.assertEqual(t.shell_commands()[-len(ETHERNET_COMMANDS):], ETHERNET_COMMANDS)

        usb = (("/media/usbdrive", None),
               ("/proc/mounts", "/dev/sda1 /media/usbdrive vfat rw 0 0\n"))
        cases = [
            # (name, mode, configuration, files, busy when true, check after the stop)
            ("post never answered", 1, {"extra_lines": [http_section(
                "http://127.0.0.1:%d/x" % stalled.getsockname()[1])]}, (), post_under_way, None),
            ("hid keyboard", 2, {"data_format": {}}, (("/dev/hidg0", ""), (VBUS, "on\n")),
             lambda b: wait_until(lambda: os.path.getsize(b.tessera.path("/dev/hidg0")),
                                  timeout=20), back_to_ethernet),
            ("tcpip client", 3, {"tcpip": {"Port": str(tcp_port)}}, (), tcp_client, port_freed),
            ("tcpip, no client", 3, {"tcpip": {"Port": str(tcp_port)}}, (), reading, port_freed),
            ("usb drive", 4, {"data_format": {}}, usb,
             lambda b: wait_until(lambda: os.listdir(b.tessera.path("/media/usbdrive")),
                                  timeout=20), None),
        ]
        for name, mode, config, contents, busy, after in cases:
            with self.subTest(name):
                clients.clear()
                b = bench(self, relay={"TagrelayMode": str(mode)}, **config)
                for path, text in contents:  # the appliance's files (no text: a folder)
                    write_file(b.tessera.path(path), text)
                self.assertEqual(b.tessera.command(relay_start(mode)), STARTED)
                self.assertTrue(busy(b))
                self.assert_clean_stop(b.tessera)
                if after:
                    after(b.tessera)

    def test_disconnect_twice_then_sigterm_stops_the_relay_a_second_time(self):
        port = free_port()
        b = bench(self, relay={"TagrelayMode": "3"}, tcpip={"Port": str(port)})
        t = b.tessera
        data = t.data_client()
        self.addCleanup(data.close)
        self.assertEqual(t.command(relay_start(3)), STARTED)
        client = ReportStream(port)
        self.addCleanup(client.close)
        self.assertTrue(wait_until(lambda: client.reports(), timeout=20))
        self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
        self.assertTrue(wait_until(lambda: client.closed, timeout=5))
        self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
        notes = []
        wait_until(lambda: notes.extend(recv_zero_terminated(data, timeout=0.2)) or
                   notes.count("DISCONNECTION_EVENT") >= 2, timeout=10)
        self.assertGreaterEqual(notes.count("DISCONNECTION_EVENT"), 2, notes)
        self.assertEqual(len(t.wait_for_line("^I-Tagrelay: Tagrelay thread cleaned", timeout=5)),
                         1)
        # The cleanup's relay stop finds nothing left to release and says so once more.
        self.assert_clean_stop(t)
        self.assertEqual(len(t.wait_for_line("^I-Tagrelay: Tagrelay thread cleaned", count=2,
                                             timeout=5)), 2)
        self.assertEqual(b.sim.stats()["client_connected"], 0)
