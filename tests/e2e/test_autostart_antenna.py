"""Boot-time starts over real service starts in a temp root, and the antenna power commands
against the simulator with a data channel client."""

import os
import tempfile
import time
import unittest

from fixtures import Bench, SerialLine, write_config
from harness import Tessera, free_port
from simctl import Simulator


class AutostartTest(unittest.TestCase):
    def setUp(self):
        self.sim = Simulator(("--tags", "10", "--rate", "100")).start()
        self.addCleanup(self.sim.stop)
        self.root = self.enterContext(tempfile.TemporaryDirectory(prefix="tessera-boot-"))
        os.makedirs(os.path.join(self.root, "var", "volatile"))
        # The serial push's line; the relay tests leave it alone.
        self.line = SerialLine(self.root)
        self.addCleanup(self.line.close)

    def boot(self, reader_port=None, **config):
        write_config(self.root, **config)
        return Tessera(root=self.root, reader_port=reader_port or self.sim.llrp_port).start()

    def stop(self, t):
        status = t.stop()
        t.close()
        self.assertEqual(status, 0, t.output()[-2000:])

    def test_serial_push_autostarts_at_every_start_unless_the_cloud_holds_it_back(self):
        for enrolled, auto, held in (("0", "0", False), ("1", "1", True), ("1", "0", False),
                                     ("0", "1", False)):
            lines = len(self.line.read_lines(timeout=0))
            t = self.boot(serial={"IsAutostart": "1"}, relay=None if held else {"IsAutostart": "1"},
                          cloud={"ENROLLED": enrolled, "AUTO_CONNECT": auto})
            if held:
                self.assertEqual(t.command("getInventoryStatus"), b"InventoryStandby\r\n\r\n")
            else:
                self.assertTrue(t.wait_for_line("Tessera: Started Serial Port Push at Boot time"))
                self.assertEqual(t.command("getInventoryStatus"),
                                 b"InventoryRunning:PushData\r\n\r\n")
                self.assertGreaterEqual(len(self.line.read_lines(count=lines + 3)), lines + 3)
                # The relay section is neither read nor marked when the serial push starts.
                self.assertFalse(os.path.exists(os.path.join(self.root, "var/volatile/isbooted")))
            self.stop(t)

    def test_relay_autostart_runs_once_per_boot(self):
        sink_port = free_port()
        config = dict(relay={"IsAutostart": "1"},
                      http={"HTTPServerURL": "127.0.0.1:%d/tags" % sink_port,
                            "HTTPPostInterval": "1", "ReaderName": "Dock"})
        t = self.boot(**config)
        self.assertTrue(t.wait_for_line("Tagrelay: Started Tagrelay on Boot time", timeout=30),
                        t.output()[-2000:])
        self.assertEqual(t.shell_commands(), ["touch /var/volatile/isbooted"])
        self.assertEqual(t.command("getInventoryStatus"), b"InventoryRunning:Tagrelay\r\n\r\n")
        self.stop(t)
        t = self.boot(**config)
        self.assertEqual(t.command("getInventoryStatus"), b"InventoryStandby\r\n\r\n")
        self.assertFalse(t.wait_for_line("Tagrelay: Started Tagrelay on Boot time", timeout=0))
        self.stop(t)

    def test_unparsable_relay_configuration_leaves_the_marker_alone(self):
        t = self.boot(relay={"IsAutostart": "1", "InventoryControl": "S7,Sometimes,Never,0"})
        self.assertTrue(t.wait_for_line("Tagrelay: Failed to parse Tagrelay Configuration."))
        self.assertFalse(os.path.exists(os.path.join(self.root, "var/volatile/isbooted")))
        self.assertEqual(t.shell_commands(), [])
        self.stop(t)

    def test_a_reader_that_comes_up_late_is_found_on_a_later_attempt(self):
        self.assertEqual(self.sim.control("refuse 2")[:2], "ok")
        t = self.boot(serial={"IsAutostart": "1"})
        self.assertTrue(t.wait_for_line("Tessera: Started Serial Port Push at Boot time", 60))
        self.assertEqual(len(t.wait_for_line("Unable to establish connection with the reader",
                                             count=2, timeout=0) or []), 2)
        self.stop(t)

    def test_a_termination_signal_ends_the_boot_attempts(self):
        write_config(self.root, serial={"IsAutostart": "1"})
        # Real-length pauses (scaled to 3 s): fifteen attempts would take 45 s.
        t = Tessera(root=self.root, reader_port=free_port(), extra_args=("--wait-scale", "0.3"))
        t.start(wait_ready=False)
        try:
            self.assertTrue(t.wait_for_line("Unable to connect to reader, retrying", timeout=20))
            self.assertEqual(t.stop(timeout=20), 0)
            attempts = t.wait_for_line("Unable to connect to reader, retrying", timeout=0) or []
            self.assertLess(len(attempts), 15)
            self.assertIn("Tessera: Unable to start Serial Port Push at boot time : -4", t.output())
        finally:
            t.close()


class AntennaCommandTest(unittest.TestCase):
    def setUp(self):
        folder = self.enterContext(tempfile.TemporaryDirectory(prefix="readersim-state-"))
        self.state = os.path.join(folder, "state")
        self.start()
        self.addCleanup(self.close)

    def start(self):
        # A reader that keeps SET_READER_CONFIG values for one connection only, as some do.
        self.bench = Bench(sim_args=("--tags", "5", "--rate", "20", "--state", self.state,
                                     "--forget-config"), serial={}, with_serial_line=False)
        self.sim, self.t = self.bench.sim, self.bench.tessera
        self.data = self.t.data_client()

    def close(self):
        self.data.close()
        self.bench.close()

    def result(self, command):
        self.assertEqual(self.t.command(command), b"ok\r\n\r\n")
        self.data.settimeout(10)
        return self.data.recv(4096).decode()

    def connect(self):
        self.assertEqual(self.t.command("setup.connection_config=,5084 0 ,\r\n"), b"ok\r\n\r\n")

    def test_set_antenna_config_persists_at_the_last_flagged_entry_and_reports_all(self):
        self.connect()
        steps = [
            # (command, start of the report, "Persisted" lines in the log after it)
            (",1 20 1 ,", "SetAntennaInfo:Success 1 20,2 ", 1),
            (",1 30 1 ,2 31 1 ,3 32 0 ,", "SetAntennaInfo:Success 1 30,2 31,3 32,4 ", 2),
            # A last entry with ID 0 saves nothing and sends only the report.
            (",2 40 1 ,0 0 0 ,", "1 30,2 40,", 2),
            (",9 40 0 ,", "SetAntennaInfo:Error RFID_GetAntennaConfig Failed", 2),
        ]
        for command, report, persisted in steps:
            with self.subTest(command):
                text = self.result("setup.set_antenna_config=%s\r\n" % command)
                self.assertTrue(text.startswith(report), text)
                self.assertRegex(text, r"1 \d+,2 \d+,3 \d+,4 \d+,$")
                time.sleep(0.3)
                self.assertEqual(len(self.t.wait_for_line("Persisted", timeout=0) or []),
                                 persisted)
        self.assertTrue(self.t.wait_for_line("Antenna 1 Configuration Persisted"))
        self.assertTrue(self.t.wait_for_line("Last Antenna 3 Configuration Persisted"))
        self.assertEqual(self.result("setup.get_antenna_config=\r\n")[:17], "AntennaData:1 30,")

    def test_init_reports_the_power_table_and_line_end_does_not_and_no_reader_reports_none(self):
        self.assertEqual(self.result("setup.get_antenna_config=\r\n"), "AntennaData:")
        self.assertTrue(self.result("setup.get_antenna_config=Init").startswith(
            "Error: AntennaInitData: Get Failed!!!!"))
        self.assertEqual(self.t.command("setup.get_antenna_config\r\n"), b"ok\r\n\r\n")
        self.connect()
        text = self.result("setup.get_antenna_config=Init")
        self.assertTrue(text.startswith("AntennaInitData: 4, 10.0 10.2 10.5 10.8 11.0"), text)
        self.assertTrue(text.endswith(" 29.8 30.0"), text[-40:])
        self.assertTrue(self.result("setup.get_antenna_config=Init\r\n").startswith("AntennaData:1 "))

    def test_powers_set_before_a_reconnect_are_in_force_after_it(self):
        self.connect()
        self.assertIn(",2 41,3 61,", self.result("setup.set_antenna_config=,2 41 0 ,3 61 0 ,\r\n"))
        self.assertEqual(self.sim.control("drop")[:2], "ok")
        self.assertTrue(self.t.wait_for_line("Re-Connected with LLRP", timeout=30),
                        self.t.output()[-2000:])
        self.assertRegex(self.sim.control("power"), r"^ok 1=\d+ 2=41 3=61 ")
        self.assertRegex(self.result("setup.get_antenna_config=\r\n"),
                         r"^AntennaData:1 \d+,2 41,3 61,")

    def test_a_persisted_power_survives_a_reader_restart(self):
        self.connect()
        self.result("setup.set_antenna_config=,2 17 1 ,\r\n")
        self.assertEqual(self.t.command("disconnect\r\n"), b"ok\r\n\r\n")
        self.close()
        self.start()
        self.connect()
        self.assertRegex(self.result("setup.get_antenna_config=\r\n"), r"^AntennaData:1 \d+,2 17,")
