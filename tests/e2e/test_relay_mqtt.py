"""The relay's MQTT channel (mode 5) end to end: tessera-readersim -> tessera -> Debian's
mosquitto broker started here -> mosquitto_sub. Counts, not timings."""

import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import unittest

from fixtures import Bench, STARTED, relay_start, settle, stamp_key, write_config
from harness import wait_until
from mqtt_peers import Broker, Subscriber, make_ca_and_server, mqtt_section, retained

START = relay_start(5)
READS = "tessera/Dock Door 1/reads"
STATUS = "tessera/Dock Door 1/status"


def key(read):
    return read["epc"], read["antennaPort"], read["timeStamp"], read["peakRssi"]


@unittest.skipIf(shutil.which("mosquitto") is None or shutil.which("mosquitto_sub") is None,
                 "mosquitto and mosquitto-clients are not installed")
class MqttRelayTest(unittest.TestCase):
    def setUp(self):
        self.dir = self.enterContext(tempfile.TemporaryDirectory(prefix="relay-mqtt-"))

    def broker(self, **args):
        b = Broker(self.dir, **args)
        self.addCleanup(b.stop)
        return b

    def subscriber(self, broker, topic=READS, **args):
        s = Subscriber(broker, topic, os.path.join(self.dir, "sub-%d.txt" % id(topic)), **args)
        self.addCleanup(s.stop)
        return s

    def bench(self, mqtt_line, sim_args=("--tags", "20", "--rate", "200"), close=True, **config):
        b = Bench(sim_args=sim_args, relay={"TagrelayMode": "5"}, extra_lines=[mqtt_line], **config)
        self.addCleanup(b.close if close else b.sim.stop)
        return b

    def messages(self, sub):
        return [json.loads(p) for p in sub.payloads()]

    def reads(self, sub):
        return [r for m in self.messages(sub) for r in m["tag_reads"]]

    def test_every_read_arrives_once_in_order_and_the_status_follows_the_relay(self):
        broker = self.broker()
        sub = self.subscriber(broker)
        b = self.bench(mqtt_section("mqtt://127.0.0.1:%d" % broker.port))
        t = b.tessera
        self.assertEqual(t.command(START), STARTED)
        self.assertTrue(wait_until(lambda: len(self.reads(sub)) >= 40, timeout=20))
        self.assertEqual(retained(broker, STATUS), "online")
        sent, stats = settle(b, lambda: len(self.reads(sub)))
        self.assertEqual(stats["reads_discarded"], 0, stats)
        reads = self.reads(sub)
        self.assertEqual(len({key(r) for r in reads}), len(reads), "a read arrived twice")
        stamps = [r["timeStamp"] for r in reads]
        self.assertEqual(stamps, sorted(stamps, key=stamp_key))
        # (The records inside are the HTTP relay's, checked field by field there.)
        for m in self.messages(sub):
            self.assertEqual(list(m), ["reader_name", "mac_address", "tag_reads"])
            self.assertEqual(m["reader_name"], "Dock Door 1")
        # The stop says "offline" itself and disconnects cleanly: the broker keeps the will.
        client = re.search(r"New client connected from \S+ as (tessera-\S*)", broker.log_text())
        self.assertIsNotNone(client, broker.log_text()[-2000:])
        self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
        self.assertEqual(retained(broker, STATUS), "offline")
        self.assertIn("Client %s disconnected." % client.group(1), broker.log_text())
        self.assertNotIn("MQTT publish Error", t.output())

    def test_the_will_says_offline_after_sigkill(self):
        broker = self.broker()
        b = self.bench(mqtt_section("mqtt://127.0.0.1:%d" % broker.port), close=False)
        self.addCleanup(b.tessera.close)
        self.assertEqual(b.tessera.command(START), STARTED)
        self.assertTrue(wait_until(lambda: retained(broker, STATUS) == "online", timeout=20))
        b.tessera.proc.send_signal(signal.SIGKILL)
        b.tessera.proc.wait()
        self.assertTrue(wait_until(lambda: retained(broker, STATUS) == "offline", timeout=20))
        self.assertRegex(broker.log_text(), r"Client tessera-\S* closed its connection")

    def test_a_broker_restart_mid_stream_loses_nothing_and_repeats_only_whole_batches(self):
        broker = self.broker(persistent=True)
        sub = self.subscriber(broker)
        b = self.bench(mqtt_section("mqtt://127.0.0.1:%d" % broker.port),
                       sim_args=("--tags", "50", "--rate", "500"))
        self.assertEqual(b.tessera.command(START), STARTED)
        for restart in (1, 2):
            self.assertTrue(wait_until(lambda: len(self.reads(sub)) >= 300 * restart, timeout=30))
            broker.restart()
            self.assertTrue(b.tessera.wait_for_line(r"^I-Tagrelay: MQTT connected to ",
                                                    count=restart + 1, timeout=30))
        self.assertTrue(b.tessera.wait_for_line(r"^I-Tagrelay: MQTT connection lost - ",
                                                timeout=5))
        settle(b, lambda: len({key(r) for r in self.reads(sub)}))
        seen, batches = set(), []
        for m in self.messages(sub):
            keys = [key(r) for r in m["tag_reads"]]
            repeated = [k for k in keys if k in seen]
            # A message repeats reads only as a whole earlier batch at its head.
            if repeated:
                self.assertIn(keys[:len(repeated)], batches, "a batch arrived in part")
            self.assertEqual(len(set(keys[len(repeated):]) & seen), 0)
            seen.update(keys)
            batches.append(keys)

    def test_with_the_spool_a_broker_outage_does_not_pause_the_reader(self):
        broker = self.broker(persistent=True)
        sub = self.subscriber(broker)
        b = self.bench(mqtt_section("mqtt://127.0.0.1:%d" % broker.port),
                       sim_args=("--tags", "50", "--rate", "500"),
                       tessera_args=("--spool", os.path.join(self.dir, "spool")))
        self.assertEqual(b.tessera.command(START), STARTED)
        self.assertTrue(wait_until(lambda: len(self.reads(sub)) >= 100, timeout=30))
        broker.stop()
        self.assertTrue(wait_until(lambda: b.tessera.statistics()["spool_batches"] >= 3,
                                   timeout=30))
        self.assertEqual(b.sim.stats()["rospecs_stopped"], 0, "the inventory was paused")
        broker.start()

        def unique_reads():
            by_seq = {m["batch_seq"]: m for m in self.messages(sub)}
            return sum(len(m["tag_reads"]) for m in by_seq.values())

        _, stats = settle(b, unique_reads)
        self.assertEqual(stats["reads_discarded"], 0, stats)

    def test_tls_ca_and_credentials_are_checked_and_retried(self):
        ca, cert, key_file = make_ca_and_server(self.dir, "right")
        wrong, _, _ = make_ca_and_server(self.dir, "wrong")
        user = ("reader", "s3cret Pw")
        broker = self.broker(users=dict([user]), tls=(ca, cert, key_file))
        sub = self.subscriber(broker, user=user, tls_ca=ca)
        url = "mqtts://127.0.0.1:%d" % broker.port
        b = self.bench(mqtt_section(url))
        t = b.tessera
        ca_file = t.path("/etc/ssl/mqtt-ca.crt")
        os.makedirs(os.path.dirname(ca_file))

        def restart(ca_source, password):
            shutil.copy(ca_source, ca_file)
            write_config(t.root, relay={"TagrelayMode": "5"}, extra_lines=[mqtt_section(
                url, CAFile="/etc/ssl/mqtt-ca.crt", UserName=user[0], Password=password)])
            self.assertEqual(t.command(START), STARTED)

        restart(wrong, user[1])
        self.assertTrue(t.wait_for_line(r"^I-Tagrelay: MQTT connection to 127\.0\.0\.1:\d+ "
                                        r"failed - 8 : ", count=2, timeout=30))
        self.assertTrue(t.wait_for_line(r"certificate verify failed", timeout=5))
        self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
        restart(ca, "wrong")
        self.assertTrue(t.wait_for_line(r"^I-Tagrelay: MQTT broker refused the connection - 5 : ",
                                        count=2, timeout=30))
        self.assertEqual(sub.payloads(), [])
        self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
        restart(ca, user[1])
        self.assertTrue(wait_until(lambda: len(self.reads(sub)) >= 20, timeout=20))
        self.assertEqual(retained(broker, STATUS, user=user, tls_ca=ca), "online")
        self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
        self.assertNotIn(user[1], t.output())

    def test_refused_values_are_logged_and_check_config_hides_the_password(self):
        broker = self.broker()
        b = self.bench(mqtt_section("mqtt://127.0.0.1:%d" % broker.port, Password="hush",
                                    QoS="2", KeepAlive="1"))
        t = b.tessera
        self.assertEqual(t.command(START), STARTED)
        self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
        self.assertTrue(t.wait_for_line(r"^I-MQTTConfig: value of QoS refused \(0 or 1\)$"))
        self.assertTrue(t.wait_for_line(r"^I-MQTTConfig: value of KeepAlive refused "))
        write_config(t.root, relay={"TagrelayMode": "5"},
                     extra_lines=[mqtt_section("mqtt://127.0.0.1:%d" % broker.port,
                                               Password="hush", QoS="2")])
        out = subprocess.run([t.args[0], "--root", t.root, "--check-config"],
                             capture_output=True, text=True)
        self.assertIn("[MQTTConfig]", out.stdout)
        self.assertIn('  Password = "***"', out.stdout)
        self.assertIn('  ReaderName = "Dock Door 1"', out.stdout)
        self.assertIn("QoS: value \"2\" refused (0 or 1)", out.stdout)
        self.assertNotIn("hush", out.stdout)
        self.assertIn("=> relay mode NOT usable (Mqtt)", out.stdout)
