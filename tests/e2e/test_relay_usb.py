"""The relay's USB channels end to end: tessera-readersim -> tessera in relay mode 2 (keyboard
reports written to <root>/dev/hidg0, which the test creates as a plain file) and mode 4 (hourly CSV
files under <root>/media/usbdrive, mounted as far as <root>/proc/mounts says)."""

import os
import time
import unittest

from fixtures import STARTED, bench, drain, relay_start, settle, write_file
from harness import send_uevent, wait_until
from relay_peers import ETHERNET_COMMANDS, HID_COMMANDS, VBUS, decode_hid

MOUNT_LINE = "/dev/sda1 /media/usbdrive vfat rw,relatime 0 0\n"
OTHER_MOUNTS = "proc /proc proc rw,nosuid,nodev,noexec,relatime 0 0\n"


def typed(hid):
    """The text typed so far into the keyboard node (whole press/release pairs)."""
    with open(hid, "rb") as f:
        data = f.read()
    return decode_hid(data[:len(data) // 16 * 16])


def drive_lines(drive):
    out = []
    for n in sorted(os.listdir(drive)):
        with open(os.path.join(drive, n)) as f:
            out += f.read().splitlines()
    return out


def usb_bench(test, mode, sim_args, tag_meta_data=45, tessera_args=(), **data_format):
    """A bench whose relay runs in `mode` (key=value records unless data_format says otherwise)."""
    return bench(test, sim_args=sim_args, tessera_args=tessera_args,
                 relay={"TagrelayMode": str(mode), "TagMetaData": str(tag_meta_data)},
                 data_format=dict({"Format": "KeyValuePair", "LineEnding": "LF"}, **data_format))


class UsbHidRelayTest(unittest.TestCase):
    def test_batches_are_typed_as_keyboard_reports_once_the_host_powers_the_port(self):
        cases = [
            # Key=value lines of EPC and antenna: upper-case hex is typed lower, the CR as Ctrl+M.
            ({"LineEnding": "CRLF"}, 5, r"epc=[0-9a-f]{24},antennaport=[1-4],\r\n"),
            # {"epc":"<hex>"}, is typed as epc<hex>, : braces, quotes and colons have no key.
            ({"Format": "JSON"}, 1, r"epc[0-9a-f]{24},"),
        ]
        for data_format, tag_meta_data, one_read in cases:
            with self.subTest(**data_format):
                b = usb_bench(self, 2, ("--tags", "20", "--rate", "100"), tag_meta_data,
                              **data_format)
                t = b.tessera
                hid = t.path("/dev/hidg0")
                # The relay start opens the node, so it is there before the command.
                write_file(hid, "")
                write_file(t.path(VBUS), "off\n")
                boot = len(t.shell_commands())
                self.assertEqual(t.command(relay_start(2)), STARTED)
                self.assertEqual(t.shell_commands()[boot:], HID_COMMANDS)
                # No host powers the port: the batch is kept and nothing is typed.
                self.assertTrue(t.wait_for_line(r"^E-Tagrelay: USB HID device is not found\.$",
                                                count=3, timeout=20))
                self.assertGreater(b.sim.stats()["reads_sent"], 0)
                self.assertEqual(os.path.getsize(hid), 0)
                write_file(t.path(VBUS), "on\n")
                self.assertTrue(wait_until(lambda: os.path.getsize(hid) > 0, timeout=20))
                sent = drain(b, lambda: typed(hid).count("epc"))
                self.assertRegex(typed(hid), r"^(%s){%d}$" % (one_read, sent))
                self.assertEqual(os.path.getsize(hid) % 16, 0)
                self.assertEqual(t.command("disconnect\r\n"), b"ok\r\n\r\n")
                self.assertEqual(t.shell_commands()[boot:], HID_COMMANDS + ETHERNET_COMMANDS)

    def test_a_start_without_the_hid_node_switches_back_after_each_attempt(self):
        b = usb_bench(self, 2, ("--tags", "5"))
        t = b.tessera
        boot = len(t.shell_commands())
        self.assertEqual(t.command(relay_start(2), timeout=30), b"httppoststart:1\r\n\r\n")
        self.assertEqual(t.shell_commands()[boot:], (HID_COMMANDS + ETHERNET_COMMANDS) * 15)
        self.assertEqual(len(t.wait_for_line(r"^I-Tagrelay: USB HID device is not opened$",
                                             count=15, timeout=5)), 15)
        self.assertTrue(t.wait_for_line(r"^Tagrelay: Unknown Error $", timeout=5))
        self.assertEqual(b.sim.stats()["connections"], 0)


class UsbDriveRelayTest(unittest.TestCase):
    OFFSET = -3 * 86400 - 7200  # the service's clock runs three days and two hours behind

    def start(self, b, mounts):
        """The drive's folder and the mount table, then the relay; the folder's path."""
        write_file(b.tessera.path("/media/usbdrive"))
        write_file(b.tessera.path("/proc/mounts"), mounts)
        self.assertEqual(b.tessera.command(relay_start(4)), STARTED)
        return b.tessera.path("/media/usbdrive")

    def test_at_link_speed_every_read_reaches_the_drive(self):
        b = usb_bench(self, 4, ("--tags", "200", "--rate", "0"), 33)
        drive = self.start(b, OTHER_MOUNTS + MOUNT_LINE)
        time.sleep(2)
        sent, stats = settle(b, lambda: len(drive_lines(drive)))
        self.assertEqual(stats["reads_discarded"], 0, stats)
        self.assertGreater(sent, 1000)

    def test_batches_go_to_a_file_named_by_the_service_clock_while_the_drive_is_mounted(self):
        b = usb_bench(self, 4, ("--tags", "20", "--rate", "100"), 33, TimestampFormat="UTC",
                      tessera_args=("--clock-offset", str(self.OFFSET)))
        t = b.tessera
        drive, mounts = self.start(b, OTHER_MOUNTS), t.path("/proc/mounts")
        self.assertTrue(t.wait_for_line(r"^I-Failed to send data to USB Flash Drive$", count=2,
                                        timeout=20))
        self.assertTrue(t.wait_for_line(r"^I-USB Flash Drive is not connected $", timeout=5))
        self.assertEqual(os.listdir(drive), [])
        before = time.time() + self.OFFSET
        write_file(mounts, OTHER_MOUNTS + MOUNT_LINE)
        self.assertTrue(wait_until(lambda: os.listdir(drive), timeout=20))
        after = time.time() + self.OFFSET
        (name,) = os.listdir(drive)
        names = {time.strftime("%Y-%m-%d-%H-%M-%S.csv", time.localtime(int(s)))
                 for s in range(int(before) - 1, int(after) + 2)}
        self.assertIn(name, names)
        self.assertIn("sync", t.shell_commands())
        can_send = send_uevent(t.proc.pid, "remove@/devices/platform/usb/block/sda")
        if can_send:
            # The drive is pulled out: the file is closed and the drive is unmounted.
            write_file(mounts, OTHER_MOUNTS)
            self.assertTrue(t.wait_for_line(r"^I-umount usb drive$", timeout=10))
            self.assertIn("umount /media/usbdrive", t.shell_commands())
            count = len(t.wait_for_line("Failed to send data to USB Flash Drive", timeout=0))
            self.assertTrue(t.wait_for_line("Failed to send data to USB Flash Drive",
                                            count=count + 2, timeout=20))
            write_file(mounts, OTHER_MOUNTS + MOUNT_LINE)
        drain(b, lambda: len(drive_lines(drive)))
        for line in drive_lines(drive):
            # EPC and UTC time stamp, every upper-case letter lowered.
            self.assertRegex(line, r"^epc=[0-9a-f]{24},timestamp=\d\d/\d\d/\d{4} "
                                   r"\d\d:\d\d:\d\d:\d{3},$")
        for n in os.listdir(drive):
            self.assertRegex(n, r"^\d{4}-\d\d-\d\d-\d\d-\d\d-\d\d\.csv$")
        if not can_send:
            self.skipTest("netlink uevents cannot be sent here; the removal was not tested")
