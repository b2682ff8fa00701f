// tools/readersim/options.cc — the simulator's command line and its --help text.
#include "options.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tessera::readersim {

namespace {

const char kUsage[] =
    "usage: tessera-readersim [options]\n"
    "An LLRP 1.0.1 fixed reader simulator for one client at a time.\n"
    "\n"
    "Options:\n"
    "  --host ADDR          LLRP listening address (default 127.0.0.1)\n"
    "  --port N             LLRP port (default 5084; 0 picks a free port)\n"
    "  --control N          text control port on 127.0.0.1 (default none; 0 picks a free port)\n"
    "  --antennas N         antenna ports 1..N (default 4, at most 64)\n"
    "  --gpis N             general-purpose inputs (default 4)\n"
    "  --gpos N             general-purpose outputs (default 4)\n"
    "  --power-table MIN:MAX:STEP\n"
    "                       transmit power table in dBm (default 10:30:0.25 = 81 entries,\n"
    "                       index 1 = MIN; values are published in hundredths of dBm)\n"
    "  --tags N             random EPC-96 tags (default 100)\n"
    "  --seed S             seed of the tag population and RF model (default 20240611)\n"
    "  --epc-file FILE      one hex EPC per line (any even number of digits, 4..124);\n"
    "                       HEX/BITS gives the EPC's length in bits when it does not fill\n"
    "                       the last byte (e.g. ABCDEF/20: sent as EPCData of 20 bits, the\n"
    "                       last 4 bits, here F, as padding);\n"
    "                       blank lines and lines starting with # are skipped\n"
    "  --rate R             tag reads per second over all antennas of the running AISpec\n"
    "                       (default 200; 0 = as fast as the client takes them)\n"
    "  --buffer-limit BYTES report bytes queued for a slow client before reads are dropped\n"
    "                       (default 1048576; warning event at 75%, overflow event on drop)\n"
    "  --keepalive-misses N unanswered KEEPALIVEs that end the connection (default 3)\n"
    "  --state FILE         saved configuration: loaded at start, written on the save request\n"
    "  --ready-file PATH    written with \"llrp=PORT control=PORT\" once listening\n"
    "  --verbose            log every LLRP message in and out on stderr, one line each\n"
    "  --forget-config      forget the SET_READER_CONFIG values (antenna powers and receivers,\n"
    "                       KeepaliveSpec, ReaderEventNotificationSpec, ROReportSpec) at each\n"
    "                       new connection, as readers that keep them for one connection do:\n"
    "                       a connection starts from the configuration loaded at start or last\n"
    "                       saved; ROSpecs, antenna cables and input levels stay\n"
    "  --omit-field NAME[:P]\n"
    "                       leave the field NAME out of each TagReportData with probability P\n"
    "                       (default 1 = always) although the client asked for it; NAME one of\n"
    "                       antenna, rssi, channel, pc, seencount, firstseen, lastseen; may be\n"
    "                       repeated; the choice is seeded by --seed, and \"stats\" counts the\n"
    "                       omissions as omitted_NAME (once there is one)\n"
    "  --help               this text\n"
    "Once listening it prints \"listening on HOST:PORT\" (and \"control on 127.0.0.1:PORT\").\n"
    "\n"
    "Vendor extensions (vendor number 32473, the IANA number for documentation, RFC 5612):\n"
    "  Custom parameter subtype 1 in TagReportData: RF phase, data = s16 big-endian raw,\n"
    "    degrees = raw * 180 / 32767; present whenever TagReportContentSelector enables any\n"
    "    field.\n"
    "  CUSTOM_MESSAGE subtype 1 (client to reader, no data): save configuration; the reader\n"
    "    answers CUSTOM_MESSAGE subtype 2 with the same message ID whose data is one LLRPStatus\n"
    "    parameter. Saved: per antenna transmit power, receiver sensitivity, hop table and\n"
    "    channel, singulation session, tag population and transit time; the KeepaliveSpec;\n"
    "    the ROReportSpec; the ReaderEventNotificationSpec.\n"
    "\n"
    "RF model: tag i has a reach r_i = (rank_i + 0.5) / N, rank a seeded permutation of the\n"
    "  population. An antenna at power index p of a table of M entries sees tag i iff\n"
    "  r_i <= p / M, so the top index sees every tag and index p about N*p/M of them.\n"
    "  PeakRSSI = -40 - 30*r_i - (MAX-power dB)/2 - (antenna-1)/2, +-2 dB jitter, in\n"
    "  -75..-35 dBm. Pre-filters on the EPC bank (pointer in bits from the bank start, EPC at\n"
    "  bit 32), the TID bank (E2801160 + 8 serial bytes) or the reserved bank (zero passwords;\n"
    "  there is no user memory) select tags: state-unaware actions 0..5\n"
    "  act on SL (deasserted at start), a tag is read iff SL is asserted; state-aware actions\n"
    "  0..7 act on SL or the session's inventoried flag (A at start), a tag is read iff its\n"
    "  flag of the singulation session equals the singulation state (A when not given) and,\n"
    "  when a filter targets SL, SL matches the singulation S. Inventoried flags do not flip\n"
    "  when a tag is read. TagObservation N_Attempts counts rounds: one round is one read of\n"
    "  every visible tag on every antenna of the AISpec.\n"
    "\n"
    "Operation: ROSpec start triggers Null, Immediate, Periodic (offset, period, UTC time) and\n"
    "  GPI (port and level; its time-out is not used); stop triggers Null, Duration (0 = at once)\n"
    "  and GPI with time-out; AISpec stop triggers Null, Duration, GPI with time-out and tag\n"
    "  observation (N tags, no new tag for T ms, N attempts), each with its time-out. An ROSpec\n"
    "  ends when its stop trigger fires or its last AISpec ends. One ROSpec is active at a time:\n"
    "  meanwhile the triggers of others are ignored and START_ROSPEC is refused. ROSpecs and\n"
    "  settings (unless --forget-config) outlive a connection and the radio keeps running\n"
    "  without a client; what it reports meanwhile is dropped, or held for the next client\n"
    "  when EventsAndReports asks.\n"
    "  A C1G2InventoryCommand replaces the antenna's filters (none given: no filter); its\n"
    "  C1G2RFControl and C1G2SingulationControl change only when given.\n"
    "\n"
    "Control port commands (one per line; reply \"ok ...\" or \"error <why>\"):\n"
    "  gpi PORT 0|1                  set an input level (a change is a GPIEvent)\n"
    "  antenna PORT connected|disconnected\n"
    "  drop [rst]                    cut the client's connection without CLOSE (FIN, or RST)\n"
    "  refuse N                      the next N connections are accepted and reset at once\n"
    "                                (SO_LINGER 0): the client's connect or first read fails\n"
    "                                with ECONNRESET\n"
    "  deny N                        the next N connections get ConnectionAttemptEvent status 3\n"
    "                                and are closed\n"
    "  rate R                        change the read rate (0 = link speed)\n"
    "  buffer-warning                send a ReportBufferLevelWarningEvent\n"
    "  buffer-overflow               send a ReportBufferOverflowErrorEvent\n"
    "  rospecs                       \"ok ID=STATE ...\" of every ROSpec, STATE one of\n"
    "                                Disabled, Inactive, Active; \"ok none\" when none\n"
    "  power                         \"ok ANTENNA=INDEX ...\" transmit power indexes\n"
    "  stats                         \"ok key=value ...\" counters\n"
    "  quit                          exit 0\n";

// Reads a whole decimal number within [lo, hi]; false otherwise.
bool parseUnsigned(const char* text, unsigned long long lo, unsigned long long hi,
                   unsigned long long& out) {
  if (text == nullptr || *text == '\0' || *text == '-') return false;
  errno = 0;
  char* end = nullptr;
  unsigned long long v = strtoull(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || v < lo || v > hi) return false;
  out = v;
  return true;
}

bool parseDouble(const char* text, double& out) {
  if (text == nullptr || *text == '\0') return false;
  errno = 0;
  char* end = nullptr;
  double v = strtod(text, &end);
  if (errno != 0 || end == text || *end != '\0' || !std::isfinite(v)) return false;
  out = v;
  return true;
}

// "MIN:MAX:STEP" in dBm; the table must have 1..1000 entries within the s16 range.
bool parsePowerTable(const char* text, Options& out) {
  char buf[64];
  if (strlen(text) >= sizeof buf) return false;
  snprintf(buf, sizeof buf, "%s", text);
  char* a = buf;
  char* b = strchr(a, ':');
  if (b == nullptr) return false;
  *b++ = '\0';
  char* c = strchr(b, ':');
  if (c == nullptr) return false;
  *c++ = '\0';
  double lo = 0, hi = 0, step = 0;
  if (!parseDouble(a, lo) || !parseDouble(b, hi) || !parseDouble(c, step)) return false;
  if (step <= 0 || hi < lo || lo < -300 || hi > 300) return false;
  if ((hi - lo) / step > 999.5) return false;
  out.powerMinDbm = lo;
  out.powerMaxDbm = hi;
  out.powerStepDbm = step;
  return true;
}

// "NAME" or "NAME:PROBABILITY" with PROBABILITY in 0..1.
bool parseOmitField(const char* text, Options& out) {
  const char* colon = strchr(text, ':');
  const size_t nameLength = colon != nullptr ? static_cast<size_t>(colon - text) : strlen(text);
  double probability = 1.0;
  if (colon != nullptr &&
      (!parseDouble(colon + 1, probability) || probability < 0 || probability > 1)) {
    return false;
  }
  for (size_t f = 0; f < kReportFieldCount; ++f) {
    if (strlen(kReportFieldNames[f]) == nameLength &&
        strncmp(kReportFieldNames[f], text, nameLength) == 0) {
      out.omitProbability[f] = probability;
      return true;
    }
  }
  return false;
}

}  // namespace

const char* usageText() { return kUsage; }

unsigned powerTableSize(const Options& o) {
  return static_cast<unsigned>(std::floor((o.powerMaxDbm - o.powerMinDbm) / o.powerStepDbm + 1e-6)) + 1;
}

int16_t powerTableValue(const Options& o, unsigned index) {
  if (index < 1) index = 1;
  double dbm = o.powerMinDbm + (index - 1) * o.powerStepDbm;
  return static_cast<int16_t>(std::lround(dbm * 100.0));
}

int parseOptions(int argc, char** argv, Options& out, std::string& error) {
  for (int i = 1; i < argc; ++i) {
    const char* opt = argv[i];
    if (strcmp(opt, "--help") == 0 || strcmp(opt, "-h") == 0) {
      fputs(kUsage, stdout);
      return 1;
    }
    if (strcmp(opt, "--verbose") == 0 || strcmp(opt, "-v") == 0) {
      out.verbose = true;
      continue;
    }
    if (strcmp(opt, "--forget-config") == 0) {
      out.forgetConfig = true;
      continue;
    }
    if (i + 1 >= argc) {
      error = std::string("missing value after ") + opt + " (see --help)";
      return -1;
    }
    const char* val = argv[++i];
    unsigned long long n = 0;
    bool ok = true;
    if (strcmp(opt, "--host") == 0) {
      out.host = val;
    } else if (strcmp(opt, "--port") == 0) {
      ok = parseUnsigned(val, 0, 65535, n);
      out.port = static_cast<int>(n);
    } else if (strcmp(opt, "--control") == 0) {
      ok = parseUnsigned(val, 0, 65535, n);
      out.controlPort = static_cast<int>(n);
    } else if (strcmp(opt, "--antennas") == 0) {
      ok = parseUnsigned(val, 1, 64, n);
      out.antennas = static_cast<unsigned>(n);
    } else if (strcmp(opt, "--gpis") == 0) {
      ok = parseUnsigned(val, 0, 64, n);
      out.gpis = static_cast<unsigned>(n);
    } else if (strcmp(opt, "--gpos") == 0) {
      ok = parseUnsigned(val, 0, 64, n);
      out.gpos = static_cast<unsigned>(n);
    } else if (strcmp(opt, "--power-table") == 0) {
      ok = parsePowerTable(val, out);
    } else if (strcmp(opt, "--tags") == 0) {
      ok = parseUnsigned(val, 0, 1000000, n);
      out.tags = static_cast<unsigned>(n);
    } else if (strcmp(opt, "--seed") == 0) {
      ok = parseUnsigned(val, 0, UINT64_MAX, n);
      out.seed = n;
    } else if (strcmp(opt, "--epc-file") == 0) {
      out.epcFile = val;
    } else if (strcmp(opt, "--rate") == 0) {
      double r = 0;
      ok = parseDouble(val, r) && r >= 0 && r <= 1e7;
      out.rate = r;
    } else if (strcmp(opt, "--buffer-limit") == 0) {
      ok = parseUnsigned(val, 4096, 1ull << 30, n);
      out.bufferLimit = static_cast<size_t>(n);
    } else if (strcmp(opt, "--keepalive-misses") == 0) {
      ok = parseUnsigned(val, 1, 1000, n);
      out.keepaliveMisses = static_cast<unsigned>(n);
    } else if (strcmp(opt, "--state") == 0) {
      out.stateFile = val;
    } else if (strcmp(opt, "--omit-field") == 0) {
      ok = parseOmitField(val, out);
    } else if (strcmp(opt, "--ready-file") == 0) {
      out.readyFile = val;
    } else {
      error = std::string("unknown option ") + opt + " (see --help)";
      return -1;
    }
    if (!ok) {
      error = std::string("bad value for ") + opt + ": " + val;
      return -1;
    }
  }
  return 0;
}

}  // namespace tessera::readersim
