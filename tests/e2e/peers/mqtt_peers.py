"""Debian's mosquitto broker started on a free loopback port with a configuration file written
here, a mosquitto_sub that records every message of a topic, the retained message of a topic,
an MQTTConfig line and CA/server certificates made by openssl. Used by the MQTT relay tests
(the certificates by the HTTPS test too), bench/relay_throughput.py and the MQTT demo."""

import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
from harness import accepts, free_port, wait_until  # noqa: E402


def mqtt_section(url, name="Dock Door 1", **keys):
    """An MQTTConfig line; every value in double quotes, the reader name with its blanks."""
    pairs = {"BrokerURL": url, "Topic": "tessera/{reader_name}/reads",
             "StatusTopic": "tessera/{reader_name}/status", "QoS": "1", "ClientId": "",
             "UserName": "", "Password": "", "CAFile": "", "KeepAlive": "30", "ReaderName": name}
    pairs.update(keys)
    return "  <MQTTConfig %s/>" % " ".join('%s="%s"' % kv for kv in pairs.items())


class Broker:
    """One mosquitto process; restart() keeps its port and, with persistence, its sessions."""

    def __init__(self, folder, users=None, tls=None, persistent=False):
        self.folder, self.port = folder, free_port()
        self.log = os.path.join(folder, "broker.log")
        self.conf = os.path.join(folder, "mosquitto.conf")
        lines = ["listener %d 127.0.0.1" % self.port, "user root", "log_dest file " + self.log,
                 "log_type all", "persistence %s" % ("true" if persistent else "false"),
                 "persistence_location %s/" % folder]
        if users:
            passwords = os.path.join(folder, "passwords")
            open(passwords, "w").close()
            for user, password in users.items():
                subprocess.run(["mosquitto_passwd", "-b", passwords, user, password], check=True,
                               capture_output=True)
            lines += ["allow_anonymous false", "password_file " + passwords]
        else:
            lines.append("allow_anonymous true")
        if tls:
            ca, cert, key = tls
            lines += ["cafile " + ca, "certfile " + cert, "keyfile " + key]
        with open(self.conf, "w") as f:
            f.write("\n".join(lines) + "\n")
        self.proc = None
        self.start()

    def start(self):
        self.proc = subprocess.Popen(["mosquitto", "-c", self.conf], stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL)
        if not wait_until(lambda: accepts(self.port), timeout=10):
            raise RuntimeError("mosquitto did not start: " + self.log_text()[-2000:])

    def stop(self):
        if self.proc and self.proc.poll() is None:
            self.proc.terminate()  # a clean end saves the persistent sessions
            self.proc.wait(timeout=10)

    def restart(self):
        self.stop()
        self.start()

    def log_text(self):
        try:
            with open(self.log, errors="replace") as f:
                return f.read()
        except FileNotFoundError:
            return ""


def sub_args(broker, topic, user, tls_ca):
    """mosquitto_sub's arguments for one topic of the broker, as the user, trusting the CA."""
    args = ["mosquitto_sub", "-h", "127.0.0.1", "-p", str(broker.port), "-t", topic]
    if user:
        args += ["-u", user[0], "-P", user[1]]
    return args + (["--cafile", tls_ca] if tls_ca else [])


class Subscriber:
    """mosquitto_sub on one topic at QoS 1 with a persistent session, so that it misses nothing
    while the broker restarts; each payload is one line of its record file."""

    def __init__(self, broker, topic, record, user=None, tls_ca=None):
        client_id = "sub-%d-%d" % (os.getpid(), id(self))
        self.record = record
        self.out = open(record, "wb")
        self.proc = subprocess.Popen(sub_args(broker, topic, user, tls_ca) +
                                     ["-q", "1", "-c", "-i", client_id],
                                     stdout=self.out, stderr=subprocess.DEVNULL)
        wait_until(lambda: "SUBSCRIBE from " + client_id in broker.log_text(), timeout=10)

    def payloads(self):
        with open(self.record, "rb") as f:
            data = f.read()
        return [l.decode("utf-8", "replace") for l in data.split(b"\n")[:-1]]

    def stop(self):
        if self.proc.poll() is None:
            self.proc.kill()
        self.proc.wait()
        self.out.close()


def retained(broker, topic, timeout=5, user=None, tls_ca=None):
    """The retained message of a topic, or None."""
    args = sub_args(broker, topic, user, tls_ca) + ["-C", "1", "-W", str(timeout), "--retained-only"]
    out = subprocess.run(args, capture_output=True, timeout=timeout + 5).stdout.decode()
    return out.rstrip("\n") if out else None


def make_ca_and_server(folder, name):
    """A CA and a server certificate for 127.0.0.1 signed by it: (ca, cert, key) paths."""
    p = lambda suffix: os.path.join(folder, name + suffix)
    run = lambda *args: subprocess.run(["openssl"] + list(args), check=True, capture_output=True)
    run("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
        "-days", "2", "-subj", "/CN=%s test CA" % name, "-keyout", p("-ca.key"), "-out",
        p("-ca.crt"))
    run("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj",
        "/CN=127.0.0.1", "-keyout", p("-server.key"), "-out", p("-server.csr"))
    ext = p("-ext.cnf")
    with open(ext, "w") as f:
        f.write("subjectAltName=IP:127.0.0.1\n")
    run("x509", "-req", "-in", p("-server.csr"), "-CA", p("-ca.crt"), "-CAkey", p("-ca.key"),
        "-CAcreateserial", "-days", "2", "-extfile", ext, "-out", p("-server.crt"))
    return p("-ca.crt"), p("-server.crt"), p("-server.key")
