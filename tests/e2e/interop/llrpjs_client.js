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
const summary = { reports: 0, tags: [], fields: [] };
const fields = new Set();

const asList = (x) => (x === undefined ? [] : Array.isArray(x) ? x : [x]);
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

reader.on("RO_ACCESS_REPORT", (msg) => {
  summary.reports += 1;
  for (const tag of asList(msg.toLLRPData().data.TagReportData)) {
    Object.keys(tag).forEach((k) => fields.add(k));
    if (summary.tags.length < 50) summary.tags.push(tag);
  }
});
reader.on("error", (err) => {
  summary.error = String(err);
});

// Sends a request of the named type; its reply's data, with the reply's status text
// ("M_Success" when all went well) kept in the summary as <step>Status.
async function request(step, type, data) {
  const reply = (await reader.transact(new LLRPCore[type]({ data }))).toLLRPData().data;
  summary[step + "Status"] = reply.LLRPStatus.StatusCode;
  return reply;
}

const ROSPEC = {
  ROSpecID: ROSPEC_ID,
  ROBoundarySpec: {
    ROSpecStartTrigger: { ROSpecStartTriggerType: "Null" },
    ROSpecStopTrigger: { ROSpecStopTriggerType: "Duration", DurationTriggerValue: durationMs },
  },
  AISpec: {
    AntennaIDs: [1, 2],
    AISpecStopTrigger: { AISpecStopTriggerType: "Null" },
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
    // The fields not named here are off.
    TagReportContentSelector: {
      EnableROSpecID: true,
      EnableInventoryParameterSpecID: true,
      EnableAntennaID: true,
      EnableChannelIndex: true,
      EnablePeakRSSI: true,
      EnableFirstSeenTimestamp: true,
      EnableTagSeenCount: true,
    },
  },
};

(async () => {
  await reader.connect();
  const greeting = await reader.recv(5000);
  summary.connectStatus = greeting
    .toLLRPData()
    .data.ReaderEventNotificationData.ConnectionAttemptEvent.Status;

  const caps = await request("caps", "GET_READER_CAPABILITIES", { RequestedData: "All" });
  summary.antennas = caps.GeneralDeviceCapabilities.MaxNumberOfAntennaSupported;
  summary.manufacturer = caps.GeneralDeviceCapabilities.DeviceManufacturerName;
  summary.powers = asList(
    caps.RegulatoryCapabilities.UHFBandCapabilities.TransmitPowerLevelTableEntry,
  ).map((p) => p.TransmitPowerValue);
  const cfg = await request("config", "GET_READER_CONFIG", { AntennaID: 0, RequestedData: "All" });
  summary.antennaConfigurations = asList(cfg.AntennaConfiguration).length;

  await request("delete", "DELETE_ROSPEC", { ROSpecID: 0 });
  await request("reset", "SET_READER_CONFIG", { ResetToFactoryDefault: true });
  // Fewer messages back to back: no AISpec events, and the ROSpec's end is waited for by time.
  const quiet = ["GPI_Event", "ROSpec_Event", "AISpec_Event", "Antenna_Event"].map((t) => ({
    EventType: t,
    NotificationState: false,
  }));
  await request("events", "SET_READER_CONFIG", {
    ResetToFactoryDefault: false,
    ReaderEventNotificationSpec: { EventNotificationState: quiet },
  });
  await request("add", "ADD_ROSPEC", { ROSpec: ROSPEC });
  await request("enable", "ENABLE_ROSPEC", { ROSpecID: ROSPEC_ID });
  await request("start", "START_ROSPEC", { ROSpecID: ROSPEC_ID });
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
