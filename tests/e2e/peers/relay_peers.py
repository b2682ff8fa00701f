"""What the relay tests put at the far end of each relay channel: the HTTP sink and the CONNECT
proxy as processes, a TCP/IP relay client that splits its stream into reports, and a decoder of
the USB HID keyboard reports written to <root>/dev/hidg0. Also used by bench/relay_throughput.py
and the relay demo."""

import json
import os
import socket
import subprocess
import sys
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))

# The USB controller's VBUS state file that the HID worker reads before typing a batch.
VBUS = "/sys/devices/platform/68000000.ocp/5c040000.am35x_otg_hs/musb-hdrc.1.auto/vbus"

# The two shell command lists of the USB gadget switch, in order.
HID_COMMANDS = [
    "pkill dhcpd",
    "rmmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_ether.ko",
    "rm /var/run/dhcpd.leases",
    "insmod /lib/modules/4.9.182-rt131-yocto-standard/extra/usb_f_hid.ko",
    "insmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_hid.ko",
]
ETHERNET_COMMANDS = [
    "rmmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_hid.ko",
    "rmmod /lib/modules/4.9.182-rt131-yocto-standard/extra/usb_f_hid.ko",
    "insmod /lib/modules/4.9.182-rt131-yocto-standard/extra/g_ether.ko",
    "ifconfig usb0 169.254.10.1 netmask 255.255.255.0 up",
    "touch /var/run/dhcpd.leases",
    "/usr/sbin/dhcpd -4 -cf /etc/dhcp/dhcpd.conf -lf /var/run/dhcpd.leases usb0 &",
]


class Peer:
    """One peer script (http_sink.py, connect_proxy.py) as a process that records to a file."""

    def __init__(self, script, record, *args):
        self.record = record
        self.proc = subprocess.Popen([sys.executable, os.path.join(HERE, script), "--record", record]
                                     + [str(a) for a in args],
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        line = self.proc.stdout.readline()
        if not line:
            self.proc.wait()
            raise RuntimeError("%s did not start" % script)
        self.port = int(line)

    def entries(self):
        """The recorded requests so far, as dicts."""
        try:
            with open(self.record, encoding="utf-8") as f:
                return [json.loads(line) for line in f if line.endswith("\n")]
        except FileNotFoundError:
            return []

    def stop(self):
        if self.proc.poll() is None:
            self.proc.kill()
        self.proc.wait()
        self.proc.stdout.close()


def http_sink(record, *args):
    return Peer("http_sink.py", record, *args)


def connect_proxy(record, *args):
    return Peer("connect_proxy.py", record, *args)


def http_section(url, interval=1, name="Dock Door 1", **keys):
    """An HTTPPostConfig line as the management software writes it: the reader name in single
    quotes (it may hold blanks), every other value in double quotes."""
    pairs = {"HTTPServerURL": url, "VerifyPeer": 0, "VerifyHost": 0,
             "HTTPAuthenticationType": "none", "HTTPPostInterval": interval}
    pairs.update(keys)
    text = " ".join('%s="%s"' % kv for kv in pairs.items())
    return "  <HTTPPostConfig %s ReaderName='%s' />" % (text, name)


def posted_reports(entries):
    """The JSON reports of the recorded POST bodies, in the order they arrived."""
    return [json.loads(e["body"]) for e in entries if e["method"] == "POST"]


class ReportStream:
    """A client of the relay's TCP/IP server. Collects the stream on a thread; reports() splits it
    into the JSON reports sent so far and fails on anything that is not one."""

    def __init__(self, port, chunk=1 << 16, pause=0.0):
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=10)
        self.sock.settimeout(None)
        self.chunk, self.pause = chunk, pause  # a slow client reads `chunk` bytes per `pause`
        self.data = bytearray()
        self.closed = False
        self._texts, self._tail, self._taken = [], "", 0  # parsed so far, by texts()
        self._lock = threading.Lock()
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        while True:
            try:
                chunk = self.sock.recv(self.chunk)
            except OSError:
                chunk = b""
            if self.pause:
                time.sleep(self.pause)
            if not chunk:
                with self._lock:
                    self.closed = True
                return
            with self._lock:
                self.data += chunk

    def texts(self):
        """(complete report texts, trailing bytes not yet a complete report). Parses only what
        arrived since the last call, so that long streams stay cheap to follow."""
        with self._lock:
            new = bytes(self.data[self._taken:])
            self._taken = len(self.data)
        text = self._tail + new.decode("utf-8")
        decoder = json.JSONDecoder()
        at = 0
        while at < len(text):
            try:
                _, end = decoder.raw_decode(text, at)
            except json.JSONDecodeError:
                break
            self._texts.append(text[at:end])
            at = end
        self._tail = text[at:]
        return list(self._texts), self._tail

    def reports(self):
        return [json.loads(t) for t in self.texts()[0]]

    def close(self):
        try:
            self.sock.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self.sock.close()
        self._thread.join(5)


# Keyboard-page usages of the characters the HID keyboard types.
USAGE_CHARS = {0x2C: " ", 0x36: ",", 0x37: ".", 0x2D: "-", 0x2E: "=", 0x34: "'", 0x2B: "\t",
               0x27: "0", 0x28: "\n"}
USAGE_CHARS.update({0x04 + i: chr(ord("a") + i) for i in range(26)})
USAGE_CHARS.update({0x1E + i: chr(ord("1") + i) for i in range(9)})


def decode_hid(data):
    """The text typed by a stream of 8-byte reports, each press followed by an all-zero release.
    Right Control + "m" is a carriage return. Fails on a release that is not all zero."""
    assert len(data) % 16 == 0, "reports do not come in press/release pairs: %d bytes" % len(data)
    out = []
    for at in range(0, len(data), 16):
        press, release = data[at:at + 8], data[at + 8:at + 16]
        assert release == bytes(8), "release report %r at %d" % (release, at)
        keys = [k for k in press[2:] if k]
        if press[0] == 0x10 and keys == [0x10]:
            out.append("\r")
            continue
        assert press[0] == 0 and press[1] == 0, "modifier in %r" % press
        out.extend(USAGE_CHARS[k] for k in keys)
    return "".join(out)

