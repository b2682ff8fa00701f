"""The service core against real sockets: options, the command server's slots and reads, the
uevent path, inherited descriptors, console logging and the orderly stop."""

import os
import subprocess
import time
import unittest

from harness import BIN, Tessera, accepts, recv_replies, send_uevent, wait_until


class CommandLineTest(unittest.TestCase):
    def test_bad_options_exit_2_with_a_message(self):
        for args, words in ((["--bogus"], "unknown option '--bogus'"),
                            (["--command-port", "70000"], "--command-port"),
                            (["--wait-scale", "fast"], "--wait-scale"),
                            (["--spool-max-bytes", "512K"], "a size from 1M to 1024G"),
                            (["--root"], "needs a value"),
                            (["stray"], "unexpected argument 'stray'")):
            r = subprocess.run([os.path.join(BIN, "tessera"), *args], capture_output=True,
                               text=True, timeout=30)
            self.assertEqual(r.returncode, 2, args)
            self.assertIn(words, r.stderr, args)


class CommandServerTest(unittest.TestCase):
    def setUp(self):
        self.t = Tessera().start()

    def tearDown(self):
        status = self.t.stop()
        self.t.close()
        self.assertEqual(status, 0, self.t.output()[-3000:])

    def test_console_lines_carry_the_level_letter(self):
        self.assertTrue(self.t.wait_for_line(r"^I-Logger from tessera$"))
        self.assertTrue(self.t.wait_for_line(r"^E-Waiting for command channel connections\.\.\.$"))
        # A command text with % signs is never formatted a second time.
        self.assertEqual(self.t.command("%s%n%d"), b"ok\r\n\r\n")

    def test_listener_is_bound_to_loopback_only(self):
        with open("/proc/net/tcp") as f:
            rows = [l.split() for l in f.readlines()[1:]]
        port = "%04X" % self.t.command_port
        listeners = [r[1] for r in rows if r[1].endswith(":" + port) and r[3] == "0A"]
        self.assertEqual(listeners, ["0100007F:" + port])

    def test_thirty_clients_served_and_the_31st_closed(self):
        clients = [self.t.connect() for _ in range(30)]
        self.t.wait_for_line(r"Adding to list of sockets as 29$")
        extra = self.t.connect()
        extra.settimeout(5)
        self.assertEqual(extra.recv(16), b"")  # closed at once, never served
        extra.close()
        for c in clients:
            c.sendall(b"unknown")
        for c in clients:
            self.assertEqual(recv_replies(c), b"ok\r\n\r\n")
        # A client that leaves frees its slot; the next one takes the lowest free slot.
        clients[4].close()
        clients[7].close()
        self.t.wait_for_line("Host disconnected", count=2)
        with self.t.connect():
            self.assertTrue(self.t.wait_for_line(r"Adding to list of sockets as 4$"))
        for c in clients:
            c.close()

    def test_a_full_read_is_one_text_and_the_rest_follows(self):
        with self.t.connect() as c:
            # 256 bytes make one text and the rest a second one, each starting with the command:
            # a bound one byte off either way leaves a text that starts elsewhere ("ok").
            status = b"getInventoryStatus"
            c.sendall(status + b"x" * (256 - len(status)) + status)
            self.assertEqual(recv_replies(c, 2, 5), b"InventoryStandby\r\n\r\n" * 2)

    def test_uevent_for_a_removed_block_device_unmounts_the_drive(self):
        pid = self.t.proc.pid
        if not send_uevent(pid, "add@/devices/pci0000:00/usb1/1-1/block/sdb/sdb1"):
            self.skipTest("netlink uevents cannot be sent here")
        send_uevent(pid, "remove@/devices/pci0000:00/usb1/1-1/1-1:1.0/tty/ttyUSB0")
        send_uevent(pid, "remove@/devices/pci0000:00/usb1/1-1/host2/block/sdb/sdb1")
        self.assertTrue(self.t.wait_for_line("umount usb drive"))
        time.sleep(0.2)
        # (The boot-time start marks the boot with "touch" before any uevent arrives.)
        self.assertEqual([c for c in self.t.shell_commands() if not c.startswith("touch ")],
                         ["umount /media/usbdrive"])


class LoggingAndStartTest(unittest.TestCase):
    def test_mvm_debug_must_be_exactly_enable(self):
        for value in ("Enable", "1"):
            t = Tessera(env={"MVM_DEBUG": value}).start(wait_ready=False)
            try:
                # Silence proves nothing from a process that died: it must serve and stop cleanly.
                self.assertTrue(wait_until(lambda: accepts(t.data_port), timeout=10), value)
                time.sleep(0.2)
                self.assertEqual(t.output(), "", value)
                self.assertIsNone(t.proc.poll(), value)
                self.assertEqual(t.stop(), 0, value)
            finally:
                t.close()

    def test_inherited_descriptors_are_closed_up_to_the_first_gap(self):
        # The child inherits pipes on 3, 4 and 6 with 5 left free: the sweep closes 3 and 4 and
        # stops at 5, so 6 stays open. Descriptors are told apart by the pipe they name, since
        # the service reuses low numbers for its own sockets afterwards.
        pipes = {}
        for n in (3, 4, 6):
            r, w = os.pipe()
            os.close(w)
            pipes[n] = os.dup2(r, 100 + n)
            os.close(r)
        names = {n: os.readlink("/proc/self/fd/%d" % fd) for n, fd in pipes.items()}

        def child_setup():
            for n, fd in pipes.items():
                os.dup2(fd, n)
            try:
                os.close(5)
            except OSError:
                pass
        t = Tessera()
        try:
            t.start(preexec_fn=child_setup, close_fds=False)
            links = {}
            for n in (3, 4, 6):
                try:  # (a descriptor the service closes meanwhile is not a pipe of ours)
                    links[n] = os.readlink("/proc/%d/fd/%d" % (t.proc.pid, n))
                except FileNotFoundError:
                    pass
            self.assertEqual(links.get(6), names[6])
            for n in (3, 4):
                self.assertNotEqual(links.get(n), names[n], links)
            self.assertEqual(t.stop(), 0)
        finally:
            t.close()
            for fd in pipes.values():
                os.close(fd)
