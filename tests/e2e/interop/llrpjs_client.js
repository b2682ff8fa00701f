// tests/e2e/interop/llrpjs_client.js — an independent LLRP client (llrpjs) against the reader
// simulator: connect, read capabilities, configure, run an ROSpec, collect tag reports, close.
// Prints one JSON summary on stdout; exits 1 with the error on stderr when a step fails.
//
// llrpjs, as run here, takes one message per socket read and stalls when an unrelated message
// arrives between a request and its reply (a message that shares a read with another is
// handled only at the next read). So events are turned off, the ROSpec stops itself (a duration
// trigger), requests are only sent while the reader is quiet and the last reply is taken by a
// listener.
//
// usage: node llrpjs_client.js PORT [DURATION_MS]
"use strict";

const { LLRPClient, LLRPCore } = require("llrpjs");

const port = Number(process.argv[2]);
const durationMs = Number(process.argv[3] || 1000);
const ROSPEC_ID = 77;

const reader = new LLRPClient({ host: "127.0.0.1", port });
const summary = { reports: 0, tags: [], fields: [], events: [] };
const fields = new Set();

const asList = (x) => (x === undefined ? [] : Array.isArray(x) ? x : [x]);

reader.on("RO_ACCESS_REPORT", (msg) => {
  summary.reports += 1;
  for (const tag of asList(msg.toLLRPData().data.TagReportData)) {
    Object.keys(tag).forEach((k) => fields.add(k));
    if (summary.tags.length < 50) summary.tags.push(tag);
  }
});
reader.on("READER_EVENT_NOTIFICATION", (msg) => {
  const data = msg.toLLRPData().data.ReaderEventNotificationData || {};
  summary.events.push(Object.keys(data).filter((k) => k !== "UTCTimestamp" && k !== "Uptime"));
});

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
reader.on("error", (err) => {
  summary.error = String(err);
});

// A request's reply and its status text ("M_Success" when all went well).
async function request(message) {
  const reply = await reader.transact(message);
  const data = reply.toLLRPData();
  return { name: data.type, status: data.data.LLRPStatus.StatusCode, data: data.data };
}

const ADD_ROSPEC = {
  data: {
    ROSpec: {
      ROSpecID: ROSPEC_ID,
      Priority: 0,
      CurrentState: "Disabled",
      ROBoundarySpec: {
        ROSpecStartTrigger: { ROSpecStartTriggerType: "Null" },
        ROSpecStopTrigger: { ROSpecStopTriggerType: "Duration", DurationTriggerValue: durationMs },
      },
      AISpec: {
        AntennaIDs: [1, 2],
        AISpecStopTrigger: { AISpecStopTriggerType: "Null", DurationTrigger: 0 },
        InventoryParameterSpec: {
          InventoryParameterSpecID: 9,
          ProtocolID: "EPCGlobalClass1Gen2",
          AntennaConfiguration: {
            AntennaID: 0,
            RFTransmitter: { HopTableID: 1, ChannelIndex: 1, TransmitPower: 81 },
          },
        },
      },
      ROReportSpec: {
        ROReportTrigger: "Upon_N_Tags_Or_End_Of_ROSpec",
        N: 1,
        TagReportContentSelector: {
          EnableROSpecID: true,
          EnableSpecIndex: false,
          EnableInventoryParameterSpecID: true,
          EnableAntennaID: true,
          EnableChannelIndex: true,
          EnablePeakRSSI: true,
          EnableFirstSeenTimestamp: true,
          EnableLastSeenTimestamp: false,
          EnableTagSeenCount: true,
          EnableAccessSpecID: false,
        },
      },
    },
  },
};

(async () => {
  await reader.connect();
  const greeting = await reader.recv(5000);
  summary.connectStatus = greeting
    .toLLRPData()
    .data.ReaderEventNotificationData.ConnectionAttemptEvent.Status;

  const caps = await request(new LLRPCore.GET_READER_CAPABILITIES({ data: { RequestedData: "All" } }));
  const general = caps.data.GeneralDeviceCapabilities;
  const powers = asList(
    caps.data.RegulatoryCapabilities.UHFBandCapabilities.TransmitPowerLevelTableEntry,
  );
  summary.capsStatus = caps.status;
  summary.antennas = general.MaxNumberOfAntennaSupported;
  summary.manufacturer = general.DeviceManufacturerName;
  summary.powers = powers.map((p) => p.TransmitPowerValue);

  const cfg = await request(
    new LLRPCore.GET_READER_CONFIG({
      data: { AntennaID: 0, RequestedData: "All", GPIPortNum: 0, GPOPortNum: 0 },
    }),
  );
  summary.configStatus = cfg.status;
  summary.antennaConfigurations = asList(cfg.data.AntennaConfiguration).length;

  summary.deleteStatus = (await request(new LLRPCore.DELETE_ROSPEC({ data: { ROSpecID: 0 } }))).status;
  summary.resetStatus = (
    await request(new LLRPCore.SET_READER_CONFIG({ data: { ResetToFactoryDefault: true } }))
  ).status;
  // Fewer messages back to back: no AISpec events, and the ROSpec's end is waited for by time.
  const quiet = ["GPI_Event", "ROSpec_Event", "AISpec_Event", "Antenna_Event"].map((t) => ({
    EventType: t,
    NotificationState: false,
  }));
  summary.eventsStatus = (
    await request(
      new LLRPCore.SET_READER_CONFIG({
        data: {
          ResetToFactoryDefault: false,
          ReaderEventNotificationSpec: { EventNotificationState: quiet },
        },
      }),
    )
  ).status;
  summary.addStatus = (await request(new LLRPCore.ADD_ROSPEC(ADD_ROSPEC))).status;
  summary.enableStatus = (
    await request(new LLRPCore.ENABLE_ROSPEC({ data: { ROSpecID: ROSPEC_ID } }))
  ).status;
  summary.startStatus = (await request(new LLRPCore.START_ROSPEC({ data: { ROSpecID: ROSPEC_ID } })))
    .status;
  await sleep(durationMs + 500);
  // A message left over from a shared read would be taken for the reply: listen instead.
  const closed = new Promise((resolve) => reader.once("CLOSE_CONNECTION_RESPONSE", resolve));
  await reader.send(new LLRPCore.CLOSE_CONNECTION());
  const reply = await Promise.race([closed, sleep(5000)]);
  summary.closeStatus = reply ? reply.toLLRPData().data.LLRPStatus.StatusCode : "no reply";
  summary.fields = [...fields].sort();
  if (reader.socketWritable) await reader.disconnect();
  process.stdout.write(JSON.stringify(summary) + "\n");
  process.exit(0);
})().catch((err) => {
  process.stderr.write("llrpjs client failed: " + (err && err.stack ? err.stack : err) + "\n");
  process.stderr.write(JSON.stringify(summary) + "\n");
  process.exit(1);
});
