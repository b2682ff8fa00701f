#!/usr/bin/env python3
"""Throughput of the first stream: tessera-readersim at --rate 0 -> tessera in serial push mode ->
a pty reader. Prints reads/s, CPU microseconds per read of the tessera process, its peak RSS
and the lost reads: after the wanted number of reads the simulator is slowed to a trickle, the
line is read until it falls quiet, and the simulator's reads_sent is compared with the CRC-valid
lines on the line and with tessera's reads_out (getStatistics).

    python3 bench/serial_push_throughput.py [--reads 100000] [--bin build/bin]
"""

import argparse
import os
import select
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))


def proc_cpu_seconds(pid):
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def proc_status(pid, key):
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            if line.startswith(key + ":"):
                return int(line.split()[1])
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--reads", type=int, default=100000)
    parser.add_argument("--tags", type=int, default=500)
    parser.add_argument("--bin", default=os.path.join(HERE, "..", "build", "bin"))
    args = parser.parse_args()
    os.environ["TESSERA_BIN"] = os.path.abspath(args.bin)

    from fixtures import Bench, crc_ok  # noqa: E402 (needs TESSERA_BIN first)

    bench = Bench(sim_args=("--tags", str(args.tags), "--rate", "0"), serial={"TagMetaData": "45"})
    pid = bench.tessera.proc.pid
    try:
        cpu0 = proc_cpu_seconds(pid)
        reply = bench.tessera.command("setup.operating_mode_serialPort=,5084 0 ,\r\n")
        assert reply == b"PushDataStart:0\r\n\r\n", reply
        # The reader only collects bytes while reads flow (a slow reader would be what is
        # measured); the lines are counted and their CRCs checked afterwards.
        start = time.monotonic()
        chunks = []
        newlines = 0
        rss_samples = []
        next_sample = start
        stopped = False
        quiet_since = None
        elapsed = 0.0
        while True:
            ready, _, _ = select.select([bench.line.master], [], [], 0.2)
            if ready:
                chunk = os.read(bench.line.master, 1 << 20)
                chunks.append(chunk)
                newlines += chunk.count(b"\n")
                quiet_since = None
            elif stopped:
                quiet_since = quiet_since or time.monotonic()
                if time.monotonic() - quiet_since > 2.0:
                    break
            now = time.monotonic()
            if now >= next_sample:
                rss_samples.append(proc_status(pid, "VmRSS"))
                next_sample = now + 0.5
            if not stopped and newlines > args.reads:
                bench.sim.control("rate 0.001")
                elapsed = time.monotonic() - start
                cpu = proc_cpu_seconds(pid) - cpu0
                stopped = True
        lines = b"".join(chunks).split(b"\r\n")[:-1]
        body = [l.decode("ascii", "replace") for l in lines if not l.endswith(b"<CRC>")]
        valid = sum(1 for l in body if crc_ok(l))
        sent = bench.sim.stats()["reads_sent"]
        out = bench.tessera.statistics()["reads_out"]
        hwm = proc_status(pid, "VmHWM")
    finally:
        bench.close()
    print("| stream | reads sent | reads/s | CPU us/read | RSS first/last KiB | peak RSS KiB "
          "| reads_out | lost |")
    print("|---|---|---|---|---|---|---|---|")
    print("| serial push (pty) | %d | %.0f | %.2f | %d / %d | %d | %d | %d |" % (
        sent, newlines / elapsed, cpu / max(newlines, 1) * 1e6,
        rss_samples[0] if rss_samples else 0, rss_samples[-1] if rss_samples else 0, hwm, out,
        sent - valid))
    return 0


if __name__ == "__main__":
    sys.exit(main())
