#include "app/options.h"

#include <getopt.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tessera {
namespace {

enum OptionId {
  kRoot = 1000,
  kCommandPort,
  kDataPort,
  kReaderHost,
  kReaderPort,
  kRecordShell,
  kWaitScale,
  kClockOffset,
  kCheckConfig,
  kSpool,
  kSpoolMaxBytes,
};

const option kOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"root", required_argument, nullptr, kRoot},
    {"command-port", required_argument, nullptr, kCommandPort},
    {"data-port", required_argument, nullptr, kDataPort},
    {"reader-host", required_argument, nullptr, kReaderHost},
    {"reader-port", required_argument, nullptr, kReaderPort},
    {"record-shell", required_argument, nullptr, kRecordShell},
    {"wait-scale", required_argument, nullptr, kWaitScale},
    {"clock-offset", required_argument, nullptr, kClockOffset},
    {"check-config", no_argument, nullptr, kCheckConfig},
    {"spool", required_argument, nullptr, kSpool},
    {"spool-max-bytes", required_argument, nullptr, kSpoolMaxBytes},
    {nullptr, 0, nullptr, 0},
};

bool parsePort(const char* text, int& out) {
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || v < 1 || v > 65535) return false;
  out = static_cast<int>(v);
  return true;
}

bool parseLong(const char* text, long& out) {
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0') return false;
  out = v;
  return true;
}

// A byte count with an optional K, M or G (powers of 1024), from 1 MiB to 1 TiB: a smaller cap
// would not hold one segment.
bool parseBytes(const char* text, uint64_t& out) {
  char* end = nullptr;
  errno = 0;
  if (text[0] == '-') return false;
  unsigned long long v = std::strtoull(text, &end, 10);
  if (errno != 0 || end == text) return false;
  unsigned shift = 0;
  if (*end == 'K' || *end == 'k') shift = 10;
  if (*end == 'M' || *end == 'm') shift = 20;
  if (*end == 'G' || *end == 'g') shift = 30;
  if (shift != 0) ++end;
  if (*end != '\0' || v > (1ull << 40) >> shift) return false;
  out = static_cast<uint64_t>(v) << shift;
  return out >= (1ull << 20);
}

bool parseScale(const char* text, double& out) {
  char* end = nullptr;
  errno = 0;
  double v = std::strtod(text, &end);
  if (errno != 0 || end == text || *end != '\0' || !(v >= 0.0) || v > 1000.0) return false;
  out = v;
  return true;
}

int badValue(const char* program, const char* name, const char* value, const char* want) {
  std::fprintf(stderr, "%s: invalid value '%s' for --%s: %s\n", program, value, name, want);
  std::fprintf(stderr, "Try '%s --help' for more information.\n", program);
  return 2;
}

}  // namespace

void printUsage(const char* program) {
  std::printf(
      "Usage: %s [OPTION]...\n"
      "Tessera: relays the tag reads of the appliance's UHF RFID reader to HTTP(S), a USB HID\n"
      "keyboard, a TCP/IP client, an MQTT broker, hourly CSV files on a USB drive or the serial\n"
      "port.\n"
      "Commands arrive on 127.0.0.1:50017, notifications leave on 127.0.0.1:50018.\n"
      "Configuration: /readerconfig/AdvReaderConfig.xml and /readerconfig/cloud.conf.\n"
      "Log: syslog, identity \"tessera\"; also standard output when MVM_DEBUG=enable.\n"
      "\n"
      "On the appliance no option is needed. For a development PC and tests:\n"
      "  --root DIR           take every appliance path (/readerconfig, /dev/ttyS2, /dev/hidg0,\n"
      "                       /media/usbdrive, /proc/mounts, /var/volatile, ...) under DIR\n"
      "                       (default /)\n"
      "  --command-port N     command channel port (default 50017)\n"
      "  --data-port N        data channel port (default 50018)\n"
      "  --reader-host HOST   where the reader's LLRP service listens (default 127.0.0.1)\n"
      "  --reader-port N      reader port, overriding the one the commands give (default: the\n"
      "                       commands' port, 5084)\n"
      "  --record-shell FILE  append shell commands (umount, insmod, touch, ...) to FILE, one per\n"
      "                       line, instead of running them\n"
      "  --wait-scale F       multiply every fixed wait (retry and reconnect pauses, start\n"
      "                       delays) by F (default 1; tests use e.g. 0.01)\n"
      "  --clock-offset S     move the service's wall clock by S seconds (tests of hourly files)\n"
      "  --check-config       read the configuration files, print what was read, missing,\n"
      "                       refused or cut, and exit: 0 usable, 1 not\n"
      "\n"
      "Outage spool (HTTP POST, TCP/IP and MQTT relays; off by default):\n"
      "  --spool DIR          keep reading while the server, client or broker is away: batches\n"
      "                       that cannot be delivered go to segment files in DIR and are\n"
      "                       delivered, oldest first, once it is back, also after a restart;\n"
      "                       each batch's report gains \"batch_seq\":N\n"
      "  --spool-max-bytes N  the spool's cap; the oldest batches are dropped beyond it\n"
      "                       (default 64M; K, M, G suffixes; 1M to 1024G)\n"
      "  -h, --help           show this text and exit\n"
      "\n"
      "Environment: MVM_DEBUG=enable copies every log line to standard output.\n"
      "Exit status: 0 after SIGINT/SIGTERM and an orderly cleanup, 1 when a listening socket\n"
      "cannot be set up, 2 for a bad command line.\n",
      program);
}

int parseCommandLine(int argc, char** argv, CommandLine& out) {
  const char* program = argc > 0 ? argv[0] : "tessera";
  optind = 1;
  opterr = 0;
  for (;;) {
    int longIndex = 0;
    int c = getopt_long(argc, argv, ":h", kOptions, &longIndex);
    if (c == -1) break;
    switch (c) {
      case 'h':
        out.help = true;
        break;
      case kRoot:
        if (optarg[0] == '\0') return badValue(program, "root", optarg, "an existing folder");
        out.settings.root = optarg;
        break;
      case kCommandPort:
        if (!parsePort(optarg, out.settings.commandPort))
          return badValue(program, "command-port", optarg, "a port from 1 to 65535");
        break;
      case kDataPort:
        if (!parsePort(optarg, out.settings.dataPort))
          return badValue(program, "data-port", optarg, "a port from 1 to 65535");
        break;
      case kReaderHost:
        if (optarg[0] == '\0') return badValue(program, "reader-host", optarg, "a host name");
        out.settings.readerHost = optarg;
        break;
      case kReaderPort:
        if (!parsePort(optarg, out.settings.readerPort))
          return badValue(program, "reader-port", optarg, "a port from 1 to 65535");
        break;
      case kRecordShell:
        if (optarg[0] == '\0') return badValue(program, "record-shell", optarg, "a file path");
        out.settings.recordShell = optarg;
        break;
      case kWaitScale:
        if (!parseScale(optarg, out.settings.waitScale))
          return badValue(program, "wait-scale", optarg, "a number from 0 to 1000");
        break;
      case kClockOffset:
        if (!parseLong(optarg, out.settings.clockOffset))
          return badValue(program, "clock-offset", optarg, "a whole number of seconds");
        break;
      case kCheckConfig:
        out.checkConfig = true;
        break;
      case kSpool:
        if (optarg[0] == '\0') return badValue(program, "spool", optarg, "a folder");
        out.settings.spoolDir = optarg;
        break;
      case kSpoolMaxBytes:
        if (!parseBytes(optarg, out.settings.spoolMaxBytes))
          return badValue(program, "spool-max-bytes", optarg,
                          "a size from 1M to 1024G, e.g. 64M or 1G");
        break;
      case ':':
        std::fprintf(stderr, "%s: option '%s' needs a value\n", program, argv[optind - 1]);
        std::fprintf(stderr, "Try '%s --help' for more information.\n", program);
        return 2;
      default:
        std::fprintf(stderr, "%s: unknown option '%s'\n", program, argv[optind - 1]);
        std::fprintf(stderr, "Try '%s --help' for more information.\n", program);
        return 2;
    }
  }
  if (optind < argc) {
    std::fprintf(stderr, "%s: unexpected argument '%s'\n", program, argv[optind]);
    std::fprintf(stderr, "Try '%s --help' for more information.\n", program);
    return 2;
  }
  return 0;
}

}  // namespace tessera
