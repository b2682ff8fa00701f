// bench/llrpjs_decode.js — times llrpjs decoding a stream of RO_ACCESS_REPORT frames written
// by bench_llrp --dump, and times our codec on the same stream the same way.
//
// llrpjs documents no call that decodes a buffer, only its client; so both sides are measured
// end to end over 127.0.0.1, the same way: the server writes the connection event and the
// first report, then one more frame each time the client writes anything (the client answers
// every report with a KEEPALIVE_ACK). That is how llrpjs has to be fed: given the whole stream
// at once, or frames right at connection, it stops emitting reports after the first few; so
// the server also waits a moment before the first frames. The clock runs from the first
// report decoded to the last, over the tags of reports 2 to N; llrpjs reads every EPC so that
// nothing is left undecoded. Our side is bench_llrp --tcp. Both figures include a loopback
// round trip and a wake-up of this server per report.
//
// Usage: node llrpjs_decode.js STREAM_FILE FRAMES BENCH_LLRP
// Prints one JSON line: {"llrpjs_ns_per_tag":..., "ours_tcp_ns_per_tag":..., ...}
"use strict";

const fs = require("fs");
const net = require("net");
const path = require("path");
const { execFile } = require("child_process");

const [streamFile, framesText, benchBinary] = process.argv.slice(2);
if (!streamFile || !framesText || !benchBinary) {
  console.error("usage: node llrpjs_decode.js STREAM_FILE FRAMES BENCH_LLRP");
  process.exit(2);
}
const frames = Number(framesText);
const stream = fs.readFileSync(streamFile);
const { LLRPClient, LLRPCore } = require(path.join(__dirname, "..", "node_modules", "llrpjs"));

// The stream cut into its frames.
const frameList = [];
for (let at = 0; at + 10 <= stream.length; ) {
  const length = stream.readUInt32BE(at + 2);
  frameList.push(stream.subarray(at, at + length));
  at += length;
}

// Serves the frames to every client, one more each time the client writes.
function startServer() {
  return new Promise((resolve) => {
    const server = net.createServer((socket) => {
      socket.setNoDelay(true);
      socket.on("error", () => {});
      let next = 0;
      setTimeout(() => {
        socket.write(frameList[next++]);
        setTimeout(() => socket.write(frameList[next++]), 50);
      }, 100);
      socket.on("data", () => {
        if (next < frameList.length) socket.write(frameList[next++]);
      });
    });
    server.listen(0, "127.0.0.1", () => resolve(server));
  });
}

function runOurs(port) {
  return new Promise((resolve, reject) => {
    execFile(benchBinary, ["--tcp", String(port), "--frames", String(frames)], (err, stdout) => {
      if (err) return reject(err);
      const m = /ns_per_tag ([0-9.]+) tags (\d+)/.exec(stdout);
      if (!m) return reject(new Error("unexpected output: " + stdout));
      resolve({ nsPerTag: Number(m[1]), tags: Number(m[2]) });
    });
  });
}

function runLlrpjs(port) {
  return new Promise((resolve, reject) => {
    const reader = new LLRPClient({ host: "127.0.0.1", port });
    let reports = 0;
    let tags = 0;
    let epcChars = 0;
    let start = 0n;
    let timed = 0;
    const timer = setTimeout(() => reject(new Error(`timeout after ${reports} reports`)), 600000);
    reader.on("RO_ACCESS_REPORT", (msg) => {
      let list = msg.getTagReportData();
      if (!Array.isArray(list)) list = list ? [list] : [];
      for (const tag of list) epcChars += String(tag.getEPCParameter().getEPC()).length;
      tags += list.length;
      reports += 1;
      if (reports === 1) {
        start = process.hrtime.bigint();
      } else {
        timed += list.length;
      }
      reader.send(new LLRPCore.KEEPALIVE_ACK());
      if (reports === frames) {
        const ns = Number(process.hrtime.bigint() - start);
        clearTimeout(timer);
        reader.disconnect().catch(() => {});
        resolve({ nsPerTag: ns / timed, tags: timed, epcChars });
      }
    });
    reader.on("error", (e) => {
      clearTimeout(timer);
      reject(e);
    });
    reader.connect().catch(reject);
  });
}

(async () => {
  const server = await startServer();
  const { port } = server.address();
  try {
    // One warm-up round each, then the measured round.
    await runOurs(port);
    const ours = await runOurs(port);
    await runLlrpjs(port);
    const js = await runLlrpjs(port);
    console.log(
      JSON.stringify({
        ours_tcp_ns_per_tag: ours.nsPerTag,
        ours_tags: ours.tags,
        llrpjs_ns_per_tag: js.nsPerTag,
        llrpjs_tags: js.tags,
      })
    );
    server.close();
    process.exit(0);
  } catch (e) {
    console.error(String(e && e.stack ? e.stack : e));
    server.close();
    process.exit(1);
  }
})();
