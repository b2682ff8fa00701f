"""The outage spool end to end (--spool): tessera-readersim -> tessera relay -> a real HTTP server
or TCP/IP client that goes away; the reads wait in segment files and arrive once it is back, also
across a SIGKILL, a damaged file, a size cap and an unusable folder."""

import json
import os
import signal
import tempfile
import time
import unittest

from fixtures import STARTED, bench, relay_start, settle, write_file
from harness import Tessera, free_port, wait_until
from relay_peers import ReportStream, http_section, http_sink, posted_reports
START_HTTP, START_TCP = relay_start(1), relay_start(3)


def unique_batches(reports):
    """The reports with a repeated batch_seq left out (after checking that a repeat is the same
    batch, whole); the batch numbers of what is left must run without a gap."""
    seen = {}
    for r in reports:
        seq = r["batch_seq"]
        if seq in seen:
            assert seen[seq] == r, "batch %d came twice with different contents" % seq
        seen[seq] = r
    return [seen[k] for k in sorted(seen)]


def reads_of(reports):
    return [t for r in reports for t in r["tag_reads"] if t.get("isHeartBeat") != "true"]


class SpoolTest(unittest.TestCase):
    def setUp(self):
        self.dir = self.enterContext(tempfile.TemporaryDirectory(prefix="spool-"))
        self.spool = os.path.join(self.dir, "spool")
        self.port = free_port()

    def sink(self, *args):
        s = http_sink(os.path.join(self.dir, "sink.jsonl"), "--port", self.port, *args)
        self.addCleanup(s.stop)
        return s

    def bench(self, rate="500", spool_args=(), tcp=False):
        config = dict(tcpip={"Port": str(self.port)}) if tcp else dict(
            extra_lines=[http_section("http://127.0.0.1:%d/spool" % self.port)])
        return bench(self, sim_args=("--tags", "50", "--rate", rate),
                     relay={"TagrelayMode": "3" if tcp else "1"},
                     tessera_args=("--spool", self.spool) + tuple(spool_args), **config)

    def restart(self, b, kill=False):
        """Ends the bench's tessera (SIGKILL or SIGTERM) and starts another on the same root and
        spool, which the bench then owns."""
        old = b.tessera
        if kill:
            old.proc.send_signal(signal.SIGKILL)
            old.proc.wait()
        else:
            self.assertEqual(old.stop(), 0)
        later = Tessera(root=old.root, reader_port=b.sim.llrp_port,
                        extra_args=("--spool", self.spool))
        later._tmp, old._tmp = old._tmp, None
        old.close()
        b.tessera = later
        return later.start()

    def posted(self, sink):
        return unique_batches(posted_reports(e for e in sink.entries() if e["status"] == 200))

    def test_an_outage_keeps_the_reader_reading_and_every_read_arrives_in_order(self):
        b = self.bench()
        self.assertEqual(b.tessera.command(START_HTTP), STARTED)
        time.sleep(5)  # the server is away
        stats = b.tessera.statistics()
        self.assertGreater(stats["spool_batches"], 0, stats)
        self.assertEqual(b.sim.stats()["rospecs_stopped"], 0, "the inventory was paused")
        self.assertIn("=Active", b.sim.control("rospecs"))
        sink = self.sink()
        sent, stats = settle(b, lambda: len(reads_of(self.posted(sink))))
        self.assertGreater(sent, 1000)
        self.assertEqual(stats["reads_discarded"], 0, stats)
        self.assertEqual((stats["spool_batches"], stats["spool_bytes"]), (0, 0), stats)
        seqs = [r["batch_seq"] for r in posted_reports(sink.entries())]
        self.assertEqual(seqs, list(range(seqs[0], seqs[0] + len(seqs))), "gap or repeat")

    def test_what_was_spooled_before_a_sigkill_arrives_after_a_restart(self):
        b = self.bench()
        t = b.tessera
        self.assertEqual(t.command(START_HTTP), STARTED)
        self.assertTrue(wait_until(lambda: b.sim.stats()["reads_sent"] >= 1000, timeout=30))
        # Every read the reader sent has reached the spool before the kill.
        self.assertTrue(b.sim.control("rate 0.001").startswith("ok"))
        sent = b.sim.stats()["reads_sent"]
        self.assertTrue(wait_until(lambda: t.statistics()["reads_in"] == sent, timeout=20))
        time.sleep(1)
        later = self.restart(b, kill=True)
        self.assertEqual(later.statistics()["reads_in"], sent)  # found in the spool
        sink = self.sink()
        self.assertEqual(later.command(START_HTTP), STARTED)
        settle(b, lambda: len(reads_of(self.posted(sink))))

    def test_503_is_retried_and_a_400_batch_is_set_aside(self):
        b = self.bench()
        sink = self.sink("--statuses", "503,503,503,400")
        self.assertEqual(b.tessera.command(START_HTTP), STARTED)
        self.assertTrue(wait_until(lambda: len(sink.entries()) >= 6, timeout=30))
        refused = lambda stats: stats["reads_out"] + stats["reads_discarded_rejected"]
        _, stats = settle(
            b, lambda: len(reads_of(self.posted(sink))) +
            b.tessera.statistics()["reads_discarded_rejected"], accounted=refused)
        self.assertEqual(stats["spool_rejected_batches"], 1, stats)
        (refused,) = [json.loads(e["body"]) for e in sink.entries() if e["status"] == 400]
        self.assertEqual(stats["reads_discarded_rejected"], len(reads_of([refused])))
        (kept,) = os.listdir(os.path.join(self.spool, "rejected"))
        with open(os.path.join(self.spool, "rejected", kept)) as f:
            self.assertEqual(json.load(f), refused)

    def test_a_small_cap_drops_the_oldest_batches_and_delivers_the_newest(self):
        b = self.bench(rate="10000", spool_args=("--spool-max-bytes", "1M"))
        self.assertEqual(b.tessera.command(START_HTTP), STARTED)
        self.assertTrue(wait_until(lambda: b.tessera.statistics()["spool_dropped_reads"] > 0,
                                   timeout=30))
        sink = self.sink()
        dropped = lambda stats: stats["reads_out"] + stats["spool_dropped_reads"]
        _, stats = settle(
            b, lambda: len(reads_of(self.posted(sink))) +
            b.tessera.statistics()["spool_dropped_reads"], accounted=dropped)
        self.assertEqual(stats["reads_discarded_spool_full"], stats["spool_dropped_reads"])
        self.assertEqual(len(b.tessera.wait_for_line(r"is full \(1048576 bytes\)", timeout=0)), 1)
        # The dropped batches are old ones: a gap in the numbers, then the newest all arrive.
        seqs = [r["batch_seq"] for r in self.posted(sink)]
        self.assertGreater(seqs[-1] - seqs[0] + 1, len(seqs))
        self.assertEqual(seqs[-5:], list(range(seqs[-5], seqs[-5] + 5)))

    def test_a_damaged_segment_is_delivered_up_to_its_last_whole_batch(self):
        b = self.bench()
        t = b.tessera
        self.assertEqual(t.command(START_HTTP), STARTED)
        self.assertTrue(wait_until(lambda: t.statistics()["spool_batches"] >= 3, timeout=30))
        self.assertEqual(t.stop(), 0)
        (segment,) = sorted(n for n in os.listdir(self.spool) if n.endswith(".seg"))[-1:]
        path = os.path.join(self.spool, segment)
        os.truncate(path, os.path.getsize(path) - 7)
        later = self.restart(b)
        self.assertTrue(later.wait_for_line(r"Spool: .*%s is damaged at offset \d+" % segment))
        sink = self.sink()
        recovered = later.statistics()["reads_in"]
        self.assertEqual(later.command(START_HTTP), STARTED)
        self.assertTrue(wait_until(lambda: len(reads_of(self.posted(sink))) >= recovered,
                                   timeout=30))

    def test_an_unusable_folder_falls_back_to_pausing_and_keeps_running(self):
        write_file(self.spool, "a file where the folder should be")
        b = self.bench(rate="2000")
        t = b.tessera
        self.assertEqual(t.command(START_HTTP), STARTED)
        self.assertTrue(t.wait_for_line(r"Spool: cannot .*spool"))
        self.assertTrue(t.wait_for_line(r"Buffer is full, stoping Inventory", timeout=30))
        sink = self.sink()
        settle(b, lambda: len(reads_of(posted_reports(sink.entries()))))

    def test_a_tcpip_client_that_comes_late_gets_every_read_in_whole_reports_oldest_first(self):
        b = self.bench(tcp=True)
        self.assertEqual(b.tessera.command(START_TCP), STARTED)
        self.assertTrue(wait_until(lambda: b.tessera.statistics()["spool_batches"] >= 3,
                                   timeout=30))
        self.assertEqual(b.sim.stats()["rospecs_stopped"], 0, "the inventory was paused")
        client = ReportStream(self.port)
        self.addCleanup(client.close)
        settle(b, lambda: len(reads_of(client.reports())))
        self.assertEqual(client.texts()[1], "")
        seqs = [r["batch_seq"] for r in client.reports()]
        self.assertEqual(seqs, sorted(seqs))
