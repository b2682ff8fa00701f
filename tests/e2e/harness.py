"""Runs the real tessera binary for end-to-end tests: a temp root, free ports, recorded shell
commands, MVM_DEBUG=enable, its stdout collected line by line, and a SIGTERM stop that fails the
test on a non-zero exit status or a sanitizer report."""

import os
import re
import signal
import socket
import subprocess
import tempfile
import threading
import time

SOURCE = os.path.abspath(os.environ.get("TESSERA_SOURCE") or
                         os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
BIN = os.environ.get("TESSERA_BIN") or os.path.join(SOURCE, "build", "bin")
SANITIZER_MARKS = ("ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "WARNING: ThreadSanitizer",
                   "ERROR: ThreadSanitizer", "runtime error:", "SUMMARY: UndefinedBehaviorSanitizer")
# Multiplies the product's fixed waits (retries, reconnects, pauses) in tests.
WAIT_SCALE = "0.01"


NETLINK_KOBJECT_UEVENT = 15


def send_uevent(pid, header):
    """Sends a kernel-style uevent ("action@devpath" and its keys) to the process's netlink port
    id; False where this machine does not allow it."""
    action = header.split("@", 1)[0]
    try:
        s = socket.socket(socket.AF_NETLINK, socket.SOCK_DGRAM, NETLINK_KOBJECT_UEVENT)
    except OSError:
        return False
    with s:
        try:
            s.bind((0, 0))
            s.sendto(header.encode() + b"\0ACTION=" + action.encode() + b"\0", (pid, 0))
        except OSError:
            return False
    return True


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def accepts(port):
    """Whether a TCP connection to the loopback port succeeds."""
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=0.2):
            return True
    except OSError:
        return False


def wait_until(predicate, timeout=10.0, interval=0.02):
    """Polls predicate until it returns a true value or the time is up; its last value."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = predicate()
        if value:
            return value
        time.sleep(interval)
    return predicate()


class Tessera:
    """One tessera process: start(), then stop() and close()."""

    def __init__(self, root=None, extra_args=(), env=None, reader_port=None):
        self._tmp = None if root else tempfile.TemporaryDirectory(prefix="tessera-e2e-")
        self.root = root = root or self._tmp.name
        self.command_port, self.data_port = free_port(), free_port()
        self.shell_log = os.path.join(root, "recorded-shell.txt")
        self.args = [os.path.join(BIN, "tessera"), "--root", root,
                     "--command-port", str(self.command_port), "--data-port", str(self.data_port),
                     "--record-shell", self.shell_log, "--wait-scale", WAIT_SCALE]
        if reader_port is not None:
            self.args += ["--reader-port", str(reader_port)]
        self.args += list(extra_args)
        self.env = {**os.environ, "MVM_DEBUG": "enable", **(env or {})}
        self.lines, self.stderr_text = [], ""
        self._lock = threading.Lock()
        self.proc = None

    def path(self, appliance_path):
        return os.path.join(self.root, appliance_path.lstrip("/"))

    def start(self, wait_ready=True, **popen):
        """Starts the process (popen: more subprocess.Popen arguments)."""
        self.proc = subprocess.Popen(self.args, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                     env=self.env, **popen)
        threading.Thread(target=self._read_stdout, daemon=True).start()
        threading.Thread(target=self._read_stderr, daemon=True).start()
        if wait_ready:
            ok = self.wait_for_line("Waiting for command channel connections", timeout=30)
            if not ok:
                raise AssertionError("tessera did not start:\n" + self.output() + self.stderr_text)
            # The data channel thread binds on its own; wait until it accepts.
            wait_until(lambda: accepts(self.data_port), timeout=10)
        return self

    def _read_stdout(self):
        for raw in self.proc.stdout:
            with self._lock:
                self.lines.append(raw.decode("utf-8", "replace").rstrip("\n"))

    def _read_stderr(self):
        for raw in self.proc.stderr:
            with self._lock:
                self.stderr_text += raw.decode("utf-8", "replace")

    def output(self):
        with self._lock:
            return "\n".join(self.lines)

    def wait_for_line(self, pattern, timeout=10.0, count=1):
        """Waits until `count` stdout lines match the regular expression; returns them."""
        regex = re.compile(pattern)

        def found():
            with self._lock:
                hits = [l for l in self.lines if regex.search(l)]
            return hits if len(hits) >= count else None
        return wait_until(found, timeout)

    def shell_commands(self):
        try:
            with open(self.shell_log) as f:
                return f.read().splitlines()
        except FileNotFoundError:
            return []

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.command_port), timeout=10)

    def command(self, text, timeout=10.0):
        """Sends one command on a fresh connection and returns the first reply's bytes."""
        with self.connect() as s:
            s.settimeout(timeout)
            s.sendall(text.encode())
            return recv_replies(s, 1, timeout)

    def statistics(self):
        """getStatistics as a dict of integers."""
        reply = self.command("getStatistics").decode()
        assert reply.endswith("\r\n\r\n"), reply
        return {k: int(v) for k, v in (l.split("=") for l in reply.split("\r\n") if l)}

    def data_client(self):
        """A data channel client; the service notifies the newest one."""
        before = len(self.wait_for_line("Data Channel: Got New Connection", timeout=0) or [])
        s = socket.create_connection(("127.0.0.1", self.data_port), timeout=10)
        self.wait_for_line("Data Channel: Got New Connection", count=before + 1)
        return s

    def stop(self, sig=signal.SIGTERM, timeout=30):
        """Stops the process; returns its exit status. Fails on sanitizer reports."""
        if self.proc is None:
            return None
        if self.proc.poll() is None:
            self.proc.send_signal(sig)
        try:
            status = self.proc.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
            raise AssertionError("tessera did not stop after %s:\n%s" % (sig, self.output()[-4000:]))
        time.sleep(0.05)  # let the reader threads take the last bytes
        for mark in SANITIZER_MARKS:
            if mark in self.stderr_text:
                raise AssertionError("sanitizer report from tessera:\n" + self.stderr_text[-8000:])
        return status

    def close(self):
        try:
            if self.proc is not None and self.proc.poll() is None:
                self.stop()
        finally:
            if self.proc is not None:
                self.proc.stdout.close()
                self.proc.stderr.close()
            if self._tmp is not None:
                self._tmp.cleanup()


def recv_while(sock, more, timeout=10.0):
    """Reads until more(data) is false, the peer closes or the time is up; returns the bytes."""
    deadline = time.monotonic() + timeout
    data = b""
    while more(data) and time.monotonic() < deadline:
        sock.settimeout(max(0.01, deadline - time.monotonic()))
        try:
            chunk = sock.recv(4096)
        except socket.timeout:
            break
        if not chunk:
            break
        data += chunk
    return data


def recv_replies(sock, count=1, timeout=10.0):
    """Reads until `count` command replies (each ending in an empty line) arrived."""
    return recv_while(sock, lambda data: data.count(b"\r\n\r\n") < count, timeout)


def recv_zero_terminated(sock, count=1, timeout=10.0):
    """Reads `count` zero-terminated data channel messages; returns their texts."""
    data = recv_while(sock, lambda data: data.count(b"\0") < count, timeout)
    return [m.decode("utf-8", "replace") for m in data.split(b"\0")[:-1]]
