"""tessera-readersim end to end: a raw LLRP client over loopback against the real process."""

import os
import struct
import tempfile
import time
import unittest

import simctl
from harness import wait_until
from simctl import (ADD_ROSPEC, ADD_ROSPEC_RESPONSE, CLOSE_CONNECTION, CLOSE_CONNECTION_RESPONSE,
                    CUSTOM_MESSAGE, DELETE_ACCESSSPEC, DELETE_ACCESSSPEC_RESPONSE, DELETE_ROSPEC,
                    DELETE_ROSPEC_RESPONSE, DISABLE_ROSPEC, DISABLE_ROSPEC_RESPONSE, ENABLE_ROSPEC,
                    ENABLE_ROSPEC_RESPONSE, ENABLE_EVENTS_AND_REPORTS, ERROR_MESSAGE,
                    GET_READER_CAPABILITIES, GET_READER_CAPABILITIES_RESPONSE, GET_READER_CONFIG,
                    GET_READER_CONFIG_RESPONSE, GET_REPORT, KEEPALIVE, KEEPALIVE_ACK, LlrpClient,
                    READER_EVENT_NOTIFICATION, RO_ACCESS_REPORT, SET_READER_CONFIG,
                    SET_READER_CONFIG_RESPONSE, START_ROSPEC, START_ROSPEC_RESPONSE, STOP_ROSPEC,
                    STOP_ROSPEC_RESPONSE, Simulator, event_params, find, params, status_of,
                    tag_reports, tlv)

U32 = struct.Struct(">I")


def connect(sim):
    c = LlrpClient(sim.llrp_port)
    assert c.connect_event() == 0
    return c


def run_rospec(c, rospec_body, rospec_id=1, start=True):
    c.request_ok(ADD_ROSPEC, rospec_body, ADD_ROSPEC_RESPONSE)
    c.request_ok(ENABLE_ROSPEC, U32.pack(rospec_id), ENABLE_ROSPEC_RESPONSE)
    if start:
        c.request_ok(START_ROSPEC, U32.pack(rospec_id), START_ROSPEC_RESPONSE)


def rospec_event(body):
    """(event type, rospec id) of a ROSpecEvent notification, or None."""
    found = find(event_params(body), 249)
    if not found:
        return None
    etype, rid = struct.unpack_from(">BI", found[0])
    return etype, rid


def wait_rospec_event(c, etype, timeout=5.0):
    _, _, body = c.recv(READER_EVENT_NOTIFICATION, timeout,
                        match=lambda b: (rospec_event(b) or (None,))[0] == etype)
    return rospec_event(body)


def collect_epcs(c, until_end=True, timeout=10.0):
    """EPCs of every report until the ROSpec's end event."""
    epcs = set()
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        t, _, body = c.recv(None, deadline - time.monotonic())
        if t == RO_ACCESS_REPORT:
            epcs.update(r["epc"] for r in tag_reports(body))
        elif t == READER_EVENT_NOTIFICATION and (rospec_event(body) or (None,))[0] == 1:
            return epcs
    raise AssertionError("no end of ROSpec")


def capabilities(c):
    body = c.request_ok(GET_READER_CAPABILITIES, b"\x00", GET_READER_CAPABILITIES_RESPONSE)
    top = params(body)
    general = find(top, 137)[0]
    antennas, _, maker, model = struct.unpack_from(">HHII", general)
    regulatory = params(find(top, 143)[0][4:])
    band = params(find(regulatory, 144)[0])
    powers = [struct.unpack(">Hh", p) for p in find(band, 145)]
    return {"antennas": antennas, "maker": maker, "model": model, "powers": powers}


def antenna_powers(c, antenna_id=0):
    body = c.request_ok(GET_READER_CONFIG, struct.pack(">HBHH", antenna_id, 3, 0, 0),
                        GET_READER_CONFIG_RESPONSE)
    out = {}
    for conf in find(params(body), 222):
        aid = struct.unpack_from(">H", conf)[0]
        (tx,) = find(params(conf[2:]), 224)
        out[aid] = struct.unpack(">HHH", tx)[2]
    return out


def set_config(c, *parts, reset=False):
    return c.transact(SET_READER_CONFIG, bytes([0x80 if reset else 0]) + b"".join(parts),
                      SET_READER_CONFIG_RESPONSE)


class Connection(unittest.TestCase):
    def test_capabilities_follow_the_options(self):
        with Simulator(["--antennas", "2", "--power-table", "10:32.5:0.25"]) as sim:
            c = connect(sim)
            caps = capabilities(c)
            self.assertEqual((caps["antennas"], caps["maker"]), (2, simctl.VENDOR))
            self.assertEqual(len(caps["powers"]), 91)
            self.assertEqual((caps["powers"][0], caps["powers"][-1]), ((1, 1000), (91, 3250)))
            self.assertEqual(len(antenna_powers(c)), 2)
            c.request_ok(CLOSE_CONNECTION, b"", CLOSE_CONNECTION_RESPONSE)

    def test_second_client_is_turned_away_and_first_keeps_working(self):
        with Simulator() as sim:
            first = connect(sim)
            second = LlrpClient(sim.llrp_port)
            self.assertEqual(second.connect_event(), 2)
            with self.assertRaises(ConnectionError):
                second.recv(timeout=3)
            # The first client hears about the attempt and still gets answers.
            self.assertEqual(first.connect_event(), 4)
            self.assertEqual(capabilities(first)["antennas"], 4)
            stats = sim.stats()
            self.assertEqual((stats["connections"], stats["rejected_busy"]), (1, 1))
            first.request_ok(CLOSE_CONNECTION, b"", CLOSE_CONNECTION_RESPONSE)
            with self.assertRaises(ConnectionError):
                first.recv(timeout=3)
            self.assertTrue(wait_until(lambda: sim.stats()["client_connected"] == 0))
            c = connect(sim)  # the reader takes a new client once the first has gone
            self.assertEqual(sim.control("drop rst"), "ok dropped (reset)")
            with self.assertRaises(ConnectionError):
                c.recv(timeout=3)
            self.assertEqual(capabilities(connect(sim))["antennas"], 4)

    def test_bad_frames_and_unsupported_requests_get_errors(self):
        cases = [
            # (frame, expected message type, expected status code)
            (simctl.frame(GET_READER_CAPABILITIES, 7, b""), ERROR_MESSAGE, None),   # field missing
            (struct.pack(">HII", (2 << 10) | 1, 11, 8) + b"\x00", ERROR_MESSAGE, 110),  # version 2
            # GET_ROSPECS: an unsupported request gets its own response type with status 109
            (simctl.frame(26, 9), 36, 109),
            (simctl.frame(CUSTOM_MESSAGE, 10, U32.pack(1234) + b"\x05"), ERROR_MESSAGE, 109),
            (simctl.frame(KEEPALIVE, 11), ERROR_MESSAGE, 109),                      # reader-only
            (simctl.frame(DELETE_ACCESSSPEC, 12, U32.pack(0)), DELETE_ACCESSSPEC_RESPONSE, 0),
            (simctl.frame(GET_READER_CONFIG, 13, struct.pack(">HBHH", 9, 0, 0, 0)),
             GET_READER_CONFIG_RESPONSE, 101),                                      # antenna 9
        ]
        with Simulator() as sim:
            c = connect(sim)
            errors = 0
            for data, rtype, code in cases:
                with self.subTest(frame=data.hex()):
                    msg_id = struct.unpack_from(">I", data, 6)[0]
                    c.send_raw(data)
                    t, rid, body = c.recv(match=None)
                    errors += t == ERROR_MESSAGE
                    self.assertEqual(t, rtype)
                    self.assertEqual(rid, msg_id)
                    got, text = status_of(body)
                    self.assertNotEqual(text, "")
                    if code is None:
                        self.assertNotEqual(got, 0)
                    else:
                        self.assertEqual(got, code, text)
            self.assertEqual(capabilities(c)["antennas"], 4)
            self.assertEqual(errors, 4)
            self.assertEqual(sim.stats()["errors_sent"], errors)

    def test_keepalives_and_a_silent_client(self):
        with Simulator() as sim:
            c = connect(sim)
            t, body = set_config(c, simctl.keepalive_spec(100))
            self.assertEqual(status_of(body)[0], 0)
            for _ in range(3):
                _, msg_id, _ = c.recv(KEEPALIVE, 2)
                c.send(KEEPALIVE_ACK, msg_id=msg_id)
            # Now play dead: the reader gives up after three unanswered keepalives.
            deadline = time.monotonic() + 5
            kinds = []
            with self.assertRaises(ConnectionError):
                while time.monotonic() < deadline:
                    t, _, body = c.recv(timeout=deadline - time.monotonic())
                    kinds.append(t)
            self.assertIn(READER_EVENT_NOTIFICATION, kinds)  # ConnectionCloseEvent
            stats = sim.stats()
            self.assertEqual(stats["keepalive_timeouts"], 1)
            self.assertGreaterEqual(stats["keepalive_acks"], 3)
            self.assertIn("no KEEPALIVE_ACK", sim.stderr())

    def test_shutdown_says_goodbye(self):
        sim = Simulator().start()
        c = connect(sim)
        text = sim.stop()  # raises on a non-zero exit or a sanitizer report
        _, _, body = c.recv(READER_EVENT_NOTIFICATION, 3)
        self.assertTrue(find(event_params(body), 257), "ConnectionCloseEvent expected")
        self.assertIn("shutting down", text)


class Operation(unittest.TestCase):
    def test_reports_carry_exactly_the_enabled_fields(self):
        cases = [
            (("antenna", "rssi", "seen_count"), True, {"antenna", "rssi", "seen_count", "pc", "phase"}),
            (("rospec_id", "spec_index", "channel", "first_seen", "last_seen"), False,
             {"rospec_id", "spec_index", "channel", "first_seen", "last_seen", "phase"}),
            ((), False, set()),
        ]
        with Simulator(["--rate", "500"]) as sim:
            c = connect(sim)
            for n, (fields, pc, expected) in enumerate(cases, start=1):
                with self.subTest(fields=fields):
                    rospec_body = simctl.rospec(n, report=simctl.ro_report_spec(1, 1, fields, pc=pc))
                    run_rospec(c, rospec_body, n)
                    _, _, body = c.recv(RO_ACCESS_REPORT)
                    for r in tag_reports(body):
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
                    c.request_ok(STOP_ROSPEC, U32.pack(n), STOP_ROSPEC_RESPONSE)
                    c.request_ok(DELETE_ROSPEC, U32.pack(n), DELETE_ROSPEC_RESPONSE)
                    c.backlog.clear()

    def test_report_at_end_of_aispec_aggregates_reads(self):
        with Simulator(["--tags", "5", "--rate", "400"]) as sim:
            c = connect(sim)
            rospec_body = simctl.rospec(3, antennas=(1,), ai_stop=simctl.ai_stop(1, 300),
                                 report=simctl.ro_report_spec(1, 0, ("antenna", "seen_count")))
            run_rospec(c, rospec_body, 3)
            _, _, body = c.recv(RO_ACCESS_REPORT, 5)
            reports = tag_reports(body)
            self.assertEqual(len(reports), 5)  # one entry per tag and antenna
            self.assertGreater(sum(r["seen_count"] for r in reports), 5)
            self.assertEqual(wait_rospec_event(c, 1), (1, 3))
            stats = sim.stats()
            self.assertEqual(stats["reads_sent"], 5)
            self.assertEqual(stats["reports_sent"], 1)

    def test_rospec_state_machine(self):
        steps = [
            (START_ROSPEC, 5, START_ROSPEC_RESPONSE, 300),     # unknown
            (ADD_ROSPEC, 5, ADD_ROSPEC_RESPONSE, 0),
            (ADD_ROSPEC, 5, ADD_ROSPEC_RESPONSE, 300),         # duplicate
            (START_ROSPEC, 5, START_ROSPEC_RESPONSE, 300),     # disabled
            (STOP_ROSPEC, 5, STOP_ROSPEC_RESPONSE, 300),       # not active
            (ENABLE_ROSPEC, 5, ENABLE_ROSPEC_RESPONSE, 0),
            (START_ROSPEC, 0, START_ROSPEC_RESPONSE, 300),     # 0 is not "all" here
            (START_ROSPEC, 5, START_ROSPEC_RESPONSE, 0),
            (START_ROSPEC, 5, START_ROSPEC_RESPONSE, 300),     # already active
            (ADD_ROSPEC, 6, ADD_ROSPEC_RESPONSE, 0),
            (ENABLE_ROSPEC, 0, ENABLE_ROSPEC_RESPONSE, 0),     # all
            (START_ROSPEC, 6, START_ROSPEC_RESPONSE, 300),     # 5 is active
            (DISABLE_ROSPEC, 0, DISABLE_ROSPEC_RESPONSE, 0),   # all, 5 stops
            (DELETE_ROSPEC, 7, DELETE_ROSPEC_RESPONSE, 300),
            (DELETE_ROSPEC, 0, DELETE_ROSPEC_RESPONSE, 0),
            (ENABLE_ROSPEC, 5, ENABLE_ROSPEC_RESPONSE, 300),   # deleted
        ]
        # rospecs after the first N steps
        states = {2: "ok 5=Disabled", 6: "ok 5=Inactive", 8: "ok 5=Active",
                  11: "ok 5=Active 6=Inactive", 13: "ok 5=Disabled 6=Disabled", 15: "ok none"}
        with Simulator() as sim:
            c = connect(sim)
            for i, (mtype, rid, rtype, code) in enumerate(steps):
                with self.subTest(step=i):
                    body = simctl.rospec(rid) if mtype == ADD_ROSPEC else U32.pack(rid)
                    t, reply = c.transact(mtype, body, rtype)
                    self.assertEqual(t, rtype)
                    got, text = status_of(reply)
                    self.assertEqual(got, code, text)
                    if i + 1 in states:
                        self.assertEqual(sim.control("rospecs"), states[i + 1])
            stats = sim.stats()
            self.assertEqual((stats["rospecs_started"], stats["rospecs_stopped"]), (1, 1))

    def test_gpi_start_and_duration_stop(self):
        with Simulator(["--rate", "300"]) as sim:
            c = connect(sim)
            rospec_body = simctl.rospec(2, start_type=3, stop_type=1, duration_ms=300,
                                 start_params=simctl.gpi_trigger(1, True))
            run_rospec(c, rospec_body, 2, start=False)
            with self.assertRaises(TimeoutError):
                c.recv(RO_ACCESS_REPORT, 0.3)
            self.assertEqual(sim.control("gpi 1 1"), "ok gpi 1=1")
            _, _, body = c.recv(READER_EVENT_NOTIFICATION, match=lambda b: find(event_params(b), 248))
            self.assertEqual(find(event_params(body), 248)[0], b"\x00\x01\x80")
            self.assertEqual(wait_rospec_event(c, 0), (0, 2))
            c.recv(RO_ACCESS_REPORT)
            self.assertEqual(wait_rospec_event(c, 1), (1, 2))
            self.assertEqual(sim.control("rospecs"), "ok 2=Inactive")
            self.assertEqual(sim.control("gpi 1 1"), "ok gpi 1 unchanged")
            # Low, then high again: the trigger fires a second time.
            sim.control("gpi 1 0")
            sim.control("gpi 1 1")
            self.assertEqual(wait_rospec_event(c, 0), (0, 2))
            self.assertEqual(wait_rospec_event(c, 1), (1, 2))
            self.assertEqual(sim.control("gpi 9 1"), "error no GPI port 9 (1..4)")

    def test_immediate_start_and_tag_observation_stop_after_n_tags(self):
        with Simulator(["--tags", "50", "--rate", "1000"]) as sim:
            c = connect(sim)
            stop = simctl.ai_stop(3, extra=simctl.tag_observation(0, tags=7, timeout_ms=5000))
            # Immediate: enabling starts it.
            run_rospec(c, simctl.rospec(1, start_type=1, ai_stop=stop), 1, start=False)
            epcs = collect_epcs(c)
            self.assertEqual(len(epcs), 7)

    def test_power_changes_what_is_seen(self):
        # 100 tags spread evenly: index p of 81 sees the tags whose reach is <= p/81.
        cases = [(81, 100), (41, 51), (1, 1)]
        with Simulator(["--tags", "100", "--rate", "0"]) as sim:
            c = connect(sim)
            for n, (power, visible) in enumerate(cases, start=1):
                with self.subTest(power=power):
                    t, body = set_config(c, simctl.antenna_configuration(1, power=power))
                    self.assertEqual(status_of(body)[0], 0)
                    self.assertEqual(antenna_powers(c, 1), {1: power})
                    stop = simctl.ai_stop(3, extra=simctl.tag_observation(2, attempts=3))
                    run_rospec(c, simctl.rospec(n, antennas=(1,), ai_stop=stop), n)
                    self.assertEqual(len(collect_epcs(c)), visible)
            self.assertEqual(sim.control("power"), "ok 1=1 2=81 3=81 4=81")
            t, body = set_config(c, simctl.antenna_configuration(1, power=82))
            self.assertEqual(status_of(body)[0], 201)

    def test_prefilters_include_or_exclude(self):
        epcs = ["300833B2DDD9014000000001", "300833B2DDD9014000000002", "E28011606000020000000003",
                "E2801160600002000000000400"[:24], "AABB"]
        cases = [
            ([(1, 32, "3008", 0)], {epcs[0], epcs[1]}),            # include matching
            ([(1, 32, "3008", 4)], {epcs[2], epcs[3], epcs[4]}),   # exclude matching
            ([(1, 32, "3008", 0), (1, 112, "0003", 1)], {epcs[0], epcs[1], epcs[2]}),  # or
            ([(1, 16, "0800", 0)], {epcs[4]}),                     # PC word: one-word EPC
        ]
        with tempfile.NamedTemporaryFile("w", suffix=".epc", delete=False) as f:
            f.write("# field\n" + "\n".join(epcs) + "\n")
        try:
            with Simulator(["--epc-file", f.name, "--rate", "0"]) as sim:
                c = connect(sim)
                for n, (filters, expected) in enumerate(cases, start=1):
                    with self.subTest(filters=filters):
                        conf = simctl.antenna_configuration(0, filters=filters)
                        stop = simctl.ai_stop(3, extra=simctl.tag_observation(2, attempts=2))
                        run_rospec(c, simctl.rospec(n, ai_stop=stop, antenna_configs=conf), n)
                        self.assertEqual(collect_epcs(c), expected)
        finally:
            os.unlink(f.name)

    def test_antenna_events_and_buffer_events(self):
        with Simulator(["--rate", "400"]) as sim:
            c = connect(sim)
            run_rospec(c, simctl.rospec(1, report=simctl.ro_report_spec(1, 1, ("antenna",))), 1)
            self.assertEqual(sim.control("antenna 2 disconnected"), "ok antenna 2 disconnected")
            _, _, body = c.recv(READER_EVENT_NOTIFICATION, match=lambda b: find(event_params(b), 255))
            self.assertEqual(find(event_params(body), 255)[0], b"\x00\x00\x02")
            c.backlog.clear()
            seen = set()
            for _ in range(40):
                _, _, body = c.recv(RO_ACCESS_REPORT)
                seen.update(r["antenna"] for r in tag_reports(body))
            self.assertEqual(seen, {1, 3, 4})
            self.assertEqual(sim.control("buffer-warning"), "ok sent")
            c.recv(READER_EVENT_NOTIFICATION, match=lambda b: find(event_params(b), 250))
            self.assertEqual(sim.control("buffer-overflow"), "ok sent")
            c.recv(READER_EVENT_NOTIFICATION, match=lambda b: find(event_params(b), 251))

    def test_slow_client_costs_dropped_reads(self):
        with Simulator(["--rate", "20000", "--buffer-limit", "8192"]) as sim:
            c = LlrpClient(sim.llrp_port, rcvbuf=4096)
            self.assertEqual(c.connect_event(), 0)
            run_rospec(c, simctl.rospec(1), 1)
            self.assertTrue(wait_until(lambda: sim.stats()["reads_dropped"] > 0, timeout=10))
            c.recv(READER_EVENT_NOTIFICATION, timeout=10, match=lambda b: find(event_params(b), 251))
            c.request_ok(STOP_ROSPEC, U32.pack(1), STOP_ROSPEC_RESPONSE)

    def test_get_report_and_held_events(self):
        with Simulator(["--tags", "3"]) as sim:
            c = connect(sim)
            run_rospec(c, simctl.rospec(1, report=simctl.ro_report_spec(0, 0, ("antenna",))), 1)
            time.sleep(0.2)
            c.send(GET_REPORT, msg_id=77)
            _, rid, body = c.recv(RO_ACCESS_REPORT)
            self.assertEqual(rid, 77)
            self.assertGreaterEqual(len(tag_reports(body)), 3)
            # Hold events and reports over a reconnect until ENABLE_EVENTS_AND_REPORTS.
            self.assertEqual(status_of(set_config(c, tlv(226, b"\x80"))[1])[0], 0)
            c.close()
            self.assertTrue(wait_until(lambda: sim.stats()["client_connected"] == 0))
            sim.control("gpi 3 1")  # a GPIEvent while nobody listens
            c = connect(sim)
            self.assertEqual(capabilities(c)["antennas"], 4)
            with self.assertRaises(TimeoutError):
                c.recv(READER_EVENT_NOTIFICATION, 0.3)
            c.send(ENABLE_EVENTS_AND_REPORTS)
            c.recv(READER_EVENT_NOTIFICATION, match=lambda b: find(event_params(b), 248))


class SavedConfiguration(unittest.TestCase):
    def test_save_survives_a_restart_and_factory_reset_restores(self):
        with tempfile.TemporaryDirectory() as d:
            state = os.path.join(d, "reader.state")
            with Simulator(["--state", state]) as sim:
                c = connect(sim)
                set_config(c, simctl.antenna_configuration(2, power=20, session=2))
                c.send(CUSTOM_MESSAGE, U32.pack(simctl.VENDOR) + bytes([simctl.SAVE_SUBTYPE]), msg_id=55)
                t, rid, body = c.recv(CUSTOM_MESSAGE)
                vendor, subtype = struct.unpack_from(">IB", body)
                self.assertEqual((rid, vendor, subtype), (55, simctl.VENDOR, simctl.SAVE_REPLY_SUBTYPE))
                self.assertEqual(status_of(body, 5)[0], 0)
                self.assertEqual(sim.stats()["config_saves"], 1)
            with Simulator(["--state", state]) as sim:
                c = connect(sim)
                self.assertEqual(antenna_powers(c), {1: 81, 2: 20, 3: 81, 4: 81})
                self.assertEqual(status_of(set_config(c, reset=True)[1])[0], 0)
                self.assertEqual(antenna_powers(c), {1: 81, 2: 81, 3: 81, 4: 81})
            with open(state, "w") as f:
                f.write("antenna.1.transmit_power=900\n")
            with self.assertRaises(RuntimeError):
                Simulator(["--state", state]).start()


if __name__ == "__main__":
    unittest.main()
