"""tessera-readersim end to end: a raw LLRP client over loopback against the real process.

What the reader API tests (tests/unit/readerapi) already drive against the simulator through the
product's codec is not repeated here: this is what only the simulator does."""

import os
import struct
import tempfile
import time
import unittest

import simctl as s
from harness import wait_until
from simctl import u32


def rospec_event(c, etype):
    """ROSpec ID of the next ROSpecEvent of etype (0 start, 1 end)."""
    return struct.unpack_from(">I", c.event(249, match=lambda p: p[0] == etype), 1)[0]


def collect_epcs(c, timeout=10.0):
    """EPCs of every report until an ROSpec's end event."""
    epcs, deadline = set(), time.monotonic() + timeout
    while True:
        t, _, body = c.recv(None, deadline - time.monotonic())
        if t == s.RO_ACCESS_REPORT:
            epcs.update(r["epc"] for r in s.tag_reports(body))
        elif t == s.READER_EVENT_NOTIFICATION and [
                p for p in s.find(s.event_params(body), 249) if p[0] == 1]:
            return epcs


def antenna_powers(c):
    """Antenna ID -> transmit power index, from the reader's AntennaConfigurations."""
    body = c.request_ok(s.GET_READER_CONFIG, struct.pack(">HBHH", 0, 3, 0, 0))
    return {struct.unpack_from(">H", conf)[0]: struct.unpack(">HHH", s.find(s.params(conf[2:]), 224)[0])[2]
            for conf in s.find(s.params(body), 222)}


def set_config(c, *parts, reset=False):
    """Status code of a SET_READER_CONFIG with these parameters."""
    return s.status_of(c.transact(s.SET_READER_CONFIG, bytes([0x80 if reset else 0]) + b"".join(parts))[1])[0]


class Connection(unittest.TestCase):
    def test_capabilities_follow_the_options_and_shutdown_says_goodbye(self):
        sim = s.Simulator(["--antennas", "2", "--power-table", "10:32.5:0.25"]).start()
        self.addCleanup(sim.stop, check=False)
        c = s.connect(sim)
        top = s.params(c.request_ok(s.GET_READER_CAPABILITIES, b"\x00"))
        antennas, _, maker = struct.unpack_from(">HHI", s.find(top, 137)[0])
        self.assertEqual((antennas, maker), (2, s.VENDOR))
        band = s.params(s.find(s.params(s.find(top, 143)[0][4:]), 144)[0])
        powers = [struct.unpack(">Hh", p) for p in s.find(band, 145)]
        self.assertEqual((len(powers), powers[0], powers[-1]), (91, (1, 1000), (91, 3250)))
        self.assertEqual(len(antenna_powers(c)), 2)
        sim.stop()  # raises on a non-zero exit or a sanitizer report
        c.event(257, 3)  # ConnectionCloseEvent

    def test_second_client_is_turned_away_and_first_keeps_working(self):
        with s.Simulator() as sim:
            first = s.connect(sim)
            second = s.LlrpClient(sim.llrp_port)
            self.assertEqual(second.connect_event(), 2)
            with self.assertRaises(ConnectionError):
                second.recv(timeout=3)
            # The first client hears about the attempt, and its close below is still answered.
            self.assertEqual(first.connect_event(), 4)
            stats = sim.stats()
            self.assertEqual((stats["connections"], stats["rejected_busy"]), (1, 1))
            first.request_ok(s.CLOSE_CONNECTION)
            with self.assertRaises(ConnectionError):
                first.recv(timeout=3)
            self.assertTrue(wait_until(lambda: sim.stats()["client_connected"] == 0))
            c = s.connect(sim)  # the reader takes a new client once the first has gone
            self.assertEqual(sim.control("drop rst"), "ok dropped (reset)")
            with self.assertRaises(ConnectionError):
                c.recv(timeout=3)
            s.connect(sim).request_ok(s.GET_READER_CAPABILITIES, b"\x00")

    def test_bad_frames_and_unsupported_requests_get_errors(self):
        cases = [
            # (frame, expected message type, expected status code)
            (s.frame(s.GET_READER_CAPABILITIES, 7), s.ERROR_MESSAGE, 100),    # field missing
            (struct.pack(">HII", (2 << 10) | 1, 11, 8) + b"\x00", s.ERROR_MESSAGE, 110),  # version 2
            # An unsupported request gets its own response type with status 109
            (s.frame(s.GET_ROSPECS, 9), s.response(s.GET_ROSPECS), 109),
            (s.frame(s.CUSTOM_MESSAGE, 10, u32(1234) + b"\x05"), s.ERROR_MESSAGE, 109),
            (s.frame(s.KEEPALIVE, 11), s.ERROR_MESSAGE, 109),                  # reader-only
            (s.frame(s.DELETE_ACCESSSPEC, 12, u32(0)), s.response(s.DELETE_ACCESSSPEC), 0),
            (s.frame(s.GET_READER_CONFIG, 13, struct.pack(">HBHH", 9, 0, 0, 0)),
             s.GET_READER_CONFIG_RESPONSE, 101),                                # antenna 9
        ]
        with s.Simulator() as sim:
            c = s.connect(sim)
            for data, rtype, code in cases:
                with self.subTest(frame=data.hex()):
                    c.send_raw(data)
                    t, rid, body = c.recv()
                    self.assertEqual((t, rid), (rtype, struct.unpack_from(">I", data, 6)[0]))
                    got, text = s.status_of(body)
                    self.assertNotEqual(text, "")
                    self.assertEqual(got, code, text)
            c.request_ok(s.GET_READER_CAPABILITIES, b"\x00")
            errors = sum(rtype == s.ERROR_MESSAGE for _, rtype, _ in cases)
            self.assertEqual(sim.stats()["errors_sent"], errors)

    def test_keepalives_and_a_silent_client(self):
        with s.Simulator() as sim:
            c = s.connect(sim)
            self.assertEqual(set_config(c, s.keepalive_spec(100)), 0)
            for _ in range(3):
                _, msg_id, _ = c.recv(s.KEEPALIVE, 2)
                c.send(s.KEEPALIVE_ACK, msg_id=msg_id)
            # Now play dead: the reader gives up after three unanswered keepalives, and says so.
            c.event(257, 5)  # ConnectionCloseEvent
            c.backlog.clear()
            with self.assertRaises(ConnectionError):
                c.recv(timeout=5)
            stats = sim.stats()
            self.assertEqual(stats["keepalive_timeouts"], 1)
            self.assertGreaterEqual(stats["keepalive_acks"], 3)


class Operation(unittest.TestCase):
    def test_reports_carry_exactly_the_enabled_fields(self):
        cases = [
            (("antenna", "rssi", "seen_count"), True, {"antenna", "rssi", "seen_count", "pc", "phase"}),
            (("rospec_id", "spec_index", "channel", "first_seen", "last_seen"), False,
             {"rospec_id", "spec_index", "channel", "first_seen", "last_seen", "phase"}),
            ((), False, set()),
        ]
        with s.Simulator(["--rate", "500"]) as sim:
            c = s.connect(sim)
            for n, (fields, pc, expected) in enumerate(cases, start=1):
                with self.subTest(fields=fields):
                    c.run_rospec(s.rospec(n, report=s.ro_report_spec(1, 1, fields, pc=pc)))
                    _, _, body = c.recv(s.RO_ACCESS_REPORT)
                    for r in s.tag_reports(body):
                        self.assertEqual(set(r) - {"epc"}, expected)
                        self.assertEqual(len(r["epc"]), 24)
                        if "rssi" in r:
                            self.assertTrue(-75 <= r["rssi"] <= -35, r)
                        if "pc" in r:
                            self.assertEqual(r["pc"], 0x3000)
                        if "rospec_id" in r:
                            self.assertEqual((r["rospec_id"], r["spec_index"]), (n, 1))
                        if "first_seen" in r:
                            self.assertLess(abs(r["first_seen"] / 1e6 - time.time()), 60)
                    c.request_ok(s.DISABLE_ROSPEC, u32(n))  # and so stop it
                    c.backlog.clear()

    def test_aispec_stop_triggers_duration_with_one_report_and_n_tags(self):
        with s.Simulator(["--tags", "5", "--rate", "400"]) as sim:
            c = s.connect(sim)
            c.run_rospec(s.rospec(3, antennas=(1,), ai_stop=s.aispec_stop(1, 300),
                                  report=s.ro_report_spec(1, 0, ("antenna", "seen_count"))))
            _, _, body = c.recv(s.RO_ACCESS_REPORT, 5)
            reports = s.tag_reports(body)
            self.assertEqual(len(reports), 5)  # one entry per tag and antenna
            self.assertGreater(sum(r["seen_count"] for r in reports), 5)
            self.assertEqual(rospec_event(c, 1), 3)
            stats = sim.stats()
            self.assertEqual((stats["reads_sent"], stats["reports_sent"]), (5, 1))
            # Immediate: enabling starts it; it ends after seeing three tags.
            c.backlog.clear()
            stop = s.aispec_stop(3, tags=3, timeout_ms=5000)
            c.run_rospec(s.rospec(4, start_type=1, ai_stop=stop), start=False)
            self.assertEqual(len(collect_epcs(c)), 3)

    def test_rospec_state_machine(self):
        steps = [  # (request, ROSpec ID, status, the simulator's ROSpecs after it when checked)
            (s.START_ROSPEC, 5, 300, None),                 # unknown
            (s.ADD_ROSPEC, 5, 0, "ok 5=Disabled"),
            (s.ADD_ROSPEC, 5, 300, None),                   # duplicate
            (s.START_ROSPEC, 5, 300, None),                 # disabled
            (s.STOP_ROSPEC, 5, 300, None),                  # not active
            (s.ENABLE_ROSPEC, 5, 0, "ok 5=Inactive"),
            (s.START_ROSPEC, 0, 300, None),                 # 0 is not "all" here
            (s.START_ROSPEC, 5, 0, "ok 5=Active"),
            (s.START_ROSPEC, 5, 300, None),                 # already active
            (s.ADD_ROSPEC, 6, 0, None),
            (s.ENABLE_ROSPEC, 0, 0, "ok 5=Active 6=Inactive"),        # all
            (s.START_ROSPEC, 6, 300, None),                 # 5 is active
            (s.DISABLE_ROSPEC, 0, 0, "ok 5=Disabled 6=Disabled"),     # all, 5 stops
            (s.DELETE_ROSPEC, 7, 300, None),
            (s.DELETE_ROSPEC, 0, 0, "ok none"),
            (s.ENABLE_ROSPEC, 5, 300, None),                # deleted
        ]
        with s.Simulator() as sim:
            c = s.connect(sim)
            for i, (mtype, rid, code, rospecs) in enumerate(steps):
                with self.subTest(step=i):
                    t, reply = c.transact(mtype, s.rospec(rid) if mtype == s.ADD_ROSPEC else u32(rid))
                    self.assertEqual(t, s.response(mtype))
                    got, text = s.status_of(reply)
                    self.assertEqual(got, code, text)
                    if rospecs:
                        self.assertEqual(sim.control("rospecs"), rospecs)
            stats = sim.stats()
            self.assertEqual((stats["rospecs_started"], stats["rospecs_stopped"]), (1, 1))

    # The first GPI start, its GPIEvent and a duration stop are in the reader API's
    # EveryTriggerKindStartsAndStops; here the trigger fires again only on a new rising edge.
    def test_gpi_start_fires_on_each_rising_edge(self):
        with s.Simulator(["--rate", "300"]) as sim:
            c = s.connect(sim)
            c.run_rospec(s.rospec(2, start_type=3, stop_type=1, duration_ms=300,
                                  start_params=s.gpi_trigger(1, True)), start=False)
            with self.assertRaises(TimeoutError):
                c.recv(s.RO_ACCESS_REPORT, 0.3)
            self.assertEqual(sim.control("gpi 1 1"), "ok gpi 1=1")
            self.assertEqual(rospec_event(c, 0), 2)
            c.recv(s.RO_ACCESS_REPORT)
            self.assertEqual(rospec_event(c, 1), 2)
            self.assertEqual(sim.control("rospecs"), "ok 2=Inactive")
            self.assertEqual(sim.control("gpi 1 1"), "ok gpi 1 unchanged")
            sim.control("gpi 1 0")
            sim.control("gpi 1 1")
            self.assertEqual(rospec_event(c, 0), 2)
            self.assertEqual(rospec_event(c, 1), 2)
            self.assertEqual(sim.control("gpi 9 1"), "error no GPI port 9 (1..4)")

    # That a set power reads back is in the reader API's
    # CapabilitiesPowerSavedConfigurationAndReaderErrors; here is what it does to the field.
    def test_power_changes_what_is_seen(self):
        # 100 tags spread evenly: index p of 81 sees the tags whose reach is <= p/81.
        cases = [(81, 100), (41, 51), (1, 1)]
        with s.Simulator(["--tags", "100", "--rate", "0"]) as sim:
            c = s.connect(sim)
            for n, (power, visible) in enumerate(cases, start=1):
                with self.subTest(power=power):
                    self.assertEqual(set_config(c, s.antenna_configuration(1, power=power)), 0)
                    stop = s.aispec_stop(3, attempts=3)
                    c.run_rospec(s.rospec(n, antennas=(1,), ai_stop=stop))
                    self.assertEqual(len(collect_epcs(c)), visible)
            self.assertEqual(sim.control("power"), "ok 1=1 2=81 3=81 4=81")
            self.assertEqual(set_config(c, s.antenna_configuration(1, power=82)), 201)

    def test_prefilters_include_or_exclude(self):
        epcs = ["300833B2DDD9014000000001", "300833B2DDD9014000000002", "E28011606000020000000003",
                "E28011606000020000000004", "AABB"]
        cases = [
            ([(1, 32, "3008", 0)], {epcs[0], epcs[1]}),            # include matching
            ([(1, 32, "3008", 4)], {epcs[2], epcs[3], epcs[4]}),   # exclude matching
            ([(1, 32, "3008", 0), (1, 112, "0003", 1)], {epcs[0], epcs[1], epcs[2]}),  # or
            ([(1, 16, "0800", 0)], {epcs[4]}),                     # PC word: one-word EPC
        ]
        with tempfile.NamedTemporaryFile("w", suffix=".epc") as f:
            f.write("# field\n" + "\n".join(epcs) + "\n")
            f.flush()
            with s.Simulator(["--epc-file", f.name, "--rate", "0"]) as sim:
                c = s.connect(sim)
                for n, (filters, expected) in enumerate(cases, start=1):
                    with self.subTest(filters=filters):
                        conf = s.antenna_configuration(0, filters=filters)
                        c.run_rospec(s.rospec(n, ai_stop=s.aispec_stop(3, attempts=2), antenna_configs=conf))
                        self.assertEqual(collect_epcs(c), expected)

    def test_antenna_events_and_buffer_events(self):
        with s.Simulator(["--rate", "400"]) as sim:
            c = s.connect(sim)
            c.run_rospec(s.rospec(1, report=s.ro_report_spec(1, 1, ("antenna",))))
            self.assertEqual(sim.control("antenna 2 disconnected"), "ok antenna 2 disconnected")
            self.assertEqual(c.event(255), b"\x00\x00\x02")
            c.backlog.clear()
            seen = set()
            for _ in range(40):
                seen.update(r["antenna"] for r in s.tag_reports(c.recv(s.RO_ACCESS_REPORT)[2]))
            self.assertEqual(seen, {1, 3, 4})
            self.assertEqual(sim.control("buffer-warning"), "ok sent")
            c.event(250)
            self.assertEqual(sim.control("buffer-overflow"), "ok sent")
            c.event(251)

    def test_slow_client_costs_dropped_reads(self):
        with s.Simulator(["--rate", "20000", "--buffer-limit", "8192"]) as sim:
            c = s.connect(sim, rcvbuf=4096)
            c.run_rospec(s.rospec(1))
            self.assertTrue(wait_until(lambda: sim.stats()["reads_dropped"] > 0, timeout=10))
            c.event(251, 10)
            c.request_ok(s.STOP_ROSPEC, u32(1))

    def test_get_report_and_held_events(self):
        with s.Simulator(["--tags", "3"]) as sim:
            c = s.connect(sim)
            c.run_rospec(s.rospec(1, report=s.ro_report_spec(0, 0, ("antenna",))))
            time.sleep(0.2)
            c.send(s.GET_REPORT, msg_id=77)
            _, rid, body = c.recv(s.RO_ACCESS_REPORT)
            self.assertEqual(rid, 77)
            self.assertGreaterEqual(len(s.tag_reports(body)), 3)
            # Hold events and reports over a reconnect until ENABLE_EVENTS_AND_REPORTS.
            self.assertEqual(set_config(c, s.tlv(226, b"\x80")), 0)
            c.close()
            self.assertTrue(wait_until(lambda: sim.stats()["client_connected"] == 0))
            sim.control("gpi 3 1")  # a GPIEvent while nobody listens
            c = s.connect(sim)
            c.request_ok(s.GET_READER_CAPABILITIES, b"\x00")
            with self.assertRaises(TimeoutError):
                c.recv(s.READER_EVENT_NOTIFICATION, 0.3)
            c.send(s.ENABLE_EVENTS_AND_REPORTS)
            c.event(248)


class SavedConfiguration(unittest.TestCase):
    # That saving answers with success and is counted is in the reader API's
    # CapabilitiesPowerSavedConfigurationAndReaderErrors; here it outlives the process.
    def test_save_survives_a_restart_and_factory_reset_restores(self):
        with tempfile.TemporaryDirectory() as d:
            state = os.path.join(d, "reader.state")
            with s.Simulator(["--state", state]) as sim:
                c = s.connect(sim)
                set_config(c, s.antenna_configuration(2, power=20))
                c.send(s.CUSTOM_MESSAGE, u32(s.VENDOR) + bytes([s.SAVE_SUBTYPE]))
                self.assertEqual(s.status_of(c.recv(s.CUSTOM_MESSAGE)[2], 5)[0], 0)
            with s.Simulator(["--state", state]) as sim:
                c = s.connect(sim)
                self.assertEqual(antenna_powers(c), {1: 81, 2: 20, 3: 81, 4: 81})
                self.assertEqual(set_config(c, reset=True), 0)
                self.assertEqual(antenna_powers(c), {1: 81, 2: 81, 3: 81, 4: 81})
            with open(state, "w") as f:
                f.write("antenna.1.transmit_power=900\n")
            with self.assertRaises(RuntimeError):
                s.Simulator(["--state", state]).start()
