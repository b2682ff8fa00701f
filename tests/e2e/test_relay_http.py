"""The relay's HTTP(S) POST channel end to end: tessera-readersim -> tessera in relay mode 1 -> a
real HTTP server (peers/http_sink.py), over TLS with a certificate made here by openssl, and
through a CONNECT proxy (peers/connect_proxy.py)."""

import base64
import os
import re
import shutil
import tempfile
import time
import unittest

from fixtures import STARTED, bench, drain, relay_start, settle, stamp_key, write_config
from harness import free_port, wait_until
from mqtt_peers import make_ca_and_server
from relay_peers import connect_proxy, http_section, http_sink, posted_reports

START = relay_start(1)
MAC = re.compile(r"^([0-9A-F]{2}(:[0-9A-F]{2}){5})?$")
STAMP = re.compile(r"^\d\d/\d\d/\d{4} \d\d:\d\d:\d\d:\d{3}$")


def tag_reads(reports):
    return [r for report in reports for r in report["tag_reads"]]


class RelayHttpCase(unittest.TestCase):
    def setUp(self):
        self.dir = self.enterContext(tempfile.TemporaryDirectory(prefix="relay-http-"))

    def sink(self, *args, name="sink"):
        s = http_sink(os.path.join(self.dir, name + ".jsonl"), *args)
        self.addCleanup(s.stop)
        return s

    def bench(self, http_line, sim_args=("--tags", "20", "--rate", "200"), relay=None, **config):
        return bench(self, sim_args=sim_args, relay=dict({"TagrelayMode": "1"}, **(relay or {})),
                     extra_lines=[http_line], **config)

    def posted(self, sink):
        return posted_reports(sink.entries())

    def drain(self, b, sink):
        """Stops the inventory, waits until the sink holds every read sent, and returns them."""
        reads = lambda: [r for r in tag_reads(self.posted(sink)) if r.get("isHeartBeat") != "true"]
        drain(b, lambda: len(reads()))
        return reads()

    def assert_every_read_once_in_order(self, reads, at_least=40):
        self.assertGreaterEqual(len(reads), at_least)
        keys = [(r["epc"], r["antennaPort"], r["timeStamp"]) for r in reads]
        self.assertEqual(len(set(keys)), len(keys), "a read was posted twice")
        stamps = [r["timeStamp"] for r in reads]
        for stamp in stamps:
            self.assertRegex(stamp, STAMP)
        self.assertEqual(stamps, sorted(stamps, key=stamp_key), "reads out of order")


class HttpPostTest(RelayHttpCase):
    def test_every_read_is_posted_once_in_order_inside_the_envelope_with_basic_auth(self):
        # The first three answers are 500: the server has taken those batches all the same.
        sink = self.sink("--statuses", "500,500,500")
        # A URL without a scheme is requested over plain http with "/" appended.
        b = self.bench(http_section("127.0.0.1:%d/tags" % sink.port,
                                    HTTPAuthenticationType="basic", HTTPUserName="relay",
                                    HTTPPassword="s3cret-Pw"))
        self.assertEqual(b.tessera.command(START), STARTED)
        self.assertTrue(wait_until(lambda: len(sink.entries()) >= 5, timeout=20))
        reads = self.drain(b, sink)
        self.assert_every_read_once_in_order(reads)
        entries = sink.entries()
        credentials = "Basic " + base64.b64encode(b"relay:s3cret-Pw").decode()
        for e in entries:
            self.assertEqual(e["request_line"], "POST /tags/ HTTP/1.1")
            self.assertEqual(e["headers"]["Content-Type"], "application/json")
            self.assertEqual(e["headers"]["Accept"], "application/json")
            self.assertEqual(e["headers"]["charsets"], "utf-8")
            self.assertEqual(e["headers"]["Authorization"], credentials)
            self.assertTrue(e["body"].startswith('{"reader_name":"Dock Door 1", "mac_address":"'),
                            e["body"][:80])
            self.assertTrue(e["body"].endswith("}]}"), e["body"][-40:])
        for report in self.posted(sink):
            self.assertEqual(list(report), ["reader_name", "mac_address", "tag_reads"])
            self.assertRegex(report["mac_address"], MAC)
            self.assertTrue(report["tag_reads"])
        for r in reads:
            # TagMetaData 45: EPC, antenna, peak RSSI, time stamp; heartbeats off.
            self.assertEqual(list(r), ["epc", "antennaPort", "peakRssi", "timeStamp"])
            self.assertRegex(r["epc"], r"^[0-9A-F]{24}$")
            self.assertIn(r["antennaPort"], ("1", "2", "3", "4"))
            self.assertRegex(r["peakRssi"], r"^-\d+$")
        self.assertIn(b"InventoryRunning:Tagrelay", b.tessera.command("getInventoryStatus"))
        self.assertNotIn("HTTP POST Error", b.tessera.output())

    def test_batches_wait_while_the_server_is_down_and_none_is_lost(self):
        port = free_port()
        b = self.bench(http_section("http://127.0.0.1:%d/late" % port),
                       relay={"HeartBeatPeriod": "1"})
        self.assertEqual(b.tessera.command(START), STARTED)
        # Every pass retries the kept batch, growing with the reads that arrive meanwhile.
        self.assertTrue(b.tessera.wait_for_line(
            r"^I-Tagrelay: HTTP POST Error - 7 : (Couldn't|Could not) connect to server$",
            count=5, timeout=20))
        # Three heartbeats fall due during the outage.
        time.sleep(3.2)
        self.assertTrue(wait_until(lambda: b.sim.stats()["reads_sent"] >= 60, timeout=20))
        sink = self.sink("--port", port)
        self.assertTrue(wait_until(lambda: sink.entries(), timeout=20))
        first = self.posted(sink)[0]["tag_reads"]
        self.assertEqual(sum(r["isHeartBeat"] == "true" for r in first), 1,
                         "an undelivered batch keeps only its newest heartbeat")
        self.assert_every_read_once_in_order(self.drain(b, sink), at_least=60)

    def test_heartbeats_are_posted_while_no_tag_is_in_view(self):
        sink = self.sink()
        b = self.bench(http_section("http://127.0.0.1:%d/hb" % sink.port),
                       sim_args=("--tags", "0"), relay={"HeartBeatPeriod": "1"})
        self.assertEqual(b.tessera.command(START), STARTED)
        self.assertTrue(wait_until(lambda: len(sink.entries()) >= 2, timeout=20))
        for report in self.posted(sink)[:2]:
            (beat,) = report["tag_reads"]
            self.assertEqual(list(beat), ["epc", "antennaPort", "peakRssi", "timeStamp",
                                          "isHeartBeat"])
            self.assertEqual((beat["epc"], beat["antennaPort"], beat["peakRssi"],
                              beat["isHeartBeat"]), ("********", "0", "0", "true"))
            self.assertRegex(beat["timeStamp"], STAMP)
        self.assertEqual(b.sim.stats()["reads_sent"], 0)

    def test_proxies_from_the_environment_stay_out_and_a_configured_one_takes_plain_posts(self):
        sink = self.sink()
        proxy = connect_proxy(os.path.join(self.dir, "proxy.jsonl"))
        self.addCleanup(proxy.stop)
        dead = "http://127.0.0.1:%d" % free_port()
        url = "http://127.0.0.1:%d/plain" % sink.port
        b = self.bench(http_section(url), env={"http_proxy": dead, "all_proxy": dead})
        self.assertEqual(b.tessera.command(START), STARTED)
        self.assertTrue(wait_until(sink.entries, timeout=20))
        self.assertEqual(b.tessera.command("disconnect\r\n"), b"ok\r\n\r\n")
        self.assertEqual(proxy.entries(), [])
        write_config(b.tessera.root, relay={"TagrelayMode": "1"}, extra_lines=[
            http_section(url, HTTPProxyServerURL="127.0.0.1", HTTPProxyPort=proxy.port)])
        self.assertEqual(b.tessera.command(START), STARTED)
        self.assertTrue(wait_until(proxy.entries, timeout=20))
        self.assertEqual(proxy.entries()[0]["request"], "POST %s/ HTTP/1.1" % url)


class NoReadLostTest(RelayHttpCase):
    """Counts, not timings: every read the simulator sent reaches the server, and the service's
    own ledger agrees."""

    def run_at_link_speed(self, sink, sim_args=("--tags", "200", "--rate", "0")):
        b = self.bench(http_section("http://127.0.0.1:%d/fast" % sink.port, interval=0),
                       sim_args=sim_args)
        self.assertEqual(b.tessera.command(START), STARTED)
        self.assertTrue(wait_until(lambda: b.sim.stats()["reads_sent"] > 0, timeout=20))
        return b

    def assert_nothing_lost(self, b, sink):
        _, stats = settle(b, lambda: len(tag_reads(self.posted(sink))))
        self.assertEqual(stats["reads_discarded"], 0, stats)
        self.assertNotIn("BUFFER_FULL", b.tessera.output())
        return stats

    def test_a_server_that_answers_each_post_after_150_ms_and_a_data_client_that_never_reads(self):
        sink = self.sink("--delay", "0.15")
        b = self.run_at_link_speed(sink)
        idle = b.tessera.data_client()  # connected, never read
        self.addCleanup(idle.close)
        time.sleep(3)
        self.assertIn(b"InventoryRunning:Tagrelay", b.tessera.command("getInventoryStatus"))
        stats = self.assert_nothing_lost(b, sink)
        self.assertGreater(stats["reads_out"], 1000)
        # Each slow answer lets the batch pass 70 KiB: the inventory pauses instead of losing.
        self.assertGreater(stats["inventory_pauses"], 0)
        self.assertEqual(stats["reader_reconnects"], 0)

    def test_the_reader_connection_cut_twice(self):
        sink = self.sink()
        b = self.run_at_link_speed(sink, sim_args=("--tags", "200", "--rate", "3000"))
        for cut in (1, 2):
            self.assertTrue(wait_until(lambda: b.sim.stats()["reads_sent"] >= 2000 * cut,
                                       timeout=20))
            self.assertEqual(b.sim.control("drop")[:2], "ok")
            self.assertTrue(b.tessera.wait_for_line(r"Re-Connected with LLRP", count=cut,
                                                    timeout=30))
        stats = self.assert_nothing_lost(b, sink)
        self.assertEqual(stats["reader_reconnects"], 2)
        # No read arrives more often than the reader sent it.
        reads = tag_reads(self.posted(sink))
        keys = [(r["epc"], r["antennaPort"], r["timeStamp"], r["peakRssi"]) for r in reads]
        self.assertEqual(len(set(keys)), len(keys), "a read arrived twice")


@unittest.skipIf(shutil.which("openssl") is None, "openssl is not installed")
class HttpsAndProxyTest(RelayHttpCase):
    def test_tls_verification_uses_the_ca_file_under_the_root(self):
        ca, cert, key = make_ca_and_server(self.dir, "server")
        other, _, _ = make_ca_and_server(self.dir, "other")
        sink = self.sink("--cert", cert, "--key", key)
        url = "https://127.0.0.1:%d/secure" % sink.port
        b = self.bench(http_section(url, VerifyPeer=1, VerifyHost=1))
        t = b.tessera
        ca_file = t.path("/etc/ssl/server.crt")
        os.makedirs(os.path.dirname(ca_file))

        def restart(ca, **keys):
            """Writes the CA file and the section, then starts the relay anew."""
            shutil.copy(ca, ca_file)
            write_config(t.root, relay={"TagrelayMode": "1"},
                         extra_lines=[http_section(url, **keys)])
            self.assertEqual(t.command(START), STARTED)

        # Another certificate in the CA file: every pass fails and keeps the batch.
        restart(other, VerifyPeer=1, VerifyHost=1)
        self.assertTrue(t.wait_for_line(r"^I-Tagrelay: HTTP POST Error - 60 : ", count=3,
                                        timeout=20))
        self.assertEqual(sink.entries(), [])
        self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
        # Verification off: the same untrusted server takes the posts.
        restart(other, VerifyPeer=0, VerifyHost=0)
        self.assertTrue(wait_until(lambda: len(sink.entries()) >= 2, timeout=20))
        self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
        # Verification on with the server's CA as the CA file.
        posts = len(sink.entries())
        restart(ca, VerifyPeer=1, VerifyHost=1)
        self.assertTrue(wait_until(lambda: len(sink.entries()) >= posts + 2, timeout=20))
        lines = t.output().split("\n")
        started = max(i for i, l in enumerate(lines) if l == "I-Tagrelay: Inventory started")
        self.assertEqual([l for l in lines[started:] if "HTTP POST Error" in l], [])
        self.assertEqual(sink.entries()[-1]["request_line"], "POST /secure/ HTTP/1.1")

    def test_a_configured_proxy_tunnels_the_posts_with_its_credentials(self):
        sink = self.sink()
        proxy = connect_proxy(os.path.join(self.dir, "proxy.jsonl"), "--auth", "gate:pr0xy")
        self.addCleanup(proxy.stop)
        b = self.bench(http_section(
            "http://127.0.0.1:%d/via" % sink.port, HTTPProxyServerURL="127.0.0.1",
            HTTPProxyPort=proxy.port, HTTPProxyTunnel=1, HTTPProxyAuthenticationType="basic",
            HTTPProxyUserName="gate", HTTPProxyPassword="pr0xy"))
        self.assertEqual(b.tessera.command(START), STARTED)
        self.assertTrue(wait_until(lambda: len(sink.entries()) >= 3, timeout=20))
        requests = proxy.entries()
        self.assertTrue(requests)
        credentials = "Basic " + base64.b64encode(b"gate:pr0xy").decode()
        for r in requests:
            self.assertEqual(r["request"], "CONNECT 127.0.0.1:%d HTTP/1.1" % sink.port)
            self.assertEqual(r["proxy_authorization"], credentials)
        self.drain(b, sink)
