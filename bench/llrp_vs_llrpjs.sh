#!/bin/sh
# bench/llrp_vs_llrpjs.sh — decoding cost per tag of our LLRP codec next to llrpjs, on the same
# RO_ACCESS_REPORT frames (100 TagReportData each: EPC-96, antenna, peak RSSI, channel, first
# and last seen UTC, seen count, PC), printed as one table.
#
# Usage: bench/llrp_vs_llrpjs.sh [BENCH_LLRP] [FRAMES]
#   BENCH_LLRP  the bench_llrp binary of a Release build (default build/bin/bench_llrp)
#   FRAMES      reports in the stream (default 50; llrpjs needs tens of ms for each)
#
# The frames carry no vendor Custom parameter: llrpjs 1.0.1 reads a Custom parameter inside
# TagReportData to the end of the message, so with it llrpjs would see one tag per report.
# llrpjs has no documented call that decodes a buffer, so it is timed as a client over
# 127.0.0.1 (see bench/llrpjs_decode.js); our codec is timed both that way and in process.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
bench=${1:-$root/build/bin/bench_llrp}
frames=${2:-50}

if [ ! -x "$bench" ]; then
  echo "no bench_llrp at $bench (build it: cmake -DCMAKE_BUILD_TYPE=Release ...; ninja bench_llrp)" >&2
  exit 1
fi
if [ ! -d "$root/node_modules/llrpjs" ]; then
  (cd "$root" && npm ci --no-audit --no-fund >/dev/null)
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

"$bench" --dump "$work/stream.bin" --frames "$frames" --no-custom >/dev/null
"$bench" --benchmark_filter='BM_DecodeROAccessReport100/custom:0$' \
  --benchmark_format=json >"$work/inprocess.json" 2>/dev/null
node "$here/llrpjs_decode.js" "$work/stream.bin" "$frames" "$bench" >"$work/tcp.json"

python3 - "$work/inprocess.json" "$work/tcp.json" "$frames" <<'PY'
import json, sys
inproc = json.load(open(sys.argv[1]))["benchmarks"][0]
tcp = json.load(open(sys.argv[2]))
frames = sys.argv[3]
ours_mem = inproc["time_per_tag"] * 1e9  # counter is seconds per tag of CPU time
ours_tcp = tcp["ours_tcp_ns_per_tag"]
js_tcp = tcp["llrpjs_ns_per_tag"]
print(f"RO_ACCESS_REPORT with 100 TagReportData, {frames} reports "
      f"({tcp['llrpjs_tags']} tags timed over TCP)")
rows = [
    ("tessera llrp, in process", "decode() of a frame in memory, CPU", ours_mem, "1x"),
    ("tessera llrp, over TCP", "127.0.0.1, one report in flight", ours_tcp,
     f"{ours_tcp / ours_mem:.0f}x"),
    ("llrpjs 1.0.1, over TCP", "127.0.0.1, one report in flight", js_tcp,
     f"{js_tcp / ours_mem:.0f}x"),
]
print(f"{'decoder':<26} {'how':<36} {'ns/tag':>12} {'vs in process':>14}")
for name, how, ns, ratio in rows:
    print(f"{name:<26} {how:<36} {ns:>12.1f} {ratio:>14}")
print(f"llrpjs / tessera over TCP (same method): {js_tcp / ours_tcp:.0f}x")
if tcp["llrpjs_tags"] != tcp["ours_tags"]:
    print(f"warning: llrpjs saw {tcp['llrpjs_tags']} tags, tessera {tcp['ours_tags']}")
PY
