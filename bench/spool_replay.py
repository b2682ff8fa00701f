#!/usr/bin/env python3
"""The outage spool end to end: tessera-readersim at link speed -> tessera in the HTTP POST relay
with --spool while the server is away, then a fast keep-alive HTTP server comes back. Prints the
reads/s sustained into the spool during the outage (with tessera's CPU per read), how long the
replay of what it holds takes, and the reads lost (the simulator's reads_sent against the EPCs
that arrived, counted after draining). No assertions: this measures.

    bench/spool_replay.py [--bin build/bin] [--reads 1000000] [--tags 200]

Use a Release build. The spool goes to a temporary folder on the machine's disk."""

import argparse
import os
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
E2E = os.path.join(HERE, "..", "tests", "e2e")
sys.path[:0] = [HERE, E2E, os.path.join(E2E, "peers")]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", default=os.environ.get("TESSERA_BIN",
                                                        os.path.join(HERE, "..", "build", "bin")))
    parser.add_argument("--reads", type=int, default=1000000, help="reads to spool, then replay")
    parser.add_argument("--tags", type=int, default=200)
    args = parser.parse_args()
    os.environ["TESSERA_BIN"] = os.path.abspath(args.bin)
    from fixtures import write_config
    from harness import Tessera, free_port, wait_until
    from relay_peers import http_section
    from relay_throughput import CountingHttpServer, _accepts, cpu_seconds

    folder = tempfile.TemporaryDirectory(prefix="spool-bench-")
    port = free_port()
    from simctl import Simulator
    sim = Simulator(("--tags", str(args.tags), "--rate", "0")).start()
    tessera = Tessera(reader_port=sim.llrp_port, env={"MVM_DEBUG": "off"},
                      extra_args=("--spool", os.path.join(folder.name, "spool"),
                                  "--spool-max-bytes", "4G"))
    server = None
    try:
        write_config(tessera.root, relay={"TagrelayMode": "1", "TagMetaData": "45"},
                     extra_lines=[http_section("http://127.0.0.1:%d/bench" % port, interval=0)])
        tessera.start(wait_ready=False)
        wait_until(lambda: _accepts(tessera.command_port), timeout=20)
        reply = tessera.command("setup.operating_mode_Tagrelay=,5084 0 1 ,\r\n")
        assert reply == b"httppoststart:0\r\n\r\n", reply
        pid = tessera.proc.pid
        stats = tessera.statistics
        wait_until(lambda: stats()["reads_in"] > 0, timeout=20)
        in0, cpu0, t0 = stats()["reads_in"], cpu_seconds(pid), time.monotonic()
        wait_until(lambda: stats()["reads_in"] >= args.reads, timeout=600, interval=0.5)
        in1, cpu1, t1 = stats()["reads_in"], cpu_seconds(pid), time.monotonic()
        sim.control("rate 0.001")
        wait_until(lambda: stats()["reads_in"] == sim.stats()["reads_sent"], timeout=60)
        time.sleep(1)
        held = stats()
        server = CountingHttpServer(port)
        r0 = time.monotonic()
        wait_until(lambda: stats()["reads_out"] >= held["reads_in"], timeout=600, interval=0.1)
        r1 = time.monotonic()
        sent = sim.stats()["reads_sent"]
        wait_until(lambda: server.count() >= sent, timeout=60)
        final = stats()
        print("| phase | reads | seconds | reads/s | tessera CPU us/read |")
        print("|---|---|---|---|---|")
        print("| outage: link speed into the spool | %d | %.1f | %.0f | %.2f |" % (
            in1 - in0, t1 - t0, (in1 - in0) / (t1 - t0), (cpu1 - cpu0) / max(in1 - in0, 1) * 1e6))
        print("| replay to a fast HTTP server | %d | %.1f | %.0f | |" % (
            held["reads_in"], r1 - r0, held["reads_in"] / (r1 - r0)))
        print()
        print("spool at the end of the outage: %d bytes in %d batches; reads sent %d, arrived %d,"
              " lost %d; reads_out %d" % (held["spool_bytes"], held["spool_batches"], sent,
                                          server.count(), sent - server.count(),
                                          final["reads_out"]))
    finally:
        tessera.close()
        if server:
            server.close()
        sim.stop(check=False)
        folder.cleanup()
    return 0


if __name__ == "__main__":
    sys.exit(main())
