"""The appliance build end to end: the armhf tessera, run through qemu-arm, takes the reads of
the host's tessera-readersim over loopback and pushes them to a pty as serial CSV lines.
Runs only when TESSERA_ARMHF_TESSERA names the armhf binary (scripts/test-armhf.sh sets it);
TESSERA_ARMHF_QEMU may give the emulator command (default: qemu-arm -L build-armhf-sysroot)."""

import os
import shlex
import shutil
import time
import unittest

from fixtures import SERIAL_START, STANDBY, SerialLine, crc_ok, write_config
from harness import SOURCE, Tessera
from simctl import Simulator

ARMHF_TESSERA = os.environ.get("TESSERA_ARMHF_TESSERA", "")


def qemu_command():
    given = os.environ.get("TESSERA_ARMHF_QEMU")
    if given:
        return shlex.split(given)
    sysroot = os.environ.get("TESSERA_ARMHF_SYSROOT", os.path.join(SOURCE, "build-armhf-sysroot"))
    return ["qemu-arm", "-L", sysroot]


def why_not():
    if not ARMHF_TESSERA:
        return "TESSERA_ARMHF_TESSERA is not set (scripts/test-armhf.sh runs this test)"
    if not os.access(ARMHF_TESSERA, os.X_OK):
        return "no armhf tessera at %s" % ARMHF_TESSERA
    if shutil.which(qemu_command()[0]) is None:
        return "%s is not installed (scripts/install-armhf-deps.sh)" % qemu_command()[0]
    return None


@unittest.skipIf(why_not(), why_not())
class ArmhfSerialPushTest(unittest.TestCase):
    def test_armhf_service_pushes_every_read_to_the_serial_line(self):
        began = time.monotonic()
        sim = Simulator(("--tags", "20", "--rate", "200")).start()
        self.addCleanup(sim.stop)
        tessera = Tessera(reader_port=sim.llrp_port)
        tessera.args[0:1] = qemu_command() + [ARMHF_TESSERA]
        self.addCleanup(tessera.close)
        write_config(tessera.root, serial={"TagMetaData": "45"})
        line = SerialLine(tessera.root)
        self.addCleanup(line.close)
        tessera.start()

        self.assertEqual(tessera.command(SERIAL_START), b"PushDataStart:0\r\n\r\n")
        lines = line.read_lines(count=40, timeout=30)
        self.assertGreaterEqual(len(lines), 40, "\n".join(lines) + tessera.output()[-2000:])
        self.assertEqual(lines[0], "EPC,AntennaID,RSSI,TimeStamp,<CRC>")
        # Once the inventory stops and the event thread has drained, every read the simulator
        # sent is on the line once, with a CRC the host computes the same way.
        self.assertEqual(tessera.command(STANDBY), b"ok\r\n\r\n")
        body = line.read_lines(timeout=20, quiet=2.5)[1:]
        self.assertEqual(len(body), sim.stats()["reads_sent"])
        for record in body:
            self.assertTrue(crc_ok(record), record)
            epc, antenna = record.split(",")[:2]
            self.assertRegex(epc, r"^[0-9A-F]{24}$")
            self.assertIn(antenna, ("1", "2", "3", "4"))
        self.assertEqual(tessera.stop(), 0, tessera.output()[-3000:])
        print("\narmhf serial push under qemu: %d reads in %.1f s" % (len(body), time.monotonic() - began))
