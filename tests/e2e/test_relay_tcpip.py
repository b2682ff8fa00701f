"""The relay's TCP/IP channel end to end: tessera-readersim -> tessera in relay mode 3 -> a client
of the relay's TCP/IP server, which receives one JSON report per batch."""

import socket
import time
import unittest

from fixtures import STARTED, bench, drain, relay_start, settle
from harness import free_port, wait_until
from relay_peers import ReportStream

START = relay_start(3)
OPENING = '{"mac_address":"'


class TcpIpRelayTest(unittest.TestCase):
    def bench(self, sim_args=("--tags", "20", "--rate", "200")):
        self.port = free_port()
        return bench(self, sim_args=sim_args, relay={"TagrelayMode": "3"}, tcpip={"Port": str(self.port)})

    def client(self, **pace):
        c = ReportStream(self.port, **pace)
        self.addCleanup(c.close)
        return c

    def reads(self, client):
        return [r for report in client.reports() for r in report["tag_reads"]]

    def assert_reports(self, client):
        texts, rest = client.texts()
        self.assertEqual(rest, "", "bytes that are no report")
        for text in texts:
            # The batch's last character (the "," after the last object) is dropped for "]}".
            self.assertTrue(text.startswith(OPENING), text[:60])
            self.assertIn('", "tag_reads":[{', text)
            self.assertTrue(text.endswith("}]}"), text[-40:])
        for report in client.reports():
            self.assertEqual(list(report), ["mac_address", "tag_reads"])

    def test_a_slow_client_gets_every_read_in_whole_reports(self):
        b = self.bench(sim_args=("--tags", "200", "--rate", "3000"))
        self.assertEqual(b.tessera.command(START), STARTED)
        # 4 KiB every 20 ms: the socket takes part of a batch at a time.
        client = self.client(chunk=4096, pause=0.02)
        time.sleep(3)
        sent, stats = settle(b, lambda: len(self.reads(client)))
        self.assertEqual(stats["reads_discarded"], 0, stats)
        self.assertGreater(sent, 1000)
        self.assert_reports(client)

    def test_without_a_client_the_inventory_pauses_at_70_kib_and_resumes_for_one(self):
        # 2000 reads/s of about 100 bytes fill the 71680-byte limit in well under a second.
        b = self.bench(sim_args=("--tags", "50", "--rate", "2000"))
        t = b.tessera
        self.assertEqual(t.command(START), STARTED)
        self.assertTrue(t.wait_for_line(r"^I-Tagrelay: Buffer is full, stoping Inventory\.$",
                                        timeout=20))
        # The reader API stops an inventory by deleting its ROSpec.
        self.assertTrue(wait_until(lambda: "=Active" not in b.sim.control("rospecs"),
                                   timeout=10), b.sim.control("rospecs"))
        paused = b.sim.stats()
        self.assertGreaterEqual(paused["rospecs_stopped"], 1)
        self.assertGreaterEqual(paused["reads_sent"], 600)
        client = self.client()
        self.assertTrue(t.wait_for_line(r"^I-Tagrelay: Data consumed, Starting Inventory\.$",
                                        timeout=20))
        self.assertTrue(wait_until(lambda: b.sim.stats()["reads_sent"] > paused["reads_sent"],
                                   timeout=10))
        self.assertGreater(b.sim.stats()["rospecs_started"], paused["rospecs_started"])
        self.assertIn("=Active", b.sim.control("rospecs"))
        # Every read the reader sent, also while the pause took effect, reaches the client.
        drain(b, lambda: len(self.reads(client)))
        self.assert_reports(client)

    def test_a_client_that_leaves_mid_report_is_replaced_by_the_next(self):
        b = self.bench(sim_args=("--tags", "200", "--rate", "3000"))
        self.assertEqual(b.tessera.command(START), STARTED)
        first = self.client(chunk=4096, pause=0.02)
        self.assertTrue(wait_until(lambda: first.reports() and first.texts()[1], timeout=20))
        first.close()
        # The send after the peer has gone fails (the process ignores SIGPIPE) and the worker
        # accepts the next client.
        self.assertTrue(b.tessera.wait_for_line(r"^I-Tagrelay: TCP/IP Client closed connection\.$",
                                                timeout=20))
        second = self.client()
        self.assertTrue(wait_until(lambda: len(second.reports()) >= 2, timeout=20))
        # The report the first client left in the middle comes whole, never its rest. (What the
        # first client's kernel had taken but it never read is gone with it: TCP's limit.)
        self.assertTrue(b.sim.control("rate 0.001").startswith("ok"))
        self.assertTrue(wait_until(lambda: b.tessera.statistics()["reads_pending"] == 0,
                                   timeout=30))
        self.assertTrue(wait_until(lambda: not second.texts()[1], timeout=10))
        self.assert_reports(second)

    def test_a_relay_port_in_use_fails_every_attempt(self):
        b = self.bench()
        with socket.socket() as squatter:
            squatter.bind(("127.0.0.1", self.port))
            squatter.listen(1)
            self.assertEqual(b.tessera.command(START, timeout=30), b"httppoststart:1\r\n\r\n")
        t = b.tessera
        self.assertEqual(len(t.wait_for_line(r"^E-TCP/IP Server : bind failed$", count=15,
                                             timeout=5)), 15)
        self.assertEqual(b.sim.stats()["connections"], 0)
